#pragma once
// Shared helpers of the analytics library's tests: fixture paths, campaign
// documents edited through JSON pointers, event texts, outcomes and counts.

#include <rapidjson/document.h>
#include <rapidjson/pointer.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstddef>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "TempDeviceRoot.h"
#include "fact/FactHeartbeatMetric.h"

namespace fact {
namespace test {

using Pairs = std::vector<std::pair<std::string, std::string>>;

inline std::string dataPath(const std::string& name) {
    return std::string(FACT_TEST_DATA_DIR) + "/" + name;
}

// The fixture `name` with each (JSON pointer, JSON value text) applied; a
// value text of "-" removes the member.
inline std::string editedCampaign(const std::string& name, const Pairs& edits) {
    rapidjson::Document doc;
    doc.Parse(vemo::test::readHostFile(dataPath(name)).c_str());
    for (const auto& edit : edits) {
        if (edit.second == "-") {
            rapidjson::Pointer(edit.first.c_str()).Erase(doc);
            continue;
        }
        rapidjson::Document value(&doc.GetAllocator());
        value.Parse(edit.second.c_str());
        rapidjson::Pointer(edit.first.c_str()).Set(doc, value);
    }
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    doc.Accept(writer);
    return buffer.GetString();
}

// {"data_producer": producer, "attributes": [{"key": k, "value": v}, ...]}
inline std::string eventText(const std::string& producer, const Pairs& attributes) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartObject();
    writer.Key("data_producer");
    writer.String(producer.c_str());
    writer.Key("attributes");
    writer.StartArray();
    for (const auto& a : attributes) {
        writer.StartObject();
        writer.Key("key");
        writer.String(a.first.c_str());
        writer.Key("value");
        writer.String(a.second.c_str());
        writer.EndObject();
    }
    writer.EndArray();
    writer.EndObject();
    return buffer.GetString();
}

// A heartbeat counter's value since the last report.
inline int heartbeatCount(const char* name) {
    return fact::FactHeartbeatMetric::GetInstance().getCount(name);
}

// "ok" when `call` returns, else the text of what it threw.
template <typename Call>
std::string errorOf(Call&& call) {
    try {
        call();
        return "ok";
    } catch (const std::exception& e) {
        return e.what();
    }
}

// The index of the single 1 of a one-hot vector; -1 when all zero, -2 when
// not one-hot.
template <typename Values>
int onePosition(const Values& values) {
    int at = -1;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (values[i] == 0)
            continue;
        if (at >= 0 || values[i] != 1)
            return -2;
        at = static_cast<int>(i);
    }
    return at;
}

}  // namespace test
}  // namespace fact
