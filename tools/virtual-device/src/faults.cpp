#include "faults.h"

#include "log.h"
#include "real.h"
#include "settings.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>

namespace virtual_device {
namespace {

constexpr unsigned OPS = static_cast<unsigned>(Op::COUNT);
constexpr std::array<const char*, OPS> NAMES = {"open",
                                                "close",
                                                "mmap",
                                                "munmap",
                                                "VIDIOC_QUERYCAP",
                                                "VIDIOC_G_FMT",
                                                "VIDIOC_S_FMT",
                                                "VIDIOC_REQBUFS",
                                                "VIDIOC_QUERYBUF",
                                                "VIDIOC_QBUF",
                                                "VIDIOC_DQBUF",
                                                "VIDIOC_STREAMON",
                                                "VIDIOC_STREAMOFF"};
constexpr std::size_t MOST_FAULTS = 128;
constexpr std::uint64_t MOST_CALLS = 1000000000;
constexpr std::int64_t LOOK_NS = 1000000; // how often a held call looks
const std::uint32_t NEVER = 0;            // a word that does not change

struct Fault {
    Op op;
    std::uint64_t from;
    std::uint64_t to;
    int error; ///< 0: wait
    bool held; ///< Until the desk's file is there; else for ever.
};

// Plain memory, filled at load and only read afterwards.
std::array<Fault, MOST_FAULTS> faults;
std::size_t faultCount = 0;
std::array<std::atomic<std::uint64_t>, OPS> calls;

bool parseOp(const std::string& name, Op& op) {
    for (unsigned i = 0; i < OPS; ++i) {
        if (name == NAMES[i]) {
            op = static_cast<Op>(i);
            return true;
        }
    }
    return false;
}

int parseErrno(const std::string& name) {
    for (int number = 1; number < 4096; ++number) {
        const char* candidate = strerrorname_np(number);
        if (candidate != nullptr && name == candidate) {
            return number;
        }
    }
    return 0;
}

const char* parseAction(const std::string& action, Fault& fault) {
    fault.held = action == "hold";
    if (fault.held || action == "block") {
        return nullptr;
    }
    fault.error = parseErrno(action);
    return fault.error != 0 ? nullptr : "the action must be an errno name, hold or block";
}

const char* parseFault(const std::string& text) {
    const std::size_t at = text.find('@');
    const std::size_t equals = text.find('=');
    if (at == std::string::npos || equals == std::string::npos || equals < at) {
        return "a fault has the form OP@N=ACTION or OP@N+=ACTION";
    }
    Fault fault{};
    if (!parseOp(text.substr(0, at), fault.op)) {
        return "there is no such operation";
    }
    const bool andAllAfter = text[equals - 1] == '+';
    const char* start = text.c_str();
    if (!parseNumber(start + at + 1, start + equals - (andAllAfter ? 1 : 0), MOST_CALLS,
                     fault.from) ||
        fault.from == 0) {
        return "calls are counted from 1";
    }
    fault.to = andAllAfter ? UINT64_MAX : fault.from;
    if (const char* why = parseAction(text.substr(equals + 1), fault)) {
        return why;
    }
    if (faultCount == MOST_FAULTS) {
        return "there are too many faults";
    }
    faults[faultCount++] = fault;
    return nullptr;
}

/// Counts the call; the fault that is due for it, or null.
const Fault* due(Op op, std::uint64_t& number) {
    number = calls[static_cast<unsigned>(op)].fetch_add(1) + 1;
    for (std::size_t i = 0; i < faultCount; ++i) {
        const Fault& fault = faults[i];
        if (fault.op == op && number >= fault.from && number <= fault.to) {
            return &fault;
        }
    }
    return nullptr;
}

const char* actionName(const Fault& fault) {
    if (fault.error != 0) {
        return strerrorname_np(fault.error);
    }
    return fault.held ? "hold" : "block";
}

void report(const Fault& fault, std::uint64_t number) {
    Record record("fault", opName(fault.op));
    record.add("n", static_cast<std::int64_t>(number));
    record.add("action", actionName(fault));
    record.write();
}

/// Until the desk's file says that it may go on; whatever signals come.
int hold() {
    const std::string file = std::string(settings().root) + "/go";
    while (real().access(file.c_str(), F_OK) != 0) {
        waitWhile(&NEVER, 0, monotonicNs() + LOOK_NS);
    }
    return 0;
}

int block() {
    int result = 0;
    while (result == 0) {
        result = waitWhile(&NEVER, 0, -1);
    }
    return result;
}

} // namespace

const char* opName(Op op) {
    return NAMES.at(static_cast<unsigned>(op));
}

const char* parseFaults(const char* text) {
    for (const char* start = text; start != nullptr;) {
        const char* end = start + strcspn(start, ",");
        if (const char* why = parseFault(std::string(start, end))) {
            return why;
        }
        start = *end == ',' ? end + 1 : nullptr;
    }
    return nullptr;
}

int strike(Op op) {
    std::uint64_t number = 0;
    const Fault* fault = due(op, number);
    if (fault == nullptr) {
        return 0;
    }
    report(*fault, number);
    if (fault->error != 0) {
        return fault->error;
    }
    return fault->held ? hold() : block();
}

} // namespace virtual_device
