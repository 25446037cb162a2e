#include "LoopbackPort.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace vemo {
namespace fleet {

namespace {

// Binds 127.0.0.1:port; returns the bound port, or 0 with errno's text.
int bindLoopback(int port, std::string* error) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        *error = std::strerror(errno);
        return 0;
    }
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    socklen_t length = sizeof address;
    int bound = 0;
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(fd, 1) != 0) {
        *error = errno == EADDRINUSE ? "in use by another program" : std::strerror(errno);
    } else if (getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
        bound = ntohs(address.sin_port);
    } else {
        *error = std::strerror(errno);
    }
    close(fd);
    return bound;
}

}  // namespace

int LoopbackPort::pickFree(std::string* error) {
    return bindLoopback(0, error);
}

bool LoopbackPort::isFree(int port, std::string* error) {
    if (port < 1 || port > 65535) {
        *error = "not a port number";
        return false;
    }
    return bindLoopback(port, error) == port;
}

}  // namespace fleet
}  // namespace vemo
