#include <android/log.h>
#include <gtest/gtest.h>

#include "common/VemoLogger.h"
#include "hostlog/LogCapture.h"

namespace {

using vemo::VemoLogger;

TEST(VemoLoggerTest, TagsFromBothConstructors) {
    EXPECT_EQ(VemoLogger("VemoDaemon").tag(), "Vemo:VemoDaemon");
    EXPECT_EQ(VemoLogger({"A", "B"}).tag(), "Vemo:A:B");
    EXPECT_EQ(VemoLogger({"A"}).tag(), "Vemo:A");
    EXPECT_EQ(VemoLogger(std::string("A")).tag(), "Vemo:A");
    // The removed last character is the prefix's own colon.
    EXPECT_EQ(VemoLogger(std::initializer_list<const char*>{}).tag(), "Vemo");
    EXPECT_EQ(VemoLogger(std::string()).tag(), "Vemo:");
}

TEST(VemoLoggerTest, EachLevelMapsToItsAndroidPriority) {
    hostlog::LogCapture capture;
    const VemoLogger logger{"FlgrBinderHost"};
    logger.v("%s:v%d", "fn", 1);
    logger.d("%s:d%d", "fn", 2);
    logger.i("%s:i%d", "fn", 3);
    logger.w("%s:w%d", "fn", 4);
    logger.e("%s:e%d", "fn", 5);
    const auto entries = capture.entries();
    ASSERT_EQ(entries.size(), 5u);
    const char* expected[] = {"fn:v1", "fn:d2", "fn:i3", "fn:w4", "fn:e5"};
    for (int k = 0; k < 5; ++k) {
        EXPECT_EQ(entries[k].priority, ANDROID_LOG_VERBOSE + k);
        EXPECT_EQ(entries[k].tag, "Vemo:FlgrBinderHost");
        EXPECT_EQ(entries[k].message, expected[k]);
    }
}

}  // namespace
