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

    static std::int32_t levelOf(const std::string& line) { return Log::parseEntry(line).level; }
    static Words masksOf(const std::string& line) { return wordsOf(Log::parseEntry(line)); }
    static bool toSyslog(const std::string& line) { return Log::parseEntry(line).toSyslog; }
    static bool isEntry(const std::string& line) { return !Log::parseEntry(line).appName.empty(); }
};

TEST_F(ATraceEntry, HasNameLevelMasksAndSwitch) {
    const Trace::TraceConfig entry = Log::parseEntry("bootlume 5 80002 1");
    EXPECT_EQ(entry.appName, "bootlume");
    EXPECT_EQ(entry.level, 5);
    EXPECT_THAT(wordsOf(entry), ElementsAre(0x80002U));
    EXPECT_TRUE(entry.toSyslog);
}

TEST_F(ATraceEntry, ForAnotherApplicationIsNone) {
    for (const char* const line : {"other 6 80002 1", "bootlume2 6 80002 1", "boot 6 80002 1"}) {
        const Trace::TraceConfig entry = Log::parseEntry(line);
        EXPECT_EQ(entry.appName, "");
        EXPECT_EQ(entry.level, 4);
        EXPECT_THAT(wordsOf(entry), IsEmpty());
        EXPECT_FALSE(entry.toSyslog);
    }
}

TEST_F(ATraceEntry, MatchesTheNameWhateverItsCase) {
    EXPECT_TRUE(isEntry("BOOTLUME 6 80002 0"));
    EXPECT_TRUE(isEntry("BootLume 6 80002 0"));
}

TEST_F(ATraceEntry, HasAtLeastFourTokens) {
    EXPECT_FALSE(isEntry(""));
    EXPECT_FALSE(isEntry("bootlume"));
    EXPECT_FALSE(isEntry("bootlume 6 80002"));
    EXPECT_TRUE(isEntry("bootlume 6 80002 "));
    EXPECT_TRUE(isEntry("bootlume 6 80002 0 and more"));
}

TEST_F(ATraceEntry, DoesNotBeginWithASeparator) {
    EXPECT_FALSE(isEntry(" bootlume 6 80002 0"));
    EXPECT_FALSE(isEntry("\tbootlume 6 80002 0"));
    EXPECT_FALSE(isEntry("    "));
}

TEST_F(ATraceEntry, IsNoneForAProgramWithoutAName) {
    Log::s_configuration.appName.clear();
    EXPECT_FALSE(isEntry(" 6 80002 0"));
}

TEST_F(ATraceEntry, IsSplitAtBlanksAndTabsAlone) {
    EXPECT_THAT(masksOf("bootlume\t6\t80002 0"), ElementsAre(0x80002U));
    EXPECT_FALSE(isEntry("bootlume\v6\v80002\v0"));
    EXPECT_FALSE(isEntry("bootlume;6;80002;0"));
}

TEST_F(ATraceEntry, HasAnEmptyTokenBetweenTwoSeparators) {
    for (const char* const line : {"bootlume  6 80002 0", "bootlume \t6 80002 0"}) {
        const Trace::TraceConfig entry = Log::parseEntry(line);
        EXPECT_EQ(entry.level, 1);
        EXPECT_THAT(wordsOf(entry), ElementsAre(6U)) << "the level's word is taken for the masks";
        EXPECT_TRUE(entry.toSyslog) << "the mask word is taken for the switch";
    }
}

TEST_F(ATraceEntry, HasALevelFrom1To6) {
    const char* const lines[] = {"bootlume 0 0 0",  "bootlume 1 0 0", "bootlume 4 0 0",
                                 "bootlume 6 0 0",  "bootlume 9 0 0", "bootlume 2147483647 0 0",
                                 "bootlume 006 0 0"};
    const std::int32_t levels[] = {1, 1, 4, 6, 6, 6, 6};
    for (std::size_t index = 0; index < std::size(lines); ++index) {
        EXPECT_EQ(levelOf(lines[index]), levels[index]) << lines[index];
    }
}

TEST_F(ATraceEntry, TakesALevelThatIsNotAllDigitsAs1) {
    for (const char* const level : {"-6", "+6", "6x", "x", "0x6", "6.0", "verbose", ""}) {
        EXPECT_EQ(levelOf(std::string("bootlume ") + level + " 0 0"), 1) << level;
    }
}

TEST_F(ATraceEntry, RaisesForALevelThatIsNoInteger) {
    for (const char* const level : {"2147483648", "99999999999999999999999"}) {
        try {
            Log::parseEntry(std::string("bootlume ") + level + " 80002 0");
            ADD_FAILURE() << level;
        } catch (const std::out_of_range& error) {
            EXPECT_STREQ(error.what(), "stoi");
        }
    }
}

TEST_F(ATraceEntry, HasHexadecimalMasksWithOrWithoutPrefix) {
    EXPECT_THAT(masksOf("bootlume 6 80002 0"), ElementsAre(0x80002U));
    EXPECT_THAT(masksOf("bootlume 6 0x80002 0"), ElementsAre(0x80002U));
    EXPECT_THAT(masksOf("bootlume 6 0X8000A 0"), ElementsAre(0x8000AU));
    EXPECT_THAT(masksOf("bootlume 6 0 0"), ElementsAre(0U));
}

TEST_F(ATraceEntry, HasMasksBetweenCommasAndNoEmptyOnes) {
    EXPECT_THAT(masksOf("bootlume 6 80002,80004 0"), ElementsAre(0x80002U, 0x80004U));
    EXPECT_THAT(masksOf("bootlume 6 80002,,4 0"), ElementsAre(0x80002U, 4U));
    EXPECT_THAT(masksOf("bootlume 6 ,80002,,,4, 0"), ElementsAre(0x80002U, 4U));
    EXPECT_THAT(masksOf("bootlume 6 ,, 0"), IsEmpty());
    EXPECT_THAT(masksOf("bootlume 6  0"), IsEmpty());
}

TEST_F(ATraceEntry, HasMasksOf32Bits) {
    EXPECT_THAT(masksOf("bootlume 6 ffffffff 0"), ElementsAre(0xFFFFFFFFU));
    EXPECT_THAT(masksOf("bootlume 6 00000000000ffffffff 0"), ElementsAre(0xFFFFFFFFU));
    for (const char* const word : {"100000000", "-100000000", "0x1ffffffff",
                                   "ffffffffffffffffffffffff", "80002,fffffffff"}) {
        try {
            Log::parseEntry(std::string("bootlume 6 ") + word + " 0");
            ADD_FAILURE() << word;
        } catch (const std::out_of_range& error) {
            EXPECT_STREQ(error.what(), "stoul");
        }
    }
}

TEST_F(ATraceEntry, WrapsANegativeMaskIn32Bits) {
    EXPECT_THAT(masksOf("bootlume 6 -1 0"), ElementsAre(0xFFFFFFFFU));
    EXPECT_THAT(masksOf("bootlume 6 -ffffffff 0"), ElementsAre(1U));
}

TEST_F(ATraceEntry, RaisesForAMaskThatIsNoNumber) {
    for (const char* const word : {"zz", "80002,none", "#80002", "-"}) {
        try {
            Log::parseEntry(std::string("bootlume 6 ") + word + " 0");
            ADD_FAILURE() << word;
        } catch (const std::invalid_argument& error) {
            EXPECT_STREQ(error.what(), "stoul");
        }
    }
}

TEST_F(ATraceEntry, TakesTheNumberThatAMaskBeginsWith) {
    EXPECT_THAT(masksOf("bootlume 6 80002zz 0"), ElementsAre(0x80002U));
    EXPECT_THAT(masksOf("bootlume 6 80002-4 0"), ElementsAre(0x80002U));
    EXPECT_THAT(masksOf("bootlume 6 -1- 0"), ElementsAre(0xFFFFFFFFU));
}

TEST_F(ATraceEntry, HasASwitchOfZerosAndOnes) {
    for (const char* const off : {"0", "00", "000"}) {
        EXPECT_FALSE(toSyslog(std::string("bootlume 6 0 ") + off)) << off;
    }
    for (const char* const on : {"1", "01", "10", "11"}) {
        EXPECT_TRUE(toSyslog(std::string("bootlume 6 0 ") + on)) << on;
    }
}

TEST_F(ATraceEntry, TakesAnyOtherSwitchAsOn) {
    for (const char* const on : {"2", "off", "no", "-0", "0x0", "0\r", ""}) {
        EXPECT_TRUE(toSyslog(std::string("bootlume 6 0 ") + on)) << on;
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
