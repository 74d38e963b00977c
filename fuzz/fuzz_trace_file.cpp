// A whole trace configuration file, with the lines of its reading switched on.
#include "fuzzing.h"

#include "tracing.h"

#include <unistd.h>

#include <fstream>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::string path = "/tmp/bootlume-fuzz-trace-" + std::to_string(getpid());
    discardOutput();
    Trace::TraceConfig& configuration = Trace::Log::s_configuration;
    configuration = Trace::TraceConfig();
    configuration.appName = "bootlume";
    configuration.level = Trace::LEVEL_VERBOSE;
    configuration.masks.set({0xFFFFFFFF});
    Trace::Log::s_configFilePath = path;
    std::ofstream(path, std::ios::binary) << textOf(data, size);
    const bool applied = Trace::Log::readConfig();
    unlink(path.c_str());
    require(configuration.appName == "bootlume", "the name stays");
    require(configuration.level >= 1 && configuration.level <= 6, "a level lies between 1 and 6");
    require(applied || configuration.level == Trace::LEVEL_VERBOSE, "what is not applied is kept");
    configuration.toSyslog = false;
    return 0;
}
