#include "display/language.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace paint {

namespace {

const char* const SETTINGS = "/opt/userdata/devicestack/appData/confd/GeneratorConfiguration";
const char SELECTION[] = R"("selectedLanguage":"zh")";
constexpr std::size_t SELECTION_LENGTH = sizeof SELECTION - 1;
static_assert(SELECTION_LENGTH == 23, "the exact text, without blanks");

ssize_t readSome(int descriptor, char* buffer, std::size_t size, off64_t place) {
    ssize_t count;
    do {
        count = pread64(descriptor, buffer, size, place);
    } while (count == -1 && errno == EINTR);
    return count;
}

/// The plain fstat fails where a size or a date does not fit into 32 bits.
bool isFile(int descriptor) {
    struct statx found {};
    return statx(descriptor, "", AT_EMPTY_PATH, STATX_TYPE, &found) == 0 && S_ISREG(found.stx_mode);
}

/// As few calls as can be, for this is done in every frame. A pipe or a terminal has no place to be
/// read at, so nothing is taken from it.
bool containsSelection(int descriptor) {
    char window[4096];
    std::size_t kept = 0; // the end of the last window: the text may lie across two of them
    off64_t place = 0;
    for (;;) {
        const std::size_t room = sizeof window - kept;
        const ssize_t result = readSome(descriptor, window + kept, room, place);
        if (result < 1) {
            return false;
        }
        const auto count = static_cast<std::size_t>(result);
        const std::size_t filled = kept + count;
        if (memmem(window, filled, SELECTION, SELECTION_LENGTH) != nullptr) {
            return true;
        }
        if (count < room) { // the end of the file
            return false;
        }
        // A device may never end, and the ring waits for the end of what is read.
        if (place == 0 && !isFile(descriptor)) {
            return false;
        }
        place += result;
        kept = SELECTION_LENGTH - 1;
        std::memmove(window, window + filled - kept, kept);
    }
}

} // namespace

bool isChineseSelected() {
    // Without blocking: a pipe in the file's place must not hold the ring up.
    const int descriptor =
        open(SETTINGS, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_LARGEFILE);
    if (descriptor < 0) {
        return false;
    }
    const bool chinese = containsSelection(descriptor);
    close(descriptor);
    return chinese;
}

} // namespace paint
