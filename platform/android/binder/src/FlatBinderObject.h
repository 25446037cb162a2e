#pragma once
// The 24-byte flat_binder_object of the device's binder driver (64-bit
// binder_uintptr_t layout) and its type and flag constants. Only the byte
// layout matters: parcels carry it verbatim.

#include <stdint.h>

#include <binder/IBinder.h>

namespace android {
namespace hostbinder {

#define B_TYPE_LARGE 0x85

enum : uint32_t {
    BINDER_TYPE_BINDER = B_PACK_CHARS('s', 'b', '*', B_TYPE_LARGE),
    BINDER_TYPE_WEAK_BINDER = B_PACK_CHARS('w', 'b', '*', B_TYPE_LARGE),
    BINDER_TYPE_HANDLE = B_PACK_CHARS('s', 'h', '*', B_TYPE_LARGE),
    BINDER_TYPE_WEAK_HANDLE = B_PACK_CHARS('w', 'h', '*', B_TYPE_LARGE),
    BINDER_TYPE_FD = B_PACK_CHARS('f', 'd', '*', B_TYPE_LARGE),
};

enum : uint32_t {
    FLAT_BINDER_FLAG_PRIORITY_MASK = 0xff,
    FLAT_BINDER_FLAG_ACCEPTS_FDS = 0x100,
};

// What writeStrongBinder sets: nice 19 plus ACCEPTS_FDS.
constexpr uint32_t kStrongBinderFlags = 0x13 | FLAT_BINDER_FLAG_ACCEPTS_FDS;
// What file descriptors and weak references carry.
constexpr uint32_t kFdFlags = 0x7f | FLAT_BINDER_FLAG_ACCEPTS_FDS;

struct flat_binder_object {
    uint32_t type;
    uint32_t flags;
    union {
        uint64_t binder;
        uint32_t handle;  // on the wire: the reference's index; in a parcel of
                          // this host, `binder` holds the whole 64-bit handle
    };
    uint64_t cookie;
};
static_assert(sizeof(flat_binder_object) == 24, "flat_binder_object is 24 bytes");

// Transaction flag the device's IPCThreadState adds to every call.
constexpr uint32_t TF_ACCEPT_FDS = 0x10;

// Strict-mode bit every interface token carries.
constexpr int32_t STRICT_MODE_PENALTY_GATHER = 0x40 << 16;

}  // namespace hostbinder
}  // namespace android
