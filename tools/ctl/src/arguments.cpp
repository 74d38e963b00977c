#include "arguments.h"

#include "nearest.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <map>
#include <stdexcept>

namespace ctl {
namespace {

const char* const EXIT_STATUS = "Exit status:\n"
                                "  0  done\n"
                                "  1  the system refused (the reason is on standard error)\n"
                                "  2  the command line, or a text that the splash cannot be sent\n"
                                "  3  no splash answers, or none came up in time\n"
                                "  4  the splash does not answer, or took longer than it may";
const char* const ABOUT_QUIT =
    "It returns when the splash's process has gone, and repeats the message until then:\n"
    "one that is sent in a splash's first moments may be lost.\n\n";
const char* const ABOUT_TEXT =
    "A single LINE may hold all lines, separated by \\n. A text that begins with a dash\n"
    "goes behind \"--\". What the socket cannot carry, such as a semicolon, is refused.\n\n";
const char* const ABOUT_STATUS =
    "It tells the splash's process id and since when it runs. Nothing is sent to it.\n\n";
const char* const ABOUT_TRACE =
    "The level holds now and at the splash's next starts. What is not given stays as it\n"
    "is. The line that stands in the trace configuration then is printed.\n\n";
const char* const ABOUT_REPORT =
    "It gathers what others need to know to find an error, and changes nothing. Texts of\n"
    "the splash, and what reboot programs said, are left out.\n\n";

constexpr double MOST_SECONDS = 1e6;

/// False for what is no number, too.
bool isTime(double seconds) {
    return seconds >= 0 && seconds <= MOST_SECONDS;
}

CLI::App* addCommand(CLI::App& app, const char* name, const char* summary, const char* about) {
    CLI::App* const command = app.add_subcommand(name, summary);
    command->footer(std::string(about) + EXIT_STATUS);
    return command;
}

void addQuit(CLI::App& app, Arguments& arguments) {
    CLI::App* const quit = addCommand(app, "quit", "End the splash", ABOUT_QUIT);
    quit->add_option("--timeout", arguments.quit.timeoutSeconds, "Give up after so long; 0: never")
        ->type_name("SECONDS")
        ->capture_default_str();
    CLI::Option* const wait =
        quit->add_flag("--wait", arguments.quit.wait, "Wait for a splash that has not come up yet");
    quit->add_flag("--if-running", arguments.quit.ifRunning, "No splash is no error")
        ->excludes(wait);
    quit->callback([&] {
        if (!isTime(arguments.quit.timeoutSeconds)) {
            throw CLI::ValidationError("--timeout", "give 0 to 1000000 seconds");
        }
        arguments.command = [&] { return ctl::quit(arguments.places, arguments.quit); };
    });
}

void addText(CLI::App& app, Arguments& arguments) {
    CLI::App* const text =
        addCommand(app, "text", "Replace the title and the lines of the page", ABOUT_TEXT);
    text->add_option("TITLE", arguments.title, "Title")->required()->type_name("");
    text->add_option("LINE", arguments.lines, "Lines, top to bottom")->required()->type_name("");
    text->callback([&] {
        arguments.command = [&] {
            return ctl::text(arguments.places, arguments.title, arguments.lines);
        };
    });
}

void addStatus(CLI::App& app, Arguments& arguments) {
    CLI::App* const status =
        addCommand(app, "status", "Tell whether a splash answers", ABOUT_STATUS);
    status->add_flag("--json", arguments.json, "As one line of JSON");
    status->callback(
        [&] { arguments.command = [&] { return ctl::status(arguments.places, arguments.json); }; });
}

TraceWish wishOf(const Arguments& arguments) {
    TraceWish wish;
    wish.level = parseLevel(arguments.level);
    if (!arguments.masks.empty()) {
        wish.masks = parseMasks(arguments.masks);
    }
    if (arguments.toSyslog || arguments.toStdout) {
        wish.toSyslog = arguments.toSyslog;
    }
    return wish;
}

int runTrace(const Arguments& arguments) {
    std::optional<std::chrono::milliseconds> time;
    if (arguments.seconds) {
        time =
            std::chrono::milliseconds(static_cast<long long>(std::ceil(*arguments.seconds * 1000)));
    }
    try {
        return trace(arguments.places, wishOf(arguments), time);
    } catch (const std::invalid_argument& error) {
        return complain(error.what(), EXIT_USAGE);
    }
}

void addTrace(CLI::App& app, Arguments& arguments) {
    CLI::App* const trace =
        addCommand(app, "trace", "Set how much the splash writes to its log", ABOUT_TRACE);
    trace
        ->add_option("LEVEL", arguments.level,
                     "1 to 6, or FATAL, ERROR, WARN, INFO, DEBUG, VERBOSE")
        ->required()
        ->type_name("");
    trace
        ->add_option("--mask", arguments.masks,
                     "Hexadecimal words, or DISPATCHER, TRACING, ALL, NONE; separated by commas")
        ->type_name("MASKS")
        ->expected(1)
        ->take_all();
    CLI::Option* const toSyslog =
        trace->add_flag("--syslog", arguments.toSyslog, "Write the log to syslog");
    trace->add_flag("--stdout", arguments.toStdout, "Write the log to standard output")
        ->excludes(toSyslog);
    const std::map<std::string, double> units{{"s", 1}, {"m", 60}, {"h", 3600}};
    trace
        ->add_option("--for", arguments.seconds,
                     "Wait so long (30s, 5m, 1h), then put back what stood there before")
        ->transform(
            CLI::AsNumberWithUnit(units, CLI::AsNumberWithUnit::DEFAULT, "TIME").description(""))
        ->type_name("TIME");
    trace->callback([&] {
        if (arguments.seconds && !isTime(*arguments.seconds)) {
            throw CLI::ValidationError("--for", "give a time such as 30s, 5m or 1h");
        }
        arguments.command = [&] { return runTrace(arguments); };
    });
}

void addReport(CLI::App& app, Arguments& arguments) {
    addCommand(app, "report", "Write down all that helps to find an error", ABOUT_REPORT)
        ->callback([&] { arguments.command = [&] { return report(arguments.places); }; });
}

void addGeneral(CLI::App& app, Arguments& arguments) {
    app.add_option("--socket", arguments.places.socket, "Command socket of the splash")
        ->type_name("FILE")
        ->capture_default_str();
    app.add_option("--trace-config", arguments.places.traceConfig, "Trace configuration")
        ->type_name("FILE")
        ->capture_default_str();
    app.add_option("--root", arguments.root, "Folder below which both files lie")
        ->type_name("FOLDER");
    app.add_flag("--quiet", arguments.quiet, "Say nothing; the exit status tells");
}

/// The words that may stand where this one stands.
std::vector<std::string> knownWords(const CLI::App& app, const CLI::App* command, bool option) {
    std::vector<std::string> words;
    for (const CLI::App* const place : {&app, command}) {
        for (const CLI::Option* const each :
             place != nullptr ? place->get_options() : std::vector<const CLI::Option*>()) {
            const std::vector<std::string>& names = each->get_lnames();
            std::transform(names.begin(), names.end(), std::back_inserter(words),
                           [](const std::string& name) { return "--" + name; });
        }
    }
    if (option) {
        return words;
    }
    words.clear();
    for (const CLI::App* const each : app.get_subcommands({})) {
        words.push_back(each->get_name());
    }
    return command == nullptr ? words : std::vector<std::string>();
}

/// Empty if no word is near.
std::string suggestion(const CLI::App& app, const CLI::App* command, const std::string& word) {
    const bool option = word.compare(0, 1, "-") == 0;
    if (option && command != nullptr && command->get_name() == "text") {
        return "a text that begins with a dash goes behind --";
    }
    const std::string meant = nearest(word, knownWords(app, command, option));
    return meant.empty() ? "" : "did you mean '" + meant + "'?";
}

/// One line for whatever is wrong with the command line.
std::string mistake(const CLI::App* app, const CLI::Error& error) {
    const std::vector<CLI::App*> commands = app->get_subcommands();
    const CLI::App* const command = commands.empty() ? nullptr : commands.front();
    const std::vector<std::string> rest = app->remaining(true);
    std::string said = error.what();
    std::string advice;
    if (!rest.empty()) {
        said = "'" + rest.front() + "' is unknown";
        advice = suggestion(*app, command, rest.front());
    }
    if (advice.empty()) {
        const std::string name = command != nullptr ? " " + command->get_name() : "";
        advice = "'bootlumectl" + name + " --help' says more";
    }
    std::replace(said.begin(), said.end(), '\n', ' ');
    return "bootlumectl: " + said + "; " + advice + "\n";
}

} // namespace

std::optional<int> parseArguments(int argc, char* argv[], Arguments& arguments) {
    CLI::App app("Talks to the boot splash.", "bootlumectl");
    app.set_version_flag("--version", "bootlumectl " PROJECT_VERSION);
    app.require_subcommand(1);
    app.fallthrough();
    app.footer(EXIT_STATUS);
    app.get_formatter()->column_width(28);
    app.failure_message(mistake);
    addGeneral(app, arguments);
    addQuit(app, arguments);
    addText(app, arguments);
    addStatus(app, arguments);
    addTrace(app, arguments);
    addReport(app, arguments);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_DONE : EXIT_USAGE;
    }
    return std::nullopt;
}

} // namespace ctl
