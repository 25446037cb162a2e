#pragma once
// One logger per source unit, held as a static object of that unit. It fixes
// the Android log tag ("Vemo:" plus the unit's name) and forwards printf-style
// messages with a level to liblog. Every format begins with "%s:" and the bare
// name of the logging function.
//
// Immutable after construction, so any thread may log through it.

#include <initializer_list>
#include <string>

namespace vemo {

class VemoLogger {
  public:
    // Tag "Vemo:" + name.
    explicit VemoLogger(std::string name);
    // Tag "Vemo:" + each name followed by ":", with the last character of the
    // whole tag dropped: {"A", "B"} gives "Vemo:A:B", {} gives "Vemo".
    VemoLogger(std::initializer_list<const char*> names);
    virtual ~VemoLogger();

    const std::string& tag() const { return tag_; }

    void v(const char* fmt, ...) const __attribute__((format(printf, 2, 3)));
    void d(const char* fmt, ...) const __attribute__((format(printf, 2, 3)));
    void i(const char* fmt, ...) const __attribute__((format(printf, 2, 3)));
    void w(const char* fmt, ...) const __attribute__((format(printf, 2, 3)));
    void e(const char* fmt, ...) const __attribute__((format(printf, 2, 3)));

  private:
    std::string tag_;
};

}  // namespace vemo
