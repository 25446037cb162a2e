// libFuzzer target for what arrives from other processes: a frame (header
// and payload, as the transport decodes it) and the parcel inside it, read
// with a sequence of typed reads chosen by the input itself.
//
// Build (clang):
//   clang++ -std=c++17 -g -O1 -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=all \
//     -Iplatform/android/binder/include -Iplatform/android/utils/include \
//     -Iplatform/android/log/include -Iplatform/deviceroot/include \
//     -Iplatform/android/binder/src fuzz/binder/ParcelFuzzer.cpp \
//     platform/android/binder/src/*.cpp platform/android/utils/src/*.cpp \
//     platform/android/log/*.cpp platform/deviceroot/*.cpp -lpthread -o parcel_fuzzer
#include <binder/Parcel.h>
#include <binder/Status.h>
#include <stddef.h>
#include <stdint.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "WireFormat.h"

namespace {

using namespace android;

void readSequence(const Parcel& p, const uint8_t* ops, size_t nops) {
    for (size_t i = 0; i < nops && p.dataPosition() <= p.dataSize(); ++i) {
        switch (ops[i] % 16) {
            case 0:
                p.readInt32();
                break;
            case 1:
                p.readInt64();
                break;
            case 2:
                p.readCString();
                break;
            case 3: {
                String16 s;
                p.readString16(&s);
                break;
            }
            case 4: {
                std::unique_ptr<String16> s;
                p.readString16(&s);
                break;
            }
            case 5: {
                std::string s;
                p.readUtf8FromUtf16(&s);
                break;
            }
            case 6:
                p.readString8();
                break;
            case 7: {
                sp<IBinder> b;
                p.readNullableStrongBinder(&b);
                break;
            }
            case 8: {
                std::vector<uint8_t> v;
                p.readByteVector(&v);
                break;
            }
            case 9: {
                std::vector<String16> v;
                p.readString16Vector(&v);
                break;
            }
            case 10: {
                binder::Status s;
                s.readFromParcel(p);
                break;
            }
            case 11:
                p.enforceInterface(String16("vemo.ipc.IFlgrService"));
                break;
            case 12:
                p.readInplace(ops[i] >> 4);
                break;
            case 13:
                p.setDataPosition(ops[i] >> 2);
                break;
            case 14: {
                std::vector<int64_t> v;
                p.readInt64Vector(&v);
                break;
            }
            default:
                p.readFileDescriptor();
                break;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace android::hostbinder;
    if (size < 1) {
        return 0;
    }
    // First byte: how many read operations follow at the end of the input.
    const size_t nops = std::min<size_t>(data[0], size - 1);
    const uint8_t* ops = data + size - nops;
    const uint8_t* body = data + 1;
    const size_t bodySize = size - 1 - nops;

    if (bodySize >= kFrameHeaderSize) {
        Frame frame;
        if (decodeHeader(body, &frame.header) &&
            bodySize - kFrameHeaderSize >= payloadSize(frame.header)) {
            const uint8_t* const start = body + kFrameHeaderSize;
            const std::vector<uint8_t> payload(start, start + payloadSize(frame.header));
            decodePayload(payload, &frame);
        }
    }
    Parcel parcel;
    parcel.setData(body, bodySize);
    readSequence(parcel, ops, nops);
    return 0;
}
