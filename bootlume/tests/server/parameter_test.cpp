// The run-time parameters, from the program's own main source; its main has another name here.
#include "server/globals.h"
#include "support/traced_test.h"

#include <cstdlib>

namespace {

const char* const MAIN_FILE = "server/main.cpp";
const char* const NAME = "BOOTLUME_TEST_PARAMETER";

class Parameter : public TracedTest {
protected:
    Parameter() { unsetenv(NAME); }
    ~Parameter() override { unsetenv(NAME); }

    static std::string used(const std::string& value) {
        return line("DEBUG", "using parameter: " + std::string(NAME) + " with , value = " + value,
                    MAIN_FILE);
    }
    static std::string failed(int defaultValue) {
        return line("ERROR",
                    "failed to parse environment value: " + std::string(NAME) +
                        ", using , defaultValue = " + std::to_string(defaultValue) + ", stoi",
                    MAIN_FILE);
    }
};

TEST_F(Parameter, VariablesBearTheirOwnNames) {
    EXPECT_STREQ(REBOOT_COMMAND, "REBOOT_COMMAND");
    EXPECT_STREQ(VRX_REBOOT_COMMAND, "VRX_REBOOT_COMMAND");
    EXPECT_STREQ(SPLASH_TIMEOUT, "SPLASH_TIMEOUT");
    EXPECT_STREQ(SPLASH_TIMEOUT_HARD, "SPLASH_TIMEOUT_HARD");
    EXPECT_STREQ(socket_path, "/tmp/.bootlume");
    EXPECT_EQ(gdispatcher, nullptr);
}

TEST_F(Parameter, ATextIsTheVariablesWhateverItIs) {
    for (const char* text : {"/sbin/other", "", " two words "}) {
        setenv(NAME, text, 1);
        EXPECT_EQ(getEnvParameter(NAME, std::string("default")), text);
    }
    EXPECT_THAT(lines(), testing::ElementsAre(used("/sbin/other"), used(""), used(" two words ")));
}

TEST_F(Parameter, ATextThatIsNotSetIsTheDefault) {
    EXPECT_EQ(getEnvParameter(NAME, std::string("/sbin/reboot")), "/sbin/reboot");
    EXPECT_THAT(lines(), testing::ElementsAre(used("/sbin/reboot")));
}

TEST_F(Parameter, ANumberIsWhatTheTextBeginsWith) {
    const std::vector<std::pair<const char*, int>> cases = {{"12", 12},
                                                            {"12abc", 12},
                                                            {" \t\n+7", 7},
                                                            {"-5", -5},
                                                            {"0", 0},
                                                            {"0x1f", 0},
                                                            {"010", 10},
                                                            {"3.9", 3},
                                                            {"2147483647", 2147483647},
                                                            {"-2147483648", -2147483647 - 1}};
    std::vector<std::string> expected;
    for (const auto& [text, value] : cases) {
        setenv(NAME, text, 1);
        EXPECT_EQ(getEnvParameter(NAME, 180), value) << text;
        expected.push_back(used(std::to_string(value)));
    }
    EXPECT_EQ(lines(), expected);
}

TEST_F(Parameter, ATextThatIsNoNumberGivesTheDefaultAndALine) {
    std::vector<std::string> expected;
    for (const char* text :
         {"", "abc", " ", "-", "+-1", "2147483648", "-2147483649", "999999999999999999999999"}) {
        setenv(NAME, text, 1);
        EXPECT_EQ(getEnvParameter(NAME, 200), 200) << text;
        expected.push_back(failed(200));
        expected.push_back(used("200"));
    }
    EXPECT_EQ(lines(), expected);
}

TEST_F(Parameter, ANumberThatIsNotSetIsTheDefault) {
    EXPECT_EQ(getEnvParameter(NAME, -3), -3);
    EXPECT_THAT(lines(), testing::ElementsAre(used("-3")));
}

TEST_F(Parameter, TheUsualLevelHidesTheValuesButNotAFailure) {
    Trace::Log::s_configuration.level = Trace::LEVEL_INFO;
    setenv(NAME, "x", 1);
    EXPECT_EQ(getEnvParameter(NAME, 1), 1);
    EXPECT_THAT(lines(), testing::ElementsAre(failed(1)));
}

} // namespace
