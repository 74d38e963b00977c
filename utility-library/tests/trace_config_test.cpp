#include "support/scratch_file.h"
#include "support/stdout_capture.h"
#include "support/trace_fixture.h"
#include "support/trace_text.h"

#include "tracing.h"

#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Trace::Log;
using Words = std::vector<std::uint32_t>;

Words wordsOf(const Trace::TraceConfig& config) {
    return *config.masks.get();
}

class ATraceEntry : public TraceFixture {
protected:
    ATraceEntry() { Log::s_configuration.appName = "bootlume"; }

    static bool isNone(const std::string& line) {
        const Trace::TraceConfig entry = Log::parseEntry(line);
        return entry.appName.empty() && entry.level == 4 && wordsOf(entry).empty() &&
               !entry.toSyslog;
    }
};

const struct {
    const char* line;
    std::int32_t level;
    Words masks;
    bool toSyslog;
} ENTRIES[] = {
    {"bootlume 5 80002 1", 5, {0x80002}, true},
    // the name, whatever its case
    {"BOOTLUME 6 80002 0", 6, {0x80002}, false},
    {"BootLume 6 80002 0", 6, {0x80002}, false},
    // at least four tokens, between blanks and tabs
    {"bootlume 6 80002 ", 6, {0x80002}, true},
    {"bootlume 6 80002 0 and more", 6, {0x80002}, false},
    {"bootlume\t6\t80002 0", 6, {0x80002}, false},
    // an empty token between two separators: each word is taken for the one before it
    {"bootlume  6 80002 0", 1, {6}, true},
    {"bootlume \t6 80002 0", 1, {6}, true},
    // a level from 1 to 6, and 1 where it is not all digits
    {"bootlume 0 0 0", 1, {0}, false},
    {"bootlume 1 0 0", 1, {0}, false},
    {"bootlume 4 0 0", 4, {0}, false},
    {"bootlume 6 0 0", 6, {0}, false},
    {"bootlume 9 0 0", 6, {0}, false},
    {"bootlume 2147483647 0 0", 6, {0}, false},
    {"bootlume 006 0 0", 6, {0}, false},
    {"bootlume -6 0 0", 1, {0}, false},
    {"bootlume +6 0 0", 1, {0}, false},
    {"bootlume 6x 0 0", 1, {0}, false},
    {"bootlume x 0 0", 1, {0}, false},
    {"bootlume 0x6 0 0", 1, {0}, false},
    {"bootlume 6.0 0 0", 1, {0}, false},
    {"bootlume verbose 0 0", 1, {0}, false},
    {"bootlume  0 0", 1, {0}, false},
    // hexadecimal masks, with or without prefix
    {"bootlume 6 0x80002 0", 6, {0x80002}, false},
    {"bootlume 6 0X8000A 0", 6, {0x8000A}, false},
    // between commas, and no empty ones
    {"bootlume 6 80002,80004 0", 6, {0x80002, 0x80004}, false},
    {"bootlume 6 80002,,4 0", 6, {0x80002, 4}, false},
    {"bootlume 6 ,80002,,,4, 0", 6, {0x80002, 4}, false},
    {"bootlume 6 ,, 0", 6, {}, false},
    {"bootlume 6  0", 6, {}, false},
    // of 32 bits, in which a negative one wraps
    {"bootlume 6 ffffffff 0", 6, {0xFFFFFFFF}, false},
    {"bootlume 6 00000000000ffffffff 0", 6, {0xFFFFFFFF}, false},
    {"bootlume 6 -1 0", 6, {0xFFFFFFFF}, false},
    {"bootlume 6 -ffffffff 0", 6, {1}, false},
    // the number that a mask begins with
    {"bootlume 6 80002zz 0", 6, {0x80002}, false},
    {"bootlume 6 80002-4 0", 6, {0x80002}, false},
    {"bootlume 6 -1- 0", 6, {0xFFFFFFFF}, false},
    // a switch of zeros and ones; any other is on
    {"bootlume 6 0 00", 6, {0}, false},
    {"bootlume 6 0 000", 6, {0}, false},
    {"bootlume 6 0 1", 6, {0}, true},
    {"bootlume 6 0 01", 6, {0}, true},
    {"bootlume 6 0 10", 6, {0}, true},
    {"bootlume 6 0 11", 6, {0}, true},
    {"bootlume 6 0 2", 6, {0}, true},
    {"bootlume 6 0 off", 6, {0}, true},
    {"bootlume 6 0 no", 6, {0}, true},
    {"bootlume 6 0 -0", 6, {0}, true},
    {"bootlume 6 0 0x0", 6, {0}, true},
    {"bootlume 6 0 0\r", 6, {0}, true},
    {"bootlume 6 0 ", 6, {0}, true},
};

TEST_F(ATraceEntry, HasLevelMasksAndSwitch) {
    for (const auto& expected : ENTRIES) {
        const Trace::TraceConfig entry = Log::parseEntry(expected.line);
        EXPECT_EQ(entry.appName, "bootlume") << expected.line;
        EXPECT_EQ(entry.level, expected.level) << expected.line;
        EXPECT_EQ(wordsOf(entry), expected.masks) << expected.line;
        EXPECT_EQ(entry.toSyslog, expected.toSyslog) << expected.line;
    }
}

TEST_F(ATraceEntry, IsNoneForAnotherApplicationAndInAnotherForm) {
    for (const char* const line :
         {"other 6 80002 1", "bootlume2 6 80002 1", "boot 6 80002 1", "", "bootlume",
          "bootlume 6 80002", " bootlume 6 80002 0", "\tbootlume 6 80002 0", "    ",
          "bootlume\v6\v80002\v0", "bootlume;6;80002;0"}) {
        EXPECT_TRUE(isNone(line)) << line;
    }
    Log::s_configuration.appName.clear();
    EXPECT_TRUE(isNone(" 6 80002 0")) << "for a program without a name";
}

TEST_F(ATraceEntry, RaisesForANumberThatIsNoneOrTooLarge) {
    const auto raised = [](const std::string& line) -> std::string {
        try {
            Log::parseEntry(line);
        } catch (const std::out_of_range& error) {
            return std::string("too large: ") + error.what();
        } catch (const std::invalid_argument& error) {
            return std::string("none: ") + error.what();
        }
        return "nothing";
    };
    for (const char* const level : {"2147483648", "99999999999999999999999"}) {
        EXPECT_EQ(raised(std::string("bootlume ") + level + " 80002 0"), "too large: stoi");
    }
    for (const char* const mask : {"100000000", "-100000000", "0x1ffffffff",
                                   "ffffffffffffffffffffffff", "80002,fffffffff"}) {
        EXPECT_EQ(raised(std::string("bootlume 6 ") + mask + " 0"), "too large: stoul");
    }
    for (const char* const mask : {"zz", "80002,none", "#80002", "-"}) {
        EXPECT_EQ(raised(std::string("bootlume 6 ") + mask + " 0"), "none: stoul");
    }
}

TEST_F(ATraceEntry, TellsWhatItFindsInOrder) {
    configure(6, {0x80004});
    const StdoutCapture output;
    Log::parseEntry("bootlume 5 80002,4 1");
    const std::string begin = prefix() + "VERBOSE:TRACING\t| ";
    const std::string end = "| utility-library/src/trace_config.cpp:";
    const std::string text = withoutLineNumbers(output.text());
    EXPECT_EQ(text, begin + "found entry, appName = bootlume" + end + "\n" + begin +
                        "set level, level = 5" + end + "\n" + begin + "set mask, masks = 524290,4" +
                        end + "\n" + begin + "set syslog, toSyslog = 1" + end + "\n");
}

TEST_F(ATraceEntry, TellsNothingForAnotherApplication) {
    configure(6, {0x80004});
    const StdoutCapture output;
    Log::parseEntry("other 5 80002,4 1");
    EXPECT_EQ(output.text(), "");
}

class ATraceConfiguration : public TraceFixture {
protected:
    ATraceConfiguration() : m_path(Log::s_configFilePath) {
        Log::s_configuration.appName = "bootlume";
        Log::s_configFilePath = file.path();
        Log::s_disableColors = true;
    }
    ~ATraceConfiguration() override { Log::s_configFilePath = m_path; }
    ATraceConfiguration(const ATraceConfiguration&) = delete;
    ATraceConfiguration& operator=(const ATraceConfiguration&) = delete;

    /// Reads a file with this text.
    bool reads(const std::string& text) {
        file.write(text);
        return Log::readConfig();
    }

    /// Whether the configuration is still the one of the fixture, with this level.
    static bool isUntouched(std::int32_t level = 4) {
        return Log::level() == level && wordsOf(Log::s_configuration).empty() &&
               !Log::s_configuration.toSyslog && Log::s_configuration.appName == "bootlume";
    }

    /// The line that tells of a line that cannot be converted.
    std::string errorLine(const std::string& line, const std::string& conversion) const {
        return prefix() + "  ERROR:\t| no entry in " + file.path() + ": " + line + ": " +
               conversion + "| utility-library/src/trace_config.cpp:\n";
    }

    ScratchFile file;

private:
    std::string m_path;
};

TEST_F(ATraceConfiguration, AppliesLevelMasksAndSwitchOfItsEntry) {
    EXPECT_TRUE(reads("other 1 0 1\nbootlume 6 80002,4 1\n"));
    EXPECT_EQ(Log::level(), 6);
    EXPECT_THAT(wordsOf(Log::s_configuration), ElementsAre(0x80002U, 4U));
    EXPECT_TRUE(Log::s_configuration.toSyslog);
    EXPECT_EQ(Log::s_configuration.appName, "bootlume");
}

TEST_F(ATraceConfiguration, AppliesTheFirstOfTwoEntries) {
    EXPECT_TRUE(reads("bootlume 5 80002 0\nbootlume 2 4 1\n"));
    EXPECT_EQ(Log::level(), 5);
    EXPECT_THAT(wordsOf(Log::s_configuration), ElementsAre(0x80002U));
    EXPECT_FALSE(Log::s_configuration.toSyslog);
}

TEST_F(ATraceConfiguration, LooksBehindALineThatIsNoEntry) {
    EXPECT_TRUE(reads("bootlume 2 4\n\n bootlume 3 4 0\nbootlume 5 80002 0\n"));
    EXPECT_EQ(Log::level(), 5);
}

TEST_F(ATraceConfiguration, ReplacesMasksByNone) {
    EXPECT_TRUE(reads("bootlume 6 80002 0\n"));
    EXPECT_TRUE(Log::isMaskEnabled(0x80002));
    EXPECT_TRUE(reads("bootlume 6  0\n"));
    EXPECT_FALSE(Log::isMaskEnabled(0x80002));
}

TEST_F(ATraceConfiguration, TakesALastLineWithoutANewline) {
    EXPECT_TRUE(reads("bootlume 5 80002 0"));
    EXPECT_EQ(Log::level(), 5);
}

TEST_F(ATraceConfiguration, StaysAsItIsWithoutAFile) {
    const StdoutCapture output;
    EXPECT_FALSE(Log::readConfig());
    EXPECT_TRUE(isUntouched());
    EXPECT_EQ(output.text(), "");
}

TEST_F(ATraceConfiguration, StaysAsItIsForAFileThatIsEmptyOrCutOffOrOfOthers) {
    const StdoutCapture output;
    for (const char* const text : {"", "\n", "bootl", "bootlume 6", "bootlume 6 800", "other 6 4 1",
                                   "\n\n\n", "# comment\n"}) {
        EXPECT_FALSE(reads(text)) << text;
        EXPECT_TRUE(isUntouched()) << text;
    }
    EXPECT_EQ(output.text(), "");
}

TEST_F(ATraceConfiguration, StaysAsItIsForAFileThatMayNotBeRead) {
    file.write("bootlume 6 80002 1\n");
    chmod(file.path().c_str(), 0);
    const uid_t user = geteuid();
    if (user == 0) {
        ASSERT_EQ(seteuid(65534), 0); // root may read everything
    }
    const bool read = Log::readConfig();
    if (user == 0) {
        ASSERT_EQ(seteuid(user), 0);
    }
    EXPECT_FALSE(read);
    EXPECT_TRUE(isUntouched());
}

TEST_F(ATraceConfiguration, StaysAsItIsForABinaryFile) {
    std::string text;
    for (int byte = 0; byte < 4096; ++byte) {
        text += static_cast<char>((byte * 7919) & 0xFF);
    }
    EXPECT_FALSE(reads(text));
    EXPECT_TRUE(isUntouched());
    EXPECT_TRUE(reads(text + "\nbootlume 5 80002 0\n"));
    EXPECT_EQ(Log::level(), 5);
}

TEST_F(ATraceConfiguration, IsFoundAtTheEndOf10Megabytes) {
    const std::string line = "another-application 6 ffffffff 1 " + std::string(1000, '-') + "\n";
    std::string text;
    while (text.size() < 10'000'000) {
        text += line;
    }
    EXPECT_TRUE(reads(text + "bootlume 5 80002 0\n"));
    EXPECT_EQ(Log::level(), 5);
    EXPECT_THAT(wordsOf(Log::s_configuration), ElementsAre(0x80002U));
}

TEST_F(ATraceConfiguration, IsFoundBehindAndInALineOf1Megabyte) {
    const std::string megabyte(1'000'000, 'x');
    EXPECT_TRUE(reads(megabyte + "\nbootlume 5 80002 0\n"));
    EXPECT_EQ(Log::level(), 5);
    EXPECT_TRUE(reads("bootlume 6 80004 0 " + megabyte));
    EXPECT_EQ(Log::level(), 6);
    EXPECT_TRUE(reads("bootlume 3 80004 0 " + std::string(1'000'000, ' ') + "\n"));
    EXPECT_EQ(Log::level(), 3);
}

TEST_F(ATraceConfiguration, TellsOfALineThatCannotBeConvertedAndLooksBehindIt) {
    const StdoutCapture output;
    EXPECT_TRUE(reads("bootlume 99999999999 80002 0\nBootlume 6 Zz 0\nbootlume 6 100000000 0\n"
                      "bootlume 6 4 111111111111\nbootlume 5 80002 0\n"));
    EXPECT_EQ(Log::level(), 5);
    EXPECT_EQ(withoutLineNumbers(output.text()),
              errorLine("bootlume 99999999999 80002 0", "stoi") +
                  errorLine("Bootlume 6 Zz 0", "stoul") +
                  errorLine("bootlume 6 100000000 0", "stoul") +
                  errorLine("bootlume 6 4 111111111111", "stoi"));
}

TEST_F(ATraceConfiguration, StaysAsItIsWhereItsOnlyLineCannotBeConverted) {
    const StdoutCapture output;
    const std::string line = "bootlume 6 z" + std::string(1'000'000, 'x') + " 0";
    EXPECT_FALSE(reads(line + "\n"));
    EXPECT_TRUE(isUntouched());
    // Compared with == : a difference of a megabyte is no help to anybody.
    EXPECT_TRUE(output.text().find(": " + line + ": stoul| ") != std::string::npos);
}

TEST_F(ATraceConfiguration, HasItsTypoShownInTheSystemLogAsItStands) {
    configure(4, {}, true);
    EXPECT_FALSE(reads("bootlume 99999999999 %s%n 100% 1\n"));
    const auto calls = takeSyslogCalls();
    ASSERT_THAT(calls, testing::SizeIs(1));
    EXPECT_THAT(calls[0].text, testing::HasSubstr(": bootlume 99999999999 %%s%%n 100%% 1: stoi"))
        << "the text is a format: a percent sign of the file must not be read as a conversion";
}

TEST_F(ATraceConfiguration, TellsOfEachReading) {
    configure(6, {0x80004});
    const StdoutCapture output;
    EXPECT_FALSE(Log::readConfig());
    EXPECT_EQ(withoutLineNumbers(output.text()),
              prefix() +
                  "VERBOSE:TRACING\t| some changes| utility-library/src/trace_config.cpp:\n");
}

} // namespace
