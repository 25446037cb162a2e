#include "fact/CampaignSchemaProvider.h"

#include <rapidjson/error/en.h>
#include <rapidjson/schema.h>
#include <sys/stat.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "fact/DataType.h"
#include "fact/JsonUtils.h"

namespace fact {
namespace {

std::shared_ptr<const CampaignSchemaProvider::ParsedSchema> parseSchema(const std::string& text);

}  // namespace

struct CampaignSchemaProvider::ParsedSchema {
    std::unique_ptr<rapidjson::SchemaDocument> document;
    std::string error;
};

namespace {

std::shared_ptr<const CampaignSchemaProvider::ParsedSchema> parseSchema(const std::string& text) {
    auto result = std::make_shared<CampaignSchemaProvider::ParsedSchema>();
    rapidjson::Document doc;
    doc.Parse(text.c_str());
    if (doc.HasParseError()) {
        result->error = std::string(rapidjson::GetParseError_En(doc.GetParseError())) +
                        " (offset " + std::to_string(doc.GetErrorOffset()) + ")";
    } else {
        result->document = std::make_unique<rapidjson::SchemaDocument>(doc);
    }
    return result;
}

std::string readFile(const std::string& path) {
    // A directory opens fine as a stream but cannot be read: refuse it here.
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
        throw std::runtime_error("Failed to open config file: " + path);
    }
    // Real campaigns are kilobytes; the bound keeps a stray file from being
    // read whole and validated for minutes.
    constexpr off_t kMaxSize = 1 << 20;
    if (info.st_size > kMaxSize) {
        throw std::runtime_error("Config file too large: " + path + " (" +
                                 std::to_string(info.st_size) + " bytes, limit " +
                                 std::to_string(kMaxSize) + ")");
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("Failed to open config file: " + path);
    }
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

std::string quoted(const char* name) {
    return std::string("\"") + name + "\"";
}

int32_t readInt32(const rapidjson::Value& value, const char* name) {
    if (!value.IsInt()) {
        throw std::runtime_error("Failed to load " + quoted(name) +
                                 " out of range: " + json::Serialize(value));
    }
    return value.GetInt();
}

// Ranged bins read "min"/"max" with the attribute's own type; a value that
// does not fit (a fraction or an out-of-range number for an integer type) is
// refused rather than truncated.
template <typename T>
bool fits(const rapidjson::Value& v);
template <>
bool fits<int>(const rapidjson::Value& v) {
    return v.IsInt();
}
template <>
bool fits<unsigned int>(const rapidjson::Value& v) {
    return v.IsUint();
}
template <>
bool fits<long long>(const rapidjson::Value& v) {
    return v.IsInt64();
}
template <>
bool fits<unsigned long long>(const rapidjson::Value& v) {
    return v.IsUint64();
}
template <>
bool fits<double>(const rapidjson::Value& v) {
    return v.IsNumber();
}
template <>
bool fits<bool>(const rapidjson::Value& v) {
    return v.IsBool() || (v.IsInt() && (v.GetInt() == 0 || v.GetInt() == 1));
}

template <typename T>
T get(const rapidjson::Value& v);
template <>
int get<int>(const rapidjson::Value& v) {
    return v.GetInt();
}
template <>
unsigned int get<unsigned int>(const rapidjson::Value& v) {
    return v.GetUint();
}
template <>
long long get<long long>(const rapidjson::Value& v) {
    return v.GetInt64();
}
template <>
unsigned long long get<unsigned long long>(const rapidjson::Value& v) {
    return v.GetUint64();
}
template <>
double get<double>(const rapidjson::Value& v) {
    return v.GetDouble();
}
template <>
bool get<bool>(const rapidjson::Value& v) {
    return v.IsBool() ? v.GetBool() : v.GetInt() == 1;
}

template <typename T>
T readAs(const rapidjson::Value& v, const std::string& attribute) {
    if (!fits<T>(v)) {
        throw std::runtime_error("Failed to load " + quoted("bins") + " in \"" + attribute + "\" " +
                                 json::TypeName(v));
    }
    return get<T>(v);
}

std::string text(const rapidjson::Value& v) {
    return std::string(v.GetString(), v.GetStringLength());
}

template <typename T>
void addRangeBin(Attr& attr, const rapidjson::Value& bin) {
    if (!bin.IsObject()) {
        throw std::runtime_error("Failed to load " + quoted("bins") + " in \"" + attr.name + "\" " +
                                 json::TypeName(bin));
    }
    const std::string name = text(bin["name"]);
    const T min = readAs<T>(bin["min"], attr.name);
    const T max = readAs<T>(bin["max"], attr.name);
    if (min > max) {
        std::ostringstream message;
        message << "The \"bin\" \"" << name << "\" in \"attributes\": \"" << attr.name
                << "\" is invalid: min > max (" << min << " > " << max << ")";
        throw std::runtime_error(message.str());
    }
    attr.addBin<T>(name, min, max, bin["include_max"].GetBool());
}

template <typename T>
void addEnumBin(Attr& attr, const rapidjson::Value& bin) {
    const T value = readAs<T>(bin, attr.name);
    attr.addBin<T>(json::Serialize(bin), value);
}

template <>
void addEnumBin<std::string>(Attr& attr, const rapidjson::Value& bin) {
    if (!bin.IsString()) {
        throw std::runtime_error("Failed to load " + quoted("bins") + " in \"" + attr.name + "\" " +
                                 json::TypeName(bin));
    }
    const std::string value = text(bin);
    attr.addBin<std::string>(value, value);
}

[[noreturn]] void noBinForm(const Attr& attr, const std::string& binType) {
    throw std::runtime_error("Invalid data type: " + attr.type + " for \"" + binType + "\" in \"" +
                             attr.name + "\"");
}

void addBins(Attr& attr, DataType::Value type, const std::string& binType,
             const rapidjson::Value& bins) {
    const bool range = binType == "range";
    for (const auto& bin : bins.GetArray()) {
        switch (type) {
            case DataType::UINT32:
                range ? addRangeBin<unsigned int>(attr, bin) : addEnumBin<unsigned int>(attr, bin);
                break;
            case DataType::UINT64:
                range ? addRangeBin<unsigned long long>(attr, bin)
                      : addEnumBin<unsigned long long>(attr, bin);
                break;
            case DataType::INT32:
                range ? addRangeBin<int>(attr, bin) : addEnumBin<int>(attr, bin);
                break;
            case DataType::INT64:
                range ? addRangeBin<long long>(attr, bin) : addEnumBin<long long>(attr, bin);
                break;
            case DataType::DOUBLE:
                range ? addRangeBin<double>(attr, bin) : addEnumBin<double>(attr, bin);
                break;
            case DataType::STRING:
                if (range)
                    noBinForm(attr, binType);
                addEnumBin<std::string>(attr, bin);
                break;
            case DataType::BOOL:
                if (!range)
                    noBinForm(attr, binType);
                addRangeBin<bool>(attr, bin);
                break;
        }
    }
}

std::string mismatch(const rapidjson::Value& actual) {
    return json::Serialize(actual);
}

CampaignSchema convert(const std::string& path, const rapidjson::Document& doc,
                       const CampaignSchemaProvider& provider) {
    CampaignSchema schema;
    schema.campaignId = text(doc["campaign_id"]);

    const auto& compatibility = doc["fact_compatibility_id"];
    if (!compatibility.IsInt() || compatibility.GetInt() != 1) {
        throw std::runtime_error("Failed to load \"fact_compatibility_id\" in " + path +
                                 " mismatched. Expected: 1 Actual: " + mismatch(compatibility));
    }
    schema.dataProducer = text(doc["data_producer"]);
    schema.dataProducerConfig = json::Serialize(doc["data_producer_config"]);

    for (const auto& filter : doc["cohort_filters"].GetArray()) {
        if (!filter.IsString()) {
            throw std::runtime_error("Failed to load \"cohort_filters\" with type " +
                                     std::string(json::TypeName(filter)));
        }
        schema.cohortFilters.push_back(text(filter));
    }

    const auto& dp = doc["differential_privacy_config"];
    const auto& version = dp["config_version"];
    if (!version.IsInt() || version.GetInt() != 1) {
        throw std::runtime_error(
            "Failed to load \"config_version\" mismatched in \"differential_privacy_config\". "
            "Expected: 1 Actual: " +
            mismatch(version));
    }
    schema.dpConfig.configVersion = 1;
    schema.dpConfig.epsilon = dp["epsilon"].GetDouble();
    schema.dpConfig.cohortSize = readInt32(dp["cohort_size"], "cohort_size");

    for (const auto& entry : doc["upload_frequency"].GetArray()) {
        schema.uploadFrequencies.emplace_back(text(entry["type"]),
                                              readInt32(entry["value"], "value"));
    }
    for (const auto& item : doc["data"].GetArray()) {
        schema.vectorProducerConfigs.push_back(provider.LoadVectorProducerConfig(item));
    }
    return schema;
}

}  // namespace

constexpr size_t CampaignSchemaProvider::kMaxArrayItems;
constexpr size_t CampaignSchemaProvider::kMaxTotalArrayItems;

CampaignSchemaProvider::CampaignSchemaProvider() {
    // Parsed on first use, once per process.
    static const std::shared_ptr<const ParsedSchema> embedded =
        parseSchema(CampaignSchema::kSchema);
    mSchema = embedded;
}

CampaignSchemaProvider::CampaignSchemaProvider(const std::string& schemaText)
    : mSchema(parseSchema(schemaText)) {}

std::unordered_map<std::string, CampaignSchema> CampaignSchemaProvider::LoadConfig(
    const std::string& path) const {
    try {
        const std::string content = readFile(path);
        rapidjson::Document doc;
        doc.Parse<json::kParseFlags>(content.data(), content.size());
        // Nesting beyond what validation can walk safely counts as unparsable.
        if (doc.HasParseError() || json::TooDeep(doc)) {
            throw std::runtime_error("Failed to parse " + path + ". Content: " + content);
        }
        // Validation runs under the library's lock, and "uniqueItems" costs
        // time quadratic in an array's length: a campaign of a hundred
        // thousand bins would hold every other caller for minutes.
        const json::ArrayItems items = json::CountArrayItems(doc);
        if (items.longest > kMaxArrayItems || items.total > kMaxTotalArrayItems) {
            throw std::runtime_error("Config file has too many array items: " + path +
                                     " (longest " + std::to_string(items.longest) + ", total " +
                                     std::to_string(items.total) + "; limits " +
                                     std::to_string(kMaxArrayItems) + ", " +
                                     std::to_string(kMaxTotalArrayItems) + ")");
        }
        if (!mSchema->document) {
            throw std::runtime_error("Failed to parse schema: " + mSchema->error);
        }
        rapidjson::SchemaValidator validator(*mSchema->document);
        if (!doc.Accept(validator)) {
            throw std::runtime_error(json::ValidationError(validator, "Invalid Keyword: "));
        }
        CampaignSchema schema = convert(path, doc, *this);
        std::unordered_map<std::string, CampaignSchema> result;
        const std::string id = schema.campaignId;
        result.emplace(id, std::move(schema));
        return result;
    } catch (const std::exception& e) {
        throw std::runtime_error("Failed to load campaign config from path: " + path +
                                 " Error: " + e.what());
    }
}

VectorProducerConfig CampaignSchemaProvider::LoadVectorProducerConfig(
    const rapidjson::Value& item) const {
    VectorProducerConfig config(text(item["analytics_name"]), text(item["aggregation_function"]),
                                text(item["datatype"]));
    for (const auto& attribute : item["attributes"].GetArray()) {
        auto attr = std::make_shared<Attr>(text(attribute["name"]), text(attribute["type"]));
        const DataType::Value type = DataType::FromString(attr->type);
        const std::string binType = text(attribute["bin_type"]);
        if (binType != "range" && binType != "enum") {
            throw std::runtime_error("Invalid bin type: " + binType);
        }
        addBins(*attr, type, binType, attribute["bins"]);
        config.attributes.emplace(attr->name, attr);
    }
    return config;
}

}  // namespace fact
