// Start and end of the library within a process.
#include "descriptors.h"
#include "device.h"
#include "log.h"
#include "real.h"
#include "settings.h"

#include <pthread.h>

namespace virtual_device {
namespace {

/// The child of a fork has no device: what it closes or unmaps is its own copy.
void startChild() {
    forgetDescriptors();
    forgetDevice();
}

__attribute__((constructor)) void startLibrary() {
    real();
    readSettings();
    openLog();
    pthread_atfork(nullptr, nullptr, &startChild);
}

__attribute__((destructor)) void endLibrary() {
    if (Device* used = deviceIfUsed()) {
        used->abandon();
    }
}

} // namespace
} // namespace virtual_device
