#include <gtest/gtest.h>
#include <sys/system_properties.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>

#include "TempDeviceRoot.h"

namespace {

std::string get(const char* name) {
    char value[PROP_VALUE_MAX];
    const int n = __system_property_get(name, value);
    EXPECT_EQ(static_cast<size_t>(n), std::string(value).size());
    return value;
}

struct PropCase {
    const char* file;  // nullptr: none
    std::string contents;
    const char* name;
    std::string expected;
};

class SystemPropertiesFileTest : public ::testing::TestWithParam<PropCase> {};

TEST_P(SystemPropertiesFileTest, ReadsValueOrAbsent) {
    vemo::test::TempDeviceRoot root;
    if (GetParam().file != nullptr) {
        root.writeFile(GetParam().file, GetParam().contents);
    }
    EXPECT_EQ(get(GetParam().name), GetParam().expected);
}

const char* const kBuild = "/system/build.prop";

INSTANTIATE_TEST_SUITE_P(
    Lines, SystemPropertiesFileTest,
    ::testing::Values(PropCase{kBuild, "# comment\n\nro.a=1\n", "ro.a", "1"},
                      PropCase{kBuild, "  ro.a = spaced  \r\n", "ro.a", "spaced"},
                      PropCase{kBuild, "ro.a=1\nro.a=2\n", "ro.a", "2"},
                      PropCase{kBuild, "ro.a=x=y\n", "ro.a", "x=y"},
                      PropCase{kBuild, "malformed line\nro.b=ok\n", "ro.b", "ok"},
                      PropCase{kBuild, "malformed line\n", "malformed line", ""},
                      PropCase{kBuild, "=novalue\n", "", ""},
                      PropCase{kBuild, "ro.empty=\n", "ro.empty", ""},
                      PropCase{kBuild, "ro.a=1", "ro.missing", ""},
                      PropCase{kBuild, "ro.a=1", "ro.a", "1"},
                      PropCase{kBuild, "ro.long=" + std::string(200, 'x') + "\n", "ro.long",
                               std::string(PROP_VALUE_MAX - 1, 'x')},
                      PropCase{nullptr, "", "ro.a", ""},
                      // A directory where the file should be cannot be read as lines.
                      PropCase{"/system/build.prop/x", "ro.a=1\n", "ro.a", ""}));

TEST(SystemPropertiesTest, PersistOverridesBuildAndIsReReadOnEveryCall) {
    vemo::test::TempDeviceRoot root;
    root.writeFile(kBuild, "persist.sys.locale=en-US\n");
    EXPECT_EQ(get("persist.sys.locale"), "en-US");
    root.writeFile("/data/property/persist.prop", "persist.sys.locale=fr-FR\n");
    EXPECT_EQ(get("persist.sys.locale"), "fr-FR");
}

// A file parsed long after it was written is served from the parse; an
// in-place rewrite of the same size must still be seen on the next call.
TEST(SystemPropertiesTest, SettledFileRewrittenInPlaceIsSeenAtOnce) {
    vemo::test::TempDeviceRoot root;
    root.writeFile(kBuild, "ro.a=one\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    EXPECT_EQ(get("ro.a"), "one");
    EXPECT_EQ(get("ro.a"), "one");
    std::ofstream(root.path(kBuild), std::ios::in | std::ios::out) << "ro.a=two\n";
    EXPECT_EQ(get("ro.a"), "two");
}

// Properties are served from memory between changes; every kind of change
// (directory made after the first read, atomic replace, removal) must still
// be seen by the very next read.
TEST(SystemPropertiesTest, EveryKindOfChangeIsSeenByTheNextRead) {
    vemo::test::TempDeviceRoot root;
    EXPECT_EQ(get("ro.a"), "");
    root.writeFile("/data/property/persist.prop", "ro.a=persisted\n");
    EXPECT_EQ(get("ro.a"), "persisted");
    root.writeFile(kBuild, "ro.a=built\nro.b=1\n");
    EXPECT_EQ(get("ro.b"), "1");
    root.writeFile("/system/build.prop.new", "ro.b=2\n");
    ASSERT_EQ(std::rename(root.path("/system/build.prop.new").c_str(), root.path(kBuild).c_str()),
              0);
    EXPECT_EQ(get("ro.b"), "2");
    ASSERT_EQ(std::remove(root.path("/data/property/persist.prop").c_str()), 0);
    EXPECT_EQ(get("ro.a"), "");
    ASSERT_EQ(__system_property_set("ro.a", "set"), 0);
    EXPECT_EQ(get("ro.a"), "set");
}

}  // namespace
