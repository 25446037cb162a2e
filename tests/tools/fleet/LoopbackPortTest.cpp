// The demo's port check must see a port another program listens on, on the
// port number asked for.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "LoopbackPort.h"

namespace vemo {
namespace fleet {
namespace {

TEST(LoopbackPortTest, AListeningPortIsTakenAndAFreeOneIsFree) {
    std::string error;
    const int port = LoopbackPort::pickFree(&error);
    ASSERT_GT(port, 0) << error;
    EXPECT_TRUE(LoopbackPort::isFree(port, &error)) << error;

    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_GE(fd, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(fd, 1), 0);
    EXPECT_FALSE(LoopbackPort::isFree(port, &error));
    EXPECT_EQ(error, "in use by another program");
    close(fd);
}

}  // namespace
}  // namespace fleet
}  // namespace vemo
