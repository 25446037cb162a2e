#include "CloudServer.h"

#include <httplib.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include <exception>
#include <fstream>
#include <sstream>

#include "ReportRenderer.h"
#include "ResultsBuilder.h"
#include "WireFormat.h"
#include "common/VemoLogger.h"

namespace vemo {
namespace cloud {

namespace {

const VemoLogger logger("CloudServer");

constexpr const char* kJson = "application/json";
constexpr const char* kTokenHeader = "x-qzt-access-token";

void answer(httplib::Response& response, const Answer& a) {
    response.status = a.status;
    response.set_content(a.body, kJson);
}

// Constant-time comparison: the analyst token is a secret.
bool sameSecret(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) {
        return false;
    }
    unsigned char diff = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        diff |= static_cast<unsigned char>(a[i] ^ b[i]);
    }
    return diff == 0;
}

}  // namespace

CloudServer::CloudServer(ServerConfig config, CloudStore& store, SessionController& controller,
                         Ingestion& ingestion, const CampaignCatalog& catalog)
    : config_(std::move(config)),
      store_(store),
      controller_(controller),
      ingestion_(ingestion),
      catalog_(catalog) {}

CloudServer::~CloudServer() {
    stop();
}

bool CloudServer::bind(std::string& error) {
    server_ =
        std::make_unique<httplib::SSLServer>(config_.certFile.c_str(), config_.keyFile.c_str());
    if (!server_->is_valid()) {
        error = "cannot load certificate " + config_.certFile + " and key " + config_.keyFile;
        return false;
    }
    const size_t threads = config_.threads;
    server_->new_task_queue = [threads] { return new httplib::ThreadPool(threads); };
    server_->set_payload_max_length(kMaxUploadBytes);
    server_->set_read_timeout(5, 0);
    server_->set_write_timeout(5, 0);
    server_->set_keep_alive_timeout(5);
    // The library listens with a backlog of 5, which drops connections when
    // a fleet connects at once; the listening socket is caught here and its
    // backlog raised once bound (listen again only resizes the queue).
    int listenFd = -1;
    server_->set_socket_options([&listenFd](socket_t sock) {
        int yes = 1;
        setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        listenFd = sock;
    });
    routes();
    port_ = config_.port == 0
                ? server_->bind_to_any_port(config_.host.c_str())
                : (server_->bind_to_port(config_.host.c_str(), config_.port) ? config_.port : -1);
    if (port_ < 0) {
        error = "cannot listen on " + config_.host + ":" + std::to_string(config_.port);
        return false;
    }
    if (listenFd >= 0 && ::listen(listenFd, kListenBacklog) != 0) {
        logger.w("%s:listen backlog stays at the library's: %s", "bind", std::strerror(errno));
    }
    return true;
}

void CloudServer::run() {
    server_->listen_after_bind();
}

void CloudServer::stop() {
    if (server_) {
        server_->stop();
    }
}

void CloudServer::routes() {
    auto guarded = [](auto handler) {
        return [handler](const httplib::Request& req, httplib::Response& res) {
            try {
                handler(req, res);
            } catch (const std::exception& e) {
                logger.e("%s:%s %s failed: %s", "routes", req.method.c_str(), req.path.c_str(),
                         e.what());
                answer(res, {500, WireFormat::writeError("internal error")});
            }
        };
    };
    auto onEvent = guarded([this](const httplib::Request& req, httplib::Response& res) {
        answer(res, ingestion_.event(req.get_header_value(kTokenHeader), req.body));
    });
    server_->Post("/v20160207/event", onEvent);
    server_->Post("/v20160207/events", onEvent);
    server_->Post("/maskedFAVs",
                  guarded([this](const httplib::Request& req, httplib::Response& res) {
                      answer(res, ingestion_.upload(req.get_header_value(kTokenHeader), req.body));
                  }));
    server_->Get("/v20160207/directives",
                 guarded([this](const httplib::Request& req, httplib::Response& res) {
                     const std::string token = req.get_header_value(kTokenHeader);
                     const auto device =
                         token.empty() ? std::nullopt : store_.deviceForToken(token);
                     if (!device) {
                         answer(res, {401, WireFormat::writeError("unknown access token")});
                         return;
                     }
                     int64_t after = 0;
                     if (req.has_param("after")) {
                         try {
                             after = std::stoll(req.get_param_value("after"));
                         } catch (const std::exception&) {
                             answer(res, {400, WireFormat::writeError("bad \"after\"")});
                             return;
                         }
                     }
                     if (polls_.fetch_add(1) >= config_.maxPolls) {
                         polls_.fetch_sub(1);
                         answer(res, {503, WireFormat::writeError("too many pollers")});
                         return;
                     }
                     std::vector<DirectiveRecord> list;
                     try {
                         list = controller_.waitForDirectives(*device, after, config_.pollMs);
                     } catch (...) {
                         polls_.fetch_sub(1);
                         throw;
                     }
                     polls_.fetch_sub(1);
                     std::vector<std::pair<int64_t, std::string>> out;
                     for (auto& d : list) {
                         out.emplace_back(d.seq, std::move(d.body));
                     }
                     answer(res, {200, WireFormat::writeDirectiveList(out)});
                 }));
    server_->Get(
        "/v1/health", guarded([this](const httplib::Request&, httplib::Response& res) {
            const HealthCounts h = store_.health();
            answer(res,
                   {200, "{\"status\":\"ok\",\"sessions_open\":" + std::to_string(h.sessionsOpen) +
                             ",\"sessions_complete\":" + std::to_string(h.sessionsComplete) +
                             ",\"sessions_failed\":" + std::to_string(h.sessionsFailed) +
                             ",\"uploads\":" + std::to_string(h.uploads) +
                             ",\"directives_queued\":" + std::to_string(h.directivesQueued) +
                             ",\"requests_waiting\":" + std::to_string(h.requestsWaiting) + "}"});
        }));
    auto analyst = [this](bool html) {
        return [this, html](const httplib::Request& req, httplib::Response& res) {
            if (!config_.analystToken.empty() && !sameSecret(req.get_header_value("Authorization"),
                                                             "Bearer " + config_.analystToken)) {
                answer(res, {401, WireFormat::writeError("analyst token required")});
                return;
            }
            CampaignResults results;
            std::string error;
            const auto status =
                ResultsBuilder::build(store_, catalog_, req.matches[1], results, error);
            if (status != ResultsBuilder::Status::kOk) {
                answer(res, {status == ResultsBuilder::Status::kUnknownCampaign ? 404 : 409,
                             WireFormat::writeError(error)});
                return;
            }
            res.status = 200;
            if (html) {
                res.set_content(ReportRenderer::html(results), "text/html; charset=utf-8");
            } else {
                res.set_content(ReportRenderer::json(results), kJson);
            }
        };
    };
    // Devices fetch the documents the cloud distributes.
    server_->Get(R"(/v1/campaigns/([^/]+))",
                 guarded([this](const httplib::Request& req, httplib::Response& res) {
                     const std::string token = req.get_header_value(kTokenHeader);
                     if (token.empty() || !store_.deviceForToken(token)) {
                         answer(res, {401, WireFormat::writeError("unknown access token")});
                         return;
                     }
                     const auto layout = catalog_.find(req.matches[1]);
                     std::ifstream in(layout ? layout->path : std::string());
                     std::ostringstream document;
                     document << in.rdbuf();
                     if (!layout || !in) {
                         answer(res, {404, WireFormat::writeError("no such campaign")});
                         return;
                     }
                     answer(res, {200, document.str()});
                 }));
    server_->Get(R"(/v1/campaigns/([^/]+)/results)", guarded(analyst(false)));
    server_->Get(R"(/v1/campaigns/([^/]+)/report)", guarded(analyst(true)));
}

}  // namespace cloud
}  // namespace vemo
