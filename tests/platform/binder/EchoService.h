#pragma once
// The test service that binder_test_server publishes, shared by the server
// and the tests: transaction codes and their arguments.

#include <stdint.h>

namespace vemo {
namespace test {

constexpr const char* kEchoDescriptor = "vemo.test.IEcho";

enum EchoCode : uint32_t {
    // token, anything -> reply: the rest of the data, unchanged
    ECHO = 1,
    // token, callback binder, int32 delayMs, int32 value -> OK; after delayMs,
    // from a new thread, the server calls callback code 1 with (value, "later")
    CALL_ME_LATER = 2,
    // one-way: token, int32 value -> recorded
    RECORD = 3,
    // token -> int32 count, then the recorded values in arrival order
    GET_RECORDS = 4,
    // token, int32 parties, int32 timeoutMs -> int32 reached (1/0); waits
    // until `parties` calls are inside at once
    BARRIER = 5,
    // one-way: the server process exits at once
    EXIT = 6,
    // never answers (until the process dies)
    BLOCK = 7,
    // token -> int32 calling pid, int32 calling uid, int32 transaction flags
    WHO = 8,
    // token, binder -> the same binder back
    RETURN_BINDER = 9,
    // token, int32 status -> transact returns that status
    FAIL_WITH = 10,
    // token -> int32 most calls seen inside at once
    MAX_CONCURRENT = 11,
};

}  // namespace test
}  // namespace vemo
