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

status_t FrameReader::fill(int fd, size_t need, bool wait) {
    if (mBuffer.size() - mBegin < need && mBegin > 0) {
        memmove(mBuffer.data(), mBuffer.data() + mBegin, mEnd - mBegin);
        mEnd -= mBegin;
        mBegin = 0;
    }
    while (mEnd - mBegin < need) {
        if (mBuffer.size() == mEnd) {
            // Grow with what arrives (a chunk, then doubling up to the
            // frame's size), never to a size a header merely announces.
            const size_t target = mBegin + need;
            size_t size = mBuffer.size() * 2;
            if (size > target) {
                size = target;
            }
            if (size < kChunk) {
                size = kChunk;
            }
            mBuffer.resize(size);
        }
        const ssize_t n =
            recv(fd, mBuffer.data() + mEnd, mBuffer.size() - mEnd, wait ? 0 : MSG_DONTWAIT);
        if (n <= 0) {
            if (!wait && n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
                return WOULD_BLOCK;
            }
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
    return readFrame(fd, frame, true);
}

status_t FrameReader::readAvailable(int fd, Frame* frame) {
    return readFrame(fd, frame, false);
}

status_t FrameReader::readFrame(int fd, Frame* frame, bool wait) {
    status_t err = fill(fd, kFrameHeaderSize, wait);
    if (err != OK) {
        return err;
    }
    if (!decodeHeader(mBuffer.data() + mBegin, &frame->header)) {
        return BAD_VALUE;
    }
    const size_t payload = payloadSize(frame->header);
    err = fill(fd, kFrameHeaderSize + payload, wait);
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
