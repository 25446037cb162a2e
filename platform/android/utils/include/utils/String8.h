#pragma once
// Android's 8-bit (UTF-8) string (libutils String8). Built from a String16 it
// converts UTF-16 to UTF-8 (unpaired surrogates give an empty string). Value
// type; not thread-safe for concurrent mutation.
//
// c_str() is a host addition next to the device's string().

#include <stdarg.h>
#include <stddef.h>

#include <string>

#include <utils/Errors.h>

namespace android {

class String16;

class String8 {
  public:
    String8();
    String8(const String8& o);
    String8(String8&& o) noexcept;
    explicit String8(const char* o);
    explicit String8(const char* o, size_t numChars);
    explicit String8(const String16& o);
    explicit String8(const char16_t* o);
    explicit String8(const char16_t* o, size_t numChars);
    ~String8();

    static String8 format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
    static String8 formatV(const char* fmt, va_list args);

    inline const char* string() const { return mString.c_str(); }
    inline const char* c_str() const { return mString.c_str(); }
    inline size_t size() const { return mString.size(); }
    inline size_t bytes() const { return mString.size(); }
    inline size_t length() const { return mString.size(); }
    inline bool isEmpty() const { return mString.empty(); }

    void clear();
    void setTo(const String8& other);
    status_t setTo(const char* other);
    status_t setTo(const char* other, size_t numChars);

    status_t append(const String8& other);
    status_t append(const char* other);
    status_t append(const char* other, size_t numChars);
    status_t appendFormat(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    status_t appendFormatV(const char* fmt, va_list args);

    ssize_t find(const char* other, size_t start = 0) const;
    bool contains(const char* other) const;
    void toLower();
    void toUpper();

    String8& operator=(const String8& other);
    String8& operator=(String8&& other) noexcept;
    String8& operator=(const char* other);
    String8& operator+=(const String8& other);
    String8 operator+(const String8& other) const;
    String8& operator+=(const char* other);
    String8 operator+(const char* other) const;

    inline int compare(const String8& other) const { return mString.compare(other.mString); }

    inline bool operator<(const String8& o) const { return mString < o.mString; }
    inline bool operator<=(const String8& o) const { return mString <= o.mString; }
    inline bool operator==(const String8& o) const { return mString == o.mString; }
    inline bool operator!=(const String8& o) const { return mString != o.mString; }
    inline bool operator>=(const String8& o) const { return mString >= o.mString; }
    inline bool operator>(const String8& o) const { return mString > o.mString; }

    bool operator==(const char* other) const;
    bool operator!=(const char* other) const;

    inline operator const char*() const { return mString.c_str(); }  // NOLINT

  private:
    std::string mString;
};

}  // namespace android
