#include <android/log.h>
#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "hostlog/LogCapture.h"

namespace {

// Runs `fn` and returns what it wrote to stderr.
template <typename Fn>
std::string captureStderr(Fn fn) {
    ::testing::internal::CaptureStderr();
    fn();
    return ::testing::internal::GetCapturedStderr();
}

TEST(LogTest, WritesLogcatThreadtimeLines) {
    const std::string out = captureStderr([] {
        __android_log_print(ANDROID_LOG_INFO, "Vemo:VemoDaemon", "%s:Configuring vemod", "setup");
        for (int p = ANDROID_LOG_VERBOSE; p <= ANDROID_LOG_ERROR; ++p) {
            __android_log_write(p, "T", "m");
        }
    });
    const std::string stamp = R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} +\d+ +\d+ )";
    std::string lines = stamp + "I Vemo:VemoDaemon: setup:Configuring vemod\n";
    for (const char priority : std::string("VDIWE")) {
        lines += stamp + priority + " T       : m\n";  // short tags are padded to 8
    }
    EXPECT_TRUE(std::regex_match(out, std::regex(lines))) << out;
}

TEST(LogTest, CaptureRecordsAndSilencesStderr) {
    const std::string out = captureStderr([] {
        hostlog::LogCapture capture;
        __android_log_print(ANDROID_LOG_WARN, "Tag", "%d-%s", 7, "x");
        EXPECT_TRUE(capture.contains(ANDROID_LOG_WARN, "Tag", "7-x"));
        EXPECT_EQ(capture.messages("Tag"), std::vector<std::string>{"7-x"});
        EXPECT_EQ(capture.count("Tag", "7"), 1u);
        capture.clear();
        EXPECT_TRUE(capture.entries().empty());

        // Long messages are cut as liblog cuts them; null text is an error, not a crash.
        __android_log_print(ANDROID_LOG_INFO, "T", "%s", std::string(5000, 'a').c_str());
        EXPECT_LT(__android_log_write(ANDROID_LOG_INFO, "T", nullptr), 0);
        ASSERT_EQ(capture.entries().size(), 1u);
        EXPECT_EQ(capture.entries()[0].message, std::string(1023, 'a'));
    });
    EXPECT_EQ(out, "");
}

}  // namespace
