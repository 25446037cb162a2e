#include <utils/String16.h>

#include <cstring>

#include <utils/String8.h>

namespace android {

namespace {
size_t strlen16(const char16_t* s) {
    size_t n = 0;
    while (s[n] != 0) {
        ++n;
    }
    return n;
}

std::u16string fromUtf8(const char* s, size_t len) {
    std::u16string out;
    utf8ToUtf16(s, len, &out);  // invalid UTF-8 leaves it empty, as on the device
    return out;
}
}  // namespace

String16::String16() = default;
String16::String16(const String16& o) = default;
String16::String16(String16&& o) noexcept = default;
String16::String16(const String16& o, size_t len, size_t begin) {
    setTo(o, len, begin);
}
String16::String16(const char16_t* o) : mString(o ? o : u"") {}
String16::String16(const char16_t* o, size_t len) : mString(o, o ? len : 0) {}
String16::String16(const String8& o) : mString(fromUtf8(o.string(), o.size())) {}
String16::String16(const char* o) : mString(o ? fromUtf8(o, strlen(o)) : std::u16string()) {}
String16::String16(const char* o, size_t len) : mString(o ? fromUtf8(o, len) : std::u16string()) {}
String16::~String16() = default;

void String16::setTo(const String16& other) {
    mString = other.mString;
}

status_t String16::setTo(const char16_t* other) {
    return setTo(other, other ? strlen16(other) : 0);
}

status_t String16::setTo(const char16_t* other, size_t len) {
    if (other == nullptr && len > 0) {
        return BAD_VALUE;
    }
    mString.assign(other ? other : u"", len);
    return OK;
}

status_t String16::setTo(const String16& other, size_t len, size_t begin) {
    const size_t n = other.size();
    if (begin >= n) {
        mString.clear();
        return OK;
    }
    if (len > n - begin) {
        len = n - begin;
    }
    mString = other.mString.substr(begin, len);
    return OK;
}

status_t String16::append(const String16& other) {
    mString += other.mString;
    return OK;
}

status_t String16::append(const char16_t* other, size_t len) {
    if (other == nullptr && len > 0) {
        return BAD_VALUE;
    }
    mString.append(other ? other : u"", len);
    return OK;
}

status_t String16::insert(size_t pos, const char16_t* chrs) {
    return insert(pos, chrs, chrs ? strlen16(chrs) : 0);
}

status_t String16::insert(size_t pos, const char16_t* chrs, size_t len) {
    if (chrs == nullptr && len > 0) {
        return BAD_VALUE;
    }
    if (pos > mString.size()) {
        pos = mString.size();
    }
    mString.insert(pos, chrs ? chrs : u"", len);
    return OK;
}

ssize_t String16::findFirst(char16_t c) const {
    const size_t p = mString.find(c);
    return p == std::u16string::npos ? -1 : static_cast<ssize_t>(p);
}

ssize_t String16::findLast(char16_t c) const {
    const size_t p = mString.rfind(c);
    return p == std::u16string::npos ? -1 : static_cast<ssize_t>(p);
}

bool String16::startsWith(const String16& prefix) const {
    return mString.compare(0, prefix.size(), prefix.mString) == 0 && prefix.size() <= size();
}

bool String16::startsWith(const char16_t* prefix) const {
    return startsWith(String16(prefix));
}

bool String16::contains(const char16_t* chrs) const {
    return chrs != nullptr && mString.find(chrs) != std::u16string::npos;
}

status_t String16::makeLower() {
    for (auto& c : mString) {
        if (c >= u'A' && c <= u'Z') {
            c = static_cast<char16_t>(c - u'A' + u'a');
        }
    }
    return OK;
}

status_t String16::replaceAll(char16_t replaceThis, char16_t withThis) {
    for (auto& c : mString) {
        if (c == replaceThis) {
            c = withThis;
        }
    }
    return OK;
}

String16& String16::operator=(const String16& other) = default;
String16& String16::operator=(String16&& other) noexcept = default;

String16& String16::operator+=(const String16& other) {
    mString += other.mString;
    return *this;
}

String16 String16::operator+(const String16& other) const {
    String16 r(*this);
    r += other;
    return r;
}

bool String16::operator==(const char16_t* other) const {
    return other != nullptr && mString == other;
}

bool String16::operator!=(const char16_t* other) const {
    return !operator==(other);
}

}  // namespace android
