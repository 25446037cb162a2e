#include "FrameReader.h"

#include <errno.h>
#include <sys/socket.h>

#include <cstring>

namespace android {
namespace hostbinder {

void FrameReader::clear() {
    mBegin = 0;
    mEnd = 0;
    if (mBuffer.size() > kChunk) {
        std::vector<uint8_t>().swap(mBuffer);
    }
}

status_t FrameReader::fill(int fd, size_t need) {
    if (mBuffer.size() - mBegin < need) {
        if (mBegin > 0) {
            memmove(mBuffer.data(), mBuffer.data() + mBegin, mEnd - mBegin);
            mEnd -= mBegin;
            mBegin = 0;
        }
        if (mBuffer.size() < need) {
            mBuffer.resize(need < kChunk ? kChunk : need);
        }
    }
    while (mEnd - mBegin < need) {
        const ssize_t n = recv(fd, mBuffer.data() + mEnd, mBuffer.size() - mEnd, 0);
        if (n <= 0) {
            const status_t failure = recvFailureStatus(n, errno);
            if (failure == OK) {
                continue;
            }
            return failure;
        }
        mEnd += static_cast<size_t>(n);
    }
    return OK;
}

status_t FrameReader::read(int fd, Frame* frame) {
    status_t err = fill(fd, kFrameHeaderSize);
    if (err != OK) {
        return err;
    }
    if (!decodeHeader(mBuffer.data() + mBegin, &frame->header)) {
        return BAD_VALUE;
    }
    const size_t payload = payloadSize(frame->header);
    err = fill(fd, kFrameHeaderSize + payload);
    if (err != OK) {
        return err;
    }
    err = decodePayload(mBuffer.data() + mBegin + kFrameHeaderSize, payload, frame);
    mBegin += kFrameHeaderSize + payload;
    if (mBegin == mEnd) {
        clear();
    }
    return err;
}

}  // namespace hostbinder
}  // namespace android
