#include "server/startup_watchdog.h"

#include "tracing.h"

namespace {

void reboot(brem::IProcess& rebootProcess) {
    rebootProcess.start([](int result) {
        TRACE(Trace::LEVEL_INFO, "reboot started with result: " << TRACE_VALUE(result));
    });
}

} // namespace

brem::IDispatcher::Message softTimeout(brem::IProcess& vrxRebootProcess,
                                       brem::IProcess& rebootProcess) {
    return [&vrxRebootProcess, &rebootProcess] {
        TRACE(Trace::LEVEL_WARN, "startup timeout: rebooting via VRX");
        vrxRebootProcess.start([&rebootProcess](int result) {
            if (result == 0) {
                TRACE(Trace::LEVEL_INFO, "VRX reboot started with result: " << TRACE_VALUE(result));
                return;
            }
            TRACE(Trace::LEVEL_ERROR,
                  "failed to start VRX reboot, rebooting" << TRACE_VALUE(result));
            reboot(rebootProcess);
        });
    };
}

brem::IDispatcher::Message hardTimeout(brem::IProcess& rebootProcess) {
    return [&rebootProcess] {
        TRACE(Trace::LEVEL_WARN, "startup timeout: rebooting");
        reboot(rebootProcess);
    };
}
