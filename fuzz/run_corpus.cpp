// Runs every file of the folders and files named on the command line through a fuzz target, once.
#include "fuzzing.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

namespace {

std::vector<std::filesystem::path> filesOf(int argc, char* argv[]) {
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argc; ++i) {
        if (!std::filesystem::is_directory(argv[i])) {
            files.emplace_back(argv[i]);
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace

int main(int argc, char* argv[]) {
    const auto files = filesOf(argc, argv);
    require(!files.empty(), "there is a corpus");
    for (const auto& file : files) {
        std::ifstream stream(file, std::ios::binary);
        std::ostringstream whole;
        whole << stream.rdbuf();
        const std::string content = whole.str();
        std::fprintf(stderr, "%s\n", file.filename().c_str());
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(content.data()),
                               content.size());
    }
    std::fprintf(stderr, "%zu inputs\n", files.size());
    return 0;
}
