#pragma once
// The seam between the ingestion client and the network: one POST with a
// JSON body, answered through a future. CurlHttpClient is the product's
// implementation; tests put a recording fake in its place.
//
// Implementations must allow concurrent calls from several upload threads.

#include <future>
#include <string>
#include <unordered_map>

#include "fact/upload/Response.h"

namespace fact {

class IHttpClient {
  public:
    virtual ~IHttpClient() = default;

    // Posts `body` to `url` with the given header fields. Transport failures
    // surface as exceptions from the future's get(); HTTP error statuses do
    // not, they come back in Response::statusCode.
    virtual std::future<Response> sendRequest(
        const std::string& url, const std::unordered_map<std::string, std::string>& headers,
        const std::string& body) = 0;
};

}  // namespace fact
