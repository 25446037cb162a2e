#include "ipc/FlgrFileRequest.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cmath>
#include <utility>

namespace vemo {
namespace ipc {

namespace {

constexpr double kFloatMax = 3.4028234663852886e38;

bool readString(const rapidjson::Document& doc, const char* key, std::string* out) {
    const auto it = doc.FindMember(key);
    if (it == doc.MemberEnd() || !it->value.IsString()) {
        return false;
    }
    out->assign(it->value.GetString(), it->value.GetStringLength());
    return true;
}

}  // namespace

FlgrFileRequest::FlgrFileRequest(std::string filePath, std::string applicationId,
                                 std::string metadata, float scaleValue)
    : filePath_(std::move(filePath)),
      applicationId_(std::move(applicationId)),
      metadata_(std::move(metadata)),
      scaleValue_(scaleValue) {}

std::unique_ptr<FlgrFileRequest> FlgrFileRequest::fromJson(const std::string& text) {
    rapidjson::Document doc;
    // Full precision: the fast default path can land one unit above the float
    // range's own bounds and change the narrowed value of others. Iterative:
    // the text arrives from a binder client, and nesting must not reach the stack.
    doc.Parse<rapidjson::kParseFullPrecisionFlag | rapidjson::kParseIterativeFlag>(text.c_str(),
                                                                                   text.size());
    if (doc.HasParseError() || !doc.IsObject()) {
        return nullptr;
    }
    std::string filePath;
    std::string applicationId;
    std::string metadata;
    if (!readString(doc, "flgrFilePath", &filePath) ||
        !readString(doc, "applicationId", &applicationId) ||
        !readString(doc, "metadata", &metadata)) {
        return nullptr;
    }
    const auto scale = doc.FindMember("scaleValue");
    if (scale == doc.MemberEnd() || !scale->value.IsNumber()) {
        return nullptr;
    }
    const double value = scale->value.GetDouble();
    if (!(value >= -kFloatMax && value <= kFloatMax)) {
        return nullptr;
    }
    return std::make_unique<FlgrFileRequest>(std::move(filePath), std::move(applicationId),
                                             std::move(metadata), static_cast<float>(value));
}

std::string FlgrFileRequest::toJson() const {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartObject();
    writer.Key("flgrFilePath");
    writer.String(filePath_.c_str(), static_cast<rapidjson::SizeType>(filePath_.size()));
    writer.Key("applicationId");
    writer.String(applicationId_.c_str(), static_cast<rapidjson::SizeType>(applicationId_.size()));
    writer.Key("metadata");
    writer.String(metadata_.c_str(), static_cast<rapidjson::SizeType>(metadata_.size()));
    writer.Key("scaleValue");
    if (std::isfinite(scaleValue_)) {
        writer.Double(static_cast<double>(scaleValue_));
    } else {
        writer.Null();
    }
    writer.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace ipc
}  // namespace vemo
