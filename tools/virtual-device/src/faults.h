/// \file
/// Faults on demand: chosen calls of the device fail or block.
#pragma once

#include <cstdint>

namespace virtual_device {

/// What a fault can strike. The names are those of opName.
enum class Op : unsigned {
    OPEN,
    CLOSE,
    MMAP,
    MUNMAP,
    QUERY_CAP,
    GET_FMT,
    SET_FMT,
    REQ_BUFS,
    QUERY_BUF,
    QBUF,
    DQBUF,
    STREAM_ON,
    STREAM_OFF,
    COUNT
};

const char* opName(Op op);

/// Takes over "OP@N=ERRNO", "OP@N+=ERRNO", "OP@N=hold" and "OP@N=block", separated by commas.
/// Returns null, or what is wrong with the text.
const char* parseFaults(const char* text);

/// Counts one call. Returns the errno with which it must fail, or 0 where it goes on; a call that
/// is to block does that in here. A block returns EINTR when a signal handler without SA_RESTART
/// ran.
int strike(Op op);

} // namespace virtual_device
