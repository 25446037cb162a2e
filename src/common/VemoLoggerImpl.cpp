#include "common/VemoLoggerImpl.h"

#include <android/log.h>

namespace vemo {

int VemoLoggerImpl::v(const char* tag, const char* fmt, va_list ap) {
    return __android_log_vprint(ANDROID_LOG_VERBOSE, tag, fmt, ap);
}

int VemoLoggerImpl::d(const char* tag, const char* fmt, va_list ap) {
    return __android_log_vprint(ANDROID_LOG_DEBUG, tag, fmt, ap);
}

int VemoLoggerImpl::i(const char* tag, const char* fmt, va_list ap) {
    return __android_log_vprint(ANDROID_LOG_INFO, tag, fmt, ap);
}

int VemoLoggerImpl::w(const char* tag, const char* fmt, va_list ap) {
    return __android_log_vprint(ANDROID_LOG_WARN, tag, fmt, ap);
}

int VemoLoggerImpl::e(const char* tag, const char* fmt, va_list ap) {
    return __android_log_vprint(ANDROID_LOG_ERROR, tag, fmt, ap);
}

}  // namespace vemo
