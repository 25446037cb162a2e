#pragma once
// Parsers and writers of the documents devices exchange with the cloud: the
// event envelope, the upload document and its base64 vector, and the
// directive list of a long poll. Parsers take untrusted bytes and never
// throw; on failure they return false with a short reason for the answer's
// body.
//
// Stateless; any thread.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vemo {
namespace cloud {

struct EventDocument {
    std::string eventNamespace;
    std::string name;
    std::string messageId;
    std::string payloadVersion;
    std::string payload;
};

struct UploadDocument {
    std::string campaignId;
    std::string applicationId;
    std::string cohortId;
    int64_t cohortSize = 0;
    std::string vector;  // base64 text as received
    bool bigEndian = false;
};

struct DirectiveHeader {
    std::string eventNamespace;
    std::string name;
    std::string messageId;
    std::string payloadVersion;
    std::string eventCorrelationToken;
};

class WireFormat {
  public:
    // Identifiers (message ids, cohort ids) longer than this are refused.
    static constexpr size_t kMaxIdLength = 256;

    static bool parseEvent(const char* body, size_t size, EventDocument& out, std::string& error);
    static bool parseUpload(const char* body, size_t size, UploadDocument& out, std::string& error);

    // Decodes a padded standard base64 text of exactly `length` 4-byte
    // elements into little-endian words (byte-swapping big-endian input).
    // Anything else (wrong length, stray padding, characters outside the
    // alphabet, whitespace) is refused.
    static bool decodeVector(const std::string& text, bool bigEndian, size_t length,
                             std::vector<uint32_t>& out, std::string& error);

    // The stored form of one directive: its JSON object without "seq".
    static std::string writeDirective(const DirectiveHeader& header, const std::string& payload);
    // {"directives":[{"seq":N, <stored members>}...]}.
    static std::string writeDirectiveList(const std::vector<std::pair<int64_t, std::string>>& list);

    // The "campaign_id" of a vector's metadata text (the request's second
    // name); false when the text is not an object with a non-empty string
    // "campaign_id".
    static bool campaignIdOf(const std::string& metadata, std::string& campaignId);

    // {"messageId":"<id>"}: the answer to an accepted event.
    static std::string writeAccepted(const std::string& messageId);
    // {"error":"<text>"}.
    static std::string writeError(const std::string& text);
};

}  // namespace cloud
}  // namespace vemo
