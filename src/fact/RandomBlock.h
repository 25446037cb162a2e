#pragma once
// A per-thread buffer of bytes drawn from OpenSSL's RAND_bytes in blocks.
//
// The privacy policy needs 8 random bytes per forge decision and 4 per
// forged position, on every event. One RAND_bytes call per draw cost more
// than the rest of the decision; drawing a block at a time and handing it out
// in pieces makes a draw cost a copy. Every byte still comes from RAND_bytes,
// and each is handed out once. The buffer is wiped when its thread ends, and
// bytes are wiped as they are handed out, so a memory dump does not reveal
// the draws that decided past events.
//
// A process that forks after drawing would share unused bytes with its child;
// the daemon never forks.
//
// Thread-safety: each thread has its own buffer; no locks.

#include <cstddef>

namespace fact {

class RandomBlock {
  public:
    // Fills `out` with `size` random bytes (size at most kBlockSize). Throws
    // std::runtime_error when RAND_bytes fails, with nothing handed out.
    static void fill(void* out, size_t size);

    static constexpr size_t kBlockSize = 4096;

    ~RandomBlock();

  private:
    RandomBlock() = default;
    static RandomBlock& forThisThread();
    void refill();

    unsigned char mBytes[kBlockSize] = {};
    // Bytes from here on are unused; kBlockSize means empty.
    size_t mNext = kBlockSize;
};

}  // namespace fact
