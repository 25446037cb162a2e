#include "fact/Vector.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <stdexcept>

#include "fact/FactHeartbeatMetric.h"
#include "fact/JsonUtils.h"

namespace fact {

Vector::Vector(int size, const std::string& metadata)
    : mElements(static_cast<size_t>(size < 0 ? 0 : size), 0), mMetadata(metadata) {}

Vector& Vector::operator+=(const Vector& other) {
    if (mElements.size() != other.mElements.size()) {
        FactHeartbeatMetric::GetInstance().addCount("VectorMismatchCount");
        throw std::runtime_error("Vector size mismatch");
    }
    for (size_t i = 0; i < mElements.size(); ++i) {
        // Unsigned addition: the sum wraps like the device's without overflow UB.
        mElements[i] = static_cast<int32_t>(static_cast<uint32_t>(mElements[i]) +
                                            static_cast<uint32_t>(other.mElements[i]));
    }
    if (mMetadata.empty()) {
        mMetadata = other.mMetadata;
        mMetadataWellFormed = other.mMetadataWellFormed;
    }
    return *this;
}

void Vector::Concatenate(const Vector& other) {
    mElements.reserve(mElements.size() + other.mElements.size());
    mElements.insert(mElements.end(), other.mElements.begin(), other.mElements.end());
    if (mMetadata.empty()) {
        mMetadata = other.mMetadata;
        mMetadataWellFormed = other.mMetadataWellFormed;
    }
}

namespace {

// Appends a JSON string literal escaped exactly as RapidJSON's Writer
// escapes it: quote, backslash and control characters, uppercase hex.
void appendJsonString(std::string& out, const std::string& text) {
    static const char kHex[] = "0123456789ABCDEF";
    // Runs of characters that need no escape are copied at once: this runs
    // on every event, over a privacy text full of plain characters.
    out.reserve(out.size() + text.size() + 8);
    out += '"';
    const char* run = text.data();
    const char* const end = text.data() + text.size();
    for (const char* p = run; p != end; ++p) {
        const unsigned char u = static_cast<unsigned char>(*p);
        if (u >= 0x20 && *p != '"' && *p != '\\') {
            continue;
        }
        out.append(run, p);
        run = p + 1;
        out += '\\';
        switch (u) {
            case '"':
            case '\\':
                out += *p;
                break;
            case '\b':
                out += 'b';
                break;
            case '\t':
                out += 't';
                break;
            case '\n':
                out += 'n';
                break;
            case '\f':
                out += 'f';
                break;
            case '\r':
                out += 'r';
                break;
            default:
                out += "u00";
                out += kHex[u >> 4];
                out += kHex[u & 0xF];
        }
    }
    out.append(run, end);
    out += '"';
}

}  // namespace

void Vector::AddMetadataField(const std::string& key, const std::string& value) {
    // Metadata this vector wrote itself is known to be a compact non-empty
    // object: appending the member gives the same text as parsing, adding
    // and writing it again, at a fraction of the cost on every event.
    if (mMetadata.empty() || mMetadataWellFormed) {
        if (mMetadata.empty()) {
            mMetadata += '{';
        } else {
            mMetadata.back() = ',';
        }
        appendJsonString(mMetadata, key);
        mMetadata += ':';
        appendJsonString(mMetadata, value);
        mMetadata += '}';
        mMetadataWellFormed = true;
        return;
    }
    rapidjson::Document doc;
    {
        doc.Parse<json::kParseFlags>(mMetadata.data(), mMetadata.size());
        if (doc.HasParseError() || !doc.IsObject()) {
            FactHeartbeatMetric::GetInstance().addCount("VectorMetadataErrorCount");
            throw std::runtime_error("Failed to parse json: " + mMetadata);
        }
    }
    auto& allocator = doc.GetAllocator();
    doc.AddMember(
        rapidjson::Value(key.data(), static_cast<rapidjson::SizeType>(key.size()), allocator),
        rapidjson::Value(value.data(), static_cast<rapidjson::SizeType>(value.size()), allocator),
        allocator);
    mMetadata = json::Serialize(doc);
    mMetadataWellFormed = true;
}

uint32_t Vector::memSize() const {
    return static_cast<uint32_t>(mElements.size() * 4 + 36 + mMetadata.size());
}

}  // namespace fact
