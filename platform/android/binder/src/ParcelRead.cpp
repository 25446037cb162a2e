// The reading half of Parcel: every read is bounded by the data size.
#include <binder/Parcel.h>

#include <algorithm>
#include <cstring>

#include <android/log.h>
#include <binder/BpBinder.h>
#include <binder/ProcessState.h>
#include <binder/Status.h>

#include "FlatBinderObject.h"
#include "Transport.h"

namespace android {

using hostbinder::flat_binder_object;

namespace {

constexpr const char* kTag = "Parcel";
constexpr size_t kObjectSize = sizeof(flat_binder_object);

constexpr size_t padSize(size_t s) {
    return (s + 3) & ~static_cast<size_t>(3);
}

}  // namespace

status_t Parcel::validateReadData(size_t upperBound) const {
    // Plain-data reads may not overlap a binder object.
    if (mObjects.empty()) {
        return NO_ERROR;
    }
    const size_t lowest = mDataPos >= kObjectSize ? mDataPos - kObjectSize + 1 : 0;
    const auto it = std::lower_bound(mObjects.begin(), mObjects.end(), lowest);
    if (it != mObjects.end() && *it < upperBound) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "Attempt to read from protected data in Parcel %p",
                            static_cast<const void*>(this));
        return PERMISSION_DENIED;
    }
    return NO_ERROR;
}

status_t Parcel::read(void* outData, size_t len) const {
    if (len > INT32_MAX) {
        return BAD_VALUE;
    }
    const size_t padded = padSize(len);
    if (mDataPos <= mDataSize && padded <= mDataSize - mDataPos) {
        const status_t err = validateReadData(mDataPos + padded);
        if (err != NO_ERROR) {
            mDataPos += padded;
            return err;
        }
        if (len > 0) {
            memcpy(outData, mData.data() + mDataPos, len);
        }
        mDataPos += padded;
        return NO_ERROR;
    }
    return NOT_ENOUGH_DATA;
}

const void* Parcel::readInplace(size_t len) const {
    if (len > INT32_MAX) {
        return nullptr;
    }
    const size_t padded = padSize(len);
    if (mDataPos <= mDataSize && padded <= mDataSize - mDataPos) {
        if (validateReadData(mDataPos + padded) != NO_ERROR) {
            mDataPos += padded;
            return nullptr;
        }
        const void* const data = mData.data() + mDataPos;
        mDataPos += padded;
        return data;
    }
    return nullptr;
}

template <class T>
status_t Parcel::readAligned(T* pArg) const {
    if (mDataPos <= mDataSize && sizeof(T) <= mDataSize - mDataPos) {
        const status_t err = validateReadData(mDataPos + sizeof(T));
        if (err != NO_ERROR) {
            mDataPos += sizeof(T);
            return err;
        }
        memcpy(pArg, mData.data() + mDataPos, sizeof(T));
        mDataPos += sizeof(T);
        return NO_ERROR;
    }
    return NOT_ENOUGH_DATA;
}

template <class T>
T Parcel::readAligned() const {
    T result{};
    if (readAligned(&result) != NO_ERROR) {
        result = T{};
    }
    return result;
}

int32_t Parcel::readInt32() const {
    return readAligned<int32_t>();
}
status_t Parcel::readInt32(int32_t* pArg) const {
    return readAligned(pArg);
}
uint32_t Parcel::readUint32() const {
    return readAligned<uint32_t>();
}
status_t Parcel::readUint32(uint32_t* pArg) const {
    return readAligned(pArg);
}
int64_t Parcel::readInt64() const {
    return readAligned<int64_t>();
}
status_t Parcel::readInt64(int64_t* pArg) const {
    return readAligned(pArg);
}
uint64_t Parcel::readUint64() const {
    return readAligned<uint64_t>();
}
status_t Parcel::readUint64(uint64_t* pArg) const {
    return readAligned(pArg);
}
float Parcel::readFloat() const {
    return readAligned<float>();
}
status_t Parcel::readFloat(float* pArg) const {
    return readAligned(pArg);
}
double Parcel::readDouble() const {
    return readAligned<double>();
}
status_t Parcel::readDouble(double* pArg) const {
    return readAligned(pArg);
}

bool Parcel::readBool() const {
    return readInt32() != 0;
}

status_t Parcel::readBool(bool* pArg) const {
    int32_t tmp = 0;
    const status_t ret = readInt32(&tmp);
    *pArg = (tmp != 0);
    return ret;
}

char16_t Parcel::readChar() const {
    return static_cast<char16_t>(readInt32());
}

status_t Parcel::readChar(char16_t* pArg) const {
    int32_t tmp = 0;
    const status_t ret = readInt32(&tmp);
    *pArg = static_cast<char16_t>(tmp);
    return ret;
}

int8_t Parcel::readByte() const {
    return static_cast<int8_t>(readInt32());
}

status_t Parcel::readByte(int8_t* pArg) const {
    int32_t tmp = 0;
    const status_t ret = readInt32(&tmp);
    *pArg = static_cast<int8_t>(tmp);
    return ret;
}

const char* Parcel::readCString() const {
    if (mDataPos < mDataSize) {
        const size_t avail = mDataSize - mDataPos;
        const char* const str = reinterpret_cast<const char*>(mData.data() + mDataPos);
        const void* const eos = memchr(str, 0, avail);
        if (eos != nullptr) {
            const size_t len = static_cast<size_t>(static_cast<const char*>(eos) - str);
            mDataPos += padSize(len + 1);
            return str;
        }
    }
    return nullptr;
}

String8 Parcel::readString8() const {
    String8 result;
    readString8(&result);
    return result;
}

status_t Parcel::readString8(String8* pArg) const {
    const int32_t size = readInt32();
    if (size <= 0) {
        pArg->clear();
        return size == 0 ? NO_ERROR : BAD_VALUE;
    }
    if (size == INT32_MAX) {
        pArg->clear();
        return BAD_VALUE;
    }
    const char* const str = static_cast<const char*>(readInplace(static_cast<size_t>(size) + 1));
    if (str == nullptr) {
        pArg->clear();
        return BAD_VALUE;
    }
    pArg->setTo(str, static_cast<size_t>(size));
    return NO_ERROR;
}

const char16_t* Parcel::readString16Inplace(size_t* outLen) const {
    // Only setDataPosition() can make the position odd; UTF-16 units there
    // would be misaligned, so such a string is not read at all.
    if (mDataPos % alignof(char16_t) != 0) {
        *outLen = 0;
        return nullptr;
    }
    const int32_t size = readInt32();
    // The bound is checked in 64 bits: (size + 1) * 2 overflows a 32-bit size_t.
    if (size >= 0 && size < INT32_MAX &&
        (static_cast<uint64_t>(size) + 1) * sizeof(char16_t) <= dataAvail()) {
        const auto* const str = static_cast<const char16_t*>(
            readInplace((static_cast<size_t>(size) + 1) * sizeof(char16_t)));
        if (str != nullptr) {
            *outLen = static_cast<size_t>(size);
            return str;
        }
    }
    *outLen = 0;
    return nullptr;
}

status_t Parcel::readString16(String16* pArg) const {
    size_t len = 0;
    const char16_t* const str = readString16Inplace(&len);
    if (str != nullptr) {
        pArg->setTo(str, len);
        return NO_ERROR;
    }
    *pArg = String16();
    return UNEXPECTED_NULL;
}

String16 Parcel::readString16() const {
    size_t len = 0;
    const char16_t* const str = readString16Inplace(&len);
    if (str != nullptr) {
        return String16(str, len);
    }
    __android_log_print(ANDROID_LOG_ERROR, kTag, "Reading a NULL string not supported here.");
    return String16();
}

status_t Parcel::readString16(std::unique_ptr<String16>* pArg) const {
    const size_t start = dataPosition();
    int32_t size = 0;
    status_t status = readInt32(&size);
    pArg->reset();
    if (status != OK || size < 0) {
        return status;
    }
    setDataPosition(start);
    pArg->reset(new String16());
    status = readString16(pArg->get());
    if (status != OK) {
        pArg->reset();
    }
    return status;
}

status_t Parcel::readUtf8FromUtf16(std::string* str) const {
    size_t len = 0;
    const char16_t* const src = readString16Inplace(&len);
    if (src == nullptr) {
        return UNEXPECTED_NULL;
    }
    if (!utf16ToUtf8(src, len, str)) {
        return BAD_VALUE;
    }
    return NO_ERROR;
}

status_t Parcel::readUtf8FromUtf16(std::unique_ptr<std::string>* str) const {
    const size_t start = dataPosition();
    int32_t size = 0;
    status_t status = readInt32(&size);
    str->reset();
    if (status != OK || size < 0) {
        return status;
    }
    setDataPosition(start);
    str->reset(new std::string());
    status = readUtf8FromUtf16(str->get());
    if (status != OK) {
        str->reset();
    }
    return status;
}

const void* Parcel::readObject(bool nullMetaData) const {
    const size_t dpos = mDataPos;
    if (dpos > mDataSize || kObjectSize > mDataSize - dpos) {
        return nullptr;
    }
    const uint8_t* const obj = mData.data() + dpos;
    mDataPos = dpos + kObjectSize;
    flat_binder_object flat;
    memcpy(&flat, obj, sizeof flat);
    if (!nullMetaData && flat.cookie == 0 && flat.binder == 0) {
        // A null object is not in the object list.
        return obj;
    }
    if (std::binary_search(mObjects.begin(), mObjects.end(), static_cast<binder_size_t>(dpos))) {
        return obj;
    }
    __android_log_print(ANDROID_LOG_WARN, kTag,
                        "Attempt to read object from Parcel %p at offset %zu that is not in the "
                        "object list",
                        static_cast<const void*>(this), dpos);
    return nullptr;
}

status_t Parcel::unflattenBinder(sp<IBinder>* out) const {
    const void* const obj = readObject(false);
    if (obj != nullptr) {
        flat_binder_object flat;
        memcpy(&flat, obj, sizeof flat);
        switch (flat.type) {
            case hostbinder::BINDER_TYPE_BINDER:
                *out = reinterpret_cast<BBinder*>(static_cast<uintptr_t>(flat.cookie));
                return NO_ERROR;
            case hostbinder::BINDER_TYPE_HANDLE:
                *out = hostbinder::Transport::instance().proxyForHandle(
                    static_cast<int64_t>(flat.binder));
                return *out != nullptr ? NO_ERROR : BAD_TYPE;
            default:
                break;
        }
    }
    return BAD_TYPE;
}

sp<IBinder> Parcel::readStrongBinder() const {
    sp<IBinder> val;
    readNullableStrongBinder(&val);
    return val;
}

status_t Parcel::readStrongBinder(sp<IBinder>* val) const {
    status_t status = readNullableStrongBinder(val);
    if (status == OK && val->get() == nullptr) {
        status = UNEXPECTED_NULL;
    }
    return status;
}

status_t Parcel::readNullableStrongBinder(sp<IBinder>* val) const {
    return unflattenBinder(val);
}

int Parcel::readFileDescriptor() const {
    const void* const obj = readObject(true);
    if (obj != nullptr) {
        flat_binder_object flat;
        memcpy(&flat, obj, sizeof flat);
        if (flat.type == hostbinder::BINDER_TYPE_FD) {
            return static_cast<int>(flat.handle);
        }
    }
    return BAD_TYPE;
}

namespace {

// Reads a vector's int32 count; -1 is a null vector. A count that cannot fit
// in the remaining data (each item taking at least `minItemSize` bytes) is
// refused before anything is allocated.
status_t readCount(const Parcel& p, size_t minItemSize, size_t* count) {
    int32_t size = 0;
    status_t status = p.readInt32(&size);
    if (status != OK) {
        return status;
    }
    if (size < 0) {
        return UNEXPECTED_NULL;
    }
    if (static_cast<uint64_t>(size) * minItemSize > p.dataAvail()) {
        return BAD_VALUE;
    }
    *count = static_cast<size_t>(size);
    return OK;
}

template <typename T>
status_t readBytes(const Parcel& p, std::vector<T>* val) {
    size_t count = 0;
    const status_t status = readCount(p, 1, &count);
    if (status != OK) {
        return status;
    }
    const void* const data = p.readInplace(count);
    if (data == nullptr) {
        return BAD_VALUE;
    }
    val->resize(count);
    if (count > 0) {
        memcpy(val->data(), data, count);
    }
    return OK;
}

}  // namespace

status_t Parcel::readByteVector(std::vector<int8_t>* val) const {
    return readBytes(*this, val);
}

status_t Parcel::readByteVector(std::vector<uint8_t>* val) const {
    return readBytes(*this, val);
}

status_t Parcel::readInt32Vector(std::vector<int32_t>* val) const {
    size_t count = 0;
    status_t status = readCount(*this, sizeof(int32_t), &count);
    if (status != OK) {
        return status;
    }
    val->resize(count);
    for (size_t i = 0; status == OK && i < count; ++i) {
        status = readInt32(&(*val)[i]);
    }
    return status;
}

status_t Parcel::readInt64Vector(std::vector<int64_t>* val) const {
    size_t count = 0;
    status_t status = readCount(*this, sizeof(int64_t), &count);
    if (status != OK) {
        return status;
    }
    val->resize(count);
    for (size_t i = 0; status == OK && i < count; ++i) {
        status = readInt64(&(*val)[i]);
    }
    return status;
}

status_t Parcel::readString16Vector(std::vector<String16>* val) const {
    size_t count = 0;
    status_t status = readCount(*this, sizeof(int32_t), &count);
    if (status != OK) {
        return status;
    }
    val->resize(count);
    for (size_t i = 0; status == OK && i < count; ++i) {
        status = readString16(&(*val)[i]);
    }
    return status;
}

status_t Parcel::readUtf8VectorFromUtf16Vector(std::vector<std::string>* val) const {
    size_t count = 0;
    status_t status = readCount(*this, sizeof(int32_t), &count);
    if (status != OK) {
        return status;
    }
    val->resize(count);
    for (size_t i = 0; status == OK && i < count; ++i) {
        status = readUtf8FromUtf16(&(*val)[i]);
    }
    return status;
}

status_t Parcel::readParcelable(Parcelable* parcelable) const {
    int32_t present = 0;
    const status_t status = readInt32(&present);
    if (status != OK) {
        return status;
    }
    if (!present) {
        return UNEXPECTED_NULL;
    }
    return parcelable->readFromParcel(this);
}

int32_t Parcel::readExceptionCode() const {
    binder::Status status;
    status.readFromParcel(*this);
    return status.exceptionCode();
}

}  // namespace android
