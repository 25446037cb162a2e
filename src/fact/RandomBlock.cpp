#include "fact/RandomBlock.h"

#include <openssl/crypto.h>
#include <openssl/rand.h>

#include <cstring>
#include <stdexcept>

namespace fact {

RandomBlock::~RandomBlock() {
    OPENSSL_cleanse(mBytes, sizeof mBytes);
}

RandomBlock& RandomBlock::forThisThread() {
    thread_local RandomBlock block;
    return block;
}

void RandomBlock::refill() {
    if (RAND_bytes(mBytes, sizeof mBytes) != 1) {
        OPENSSL_cleanse(mBytes, sizeof mBytes);
        mNext = kBlockSize;
        throw std::runtime_error("RAND_bytes failed");
    }
    mNext = 0;
}

void RandomBlock::fill(void* out, size_t size) {
    if (size > kBlockSize) {
        throw std::invalid_argument("random draw larger than a block");
    }
    RandomBlock& block = forThisThread();
    if (kBlockSize - block.mNext < size) {
        // The tail too small for this draw is wiped and never used.
        OPENSSL_cleanse(block.mBytes + block.mNext, kBlockSize - block.mNext);
        block.refill();
    }
    std::memcpy(out, block.mBytes + block.mNext, size);
    OPENSSL_cleanse(block.mBytes + block.mNext, size);
    block.mNext += size;
}

}  // namespace fact
