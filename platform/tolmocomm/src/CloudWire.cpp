#include "CloudWire.h"

#include <openssl/rand.h>
#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdio>
#include <random>

namespace tolmocomm {
namespace wire {
namespace {

void writeString(rapidjson::Writer<rapidjson::StringBuffer>& writer, const std::string& text) {
    writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

// The member's text, or "" when it is absent; false when present but not a string.
bool optionalString(const rapidjson::Value& object, const char* name, std::string& out) {
    const auto member = object.FindMember(name);
    if (member == object.MemberEnd()) {
        out.clear();
        return true;
    }
    if (!member->value.IsString()) {
        return false;
    }
    out.assign(member->value.GetString(), member->value.GetStringLength());
    return true;
}

bool requiredString(const rapidjson::Value& object, const char* name, std::string& out) {
    return object.HasMember(name) && optionalString(object, name, out);
}

// One entry of the list; its description in `why` when it is malformed.
bool readEntry(const rapidjson::Value& entry, std::vector<SequencedDirective>& directives,
               uint64_t& highestSeq, std::string& why) {
    if (!entry.IsObject()) {
        why = "not an object";
        return false;
    }
    const auto seq = entry.FindMember("seq");
    if (seq == entry.MemberEnd() || !seq->value.IsUint64()) {
        why = "no unsigned integer \"seq\"";
        return false;
    }
    const uint64_t number = seq->value.GetUint64();
    if (number > highestSeq) {
        highestSeq = number;
    }
    const auto header = entry.FindMember("header");
    std::string nameSpace, name, messageId, payloadVersion, correlation, keys, payload;
    if (header == entry.MemberEnd() || !header->value.IsObject() ||
        !requiredString(header->value, "namespace", nameSpace) ||
        !requiredString(header->value, "name", name) ||
        !optionalString(header->value, "messageId", messageId) ||
        !optionalString(header->value, "payloadVersion", payloadVersion) ||
        !optionalString(header->value, "eventCorrelationToken", correlation)) {
        why = "seq " + std::to_string(number) + ": bad \"header\"";
        return false;
    }
    if (!optionalString(entry, "keys", keys) || !requiredString(entry, "payload", payload)) {
        why = "seq " + std::to_string(number) + ": bad \"keys\" or \"payload\"";
        return false;
    }
    directives.push_back({number, TolmoDirective(nameSpace, name, messageId, keys, payload,
                                                 payloadVersion, correlation)});
    return true;
}

}  // namespace

std::string eventDocument(const TolmoEvent& event, const std::string& messageId) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartObject();
    writer.Key("event");
    writer.StartObject();
    writer.Key("header");
    writer.StartObject();
    writer.Key("namespace");
    writeString(writer, event.getNamespace());
    writer.Key("name");
    writeString(writer, event.getName());
    writer.Key("messageId");
    writeString(writer, messageId);
    writer.Key("payloadVersion");
    writeString(writer, event.getPayloadVersion());
    writer.EndObject();
    writer.Key("payload");
    writeString(writer, event.getPayload());
    writer.EndObject();
    writer.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize());
}

std::string newMessageId() {
    unsigned char bytes[16];
    if (RAND_bytes(bytes, sizeof bytes) != 1) {
        // Message ids need to be unique, not secret.
        std::random_device device;
        for (unsigned char& byte : bytes) {
            byte = static_cast<unsigned char>(device());
        }
    }
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0f) | 0x40);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3f) | 0x80);
    char text[37];
    std::snprintf(text, sizeof text,
                  "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x", bytes[0],
                  bytes[1], bytes[2], bytes[3], bytes[4], bytes[5], bytes[6], bytes[7], bytes[8],
                  bytes[9], bytes[10], bytes[11], bytes[12], bytes[13], bytes[14], bytes[15]);
    return text;
}

bool parseDirectives(const std::string& body, std::vector<SequencedDirective>& directives,
                     std::vector<std::string>& skipped, uint64_t& highestSeq, std::string& error) {
    rapidjson::Document document;
    document.Parse(body.data(), body.size());
    if (document.HasParseError()) {
        error = std::string("not JSON: ") + rapidjson::GetParseError_En(document.GetParseError()) +
                " at offset " + std::to_string(document.GetErrorOffset());
        return false;
    }
    if (!document.IsObject() || !document.HasMember("directives") ||
        !document["directives"].IsArray()) {
        error = "no \"directives\" array";
        return false;
    }
    for (const rapidjson::Value& entry : document["directives"].GetArray()) {
        std::string why;
        if (!readEntry(entry, directives, highestSeq, why)) {
            skipped.push_back(why);
        }
    }
    return true;
}

}  // namespace wire
}  // namespace tolmocomm
