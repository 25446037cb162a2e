#include "StrictObject.h"

#include <rapidjson/error/en.h>

#include <cstring>
#include <set>

namespace secagg {

bool StrictObject::hasExactly(std::initializer_list<const char*> names) {
    if (object_.MemberCount() != names.size()) {
        return fail("expected " + std::to_string(names.size()) + " members, got " +
                    std::to_string(object_.MemberCount()));
    }
    std::set<std::string> seen;
    for (auto it = object_.MemberBegin(); it != object_.MemberEnd(); ++it) {
        const std::string name(it->name.GetString(), it->name.GetStringLength());
        bool known = false;
        for (const char* expected : names) {
            known = known || name == expected;
        }
        if (!known) {
            return fail("unknown member \"" + name + "\"");
        }
        if (!seen.insert(name).second) {
            return fail("duplicate member \"" + name + "\"");
        }
    }
    return true;
}

const rapidjson::Value* StrictObject::find(const char* name) {
    const auto it = object_.FindMember(name);
    if (it == object_.MemberEnd()) {
        fail(std::string("missing member \"") + name + "\"");
        return nullptr;
    }
    return &it->value;
}

bool StrictObject::string(const char* name, std::string& out) {
    const rapidjson::Value* value = find(name);
    if (value == nullptr) {
        return false;
    }
    if (!value->IsString()) {
        return fail(std::string("\"") + name + "\" is not a string");
    }
    out.assign(value->GetString(), value->GetStringLength());
    return true;
}

bool StrictObject::uint32(const char* name, uint32_t& out) {
    const rapidjson::Value* value = find(name);
    if (value == nullptr) {
        return false;
    }
    if (!value->IsUint()) {
        return fail(std::string("\"") + name + "\" is not an unsigned 32-bit integer");
    }
    out = value->GetUint();
    return true;
}

bool StrictObject::constant(const char* name, const char* expected) {
    std::string value;
    if (!string(name, value)) {
        return false;
    }
    if (value != expected) {
        return fail(std::string("\"") + name + "\" is not \"" + expected + "\"");
    }
    return true;
}

bool StrictObject::versionOne() {
    const rapidjson::Value* value = find("v");
    if (value == nullptr) {
        return false;
    }
    if (!value->IsInt() || value->GetInt() != 1) {
        return fail("unknown version");
    }
    return true;
}

bool StrictObject::fail(const std::string& reason) {
    error_ = reason;
    return false;
}

bool parseDocument(const std::string& text, rapidjson::Document& document, std::string& error) {
    constexpr unsigned kFlags =
        rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag;
    document.Parse<kFlags>(text.data(), text.size());
    if (document.HasParseError()) {
        error = std::string("not JSON: ") + rapidjson::GetParseError_En(document.GetParseError()) +
                " at offset " + std::to_string(document.GetErrorOffset());
        return false;
    }
    if (!document.IsObject()) {
        error = "not a JSON object";
        return false;
    }
    return true;
}

}  // namespace secagg
