#pragma once
// Android's UTF-16 string (libutils String16), the string type of binder
// interface descriptors and service names. Built from UTF-8 text it converts
// as the device does: invalid UTF-8 yields an empty string. size() counts
// UTF-16 code units. Value type; not thread-safe for concurrent mutation.
//
// c_str() is a host addition next to the device's string().

#include <stddef.h>
#include <stdint.h>

#include <string>

#include <utils/Errors.h>

namespace android {

class String8;

class String16 {
  public:
    String16();
    String16(const String16& o);
    String16(String16&& o) noexcept;
    String16(const String16& o, size_t len, size_t begin = 0);
    explicit String16(const char16_t* o);
    explicit String16(const char16_t* o, size_t len);
    explicit String16(const String8& o);
    explicit String16(const char* o);
    explicit String16(const char* o, size_t len);
    ~String16();

    inline const char16_t* string() const { return mString.c_str(); }
    inline const char16_t* c_str() const { return mString.c_str(); }
    inline size_t size() const { return mString.size(); }
    inline bool isEmpty() const { return mString.empty(); }

    void setTo(const String16& other);
    status_t setTo(const char16_t* other);
    status_t setTo(const char16_t* other, size_t len);
    status_t setTo(const String16& other, size_t len, size_t begin = 0);

    status_t append(const String16& other);
    status_t append(const char16_t* other, size_t len);

    status_t insert(size_t pos, const char16_t* chrs);
    status_t insert(size_t pos, const char16_t* chrs, size_t len);

    ssize_t findFirst(char16_t c) const;
    ssize_t findLast(char16_t c) const;
    bool startsWith(const String16& prefix) const;
    bool startsWith(const char16_t* prefix) const;
    bool contains(const char16_t* chrs) const;

    status_t makeLower();
    status_t replaceAll(char16_t replaceThis, char16_t withThis);

    inline int compare(const String16& other) const { return mString.compare(other.mString); }

    String16& operator=(const String16& other);
    String16& operator=(String16&& other) noexcept;
    String16& operator+=(const String16& other);
    String16 operator+(const String16& other) const;

    inline bool operator<(const String16& o) const { return mString < o.mString; }
    inline bool operator<=(const String16& o) const { return mString <= o.mString; }
    inline bool operator==(const String16& o) const { return mString == o.mString; }
    inline bool operator!=(const String16& o) const { return mString != o.mString; }
    inline bool operator>=(const String16& o) const { return mString >= o.mString; }
    inline bool operator>(const String16& o) const { return mString > o.mString; }

    bool operator==(const char16_t* other) const;
    bool operator!=(const char16_t* other) const;

    inline operator const char16_t*() const { return mString.c_str(); }  // NOLINT

  private:
    std::u16string mString;
};

// UTF-8 <-> UTF-16 conversion shared by String8, String16 and Parcel. Both
// return false (and leave `out` empty) on malformed input.
bool utf8ToUtf16(const char* in, size_t len, std::u16string* out);
bool utf16ToUtf8(const char16_t* in, size_t len, std::string* out);

}  // namespace android
