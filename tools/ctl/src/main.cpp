#include "commands.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

const char* const EXIT_STATUS = "Exit status:\n"
                                "  0  done\n"
                                "  1  the system refused (the reason is on standard error)\n"
                                "  2  the command line, or a text that the splash cannot be sent\n"
                                "  3  no splash answers, or none came up in time\n"
                                "  4  it took longer than it may";
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

struct Arguments {
    std::string root;
    ctl::Places places{"/tmp/.bootlume", "/opt/userdata/trace_config"};
    double timeout = 10;
    bool wait = false;
    std::string title;
    std::vector<std::string> lines;
    std::string level;
    std::vector<std::string> masks;
    bool toSyslog = false;
    bool toStdout = false;
};

using Command = std::function<int()>;

CLI::App* addCommand(CLI::App& app, const char* name, const char* summary, const char* about) {
    CLI::App* const command = app.add_subcommand(name, summary);
    command->footer(std::string(about) + EXIT_STATUS);
    return command;
}

void addQuit(CLI::App& app, Arguments& arguments, Command& command) {
    CLI::App* const quit = addCommand(app, "quit", "End the splash", ABOUT_QUIT);
    quit->add_option("--timeout", arguments.timeout, "Give up after so long; 0: never")
        ->check(CLI::Range(0.0, 1e6).description(""))
        ->type_name("SECONDS")
        ->capture_default_str();
    quit->add_flag("--wait", arguments.wait, "Wait for a splash that has not come up yet");
    quit->callback([&] {
        command = [&] { return ctl::quit(arguments.places, arguments.timeout, arguments.wait); };
    });
}

void addText(CLI::App& app, Arguments& arguments, Command& command) {
    CLI::App* const text =
        addCommand(app, "text", "Replace the title and the lines of the page", ABOUT_TEXT);
    text->add_option("TITLE", arguments.title, "Title")->required()->type_name("");
    text->add_option("LINE", arguments.lines, "Lines, top to bottom")->required()->type_name("");
    text->callback([&] {
        command = [&] { return ctl::text(arguments.places, arguments.title, arguments.lines); };
    });
}

void addStatus(CLI::App& app, Arguments& arguments, Command& command) {
    addCommand(app, "status", "Tell whether a splash answers", ABOUT_STATUS)->callback([&] {
        command = [&] { return ctl::status(arguments.places); };
    });
}

int runTrace(const Arguments& arguments) {
    ctl::TraceWish wish;
    try {
        wish.level = ctl::parseLevel(arguments.level);
        if (!arguments.masks.empty())
            wish.masks = ctl::parseMasks(arguments.masks);
    } catch (const std::invalid_argument& error) {
        std::cerr << "bootlumectl: " << error.what() << '\n';
        return ctl::EXIT_USAGE;
    }
    if (arguments.toSyslog || arguments.toStdout)
        wish.toSyslog = arguments.toSyslog;
    return ctl::trace(arguments.places, wish);
}

void addTrace(CLI::App& app, Arguments& arguments, Command& command) {
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
    trace->callback([&] { command = [&] { return runTrace(arguments); }; });
}

void addPlaces(CLI::App& app, Arguments& arguments) {
    app.add_option("--socket", arguments.places.socket, "Command socket of the splash")
        ->type_name("FILE")
        ->capture_default_str();
    app.add_option("--trace-config", arguments.places.traceConfig, "Trace configuration")
        ->type_name("FILE")
        ->capture_default_str();
    app.add_option("--root", arguments.root, "Folder below which both files lie")
        ->type_name("FOLDER");
}

} // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): what escapes here is a mistake in the options above
int main(int argc, char* argv[]) {
    CLI::App app("Talks to the boot splash.", "bootlumectl");
    Arguments arguments;
    Command command;
    app.set_version_flag("--version", "bootlumectl " PROJECT_VERSION);
    app.require_subcommand(1);
    app.fallthrough();
    app.footer(EXIT_STATUS);
    app.get_formatter()->column_width(28);
    addPlaces(app, arguments);
    addQuit(app, arguments, command);
    addText(app, arguments, command);
    addStatus(app, arguments, command);
    addTrace(app, arguments, command);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? ctl::EXIT_DONE : ctl::EXIT_USAGE;
    }
    arguments.places.socket = arguments.root + arguments.places.socket;
    arguments.places.traceConfig = arguments.root + arguments.places.traceConfig;
    return command();
}
