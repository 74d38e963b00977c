#include "log.h"

#include "real.h"
#include "settings.h"

#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <sys/prctl.h>
#include <sys/syscall.h>

namespace virtual_device {
namespace {

std::atomic<int> logDescriptor{-1};
constexpr std::size_t TAIL = 160; // room for what write() adds

} // namespace

void openLog() {
    if (settings().log[0] == '\0') {
        return;
    }
    const int fd = real().open(settings().log, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (fd < 0) {
        refuse("VIRTUAL_DEVICE_LOG", settings().log, strerror(errno));
    }
    logDescriptor = keepOwnDescriptor(fd);
}

Record::Record(const char* kind, const char* call) : m_active(logDescriptor.load() >= 0) {
    if (!m_active) {
        return;
    }
    const int saved = errno;
    char thread[17] = "";
    syscall(SYS_prctl, PR_GET_NAME, thread, 0, 0, 0);
    m_start = monotonicNs();
    put("{", 1);
    add("time_ns", m_start);
    add("pid", static_cast<std::int64_t>(syscall(SYS_getpid)));
    add("tid", static_cast<std::int64_t>(syscall(SYS_gettid)));
    add("thread", thread);
    add("kind", kind);
    add("call", call);
    errno = saved;
}

void Record::put(const char* text, std::size_t length) {
    memcpy(m_line + m_length, text, length);
    m_length += length;
}

void Record::putText(const char* text) {
    put("\"", 1);
    for (; *text != '\0' && m_length + 8 + TAIL < sizeof(m_line); ++text) {
        const auto byte = static_cast<unsigned char>(*text);
        if (byte >= 0x20 && byte != '"' && byte != '\\') {
            put(text, 1);
            continue;
        }
        static const char digits[] = "0123456789abcdef";
        const char escape[] = {'\\', 'u', '0', '0', digits[byte / 16], digits[byte % 16]};
        put(escape, sizeof(escape));
    }
    put("\"", 1);
}

void Record::putNumber(std::int64_t value) {
    char digits[24];
    char* end = digits + sizeof(digits);
    char* start = end;
    std::uint64_t rest =
        value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
    do {
        *--start = static_cast<char>('0' + rest % 10);
        rest /= 10;
    } while (rest != 0);
    if (value < 0) {
        *--start = '-';
    }
    put(start, static_cast<std::size_t>(end - start));
}

void Record::putKey(const char* key) {
    if (!m_first) {
        put(",", 1);
    }
    m_first = false;
    putText(key);
    put(":", 1);
}

void Record::add(const char* key, std::int64_t value) {
    if (!m_active || m_length + strlen(key) + 32 > sizeof(m_line)) {
        return;
    }
    putKey(key);
    putNumber(value);
}

void Record::add(const char* key, const char* text) {
    if (!m_active || m_length + strlen(key) + 16 + TAIL > sizeof(m_line)) {
        return;
    }
    putKey(key);
    if (text == nullptr) {
        put("null", 4);
    } else {
        putText(text);
    }
}

void Record::addHex(const char* key, std::uint64_t value) {
    char text[20];
    char* start = text + sizeof(text);
    *--start = '\0';
    do {
        *--start = "0123456789abcdef"[value % 16];
        value /= 16;
    } while (value != 0);
    *--start = 'x';
    *--start = '0';
    add(key, start);
}

void Record::beginObject(const char* key) {
    if (!m_active) {
        return;
    }
    putKey(key);
    put("{", 1);
    m_first = true;
}

void Record::endObject() {
    if (!m_active) {
        return;
    }
    put("}", 1);
    m_first = false;
}

void Record::finish(std::int64_t result, int error) {
    if (!m_active) {
        return;
    }
    add("result", result);
    add("errno", error);
    if (error != 0) {
        add("error", strerrorname_np(error));
    }
    write();
}

void Record::write() {
    if (!m_active) {
        return;
    }
    const int saved = errno;
    add("duration_ns", monotonicNs() - m_start);
    put("}\n", 2);
    if (syscall(SYS_write, logDescriptor.load(), m_line, m_length) < 0 && errno == EBADF) {
        // A child that closes all descriptors before it executes a program is recorded none the
        // less.
        const long fd =
            syscall(SYS_openat, AT_FDCWD, settings().log, O_WRONLY | O_APPEND | O_CLOEXEC, 0);
        syscall(SYS_write, fd, m_line, m_length);
        syscall(SYS_close, fd);
    }
    errno = saved;
}

} // namespace virtual_device
