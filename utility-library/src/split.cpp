#include "split.h"

namespace brem {

std::vector<std::string> split(const std::string& text, const std::string& delimiter) {
    std::vector<std::string> pieces;
    std::string::size_type begin = 0;
    for (auto end = text.find(delimiter); end != std::string::npos;
         end = text.find(delimiter, begin)) {
        pieces.push_back(text.substr(begin, end - begin));
        begin = end + delimiter.size();
    }
    if (begin < text.size()) {
        pieces.push_back(text.substr(begin));
    }
    return pieces;
}

} // namespace brem
