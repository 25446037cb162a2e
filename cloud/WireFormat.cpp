#include "WireFormat.h"

#include <openssl/evp.h>

#include <cstring>

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace vemo {
namespace cloud {

namespace {

using rapidjson::Value;

// Iterative parsing: nesting depth costs heap, not stack.
constexpr unsigned kParseFlags = rapidjson::kParseIterativeFlag;

const Value* member(const Value& object, const char* name) {
    const auto found = object.FindMember(name);
    return found == object.MemberEnd() ? nullptr : &found->value;
}

bool readString(const Value& object, const char* name, std::string& out, std::string& error,
                bool nonEmpty = true) {
    const Value* value = member(object, name);
    if (!value || !value->IsString() || (nonEmpty && value->GetStringLength() == 0)) {
        error =
            std::string("\"") + name + "\" must be a " + (nonEmpty ? "non-empty " : "") + "string";
        return false;
    }
    out.assign(value->GetString(), value->GetStringLength());
    return true;
}

bool parseObject(const char* body, size_t size, rapidjson::Document& doc, std::string& error) {
    doc.Parse<kParseFlags>(body, size);
    if (doc.HasParseError()) {
        error = "malformed JSON at offset " + std::to_string(doc.GetErrorOffset());
        return false;
    }
    if (!doc.IsObject()) {
        error = "the document must be a JSON object";
        return false;
    }
    return true;
}

bool boundedId(const std::string& id, const char* name, std::string& error) {
    if (id.size() > WireFormat::kMaxIdLength) {
        error = std::string("\"") + name + "\" is longer than " +
                std::to_string(WireFormat::kMaxIdLength) + " bytes";
        return false;
    }
    return true;
}

}  // namespace

bool WireFormat::parseEvent(const char* body, size_t size, EventDocument& out, std::string& error) {
    rapidjson::Document doc;
    if (!parseObject(body, size, doc, error)) {
        return false;
    }
    const Value* event = member(doc, "event");
    if (!event || !event->IsObject()) {
        error = "\"event\" must be an object";
        return false;
    }
    const Value* header = member(*event, "header");
    if (!header || !header->IsObject()) {
        error = "\"header\" must be an object";
        return false;
    }
    if (!readString(*header, "namespace", out.eventNamespace, error) ||
        !readString(*header, "name", out.name, error) ||
        !readString(*header, "messageId", out.messageId, error) ||
        !boundedId(out.messageId, "messageId", error) ||
        !readString(*event, "payload", out.payload, error, false)) {
        return false;
    }
    out.payloadVersion.clear();
    if (const Value* version = member(*header, "payloadVersion")) {
        if (!version->IsString()) {
            error = "\"payloadVersion\" must be a string";
            return false;
        }
        out.payloadVersion = version->GetString();
    }
    return true;
}

bool WireFormat::parseUpload(const char* body, size_t size, UploadDocument& out,
                             std::string& error) {
    rapidjson::Document doc;
    if (!parseObject(body, size, doc, error)) {
        return false;
    }
    if (!readString(doc, "campaignId", out.campaignId, error)) {
        return false;
    }
    const Value* data = member(doc, "maskedFederatedAnalyticsData");
    if (!data || !data->IsObject()) {
        error = "\"maskedFederatedAnalyticsData\" must be an object";
        return false;
    }
    std::string encoding;
    if (!readString(*data, "applicationId", out.applicationId, error) ||
        !readString(*data, "cohortId", out.cohortId, error) ||
        !boundedId(out.cohortId, "cohortId", error) ||
        !readString(*data, "maskedFederatedAnalyticsVector", out.vector, error) ||
        !readString(*data, "vectorEncoding", encoding, error)) {
        return false;
    }
    if (encoding != "base64") {
        error = "unsupported \"vectorEncoding\": " + encoding.substr(0, 32);
        return false;
    }
    const Value* cohortSize = member(*data, "cohortSize");
    if (!cohortSize || !cohortSize->IsInt64()) {
        error = "\"cohortSize\" must be an integer";
        return false;
    }
    out.cohortSize = cohortSize->GetInt64();
    const Value* endianness = member(*data, "elementDatatypeEndianness");
    if (!endianness || !endianness->IsBool()) {
        error = "\"elementDatatypeEndianness\" must be a boolean";
        return false;
    }
    out.bigEndian = endianness->GetBool();
    return true;
}

bool WireFormat::decodeVector(const std::string& text, bool bigEndian, size_t length,
                              std::vector<uint32_t>& out, std::string& error) {
    const size_t bytes = length * 4;
    const size_t expected = (bytes + 2) / 3 * 4;
    if (length == 0 || text.size() != expected) {
        error = "the vector must hold " + std::to_string(length) + " elements";
        return false;
    }
    // OpenSSL's block decoder tolerates '=' inside the text and whitespace at
    // its ends; the exact length above and this scan leave it only the
    // alphabet and the final padding.
    const size_t padding = (3 - bytes % 3) % 3;
    const size_t body = text.size() - padding;
    if (std::memchr(text.data(), '=', body) != nullptr ||
        text.compare(body, padding, std::string(padding, '=')) != 0) {
        error = "the vector is not valid base64";
        return false;
    }
    out.resize(length + 1);  // room for the decoder's padding bytes
    auto* raw = reinterpret_cast<unsigned char*>(out.data());
    const int decoded = EVP_DecodeBlock(raw, reinterpret_cast<const unsigned char*>(text.data()),
                                        static_cast<int>(text.size()));
    if (decoded < 0 || static_cast<size_t>(decoded) != bytes + padding) {
        error = "the vector is not valid base64";
        return false;
    }
    out.resize(length);
    for (uint32_t& word : out) {
        unsigned char b[4];
        std::memcpy(b, &word, 4);
        word = bigEndian ? (uint32_t{b[0]} << 24 | uint32_t{b[1]} << 16 | uint32_t{b[2]} << 8 |
                            uint32_t{b[3]})
                         : (uint32_t{b[0]} | uint32_t{b[1]} << 8 | uint32_t{b[2]} << 16 |
                            uint32_t{b[3]} << 24);
    }
    return true;
}

std::string WireFormat::writeDirective(const DirectiveHeader& header, const std::string& payload) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> w(buffer);
    w.StartObject();
    w.Key("header");
    w.StartObject();
    w.Key("namespace");
    w.String(header.eventNamespace);
    w.Key("name");
    w.String(header.name);
    w.Key("messageId");
    w.String(header.messageId);
    w.Key("payloadVersion");
    w.String(header.payloadVersion);
    w.Key("eventCorrelationToken");
    w.String(header.eventCorrelationToken);
    w.EndObject();
    w.Key("keys");
    w.String("");
    w.Key("payload");
    w.String(payload);
    w.EndObject();
    return buffer.GetString();
}

std::string WireFormat::writeDirectiveList(
    const std::vector<std::pair<int64_t, std::string>>& list) {
    // The stored objects were written by writeDirective; "seq" goes first.
    std::string out = "{\"directives\":[";
    for (size_t i = 0; i < list.size(); ++i) {
        if (i > 0) {
            out += ',';
        }
        out += "{\"seq\":" + std::to_string(list[i].first);
        const std::string& stored = list[i].second;
        if (stored.size() > 2) {
            out += ',';
            out.append(stored, 1, std::string::npos);
        } else {
            out += '}';
        }
    }
    out += "]}";
    return out;
}

bool WireFormat::campaignIdOf(const std::string& metadata, std::string& campaignId) {
    rapidjson::Document doc;
    std::string error;
    return parseObject(metadata.data(), metadata.size(), doc, error) &&
           readString(doc, "campaign_id", campaignId, error);
}

namespace {

std::string oneMember(const char* key, const std::string& value) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> w(buffer);
    w.StartObject();
    w.Key(key);
    w.String(value);
    w.EndObject();
    return buffer.GetString();
}

}  // namespace

std::string WireFormat::writeAccepted(const std::string& messageId) {
    return oneMember("messageId", messageId);
}

std::string WireFormat::writeError(const std::string& text) {
    return oneMember("error", text);
}

}  // namespace cloud
}  // namespace vemo
