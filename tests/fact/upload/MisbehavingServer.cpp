#include "MisbehavingServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <strings.h>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace vemo {
namespace test {
namespace {

void sendAll(SSL* ssl, const std::string& text) {
    SSL_write(ssl, text.data(), static_cast<int>(text.size()));
}

// Reads one request's header and body (Content-Length) from the peer.
void readRequest(SSL* ssl) {
    std::string data;
    char buffer[4096];
    size_t headerEnd = std::string::npos;
    size_t want = std::string::npos;
    while (want == std::string::npos || data.size() < want) {
        const int n = SSL_read(ssl, buffer, sizeof buffer);
        if (n <= 0) {
            return;
        }
        data.append(buffer, static_cast<size_t>(n));
        if (headerEnd == std::string::npos) {
            headerEnd = data.find("\r\n\r\n");
            if (headerEnd != std::string::npos) {
                size_t length = 0;
                const char* field = strcasestr(data.c_str(), "\r\ncontent-length:");
                if (field != nullptr) {
                    length = std::strtoul(field + 17, nullptr, 10);
                }
                want = headerEnd + 4 + length;
            }
        }
    }
}

}  // namespace

MisbehavingServer::MisbehavingServer(Misbehaviour behaviour, const std::string& certFile,
                                     const std::string& keyFile)
    : behaviour_(behaviour) {
    ctx_ = SSL_CTX_new(TLS_server_method());
    if (ctx_ == nullptr || SSL_CTX_use_certificate_chain_file(ctx_, certFile.c_str()) != 1 ||
        SSL_CTX_use_PrivateKey_file(ctx_, keyFile.c_str(), SSL_FILETYPE_PEM) != 1) {
        throw std::runtime_error("misbehaving server: cannot load " + certFile);
    }
    listenFd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (listenFd_ < 0 || bind(listenFd_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        listen(listenFd_, 16) != 0 ||
        getsockname(listenFd_, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
        pipe2(stopPipe_, O_CLOEXEC) != 0) {
        throw std::runtime_error("misbehaving server: cannot listen");
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
}

MisbehavingServer::~MisbehavingServer() {
    const char stop = 'x';
    if (write(stopPipe_[1], &stop, 1) != 1) {
        std::abort();
    }
    thread_.join();
    close(listenFd_);
    close(stopPipe_[0]);
    close(stopPipe_[1]);
    SSL_CTX_free(ctx_);
}

std::string MisbehavingServer::baseUrl() const {
    return "https://127.0.0.1:" + std::to_string(port_);
}

bool MisbehavingServer::waitReadable(int fd) {
    pollfd fds[2] = {{fd, POLLIN, 0}, {stopPipe_[0], POLLIN, 0}};
    while (poll(fds, 2, -1) < 0) {
    }
    return (fds[1].revents & POLLIN) == 0;
}

void MisbehavingServer::serve() {
    if (behaviour_ == Misbehaviour::kNeverAccept) {
        waitReadable(stopPipe_[0]);
        return;
    }
    while (waitReadable(listenFd_)) {
        const int fd = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            continue;
        }
        serveOne(fd);
        close(fd);
    }
}

void MisbehavingServer::serveOne(int fd) {
    if (behaviour_ == Misbehaviour::kCloseAtOnce) {
        return;
    }
    if (behaviour_ == Misbehaviour::kPlainGarbage) {
        const char garbage[] = "HELLO? this is not TLS\r\n\r\n";
        if (write(fd, garbage, sizeof garbage - 1) < 0) {
            return;
        }
        waitReadable(fd);
        return;
    }
    SSL* ssl = SSL_new(ctx_);
    SSL_set_fd(ssl, fd);
    if (SSL_accept(ssl) == 1) {
        readRequest(ssl);
        switch (behaviour_) {
            case Misbehaviour::kGarbageReply:
                sendAll(ssl, "\x01\x02 not an HTTP reply at all \xff\r\n\r\n");
                break;
            case Misbehaviour::kTruncatedBody:
                sendAll(ssl, "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nshort");
                break;
            case Misbehaviour::kStallAfterRequest:
                // Silent until the client gives up (EOF) or the server stops.
                while (waitReadable(fd)) {
                    char byte;
                    if (recv(fd, &byte, 1, 0) <= 0) {
                        break;
                    }
                }
                break;
            default:
                break;
        }
        SSL_shutdown(ssl);
    }
    SSL_free(ssl);
}

}  // namespace test
}  // namespace vemo
