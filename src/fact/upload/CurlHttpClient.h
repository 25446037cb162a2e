#pragma once
// The system's HTTP client: one HTTPS POST per request over libcurl's easy
// interface. sendRequest() returns a deferred future, so nothing is sent until
// the caller waits on it, and the transfer then runs on the caller's thread.
//
// Peer verification is always on, against libcurl's default CA store. The
// system property kCaFileProperty, when set, names a PEM bundle used as the
// CA file instead of the default one (a lab or a test trusting its own CA);
// it is re-read for every transfer. Schemes are libcurl's defaults; callers
// that send secrets (the ingestion client) refuse anything but https first.
//
// libcurl bounds only the connect phase (300 s) by default: a peer that
// accepts the connection and then goes silent would hold the calling thread
// forever. Every transfer
// is therefore bounded by Limits (connect phase, lowest sustained speed, and
// the whole transfer).
//
// Thread-safety: no shared mutable state; each transfer uses its own easy
// handle, so any number of threads may wait on futures at once.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <future>
#include <string>
#include <unordered_map>

#include "fact/upload/IHttpClient.h"

namespace fact {

class CurlHttpClient : public IHttpClient {
  public:
    // Names the CA bundle file to trust in place of libcurl's default one.
    static constexpr const char kCaFileProperty[] = "persist.vemo.ingestion.cafile";

    // Initialises libcurl once for the process and cleans it up at exit. A
    // failed initialisation is logged and counted; the object still exists.
    class CurlGlobalInit {
      public:
        CurlGlobalInit();
        ~CurlGlobalInit();
        CurlGlobalInit(const CurlGlobalInit&) = delete;
        CurlGlobalInit& operator=(const CurlGlobalInit&) = delete;
    };

    // Bounds on one transfer. A zero duration leaves that bound to libcurl
    // (connect: its 300 s default; the others: none).
    struct Limits {
        // TCP connect plus TLS handshake.
        std::chrono::milliseconds connectTimeout{std::chrono::seconds(30)};
        // The transfer fails when it moves fewer than lowSpeedBytesPerSecond
        // for lowSpeedTime (whole seconds: libcurl's granularity).
        int32_t lowSpeedBytesPerSecond = 1;
        std::chrono::seconds lowSpeedTime{60};
        // The whole transfer, connect included.
        std::chrono::milliseconds totalTimeout{std::chrono::minutes(5)};
    };

    CurlHttpClient();
    explicit CurlHttpClient(const Limits& limits);

    std::future<Response> sendRequest(const std::string& url,
                                      const std::unordered_map<std::string, std::string>& headers,
                                      const std::string& body) override;

    // libcurl's write callback: appends size * count bytes to the
    // std::string at userp.
    static size_t WriteCallback(void* data, size_t size, size_t count, void* userp);

    const Limits& limits() const { return limits_; }

  private:
    const Limits limits_;
};

}  // namespace fact
