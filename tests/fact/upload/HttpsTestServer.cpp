#include "HttpsTestServer.h"

#include <chrono>
#include <stdexcept>

namespace vemo {
namespace test {

std::string RecordedRequest::header(const std::string& name) const {
    const auto it = headers.find(name);
    return it == headers.end() ? "" : it->second;
}

HttpsTestServer::HttpsTestServer(const std::string& certFile, const std::string& keyFile)
    : server_(certFile.c_str(), keyFile.c_str()) {
    if (!server_.is_valid()) {
        throw std::runtime_error("HTTPS test server: cannot load " + certFile);
    }
    const auto handler = [this](const httplib::Request& request, httplib::Response& response) {
        handle(request, response);
    };
    server_.Post(".*", handler);
    port_ = server_.bind_to_any_port("127.0.0.1");
    if (port_ <= 0) {
        throw std::runtime_error("HTTPS test server: cannot bind");
    }
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    for (int i = 0; i < 3000 && !server_.is_running(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

HttpsTestServer::~HttpsTestServer() {
    release();
    server_.stop();
    thread_.join();
}

std::string HttpsTestServer::baseUrl() const {
    return "https://127.0.0.1:" + std::to_string(port_);
}

void HttpsTestServer::respondWith(int status, const std::string& body) {
    std::lock_guard<std::mutex> guard(lock_);
    status_ = status;
    body_ = body;
}

void HttpsTestServer::holdAnswers() {
    std::lock_guard<std::mutex> guard(lock_);
    hold_ = true;
}

void HttpsTestServer::release() {
    std::lock_guard<std::mutex> guard(lock_);
    hold_ = false;
    released_.notify_all();
}

std::vector<RecordedRequest> HttpsTestServer::requests() const {
    std::lock_guard<std::mutex> guard(lock_);
    return requests_;
}

void HttpsTestServer::handle(const httplib::Request& request, httplib::Response& response) {
    std::unique_lock<std::mutex> guard(lock_);
    requests_.push_back({request.method, request.path, request.body, request.headers});
    released_.wait(guard, [this] { return !hold_; });
    response.status = status_;
    response.set_content(body_, "application/json");
}

}  // namespace test
}  // namespace vemo
