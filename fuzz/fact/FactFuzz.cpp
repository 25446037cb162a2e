// Feeds arbitrary bytes to the analytics library through its entry points:
// as a campaign document (first byte odd), loaded and deleted again, or as an
// input event (first byte even) sent against a loaded campaign whose vectors
// go out on every event. Anything but a clean return (status 0 or 1) is a
// finding.
#include <fact/fact_api.h>
#include <rapidjson/document.h>
#include <rapidjson/encodedstream.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>
#include <rapidjson/schema.h>
#include <stdint.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "fact/InputEvent.h"
#include "hostlog/LogCapture.h"

namespace {

const char kCampaign[] = R"({"campaign_id": "fz", "data_producer": "p",
    "fact_compatibility_id": 1, "upload_frequency": [{"type": "time_seconds", "value": 0}],
    "cohort_filters": ["device"], "data_producer_config": {},
    "differential_privacy_config": {"epsilon": 1.0, "cohort_size": 4, "config_version": 1},
    "data": [{"analytics_name": "n", "aggregation_function": "count", "datatype": "int32",
              "attributes": [
                {"name": "n", "type": "int32", "bin_type": "range",
                 "bins": [{"name": "a", "min": -5, "max": 5, "include_max": false},
                          {"name": "b", "min": 5, "max": 2147483647, "include_max": true}]},
                {"name": "d", "type": "double", "bin_type": "range",
                 "bins": [{"name": "x", "min": -1e300, "max": 0.5, "include_max": true}]},
                {"name": "s", "type": "string", "bin_type": "enum", "bins": ["a", "b_c"]}]}]})";

std::string gScratch;

int splitValue(const char*, const char*) {
    return 0;
}

void ignoreVector(const int*, unsigned int, const char*, const char*) {}

// The last vector that went out, split and rebuilt after the call that sent
// it, as the library's other consumers would (not from inside the callback,
// where the library refuses calls).
std::string gApplicationId;
std::vector<int> gValues;

void onVector(const int* values, unsigned int length, const char* applicationId, const char*) {
    gApplicationId = applicationId;
    gValues.assign(values, values + length);
}

bool writeScratch(const uint8_t* data, size_t size) {
    std::ofstream out(gScratch, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    return static_cast<bool>(out);
}

// The event reader skips the schema's validator for events of the plain shape;
// whatever it accepts, the validator must accept, and the other way round.
void checkEventAgainstSchema(const std::string& text) {
    if (text.empty() || text.size() > fact::InputEvent::kMaxJsonSize) {
        return;
    }
    static const rapidjson::SchemaDocument* schema = [] {
        rapidjson::Document doc;
        doc.Parse(fact::InputEvent::kSchema);
        return new rapidjson::SchemaDocument(doc);
    }();
    bool accepted = true;
    try {
        const fact::InputEvent event(text);
    } catch (const std::exception&) {
        accepted = false;
    }
    rapidjson::SchemaValidator validator(*schema);
    rapidjson::Reader reader;
    // Bounded by the length, as the library reads: a null-terminated stream
    // lets the UTF-8 check read past the end of a truncated sequence.
    rapidjson::MemoryStream memory(text.data(), text.size());
    rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> input(memory);
    const bool parsed =
        !reader
             .Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag>(
                 input, validator)
             .IsError();
    if (accepted != (parsed && validator.IsValid())) {
        abort();
    }
}

void check(fact_status_t status) {
    if (status != 0 && status != 1) {
        abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    char dir[] = "/tmp/fact_fuzz.XXXXXX";
    if (mkdtemp(dir) == nullptr) {
        abort();
    }
    gScratch = std::string(dir) + "/campaign.json";
    factVemo_SetVectorCallback(onVector);
    if (!writeScratch(reinterpret_cast<const uint8_t*>(kCampaign), sizeof kCampaign - 1) ||
        fact_CreateCampaign(gScratch.c_str()) != 0) {
        abort();
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static hostlog::LogCapture* logs = new hostlog::LogCapture(false);
    if (size == 0) {
        return 0;
    }
    if (data[0] % 2 == 1) {
        if (writeScratch(data + 1, size - 1)) {
            const fact_status_t created = fact_CreateCampaign(gScratch.c_str());
            check(created);
            if (created == 0) {
                // Keep the fixed campaign the only one, so that events keep
                // reaching it: remove what loaded, then bring it back (the
                // document may have replaced it under its own id).
                rapidjson::Document doc;
                doc.Parse<rapidjson::kParseIterativeFlag>(reinterpret_cast<const char*>(data) + 1,
                                                          size - 1);
                if (!doc.HasParseError() && doc.IsObject() && doc.HasMember("campaign_id") &&
                    doc["campaign_id"].IsString()) {
                    check(fact_DeleteCampaign(doc["campaign_id"].GetString()));
                }
                writeScratch(reinterpret_cast<const uint8_t*>(kCampaign), sizeof kCampaign - 1);
                if (fact_CreateCampaign(gScratch.c_str()) != 0) {
                    abort();
                }
            }
        }
    } else {
        const std::string event(reinterpret_cast<const char*>(data) + 1, size - 1);
        checkEventAgainstSchema(event.c_str());
        gApplicationId.clear();
        check(factDataProducerAdapter_SendEvent("p", event.c_str()));
        if (!gApplicationId.empty()) {
            check(fact_SplitApplicationId("fz", gApplicationId.c_str(), splitValue));
            check(factVector_Deserialize("fz", gValues.data(),
                                         static_cast<unsigned int>(gValues.size()), ignoreVector));
        }
    }
    logs->clear();
    return 0;
}
