#pragma once
// The logger's back end: each function is exactly one liblog call with the
// matching Android priority (2 verbose .. 6 error) and returns its result.

#include <cstdarg>

namespace vemo {

class VemoLoggerImpl {
  public:
    static int v(const char* tag, const char* fmt, va_list ap);
    static int d(const char* tag, const char* fmt, va_list ap);
    static int i(const char* tag, const char* fmt, va_list ap);
    static int w(const char* tag, const char* fmt, va_list ap);
    static int e(const char* tag, const char* fmt, va_list ap);
};

}  // namespace vemo
