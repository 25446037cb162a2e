#include "secagg/ParticipationRequest.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cfloat>
#include <cmath>

#include "StrictObject.h"
#include "secagg/Base64Url.h"

namespace secagg {

bool writeParticipationRequest(const ParticipationRequest& request, std::string& out) {
    if (request.kind == Kind::Flgr && !std::isfinite(request.scale)) {
        return false;
    }
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartObject();
    writer.Key("v");
    writer.Int(kVersion);
    writer.Key("type");
    writer.String("participation_request");
    writer.Key("kind");
    writer.String(kindName(request.kind));
    writer.Key("request_id");
    writer.String(base64UrlEncode(request.requestId));
    writer.Key("name");
    writer.String(request.name);
    writer.Key("second_name");
    writer.String(request.secondName);
    writer.Key("length");
    writer.Uint(request.length);
    writer.Key("stages");
    writer.StartArray();
    for (uint32_t stage : request.stages) {
        writer.Uint(stage);
    }
    writer.EndArray();
    writer.Key("prg");
    writer.StartArray();
    for (const std::string& prg : request.prgs) {
        writer.String(prg);
    }
    writer.EndArray();
    writer.Key("pk");
    writer.String(base64UrlEncode(request.publicKey));
    if (request.kind == Kind::Flgr) {
        writer.Key("scale");
        writer.Double(request.scale);
    }
    writer.EndObject();
    out.assign(buffer.GetString(), buffer.GetSize());
    return true;
}

bool parseParticipationRequest(const std::string& text, ParticipationRequest& out,
                               std::string& error) {
    rapidjson::Document document;
    if (!parseDocument(text, document, error)) {
        return false;
    }
    StrictObject object(document, error);
    std::string kind;
    if (!object.versionOne() || !object.constant("type", "participation_request") ||
        !object.string("kind", kind)) {
        return false;
    }
    if (!kindFromName(kind, out.kind)) {
        return object.fail("unknown kind");
    }
    if (out.kind == Kind::Flgr) {
        if (!object.hasExactly({"v", "type", "kind", "request_id", "name", "second_name", "length",
                                "stages", "prg", "pk", "scale"})) {
            return false;
        }
    } else if (!object.hasExactly({"v", "type", "kind", "request_id", "name", "second_name",
                                   "length", "stages", "prg", "pk"})) {
        return false;
    }
    std::string requestId;
    std::string pk;
    if (!object.string("request_id", requestId) || !object.string("name", out.name) ||
        !object.string("second_name", out.secondName) || !object.uint32("length", out.length) ||
        !object.string("pk", pk)) {
        return false;
    }
    if (!base64UrlDecodeFixed(requestId, out.requestId)) {
        return object.fail("\"request_id\" is not 16 bytes of base64url");
    }
    if (!base64UrlDecodeFixed(pk, out.publicKey)) {
        return object.fail("\"pk\" is not 32 bytes of base64url");
    }
    if (out.length == 0) {
        return object.fail("\"length\" is 0");
    }
    const rapidjson::Value& stages = *object.find("stages");
    if (!stages.IsArray() || stages.Empty()) {
        return object.fail("\"stages\" is not a non-empty array");
    }
    out.stages.clear();
    for (const auto& stage : stages.GetArray()) {
        if (!stage.IsUint()) {
            return object.fail("\"stages\" holds a value that is not a stage");
        }
        out.stages.push_back(stage.GetUint());
    }
    const rapidjson::Value& prgs = *object.find("prg");
    if (!prgs.IsArray() || prgs.Empty()) {
        return object.fail("\"prg\" is not a non-empty array");
    }
    out.prgs.clear();
    for (const auto& prg : prgs.GetArray()) {
        if (!prg.IsString()) {
            return object.fail("\"prg\" holds a value that is not a string");
        }
        out.prgs.emplace_back(prg.GetString(), prg.GetStringLength());
    }
    out.scale = 0.0f;
    if (out.kind == Kind::Flgr) {
        const rapidjson::Value& scale = *object.find("scale");
        if (!scale.IsNumber() || !std::isfinite(scale.GetDouble()) ||
            std::fabs(scale.GetDouble()) > FLT_MAX) {
            return object.fail("\"scale\" is not a finite float");
        }
        out.scale = static_cast<float>(scale.GetDouble());
    }
    return true;
}

}  // namespace secagg
