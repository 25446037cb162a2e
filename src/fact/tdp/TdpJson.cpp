#include "fact/tdp/TdpJson.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace fact {
namespace tdp {
namespace {
constexpr size_t kParseStackBytes = 1024;
}  // namespace

rapidjson::Document parseJson(const std::string& text) {
    rapidjson::Document document(nullptr, kParseStackBytes);
    document.Parse<rapidjson::kParseIterativeFlag>(text.data(), text.size());
    return document;
}

std::string upperCase(std::string text) {
    for (char& c : text) {
        if (c >= 'a' && c <= 'z') {
            c = static_cast<char>(c - 'a' + 'A');
        }
    }
    return text;
}

std::string writeJson(const rapidjson::Value& value) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace tdp
}  // namespace fact
