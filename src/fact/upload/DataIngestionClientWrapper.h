#pragma once
// Owns the process-wide ingestion client: made on first use (thread-safe)
// over a MapAuthenticator and a CurlHttpClient, destroyed at exit. At exit it
// first waits up to kExitDrain for detached uploads still running, so that
// they do not outlive libcurl's global state.

#include <chrono>

#include "fact/upload/DataIngestionClient.h"

namespace fact {

class DataIngestionClientWrapper {
  public:
    static constexpr std::chrono::seconds kExitDrain{5};

    static DataIngestionClient& getInstance();
};

}  // namespace fact
