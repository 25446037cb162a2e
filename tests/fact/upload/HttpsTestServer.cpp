#include "HttpsTestServer.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

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
    server_.Post(".*", [this](const httplib::Request& request, httplib::Response& response) {
        handle(request, response);
    });
    server_.Get("/v20160207/directives",
                [this](const httplib::Request& request, httplib::Response& response) {
                    poll(request, response);
                });
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
    {
        std::lock_guard<std::mutex> guard(lock_);
        stopping_ = true;
        changed_.notify_all();
    }
    server_.stop();
    thread_.join();
}

std::string HttpsTestServer::baseUrl() const {
    return "https://127.0.0.1:" + std::to_string(port_);
}

void HttpsTestServer::respondWith(int status, const std::string& body, std::vector<int> next) {
    std::lock_guard<std::mutex> guard(lock_);
    status_ = status;
    body_ = body;
    next_.assign(next.begin(), next.end());
}

void HttpsTestServer::holdAnswers() {
    std::lock_guard<std::mutex> guard(lock_);
    hold_ = true;
}

void HttpsTestServer::release() {
    std::lock_guard<std::mutex> guard(lock_);
    hold_ = false;
    changed_.notify_all();
}

uint64_t HttpsTestServer::queueDirective(const std::string& nameSpace, const std::string& name,
                                         const std::string& payload) {
    std::lock_guard<std::mutex> guard(lock_);
    const uint64_t seq = directives_.size() + 1;
    const std::string n = std::to_string(seq);
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartObject();
    writer.Key("seq");
    writer.Uint64(seq);
    writer.Key("header");
    writer.StartObject();
    for (const auto& field : {std::make_pair("namespace", nameSpace),
                              {"name", name},
                              {"messageId", "directive-" + n},
                              {"payloadVersion", "1"},
                              {"eventCorrelationToken", "correlation-" + n}}) {
        writer.Key(field.first);
        writer.String(field.second);
    }
    writer.EndObject();
    writer.Key("payload");
    writer.String(payload);
    writer.EndObject();
    directives_.emplace_back(seq, buffer.GetString());
    changed_.notify_all();
    return seq;
}

void HttpsTestServer::answerPollsRaw(int status, const std::string& body,
                                     const std::string& location) {
    std::lock_guard<std::mutex> guard(lock_);
    rawPollStatus_ = status;
    rawPollBody_ = body;
    rawPollLocation_ = location;
    changed_.notify_all();
}

void HttpsTestServer::setPollHold(std::chrono::milliseconds hold) {
    std::lock_guard<std::mutex> guard(lock_);
    pollHold_ = hold;
}

std::vector<RecordedRequest> HttpsTestServer::requests() const {
    std::lock_guard<std::mutex> guard(lock_);
    return requests_;
}

std::vector<RecordedRequest> HttpsTestServer::requestsTo(const std::string& path) const {
    std::vector<RecordedRequest> matching;
    for (RecordedRequest& request : requests()) {
        if (request.path == path) {
            matching.push_back(std::move(request));
        }
    }
    return matching;
}

bool HttpsTestServer::waitForRequests(const std::string& path, size_t count,
                                      std::chrono::milliseconds bound) const {
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, bound, [&] {
        size_t seen = 0;
        for (const RecordedRequest& request : requests_) {
            seen += request.path == path ? 1 : 0;
        }
        return seen >= count;
    });
}

void HttpsTestServer::record(const httplib::Request& request) {
    std::string query;
    for (const auto& param : request.params) {
        query += (query.empty() ? "" : "&") + param.first + "=" + param.second;
    }
    requests_.push_back({request.method, request.path, query, request.body, request.headers});
    changed_.notify_all();
}

void HttpsTestServer::handle(const httplib::Request& request, httplib::Response& response) {
    std::unique_lock<std::mutex> guard(lock_);
    record(request);
    changed_.wait(guard, [this] { return stopping_ || !hold_; });
    response.status = status_;
    if (!next_.empty()) {
        response.status = next_.front();
        next_.pop_front();
    }
    response.set_content(body_, "application/json");
}

void HttpsTestServer::poll(const httplib::Request& request, httplib::Response& response) {
    std::unique_lock<std::mutex> guard(lock_);
    record(request);
    if (rawPollStatus_ != 0) {
        response.status = rawPollStatus_;
        if (!rawPollLocation_.empty()) {
            response.set_header("Location", rawPollLocation_);
        }
        response.set_content(rawPollBody_, "application/json");
        return;
    }
    const uint64_t after = std::strtoull(request.get_param_value("after").c_str(), nullptr, 10);
    changed_.wait_for(guard, pollHold_, [&] {
        return stopping_ || rawPollStatus_ != 0 || directives_.size() > after;
    });
    std::string body = "{\"directives\":[";
    for (const auto& entry : directives_) {
        if (entry.first > after) {
            body += (body.back() == '[' ? "" : ",") + entry.second;
        }
    }
    response.set_content(body + "]}", "application/json");
}

}  // namespace test
}  // namespace vemo
