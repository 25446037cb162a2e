#include <gtest/gtest.h>

#include "TempDeviceRoot.h"
#include "platform/DeviceRoot.h"

namespace {

using vemo::platform::devicePath;

TEST(DeviceRootTest, MapsAbsolutePathsUnderTheRoot) {
    const std::string before = vemo::platform::deviceRoot();
    vemo::platform::setDeviceRoot("/tmp/dev1///");
    EXPECT_EQ(vemo::platform::deviceRoot(), "/tmp/dev1");
    EXPECT_EQ(devicePath("/data/vemo//config"), "/tmp/dev1/data/vemo//config");
    EXPECT_EQ(devicePath("relative/x"), "relative/x");
    vemo::platform::setDeviceRoot("");
    EXPECT_EQ(vemo::platform::deviceRoot(), "/");
    EXPECT_EQ(devicePath("/data/x"), "/data/x");
    vemo::platform::setDeviceRoot(before);
}

TEST(DeviceRootTest, MakesParentDirectories) {
    vemo::test::TempDeviceRoot root;
    EXPECT_TRUE(vemo::platform::makeParentDirectories(root.path("/a/b/c/file")));
    root.writeFile("/a/b/c/file", "x");
    EXPECT_EQ(root.readFile("/a/b/c/file"), "x");
    // A file in the way of a directory cannot be replaced.
    EXPECT_FALSE(vemo::platform::makeParentDirectories(root.path("/a/b/c/file/deeper/x")));
}

}  // namespace
