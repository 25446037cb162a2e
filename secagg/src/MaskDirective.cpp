#include "secagg/MaskDirective.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "StrictObject.h"
#include "secagg/Base64Url.h"

namespace secagg {

std::string writeMaskDirective(const MaskDirective& directive) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartObject();
    writer.Key("v");
    writer.Int(kVersion);
    writer.Key("type");
    writer.String("mask");
    writer.Key("request_id");
    writer.String(base64UrlEncode(directive.requestId));
    writer.Key("session_id");
    writer.String(base64UrlEncode(directive.sessionId));
    writer.Key("stage");
    writer.Uint(directive.stage);
    writer.Key("prg");
    writer.String(directive.prg);
    writer.Key("kind");
    writer.String(kindName(directive.kind));
    writer.Key("name");
    writer.String(directive.name);
    writer.Key("second_name");
    writer.String(directive.secondName);
    writer.Key("length");
    writer.Uint(directive.length);
    writer.Key("cohort_id");
    writer.String(directive.cohortId);
    writer.Key("neighbours");
    writer.StartArray();
    for (const PublicKey& key : directive.neighbours) {
        writer.String(base64UrlEncode(key));
    }
    writer.EndArray();
    writer.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize());
}

DirectiveParse parseMaskDirective(const std::string& text, MaskDirective& out, std::string& error,
                                  bool& requestIdRead, size_t maxNeighbours) {
    requestIdRead = false;
    rapidjson::Document document;
    if (!parseDocument(text, document, error)) {
        return DirectiveParse::Malformed;
    }
    StrictObject object(document, error);
    // The request id first: whatever else is wrong, a directive that names a
    // request uses it up.
    std::string requestId;
    if (!object.string("request_id", requestId)) {
        return DirectiveParse::Malformed;
    }
    if (!base64UrlDecodeFixed(requestId, out.requestId)) {
        object.fail("\"request_id\" is not 16 bytes of base64url");
        return DirectiveParse::Malformed;
    }
    requestIdRead = true;
    std::string sessionId;
    std::string kind;
    if (!object.hasExactly({"v", "type", "request_id", "session_id", "stage", "prg", "kind", "name",
                            "second_name", "length", "cohort_id", "neighbours"}) ||
        !object.versionOne() || !object.constant("type", "mask") ||
        !object.string("session_id", sessionId) || !object.uint32("stage", out.stage) ||
        !object.string("prg", out.prg) || !object.string("kind", kind) ||
        !object.string("name", out.name) || !object.string("second_name", out.secondName) ||
        !object.uint32("length", out.length) || !object.string("cohort_id", out.cohortId)) {
        return DirectiveParse::Malformed;
    }
    if (!base64UrlDecodeFixed(sessionId, out.sessionId)) {
        object.fail("\"session_id\" is not 32 bytes of base64url");
        return DirectiveParse::Malformed;
    }
    if (!kindFromName(kind, out.kind)) {
        object.fail("unknown kind");
        return DirectiveParse::Malformed;
    }
    const rapidjson::Value& neighbours = *object.find("neighbours");
    if (!neighbours.IsArray()) {
        object.fail("\"neighbours\" is not an array");
        return DirectiveParse::Malformed;
    }
    if (neighbours.Size() > maxNeighbours) {
        object.fail("too many neighbours: " + std::to_string(neighbours.Size()));
        return DirectiveParse::TooManyNeighbours;
    }
    out.neighbours.assign(neighbours.Size(), PublicKey{});
    for (rapidjson::SizeType i = 0; i < neighbours.Size(); ++i) {
        const rapidjson::Value& key = neighbours[i];
        if (!key.IsString() ||
            !base64UrlDecodeFixed(std::string(key.GetString(), key.GetStringLength()),
                                  out.neighbours[i])) {
            object.fail("neighbour " + std::to_string(i) + " is not 32 bytes of base64url");
            return DirectiveParse::Malformed;
        }
    }
    return DirectiveParse::Ok;
}

}  // namespace secagg
