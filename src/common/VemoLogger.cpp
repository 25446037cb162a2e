#include "common/VemoLogger.h"

#include <cstdarg>

#include "common/VemoLoggerImpl.h"

namespace vemo {

VemoLogger::VemoLogger(std::string name) : tag_("Vemo:" + name) {}

VemoLogger::VemoLogger(std::initializer_list<const char*> names) : tag_("Vemo:") {
    for (const char* name : names) {
        tag_ += name;
        tag_ += ':';
    }
    tag_.pop_back();
    tag_.shrink_to_fit();
}

VemoLogger::~VemoLogger() = default;

#define VEMO_LOGGER_FORWARD(letter)                       \
    void VemoLogger::letter(const char* fmt, ...) const { \
        va_list ap;                                       \
        va_start(ap, fmt);                                \
        VemoLoggerImpl::letter(tag_.c_str(), fmt, ap);    \
        va_end(ap);                                       \
    }

VEMO_LOGGER_FORWARD(v)
VEMO_LOGGER_FORWARD(d)
VEMO_LOGGER_FORWARD(i)
VEMO_LOGGER_FORWARD(w)
VEMO_LOGGER_FORWARD(e)

#undef VEMO_LOGGER_FORWARD

}  // namespace vemo
