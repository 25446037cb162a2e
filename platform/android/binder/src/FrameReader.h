#pragma once
// Reads frames (WireFormat.h) from a stream socket with as few recv calls as
// the bytes allow: each recv asks for everything the buffer can take, so a
// small frame usually arrives in one call, and bytes past the frame (the
// next frame a peer has already sent) stay buffered for the next read.
//
// Bounds are those of readFrame: the header is checked before the buffer
// grows past its initial chunk, and a frame never needs more than decodeHeader
// allows. The buffer grows with the bytes that arrive, not with what a header
// announces, and a large one is given back once it is drained.
//
// Serving threads read without waiting (readAvailable): a frame that has not
// fully arrived stays buffered and the thread goes back to the pool, so a
// peer that sends slowly, or stops mid-frame, holds no thread.
//
// Thread-safety: none; one reader per connection, used by one thread at a
// time (a connection is served by one thread at a time).

#include <stddef.h>
#include <stdint.h>

#include <vector>

#include "WireFormat.h"

namespace android {
namespace hostbinder {

class FrameReader {
  public:
    static constexpr size_t kChunk = 4096;

    // Same results as readFrame: OK, DEAD_OBJECT on end of stream, BAD_VALUE
    // for an invalid frame, or the socket error (TIMED_OUT on a stall).
    status_t read(int fd, Frame* frame);
    // The same without waiting: WOULD_BLOCK while the frame is incomplete
    // (the bytes so far stay buffered for the next call).
    status_t readAvailable(int fd, Frame* frame);
    // Bytes of a further frame are already buffered.
    bool hasPending() const { return mEnd > mBegin; }
    void clear();

  private:
    status_t fill(int fd, size_t need, bool wait);
    status_t readFrame(int fd, Frame* frame, bool wait);

    std::vector<uint8_t> mBuffer;
    size_t mBegin = 0;  // first unread byte
    size_t mEnd = 0;    // one past the last received byte
};

}  // namespace hostbinder
}  // namespace android
