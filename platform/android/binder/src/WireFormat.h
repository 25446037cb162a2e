#pragma once
// The frames binder calls travel in between processes on this host, over a
// UNIX stream socket. Every frame is a 40-byte header followed by a payload:
//
//   header   u32 magic 'VBN1'  u32 kind  u32 code  u32 flags  u64 target
//            i32 status  u32 dataSize  u32 objectCount  u32 refsSize
//   payload  dataSize parcel bytes (the parcel exactly as written)
//            objectCount u32 offsets of the binder objects in those bytes
//            refsSize bytes: per object, u64 node, u32 refFlags, u32 pathLen,
//            pathLen bytes of the owner's socket path, zero-padded to 4
//
// kind TRANSACTION targets node `target` of the receiving process with
// `code`/`flags`; REPLY answers it with `status` (a negative status carries
// no data, as the device's status-code replies); RELEASE drops `code`
// references the receiver holds for node `target` on the sender's behalf;
// ACQUIRE, from a process that holds such a reference, adds `code` of them
// for the process whose pid is `flags` (the one it forwards the reference
// to) and is answered by a REPLY (status OK, or PERMISSION_DENIED when the
// sender holds none or the node is gone); WATCH says that the sender only waits
// on this connection for the receiver's exit, so it is never idle-closed.
// All integers are little-endian host order, as parcels are.
//
// Inside the parcel bytes each object is a 24-byte flat_binder_object; on
// the wire its type is HANDLE and its value is the index of its reference,
// since addresses and handles mean nothing in another process. The receiver
// rewrites it with its own handle (or local object) before anyone reads it.
//
// Bounds (a frame beyond them is refused before anything is allocated):
// dataSize <= Parcel::kMaxSize, at most kMaxObjects objects, each inside the
// data, paths < 108 bytes: a frame never needs more than about 1.2 MB.

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include <atomic>
#include <string>
#include <vector>

#include <utils/Errors.h>

namespace android {
namespace hostbinder {

constexpr uint32_t kFrameMagic = 0x314e4256;  // "VBN1"
constexpr size_t kFrameHeaderSize = 40;
constexpr size_t kMaxPathLength = 107;  // sun_path without its NUL
constexpr size_t kMaxObjects = 1024;    // binder objects in one frame

enum FrameKind : uint32_t {
    FRAME_TRANSACTION = 1,
    FRAME_REPLY = 2,
    FRAME_RELEASE = 3,
    FRAME_ACQUIRE = 4,
    FRAME_WATCH = 5,
};

// The reference was counted by its owner and must be released by the receiver.
constexpr uint32_t REF_COUNTED = 1;

struct FrameHeader {
    uint32_t magic = kFrameMagic;
    uint32_t kind = 0;
    uint32_t code = 0;
    uint32_t flags = 0;
    uint64_t target = 0;
    int32_t status = 0;
    uint32_t dataSize = 0;
    uint32_t objectCount = 0;
    uint32_t refsSize = 0;
};

struct ObjectRef {
    uint64_t node = 0;
    uint32_t flags = 0;
    std::string path;
};

struct Frame {
    FrameHeader header;
    std::vector<uint8_t> data;
    std::vector<uint32_t> offsets;
    std::vector<ObjectRef> refs;
};

void encodeHeader(const FrameHeader& h, uint8_t out[kFrameHeaderSize]);
// False for a bad magic or kind, or sizes beyond the bounds.
bool decodeHeader(const uint8_t in[kFrameHeaderSize], FrameHeader* h);
size_t payloadSize(const FrameHeader& h);

// The whole frame as bytes; header counts are taken from the frame's vectors.
std::vector<uint8_t> encodeFrame(Frame* frame);
// Parses the payload of a decoded header. Returns OK, or BAD_VALUE when the
// offsets are unordered, overlap, run past the data, or the reference table
// does not match them; nothing outside `payload` is ever read.
status_t decodePayload(const std::vector<uint8_t>& payload, Frame* frame);
status_t decodePayload(const uint8_t* payload, size_t size, Frame* frame);

// Socket helpers: whole-buffer I/O on a blocking socket whose timeouts bound
// each call. OK, DEAD_OBJECT (peer closed or reset), TIMED_OUT, or
// UNKNOWN_ERROR for anything else.
status_t sendAll(int fd, const void* data, size_t len);
status_t recvAll(int fd, void* data, size_t len);
// The status of a recv() that returned 0 (peer closed) or failed with `err`;
// OK for EINTR, where the caller simply retries.
status_t recvFailureStatus(ssize_t n, int err);
// Milliseconds of the monotonic clock.
int64_t monotonicMs();
// True at most once a second per `last` (the time it last said true): for
// warnings a peer could otherwise make this process write without end.
bool oncePerSecond(std::atomic<int64_t>* last);
// Sets SO_SNDTIMEO and SO_RCVTIMEO (0 = no bound).
void setSocketTimeouts(int fd, int sendMillis, int recvMillis);

// Reads one frame (header, then payload bounded by the header). OK,
// DEAD_OBJECT on a clean end of stream before a header, BAD_VALUE for an
// invalid frame, or the socket error.
status_t readFrame(int fd, Frame* frame);

}  // namespace hostbinder
}  // namespace android
