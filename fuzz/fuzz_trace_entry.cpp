// One line of the trace configuration.
#include "fuzzing.h"

#include "tracing.h"

#include <stdexcept>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    discardOutput();
    Trace::Log::s_configuration.appName = "bootlume";
    try {
        const Trace::TraceConfig entry = Trace::Log::parseEntry(textOf(data, size));
        require(entry.appName.empty() || entry.appName == "bootlume", "only our entries are ours");
        require(entry.level >= 1 && entry.level <= 6, "a level lies between 1 and 6");
        require(!entry.appName.empty() ||
                    (entry.level == 4 && !entry.toSyslog && entry.masks.get()->empty()),
                "no entry changes nothing");
    } catch (const std::invalid_argument& error) {
        require(std::string(error.what()).rfind("sto", 0) == 0, "the conversion raises");
    } catch (const std::out_of_range& error) {
        require(std::string(error.what()).rfind("sto", 0) == 0, "the conversion raises");
    }
    return 0;
}
