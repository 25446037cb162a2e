#include "fact/Bin.h"

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <string>

namespace fact {
namespace {

// The standard conversions as they behave where `long` has 32 bits; the
// exception texts are the library's function names, as std::sto* give them.
int32_t parseInt(const std::string& text) {
    return std::stoi(text);
}

int32_t parseLong32(const std::string& text) {
    const char* begin = text.c_str();
    char* end = nullptr;
    errno = 0;
    const long long v = std::strtoll(begin, &end, 10);
    if (end == begin) {
        throw std::invalid_argument("stol");
    }
    if (errno == ERANGE || v < std::numeric_limits<int32_t>::min() ||
        v > std::numeric_limits<int32_t>::max()) {
        throw std::out_of_range("stol");
    }
    return static_cast<int32_t>(v);
}

// strtoul accepts a sign and negates the magnitude in unsigned arithmetic, so
// "-1" is 4294967295; only the magnitude's range is checked.
uint32_t parseUnsignedLong32(const std::string& text) {
    size_t i = 0;
    while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) {
        ++i;
    }
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
        negative = text[i] == '-';
        ++i;
    }
    if (i >= text.size() || !std::isdigit(static_cast<unsigned char>(text[i]))) {
        throw std::invalid_argument("stoul");
    }
    errno = 0;
    const unsigned long long magnitude = std::strtoull(text.c_str() + i, nullptr, 10);
    if (errno == ERANGE || magnitude > std::numeric_limits<uint32_t>::max()) {
        throw std::out_of_range("stoul");
    }
    const uint32_t m = static_cast<uint32_t>(magnitude);
    return negative ? static_cast<uint32_t>(0u - m) : m;
}

double parseDouble(const std::string& text) {
    return std::stod(text);
}

int trueRule(const std::string& text) {
    return text == "true" ? 1 : 0;
}

// One address per bin class.
template <typename T>
const void* kindOf() {
    static const char kKind = 0;
    return &kKind;
}

[[noreturn]] void invalidType() {
    throw std::runtime_error("Invalid data type");
}

template <typename T>
T convert(DataType::Value declared, const std::string& text);

template <>
int convert<int>(DataType::Value declared, const std::string& text) {
    switch (declared) {
        case DataType::UINT32:
        case DataType::UINT64:
        case DataType::INT32:
            return parseInt(text);
        case DataType::STRING:
            invalidType();
        default:
            return trueRule(text);
    }
}

template <>
unsigned int convert<unsigned int>(DataType::Value declared, const std::string& text) {
    switch (declared) {
        case DataType::UINT32:
            return parseUnsignedLong32(text);
        case DataType::STRING:
            invalidType();
        default:
            return static_cast<unsigned int>(trueRule(text));
    }
}

template <>
long long convert<long long>(DataType::Value declared, const std::string& text) {
    switch (declared) {
        case DataType::UINT32:
        case DataType::UINT64:
        case DataType::INT32:
        case DataType::INT64:
            return parseLong32(text);
        case DataType::STRING:
            invalidType();
        default:
            return trueRule(text);
    }
}

template <>
unsigned long long convert<unsigned long long>(DataType::Value declared, const std::string& text) {
    switch (declared) {
        case DataType::UINT32:
        case DataType::UINT64:
            return parseUnsignedLong32(text);
        case DataType::STRING:
            invalidType();
        default:
            return static_cast<unsigned long long>(trueRule(text));
    }
}

template <>
double convert<double>(DataType::Value declared, const std::string& text) {
    switch (declared) {
        case DataType::STRING:
            invalidType();
        case DataType::BOOL:
            return trueRule(text);
        default:
            return parseDouble(text);
    }
}

template <>
bool convert<bool>(DataType::Value declared, const std::string& text) {
    if (declared == DataType::STRING) {
        invalidType();
    }
    return trueRule(text) != 0;
}

template <>
std::string convert<std::string>(DataType::Value, const std::string& text) {
    return text;
}

}  // namespace

template <>
const char* binTypeName<int>() {
    return "int32";
}
template <>
const char* binTypeName<unsigned int>() {
    return "uint32";
}
template <>
const char* binTypeName<long long>() {
    return "int64";
}
template <>
const char* binTypeName<unsigned long long>() {
    return "uint64";
}
template <>
const char* binTypeName<double>() {
    return "double";
}
template <>
const char* binTypeName<bool>() {
    return "bool";
}
template <>
const char* binTypeName<std::string>() {
    return "string";
}

template <typename T>
Bin<T>::Bin(const std::string& name, const T& value)
    : Attr(name, binTypeName<T>()),
      min(value),
      max(value),
      includeMax(true),
      declaredType(DataType::FromString(binTypeName<T>())) {
    binKind_ = kindOf<T>();
}

template <typename T>
Bin<T>::Bin(const std::string& name, const T& min, const T& max, bool includeMax)
    : Attr(name, binTypeName<T>()),
      min(min),
      max(max),
      includeMax(includeMax),
      declaredType(DataType::FromString(binTypeName<T>())) {
    binKind_ = kindOf<T>();
}

template <typename T>
bool Bin<T>::inRange(const std::string& value) const {
    return holds(convert<T>(declaredType, value));
}

template <typename T>
bool Bin<T>::holds(const T& v) const {
    if (!(min <= v)) {
        return false;
    }
    return includeMax ? v <= max : v < max;
}

template <typename T>
int32_t Bin<T>::firstMatch(const std::vector<std::shared_ptr<Attr>>& bins,
                           const std::string& value) const {
    // The conversion is the costly part and the same for every bin of this
    // kind: it is done once, and first, as the first bin would do it.
    const T v = convert<T>(declaredType, value);
    for (size_t i = 0; i < bins.size(); ++i) {
        const Attr& bin = *bins[i];
        const auto* same = bin.binKind() == binKind_ ? static_cast<const Bin<T>*>(&bin) : nullptr;
        const bool hit = same != nullptr && same->declaredType == declaredType ? same->holds(v)
                                                                               : bin.inRange(value);
        if (hit) {
            return static_cast<int32_t>(i);
        }
    }
    return -1;
}

template class Bin<int>;
template class Bin<unsigned int>;
template class Bin<long long>;
template class Bin<unsigned long long>;
template class Bin<double>;
template class Bin<bool>;
template class Bin<std::string>;

}  // namespace fact
