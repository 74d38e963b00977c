#include "nearest.h"

#include <algorithm>
#include <cctype>
#include <cstddef>

namespace ctl {
namespace {

bool alike(char left, char right) {
    return std::tolower(static_cast<unsigned char>(left)) ==
           std::tolower(static_cast<unsigned char>(right));
}

/// Characters to be added, left out, replaced, or swapped with their neighbour.
std::size_t distance(const std::string& from, const std::string& to) {
    std::vector<std::vector<std::size_t>> cost(from.size() + 1,
                                               std::vector<std::size_t>(to.size() + 1));
    for (std::size_t i = 0; i <= from.size(); ++i) {
        for (std::size_t k = 0; k <= to.size(); ++k) {
            if (i == 0 || k == 0) {
                cost[i][k] = i + k;
                continue;
            }
            const std::size_t replaced = alike(from[i - 1], to[k - 1]) ? 0 : 1;
            cost[i][k] =
                std::min({cost[i - 1][k] + 1, cost[i][k - 1] + 1, cost[i - 1][k - 1] + replaced});
            if (i > 1 && k > 1 && alike(from[i - 1], to[k - 2]) && alike(from[i - 2], to[k - 1])) {
                cost[i][k] = std::min(cost[i][k], cost[i - 2][k - 2] + 1);
            }
        }
    }
    return cost[from.size()][to.size()];
}

} // namespace

std::string nearest(const std::string& word, const std::vector<std::string>& known) {
    std::string found;
    std::size_t least = word.size() / 2 + 1; // more than half of it wrong is another word
    for (const std::string& candidate : known) {
        const std::size_t far = distance(word, candidate);
        if (far < least) {
            least = far;
            found = candidate;
        }
    }
    return found;
}

} // namespace ctl
