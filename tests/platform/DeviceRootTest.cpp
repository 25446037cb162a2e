#include <gtest/gtest.h>

#include "TempDeviceRoot.h"
#include "platform/DeviceRoot.h"

namespace {

using namespace vemo::platform;

TEST(DeviceRootTest, MapsAbsolutePathsUnderTheRoot) {
    const std::string before = deviceRoot();
    setDeviceRoot("/tmp/dev1///");
    EXPECT_EQ(deviceRoot(), "/tmp/dev1");
    EXPECT_EQ(devicePath("/data/vemo//config"), "/tmp/dev1/data/vemo//config");
    EXPECT_EQ(devicePath("relative/x"), "relative/x");
    setDeviceRoot("");
    EXPECT_EQ(deviceRoot(), "/");
    EXPECT_EQ(devicePath("/data/x"), "/data/x");
    setDeviceRoot(before);
}

TEST(DeviceRootTest, MakesParentDirectories) {
    vemo::test::TempDeviceRoot root;
    EXPECT_TRUE(makeParentDirectories(root.path("/a/b/c/file")));
    root.writeFile("/a/b/c/file", "x");
    // A file in the way of a directory cannot be replaced.
    EXPECT_FALSE(makeParentDirectories(root.path("/a/b/c/file/deeper/x")));
    EXPECT_EQ(root.readFile("/a/b/c/file"), "x");
}

}  // namespace
