#include <utils/String16.h>

namespace android {

bool utf8ToUtf16(const char* in, size_t len, std::u16string* out) {
    out->clear();
    std::u16string result;
    result.reserve(len);
    const auto* s = reinterpret_cast<const unsigned char*>(in);
    size_t i = 0;
    while (i < len) {
        const unsigned char lead = s[i];
        uint32_t cp;
        size_t extra;
        if (lead < 0x80) {
            cp = lead;
            extra = 0;
        } else if ((lead & 0xe0) == 0xc0) {
            cp = lead & 0x1f;
            extra = 1;
        } else if ((lead & 0xf0) == 0xe0) {
            cp = lead & 0x0f;
            extra = 2;
        } else if ((lead & 0xf8) == 0xf0) {
            cp = lead & 0x07;
            extra = 3;
        } else {
            return false;
        }
        if (len - i - 1 < extra) {
            return false;
        }
        for (size_t k = 1; k <= extra; ++k) {
            const unsigned char c = s[i + k];
            if ((c & 0xc0) != 0x80) {
                return false;
            }
            cp = (cp << 6) | (c & 0x3f);
        }
        static const uint32_t kMinForLength[] = {0, 0x80, 0x800, 0x10000};
        if (cp < kMinForLength[extra] || cp > 0x10ffff || (cp >= 0xd800 && cp <= 0xdfff)) {
            return false;
        }
        if (cp >= 0x10000) {
            cp -= 0x10000;
            result.push_back(static_cast<char16_t>(0xd800 + (cp >> 10)));
            result.push_back(static_cast<char16_t>(0xdc00 + (cp & 0x3ff)));
        } else {
            result.push_back(static_cast<char16_t>(cp));
        }
        i += extra + 1;
    }
    out->swap(result);
    return true;
}

bool utf16ToUtf8(const char16_t* in, size_t len, std::string* out) {
    out->clear();
    std::string result;
    result.reserve(len);
    size_t i = 0;
    while (i < len) {
        uint32_t cp = in[i];
        if (cp >= 0xd800 && cp <= 0xdbff) {
            if (i + 1 >= len || in[i + 1] < 0xdc00 || in[i + 1] > 0xdfff) {
                return false;
            }
            cp = 0x10000 + ((cp - 0xd800) << 10) + (in[i + 1] - 0xdc00);
            ++i;
        } else if (cp >= 0xdc00 && cp <= 0xdfff) {
            return false;
        }
        ++i;
        if (cp < 0x80) {
            result.push_back(static_cast<char>(cp));
        } else if (cp < 0x800) {
            result.push_back(static_cast<char>(0xc0 | (cp >> 6)));
            result.push_back(static_cast<char>(0x80 | (cp & 0x3f)));
        } else if (cp < 0x10000) {
            result.push_back(static_cast<char>(0xe0 | (cp >> 12)));
            result.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3f)));
            result.push_back(static_cast<char>(0x80 | (cp & 0x3f)));
        } else {
            result.push_back(static_cast<char>(0xf0 | (cp >> 18)));
            result.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3f)));
            result.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3f)));
            result.push_back(static_cast<char>(0x80 | (cp & 0x3f)));
        }
    }
    out->swap(result);
    return true;
}

}  // namespace android
