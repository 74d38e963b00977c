/// \file
/// For the files that put this library's functions before those of the C library.
#pragma once

#define VIRTUAL_DEVICE_EXPORT extern "C" __attribute__((visibility("default")))
