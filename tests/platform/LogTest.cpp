#include <android/log.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <regex>
#include <string>

#include "hostlog/LogCapture.h"

namespace {

// Runs `fn` with stderr redirected to a temporary file and returns what it wrote.
template <typename Fn>
std::string captureStderr(Fn fn) {
    std::fflush(stderr);
    FILE* tmp = std::tmpfile();
    const int saved = dup(fileno(stderr));
    dup2(fileno(tmp), fileno(stderr));
    fn();
    std::fflush(stderr);
    dup2(saved, fileno(stderr));
    close(saved);
    std::rewind(tmp);
    std::string out;
    char buf[512];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, tmp)) > 0) {
        out.append(buf, n);
    }
    std::fclose(tmp);
    return out;
}

TEST(LogTest, WritesLogcatThreadtimeLines) {
    const std::string out = captureStderr([] {
        __android_log_print(ANDROID_LOG_INFO, "Vemo:VemoDaemon", "%s:Configuring vemod", "setup");
    });
    const std::regex line(
        R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} +\d+ +\d+ I Vemo:VemoDaemon: setup:Configuring vemod\n)");
    EXPECT_TRUE(std::regex_match(out, line)) << out;
}

TEST(LogTest, PriorityLettersFollowAndroid) {
    const std::string out = captureStderr([] {
        for (int p = ANDROID_LOG_VERBOSE; p <= ANDROID_LOG_ERROR; ++p) {
            __android_log_write(p, "T", "m");
        }
    });
    EXPECT_NE(out.find(" V T       : m"), std::string::npos) << out;
    EXPECT_NE(out.find(" D T       : m"), std::string::npos);
    EXPECT_NE(out.find(" I T       : m"), std::string::npos);
    EXPECT_NE(out.find(" W T       : m"), std::string::npos);
    EXPECT_NE(out.find(" E T       : m"), std::string::npos);
}

TEST(LogTest, CaptureRecordsAndSilencesStderr) {
    std::string out = captureStderr([] {
        hostlog::LogCapture capture;
        __android_log_print(ANDROID_LOG_WARN, "Tag", "%d-%s", 7, "x");
        EXPECT_TRUE(capture.contains(ANDROID_LOG_WARN, "Tag", "7-x"));
        EXPECT_EQ(capture.messages("Tag"), std::vector<std::string>{"7-x"});
        EXPECT_EQ(capture.count("Tag", "7"), 1u);
        capture.clear();
        EXPECT_TRUE(capture.entries().empty());
    });
    EXPECT_EQ(out, "");
}

TEST(LogTest, LongMessagesAreTruncatedLikeLiblog) {
    hostlog::LogCapture capture;
    const std::string big(5000, 'a');
    __android_log_print(ANDROID_LOG_INFO, "T", "%s", big.c_str());
    ASSERT_EQ(capture.entries().size(), 1u);
    EXPECT_EQ(capture.entries()[0].message, std::string(1023, 'a'));
}

TEST(LogTest, NullTextIsAnErrorNotACrash) {
    hostlog::LogCapture capture;
    EXPECT_LT(__android_log_write(ANDROID_LOG_INFO, "T", nullptr), 0);
    EXPECT_TRUE(capture.entries().empty());
}

}  // namespace
