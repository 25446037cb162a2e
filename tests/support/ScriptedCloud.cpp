#include "ScriptedCloud.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <stdexcept>

namespace vemo {
namespace test {

ScriptedCloud::ScriptedCloud(const std::string& certFile, const std::string& keyFile)
    : server_(certFile.c_str(), keyFile.c_str()) {
    if (!server_.is_valid()) {
        throw std::runtime_error("scripted cloud: cannot load " + certFile);
    }
    server_.Post(".*", [this](const httplib::Request& request, httplib::Response& response) {
        onPost(request, response);
    });
    server_.Get("/v20160207/directives",
                [this](const httplib::Request& request, httplib::Response& response) {
                    onPoll(request, response);
                });
    port_ = server_.bind_to_any_port("127.0.0.1");
    if (port_ <= 0) {
        throw std::runtime_error("scripted cloud: cannot bind");
    }
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    for (int i = 0; i < 3000 && !server_.is_running(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

ScriptedCloud::~ScriptedCloud() {
    {
        std::lock_guard<std::mutex> guard(lock_);
        stopping_ = true;
        changed_.notify_all();
    }
    server_.stop();
    thread_.join();
}

std::string ScriptedCloud::baseUrl() const {
    return "https://127.0.0.1:" + std::to_string(port_);
}

void ScriptedCloud::answerPosts(int status, std::vector<int> next) {
    std::lock_guard<std::mutex> guard(lock_);
    postStatus_ = status;
    nextPostStatuses_.assign(next.begin(), next.end());
}

void ScriptedCloud::holdPosts(bool hold) {
    std::lock_guard<std::mutex> guard(lock_);
    holdPosts_ = hold;
    changed_.notify_all();
}

uint64_t ScriptedCloud::queueDirective(const std::string& nameSpace, const std::string& name,
                                       const std::string& payload) {
    std::lock_guard<std::mutex> guard(lock_);
    const uint64_t seq = ++lastSeq_;
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartObject();
    writer.Key("seq");
    writer.Uint64(seq);
    writer.Key("header");
    writer.StartObject();
    writer.Key("namespace");
    writer.String(nameSpace);
    writer.Key("name");
    writer.String(name);
    writer.Key("messageId");
    writer.String("directive-" + std::to_string(seq));
    writer.Key("payloadVersion");
    writer.String("1");
    writer.Key("eventCorrelationToken");
    writer.String("correlation-" + std::to_string(seq));
    writer.EndObject();
    writer.Key("keys");
    writer.String("");
    writer.Key("payload");
    writer.String(payload);
    writer.EndObject();
    directives_.emplace_back(seq, buffer.GetString());
    changed_.notify_all();
    return seq;
}

void ScriptedCloud::answerPollsRaw(int status, const std::string& body,
                                   const std::string& location) {
    std::lock_guard<std::mutex> guard(lock_);
    rawPollStatus_ = status;
    rawPollBody_ = body;
    rawPollLocation_ = location;
    changed_.notify_all();
}

void ScriptedCloud::setPollHold(std::chrono::milliseconds hold) {
    std::lock_guard<std::mutex> guard(lock_);
    pollHold_ = hold;
}

std::vector<CloudRequest> ScriptedCloud::requests() const {
    std::lock_guard<std::mutex> guard(lock_);
    return requests_;
}

std::vector<CloudRequest> ScriptedCloud::requestsTo(const std::string& path) const {
    std::vector<CloudRequest> matching;
    for (CloudRequest& request : requests()) {
        if (request.path == path) {
            matching.push_back(std::move(request));
        }
    }
    return matching;
}

bool ScriptedCloud::waitForRequests(const std::string& path, size_t count,
                                    std::chrono::milliseconds bound) const {
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, bound, [&] {
        size_t seen = 0;
        for (const CloudRequest& request : requests_) {
            seen += request.path == path ? 1 : 0;
        }
        return seen >= count;
    });
}

void ScriptedCloud::record(const httplib::Request& request) {
    std::string query;
    for (const auto& param : request.params) {
        query += (query.empty() ? "" : "&") + param.first + "=" + param.second;
    }
    requests_.push_back({request.method, request.path, query, request.body,
                         request.get_header_value("x-qzt-access-token")});
    changed_.notify_all();
}

void ScriptedCloud::onPost(const httplib::Request& request, httplib::Response& response) {
    std::unique_lock<std::mutex> guard(lock_);
    record(request);
    changed_.wait(guard, [this] { return stopping_ || !holdPosts_; });
    int status = postStatus_;
    if (!nextPostStatuses_.empty()) {
        status = nextPostStatuses_.front();
        nextPostStatuses_.pop_front();
    }
    response.status = status;
    response.set_content("{}", "application/json");
}

void ScriptedCloud::onPoll(const httplib::Request& request, httplib::Response& response) {
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
    const uint64_t after =
        request.has_param("after") ? std::stoull(request.get_param_value("after")) : 0;
    changed_.wait_for(guard, pollHold_, [&] {
        return stopping_ || rawPollStatus_ != 0 || (!directives_.empty() && lastSeq_ > after);
    });
    std::string body = "{\"directives\":[";
    bool first = true;
    for (const auto& entry : directives_) {
        if (entry.first > after) {
            body += (first ? "" : ",") + entry.second;
            first = false;
        }
    }
    body += "]}";
    response.status = 200;
    response.set_content(body, "application/json");
}

}  // namespace test
}  // namespace vemo
