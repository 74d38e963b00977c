// The splitting of texts: nothing is lost, nothing is invented.
#include "fuzzing.h"

#include "split.h"

namespace {

void check(const std::string& text, const std::string& delimiter) {
    std::string joined;
    for (const std::string& piece : brem::split(text, delimiter)) {
        require(piece.find(delimiter) == std::string::npos, "no piece holds the delimiter");
        joined += piece + delimiter;
    }
    require(joined == text || joined == text + delimiter, "the pieces make up the text");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = textOf(data, size);
    check(text, "\n");
    check(text, ";");
    check(text, "\\n");
    return 0;
}
