#pragma once
// The test service that binder_test_server publishes, shared by the server
// and the tests: transaction codes and their arguments.

#include <stdint.h>

namespace vemo {
namespace test {

constexpr const char* kEchoDescriptor = "vemo.test.IEcho";

enum EchoCode : uint32_t {
    ECHO = 1,            // token, anything -> reply: the rest of the data, binders included
    CALL_ME_LATER = 2,   // token, callback, int32 delayMs, int32 value -> OK; after delayMs,
                         // from a new thread, calls the callback's code 1 with (value, "later")
    BARRIER = 3,         // token, int32 parties, int32 timeoutMs -> int32 1 once `parties`
                         // calls have arrived, 0 after the timeout
    BLOCK = 4,           // never answers (until the process dies)
    MAX_CONCURRENT = 5,  // token -> int32 most calls seen inside at once
    NEW_OBJECT = 6,      // token -> a new (unpublished) echo object
    LIVE_OBJECTS = 7,    // token -> int32 number of unpublished echo objects still alive
};

}  // namespace test
}  // namespace vemo
