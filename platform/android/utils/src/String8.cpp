#include <utils/String8.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <vector>

#include <utils/String16.h>

namespace android {

namespace {
std::string fromUtf16(const char16_t* s, size_t len) {
    std::string out;
    utf16ToUtf8(s, len, &out);  // malformed UTF-16 leaves it empty
    return out;
}
size_t strlen16(const char16_t* s) {
    size_t n = 0;
    while (s[n] != 0) {
        ++n;
    }
    return n;
}
}  // namespace

String8::String8() = default;
String8::String8(const String8& o) = default;
String8::String8(String8&& o) noexcept = default;
String8::String8(const char* o) : mString(o ? o : "") {}
String8::String8(const char* o, size_t numChars) : mString(o ? std::string(o, numChars) : "") {}
String8::String8(const String16& o) : mString(fromUtf16(o.string(), o.size())) {}
String8::String8(const char16_t* o) : mString(o ? fromUtf16(o, strlen16(o)) : "") {}
String8::String8(const char16_t* o, size_t numChars) : mString(o ? fromUtf16(o, numChars) : "") {}
String8::~String8() = default;

String8 String8::format(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    String8 result = formatV(fmt, args);
    va_end(args);
    return result;
}

String8 String8::formatV(const char* fmt, va_list args) {
    String8 result;
    result.appendFormatV(fmt, args);
    return result;
}

void String8::clear() {
    mString.clear();
}

void String8::setTo(const String8& other) {
    mString = other.mString;
}

status_t String8::setTo(const char* other) {
    mString = other ? other : "";
    return OK;
}

status_t String8::setTo(const char* other, size_t numChars) {
    if (other == nullptr && numChars > 0) {
        return BAD_VALUE;
    }
    mString.assign(other ? other : "", numChars);
    return OK;
}

status_t String8::append(const String8& other) {
    mString += other.mString;
    return OK;
}

status_t String8::append(const char* other) {
    if (other != nullptr) {
        mString += other;
    }
    return OK;
}

status_t String8::append(const char* other, size_t numChars) {
    if (other == nullptr && numChars > 0) {
        return BAD_VALUE;
    }
    mString.append(other ? other : "", numChars);
    return OK;
}

status_t String8::appendFormat(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const status_t result = appendFormatV(fmt, args);
    va_end(args);
    return result;
}

status_t String8::appendFormatV(const char* fmt, va_list args) {
    va_list copy;
    va_copy(copy, args);
    const int n = vsnprintf(nullptr, 0, fmt, copy);
    va_end(copy);
    if (n < 0) {
        return UNKNOWN_ERROR;
    }
    std::vector<char> buf(static_cast<size_t>(n) + 1);
    vsnprintf(buf.data(), buf.size(), fmt, args);
    mString.append(buf.data(), static_cast<size_t>(n));
    return OK;
}

ssize_t String8::find(const char* other, size_t start) const {
    if (other == nullptr || start > mString.size()) {
        return -1;
    }
    const size_t p = mString.find(other, start);
    return p == std::string::npos ? -1 : static_cast<ssize_t>(p);
}

bool String8::contains(const char* other) const {
    return find(other) >= 0;
}

void String8::toLower() {
    for (auto& c : mString) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
}

void String8::toUpper() {
    for (auto& c : mString) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
}

String8& String8::operator=(const String8& other) = default;
String8& String8::operator=(String8&& other) noexcept = default;

String8& String8::operator=(const char* other) {
    setTo(other);
    return *this;
}

String8& String8::operator+=(const String8& other) {
    mString += other.mString;
    return *this;
}

String8 String8::operator+(const String8& other) const {
    String8 r(*this);
    r += other;
    return r;
}

String8& String8::operator+=(const char* other) {
    append(other);
    return *this;
}

String8 String8::operator+(const char* other) const {
    String8 r(*this);
    r += other;
    return r;
}

bool String8::operator==(const char* other) const {
    return other != nullptr && mString == other;
}

bool String8::operator!=(const char* other) const {
    return !operator==(other);
}

}  // namespace android
