#include "WireFormat.h"

#include <errno.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>

#include <binder/Parcel.h>
#include <cstring>

#include "FlatBinderObject.h"

namespace android {
namespace hostbinder {

namespace {

void put32(uint8_t* p, uint32_t v) {
    memcpy(p, &v, 4);
}
void put64(uint8_t* p, uint64_t v) {
    memcpy(p, &v, 8);
}
uint32_t get32(const uint8_t* p) {
    uint32_t v;
    memcpy(&v, p, 4);
    return v;
}
uint64_t get64(const uint8_t* p) {
    uint64_t v;
    memcpy(&v, p, 8);
    return v;
}
constexpr size_t pad4(size_t s) {
    return (s + 3) & ~static_cast<size_t>(3);
}
constexpr size_t kRefFixedSize = 16;
constexpr size_t kMaxRefSize = kRefFixedSize + pad4(kMaxPathLength);

}  // namespace

void encodeHeader(const FrameHeader& h, uint8_t out[kFrameHeaderSize]) {
    put32(out, h.magic);
    put32(out + 4, h.kind);
    put32(out + 8, h.code);
    put32(out + 12, h.flags);
    put64(out + 16, h.target);
    put32(out + 24, static_cast<uint32_t>(h.status));
    put32(out + 28, h.dataSize);
    put32(out + 32, h.objectCount);
    put32(out + 36, h.refsSize);
}

bool decodeHeader(const uint8_t in[kFrameHeaderSize], FrameHeader* h) {
    h->magic = get32(in);
    h->kind = get32(in + 4);
    h->code = get32(in + 8);
    h->flags = get32(in + 12);
    h->target = get64(in + 16);
    h->status = static_cast<int32_t>(get32(in + 24));
    h->dataSize = get32(in + 28);
    h->objectCount = get32(in + 32);
    h->refsSize = get32(in + 36);
    if (h->magic != kFrameMagic) {
        return false;
    }
    if (h->kind != FRAME_TRANSACTION && h->kind != FRAME_REPLY && h->kind != FRAME_RELEASE &&
        h->kind != FRAME_ACQUIRE && h->kind != FRAME_WATCH) {
        return false;
    }
    if (h->dataSize > Parcel::kMaxSize || h->objectCount > kMaxObjects ||
        h->objectCount > h->dataSize / sizeof(flat_binder_object) ||
        h->refsSize > h->objectCount * kMaxRefSize || h->refsSize % 4 != 0) {
        return false;
    }
    return true;
}

size_t payloadSize(const FrameHeader& h) {
    return static_cast<size_t>(h.dataSize) + 4 * static_cast<size_t>(h.objectCount) + h.refsSize;
}

std::vector<uint8_t> encodeFrame(Frame* frame) {
    size_t refsSize = 0;
    for (const auto& r : frame->refs) {
        refsSize += kRefFixedSize + pad4(r.path.size());
    }
    frame->header.dataSize = static_cast<uint32_t>(frame->data.size());
    frame->header.objectCount = static_cast<uint32_t>(frame->offsets.size());
    frame->header.refsSize = static_cast<uint32_t>(refsSize);
    std::vector<uint8_t> out(kFrameHeaderSize + payloadSize(frame->header), 0);
    encodeHeader(frame->header, out.data());
    uint8_t* p = out.data() + kFrameHeaderSize;
    if (!frame->data.empty()) {
        memcpy(p, frame->data.data(), frame->data.size());
    }
    p += frame->data.size();
    for (const uint32_t off : frame->offsets) {
        put32(p, off);
        p += 4;
    }
    for (const auto& r : frame->refs) {
        put64(p, r.node);
        put32(p + 8, r.flags);
        put32(p + 12, static_cast<uint32_t>(r.path.size()));
        memcpy(p + kRefFixedSize, r.path.data(), r.path.size());
        p += kRefFixedSize + pad4(r.path.size());
    }
    return out;
}

status_t decodePayload(const std::vector<uint8_t>& payload, Frame* frame) {
    return decodePayload(payload.data(), payload.size(), frame);
}

status_t decodePayload(const uint8_t* payload, size_t size, Frame* frame) {
    const FrameHeader& h = frame->header;
    if (size != payloadSize(h)) {
        return BAD_VALUE;
    }
    const uint8_t* p = payload;
    frame->data.assign(p, p + h.dataSize);
    p += h.dataSize;
    frame->offsets.clear();
    frame->offsets.reserve(h.objectCount);
    size_t nextFree = 0;
    for (uint32_t i = 0; i < h.objectCount; ++i) {
        const uint32_t off = get32(p);
        p += 4;
        if (off % 4 != 0 || off < nextFree || off > h.dataSize ||
            h.dataSize - off < sizeof(flat_binder_object)) {
            return BAD_VALUE;
        }
        nextFree = off + sizeof(flat_binder_object);
        frame->offsets.push_back(off);
    }
    frame->refs.clear();
    size_t remaining = h.refsSize;
    while (remaining > 0) {
        if (remaining < kRefFixedSize) {
            return BAD_VALUE;
        }
        ObjectRef ref;
        ref.node = get64(p);
        ref.flags = get32(p + 8);
        const uint32_t len = get32(p + 12);
        if (len == 0 || len > kMaxPathLength || pad4(len) > remaining - kRefFixedSize) {
            return BAD_VALUE;
        }
        ref.path.assign(reinterpret_cast<const char*>(p + kRefFixedSize), len);
        if (ref.path.find('\0') != std::string::npos) {
            return BAD_VALUE;
        }
        p += kRefFixedSize + pad4(len);
        remaining -= kRefFixedSize + pad4(len);
        frame->refs.push_back(std::move(ref));
    }
    if (frame->refs.size() != frame->offsets.size()) {
        return BAD_VALUE;
    }
    return OK;
}

status_t sendAll(int fd, const void* data, size_t len) {
    const auto* p = static_cast<const uint8_t*>(data);
    while (len > 0) {
        const ssize_t n = send(fd, p, len, MSG_NOSIGNAL);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            if (errno == EAGAIN || errno == EWOULDBLOCK) {
                return TIMED_OUT;
            }
            if (errno == EPIPE || errno == ECONNRESET || errno == ENOTCONN) {
                return DEAD_OBJECT;
            }
            return UNKNOWN_ERROR;
        }
        p += n;
        len -= static_cast<size_t>(n);
    }
    return OK;
}

status_t recvFailureStatus(ssize_t n, int err) {
    if (n == 0) {
        return DEAD_OBJECT;
    }
    if (err == EINTR) {
        return OK;
    }
    if (err == EAGAIN || err == EWOULDBLOCK) {
        return TIMED_OUT;
    }
    if (err == ECONNRESET || err == EPIPE) {
        return DEAD_OBJECT;
    }
    return UNKNOWN_ERROR;
}

status_t recvAll(int fd, void* data, size_t len) {
    auto* p = static_cast<uint8_t*>(data);
    while (len > 0) {
        const ssize_t n = recv(fd, p, len, 0);
        if (n <= 0) {
            const status_t failure = recvFailureStatus(n, errno);
            if (failure == OK) {
                continue;
            }
            return failure;
        }
        p += n;
        len -= static_cast<size_t>(n);
    }
    return OK;
}

int64_t monotonicMs() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

bool oncePerSecond(std::atomic<int64_t>* last) {
    const int64_t now = monotonicMs();
    int64_t previous = last->load();
    return now - previous >= 1000 && last->compare_exchange_strong(previous, now);
}

void setSocketTimeouts(int fd, int sendMillis, int recvMillis) {
    timeval tv{};
    tv.tv_sec = sendMillis / 1000;
    tv.tv_usec = (sendMillis % 1000) * 1000;
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
    tv.tv_sec = recvMillis / 1000;
    tv.tv_usec = (recvMillis % 1000) * 1000;
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
}

status_t readFrame(int fd, Frame* frame) {
    uint8_t header[kFrameHeaderSize];
    status_t err = recvAll(fd, header, sizeof header);
    if (err != OK) {
        return err;
    }
    if (!decodeHeader(header, &frame->header)) {
        return BAD_VALUE;
    }
    std::vector<uint8_t> payload(payloadSize(frame->header));
    if (!payload.empty()) {
        err = recvAll(fd, payload.data(), payload.size());
        if (err != OK) {
            return err;
        }
    }
    return decodePayload(payload, frame);
}

}  // namespace hostbinder
}  // namespace android
