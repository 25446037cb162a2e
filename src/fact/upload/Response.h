#pragma once
// One HTTP response as the HTTP client hands it back: the status code and the
// body exactly as received. A plain value, owned by whoever holds it.

#include <cstdint>
#include <string>

namespace fact {

struct Response {
    // Appended chunk by chunk while the transfer runs.
    std::string body;
    // -1 until a response code has been read.
    int32_t statusCode = -1;
};

}  // namespace fact
