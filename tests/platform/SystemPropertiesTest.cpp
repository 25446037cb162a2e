#include <gtest/gtest.h>
#include <sys/system_properties.h>

#include <chrono>
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
    const char* buildProp;
    const char* name;
    const char* expected;
};

class SystemPropertiesFileTest : public ::testing::TestWithParam<PropCase> {};

TEST_P(SystemPropertiesFileTest, ReadsValueOrAbsent) {
    vemo::test::TempDeviceRoot root;
    root.writeFile("/system/build.prop", GetParam().buildProp);
    EXPECT_EQ(get(GetParam().name), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Lines, SystemPropertiesFileTest,
                         ::testing::Values(PropCase{"ro.serialno=G0001\n", "ro.serialno", "G0001"},
                                           PropCase{"# comment\n\nro.a=1\n", "ro.a", "1"},
                                           PropCase{"  ro.a = spaced  \r\n", "ro.a", "spaced"},
                                           PropCase{"ro.a=1\nro.a=2\n", "ro.a", "2"},
                                           PropCase{"ro.a=x=y\n", "ro.a", "x=y"},
                                           PropCase{"malformed line\nro.b=ok\n", "ro.b", "ok"},
                                           PropCase{"malformed line\n", "malformed line", ""},
                                           PropCase{"=novalue\n", "", ""},
                                           PropCase{"ro.empty=\n", "ro.empty", ""},
                                           PropCase{"ro.a=1", "ro.missing", ""},
                                           PropCase{"ro.a=1", "ro.a", "1"}));

TEST(SystemPropertiesTest, MissingFilesMeanAbsent) {
    vemo::test::TempDeviceRoot root;
    EXPECT_EQ(get("ro.product.model"), "");
}

TEST(SystemPropertiesTest, UnreadableFileMeansAbsent) {
    vemo::test::TempDeviceRoot root;
    // A directory where the file should be cannot be read as lines.
    root.writeFile("/system/build.prop/x", "");
    EXPECT_EQ(get("ro.product.model"), "");
}

TEST(SystemPropertiesTest, LongValuesAreCutToTheDeviceLimit) {
    vemo::test::TempDeviceRoot root;
    root.writeFile("/system/build.prop", "ro.long=" + std::string(200, 'x') + "\n");
    EXPECT_EQ(get("ro.long"), std::string(PROP_VALUE_MAX - 1, 'x'));
}

TEST(SystemPropertiesTest, PersistOverridesBuildAndIsReReadOnEveryCall) {
    vemo::test::TempDeviceRoot root;
    root.writeFile("/system/build.prop", "persist.sys.locale=en-US\n");
    EXPECT_EQ(get("persist.sys.locale"), "en-US");
    ASSERT_EQ(__system_property_set("persist.sys.locale", "de-DE"), 0);
    EXPECT_EQ(get("persist.sys.locale"), "de-DE");
    root.writeFile("/data/property/persist.prop", "persist.sys.locale=fr-FR\n");
    EXPECT_EQ(get("persist.sys.locale"), "fr-FR");
}

TEST(SystemPropertiesTest, SetRejectsBadNamesAndValues) {
    vemo::test::TempDeviceRoot root;
    EXPECT_EQ(__system_property_set("", "x"), -1);
    EXPECT_EQ(__system_property_set("a=b", "x"), -1);
    EXPECT_EQ(__system_property_set("persist.a", "two\nlines"), -1);
    EXPECT_EQ(__system_property_set("persist.a", std::string(PROP_VALUE_MAX, 'x').c_str()), -1);
    EXPECT_EQ(get("persist.a"), "");
}

}  // namespace

namespace {

// A file parsed long after it was written is served from the parse; an
// in-place rewrite of the same size must still be seen on the next call.
TEST(SystemPropertiesTest, SettledFileRewrittenInPlaceIsSeenAtOnce) {
    vemo::test::TempDeviceRoot root;
    root.writeFile("/system/build.prop", "ro.a=one\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    EXPECT_EQ(get("ro.a"), "one");
    EXPECT_EQ(get("ro.a"), "one");
    std::ofstream(root.path("/system/build.prop"), std::ios::in | std::ios::out) << "ro.a=two\n";
    EXPECT_EQ(get("ro.a"), "two");
}

}  // namespace
