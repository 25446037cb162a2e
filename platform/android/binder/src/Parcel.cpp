#include <binder/Parcel.h>

#include <unistd.h>

#include <algorithm>
#include <cstring>

#include <android/log.h>
#include <binder/BpBinder.h>
#include <binder/IPCThreadState.h>
#include <binder/ProcessState.h>
#include <binder/Status.h>

#include "FlatBinderObject.h"

namespace android {

using hostbinder::flat_binder_object;

namespace {

constexpr const char* kTag = "Parcel";
constexpr size_t kObjectSize = sizeof(flat_binder_object);

constexpr size_t padSize(size_t s) {
    return (s + 3) & ~static_cast<size_t>(3);
}

}  // namespace

Parcel::Parcel()
    : mDataSize(0),
      mDataPos(0),
      mNextObjectHint(0),
      mError(NO_ERROR),
      mAllowFds(true),
      mHasFds(false) {}

Parcel::~Parcel() {
    freeData();
}

const uint8_t* Parcel::data() const {
    return mData.data();
}

size_t Parcel::dataSize() const {
    return mDataSize > mDataPos ? mDataSize : mDataPos;
}

size_t Parcel::dataAvail() const {
    return mDataSize > mDataPos ? mDataSize - mDataPos : 0;
}

size_t Parcel::dataPosition() const {
    return mDataPos;
}

size_t Parcel::dataCapacity() const {
    return mData.size();
}

status_t Parcel::setDataSize(size_t size) {
    if (size > INT32_MAX) {
        return BAD_VALUE;
    }
    status_t err = continueWrite(size);
    if (err == NO_ERROR) {
        mDataSize = size;
        if (mDataPos > size) {
            mDataPos = size;
        }
    }
    return err;
}

void Parcel::setDataPosition(size_t pos) const {
    // Positions past the data are allowed; reads there fail, writes extend.
    mDataPos = pos > INT32_MAX ? static_cast<size_t>(INT32_MAX) : pos;
    mNextObjectHint = 0;
}

status_t Parcel::setDataCapacity(size_t size) {
    if (size > INT32_MAX) {
        return BAD_VALUE;
    }
    if (size > mData.size()) {
        return continueWrite(size);
    }
    return NO_ERROR;
}

status_t Parcel::setData(const uint8_t* buffer, size_t len) {
    if (len > INT32_MAX) {
        return BAD_VALUE;
    }
    freeData();
    mData.assign(buffer, buffer + len);
    mDataSize = len;
    return NO_ERROR;
}

status_t Parcel::appendFrom(const Parcel* parcel, size_t offset, size_t len) {
    if (len == 0) {
        return NO_ERROR;
    }
    if (len > INT32_MAX || offset > parcel->mDataSize || len > parcel->mDataSize - offset) {
        return BAD_VALUE;
    }
    if (parcel->hasFileDescriptors() && !mAllowFds) {
        return FDS_NOT_ALLOWED;
    }
    const size_t startPos = mDataPos;
    void* dst = writeInplace(len);
    if (dst == nullptr) {
        return mError;
    }
    memcpy(dst, parcel->mData.data() + offset, len);
    for (const binder_size_t off : parcel->mObjects) {
        if (off >= offset && off + kObjectSize <= offset + len) {
            recordObject(startPos + static_cast<size_t>(off - offset));
        }
    }
    mBinderRefs.insert(mBinderRefs.end(), parcel->mBinderRefs.begin(), parcel->mBinderRefs.end());
    mHasFds = mHasFds || parcel->mHasFds;
    return NO_ERROR;
}

void Parcel::freeData() {
    for (const int fd : mOwnedFds) {
        close(fd);
    }
    mOwnedFds.clear();
    mBinderRefs.clear();
    mObjects.clear();
    mData.clear();
    mData.shrink_to_fit();
    mDataSize = 0;
    mDataPos = 0;
    mNextObjectHint = 0;
    mError = NO_ERROR;
    mHasFds = false;
}

size_t Parcel::objectsCount() const {
    return mObjects.size();
}

status_t Parcel::errorCheck() const {
    return mError;
}

void Parcel::setError(status_t err) {
    mError = err;
}

bool Parcel::allowFds() const {
    return mAllowFds;
}

bool Parcel::pushAllowFds(bool allowFds) {
    const bool origValue = mAllowFds;
    if (!allowFds) {
        mAllowFds = false;
    }
    return origValue;
}

void Parcel::restoreAllowFds(bool lastValue) {
    mAllowFds = lastValue;
}

bool Parcel::hasFileDescriptors() const {
    return mHasFds;
}

const binder_size_t* Parcel::ipcObjects() const {
    return mObjects.data();
}

size_t Parcel::ipcObjectsCount() const {
    return mObjects.size();
}

status_t Parcel::writeInterfaceToken(const String16& interface) {
    writeInt32(IPCThreadState::self()->getStrictModePolicy() |
               hostbinder::STRICT_MODE_PENALTY_GATHER);
    return writeString16(interface);
}

bool Parcel::checkInterface(IBinder* binder) const {
    return enforceInterface(binder->getInterfaceDescriptor());
}

bool Parcel::enforceInterface(const String16& interface, IPCThreadState* threadState) const {
    const int32_t strictPolicy = readInt32();
    if (threadState == nullptr) {
        threadState = IPCThreadState::self();
    }
    if ((threadState->getLastTransactionBinderFlags() & IBinder::FLAG_ONEWAY) != 0) {
        threadState->setStrictModePolicy(0);
    } else {
        threadState->setStrictModePolicy(strictPolicy);
    }
    size_t len = 0;
    const char16_t* str = readString16Inplace(&len);
    if (str != nullptr && len == interface.size() &&
        std::equal(str, str + len, interface.string())) {
        return true;
    }
    __android_log_print(ANDROID_LOG_WARN, kTag,
                        "**** enforceInterface() expected '%s' but read '%s'",
                        String8(interface).string(), str ? String8(str, len).string() : "(null)");
    return false;
}

status_t Parcel::continueWrite(size_t desired) {
    if (desired > INT32_MAX) {
        return BAD_VALUE;
    }
    if (desired < mDataSize) {
        // Shrinking: objects past the new end go away.
        mObjects.erase(
            std::remove_if(mObjects.begin(), mObjects.end(),
                           [desired](binder_size_t off) { return off + kObjectSize > desired; }),
            mObjects.end());
        mDataSize = desired;
        if (mDataPos > desired) {
            mDataPos = desired;
        }
    }
    try {
        mData.resize(desired);
    } catch (const std::bad_alloc&) {
        mError = NO_MEMORY;
        return NO_MEMORY;
    }
    return NO_ERROR;
}

status_t Parcel::growData(size_t len) {
    if (len > INT32_MAX) {
        return BAD_VALUE;
    }
    const size_t base = std::max(mDataPos, mDataSize);
    if (base > INT32_MAX - len) {
        mError = BAD_VALUE;
        return BAD_VALUE;
    }
    const size_t needed = base + len;
    size_t newSize = needed + needed / 2;
    if (newSize > INT32_MAX) {
        newSize = needed;
    }
    if (newSize <= mData.size()) {
        return NO_ERROR;
    }
    return continueWrite(newSize);
}

status_t Parcel::finishWrite(size_t len) {
    mDataPos += len;
    if (mDataPos > mDataSize) {
        mDataSize = mDataPos;
    }
    return NO_ERROR;
}

status_t Parcel::write(const void* data, size_t len) {
    if (len > INT32_MAX) {
        return BAD_VALUE;
    }
    void* const d = writeInplace(len);
    if (d == nullptr) {
        return mError != NO_ERROR ? mError : BAD_VALUE;
    }
    if (len > 0) {
        memcpy(d, data, len);
    }
    return NO_ERROR;
}

void* Parcel::writeInplace(size_t len) {
    if (len > INT32_MAX) {
        return nullptr;
    }
    const size_t padded = padSize(len);
    if (mDataPos > INT32_MAX - padded) {
        return nullptr;
    }
    if (mDataPos + padded > mData.size()) {
        if (growData(padded) != NO_ERROR) {
            return nullptr;
        }
    }
    uint8_t* const data = mData.data() + mDataPos;
    if (padded != len) {
        memset(data + len, 0, padded - len);
    }
    finishWrite(padded);
    return data;
}

status_t Parcel::writeUnpadded(const void* data, size_t len) {
    if (len > INT32_MAX || mDataPos > INT32_MAX - len) {
        return BAD_VALUE;
    }
    if (mDataPos + len > mData.size()) {
        const status_t err = growData(len);
        if (err != NO_ERROR) {
            return err;
        }
    }
    if (len > 0) {
        memcpy(mData.data() + mDataPos, data, len);
    }
    return finishWrite(len);
}

template <class T>
status_t Parcel::writeAligned(T val) {
    static_assert(padSize(sizeof(T)) == sizeof(T), "aligned type");
    return writeUnpadded(&val, sizeof(T));
}

status_t Parcel::writeInt32(int32_t val) {
    return writeAligned(val);
}

status_t Parcel::writeUint32(uint32_t val) {
    return writeAligned(val);
}

status_t Parcel::writeInt64(int64_t val) {
    return writeAligned(val);
}

status_t Parcel::writeUint64(uint64_t val) {
    return writeAligned(val);
}

status_t Parcel::writeFloat(float val) {
    return writeAligned(val);
}

status_t Parcel::writeDouble(double val) {
    return writeAligned(val);
}

status_t Parcel::writeBool(bool val) {
    return writeInt32(static_cast<int32_t>(val));
}

status_t Parcel::writeChar(char16_t val) {
    return writeInt32(static_cast<int32_t>(val));
}

status_t Parcel::writeByte(int8_t val) {
    return writeInt32(static_cast<int32_t>(val));
}

status_t Parcel::writeCString(const char* str) {
    if (str == nullptr) {
        return BAD_VALUE;
    }
    return write(str, strlen(str) + 1);
}

status_t Parcel::writeString8(const String8& str) {
    // Unlike String16, an empty String8 is only its length.
    status_t err = writeInt32(static_cast<int32_t>(str.bytes()));
    if (str.bytes() > 0 && err == NO_ERROR) {
        err = write(str.string(), str.bytes() + 1);
    }
    return err;
}

status_t Parcel::writeString16(const String16& str) {
    return writeString16(str.string(), str.size());
}

status_t Parcel::writeString16(const std::unique_ptr<String16>& str) {
    if (!str) {
        return writeInt32(-1);
    }
    return writeString16(*str);
}

status_t Parcel::writeString16(const char16_t* str, size_t len) {
    if (str == nullptr) {
        return writeInt32(-1);
    }
    if (len >= INT32_MAX / sizeof(char16_t)) {
        return BAD_VALUE;
    }
    status_t err = writeInt32(static_cast<int32_t>(len));
    if (err == NO_ERROR) {
        const size_t bytes = len * sizeof(char16_t);
        auto* const data = static_cast<uint8_t*>(writeInplace(bytes + sizeof(char16_t)));
        if (data != nullptr) {
            memcpy(data, str, bytes);
            memset(data + bytes, 0, sizeof(char16_t));
            return NO_ERROR;
        }
        err = mError != NO_ERROR ? mError : BAD_VALUE;
    }
    return err;
}

status_t Parcel::writeUtf8AsUtf16(const std::string& str) {
    std::u16string utf16;
    if (!utf8ToUtf16(str.data(), str.size(), &utf16)) {
        return BAD_VALUE;
    }
    return writeString16(utf16.c_str(), utf16.size());
}

status_t Parcel::writeUtf8AsUtf16(const std::unique_ptr<std::string>& str) {
    if (!str) {
        return writeInt32(-1);
    }
    return writeUtf8AsUtf16(*str);
}

status_t Parcel::writeInt32Array(size_t len, const int32_t* val) {
    if (len > INT32_MAX / sizeof(int32_t)) {
        return BAD_VALUE;
    }
    if (val == nullptr) {
        return writeInt32(-1);
    }
    status_t ret = writeInt32(static_cast<int32_t>(len));
    if (ret == NO_ERROR) {
        ret = write(val, len * sizeof(*val));
    }
    return ret;
}

status_t Parcel::writeByteArray(size_t len, const uint8_t* val) {
    if (len > INT32_MAX) {
        return BAD_VALUE;
    }
    if (val == nullptr) {
        return writeInt32(-1);
    }
    status_t ret = writeInt32(static_cast<int32_t>(len));
    if (ret == NO_ERROR) {
        ret = write(val, len);
    }
    return ret;
}

status_t Parcel::writeByteVector(const std::vector<int8_t>& val) {
    return writeByteArray(val.size(), reinterpret_cast<const uint8_t*>(val.data()));
}

status_t Parcel::writeByteVector(const std::vector<uint8_t>& val) {
    return writeByteArray(val.size(), val.data());
}

status_t Parcel::writeInt32Vector(const std::vector<int32_t>& val) {
    if (val.size() > INT32_MAX) {
        return BAD_VALUE;
    }
    status_t err = writeInt32(static_cast<int32_t>(val.size()));
    for (size_t i = 0; err == NO_ERROR && i < val.size(); ++i) {
        err = writeInt32(val[i]);
    }
    return err;
}

status_t Parcel::writeInt64Vector(const std::vector<int64_t>& val) {
    if (val.size() > INT32_MAX) {
        return BAD_VALUE;
    }
    status_t err = writeInt32(static_cast<int32_t>(val.size()));
    for (size_t i = 0; err == NO_ERROR && i < val.size(); ++i) {
        err = writeInt64(val[i]);
    }
    return err;
}

status_t Parcel::writeString16Vector(const std::vector<String16>& val) {
    if (val.size() > INT32_MAX) {
        return BAD_VALUE;
    }
    status_t err = writeInt32(static_cast<int32_t>(val.size()));
    for (size_t i = 0; err == NO_ERROR && i < val.size(); ++i) {
        err = writeString16(val[i]);
    }
    return err;
}

status_t Parcel::writeUtf8VectorAsUtf16Vector(const std::vector<std::string>& val) {
    if (val.size() > INT32_MAX) {
        return BAD_VALUE;
    }
    status_t err = writeInt32(static_cast<int32_t>(val.size()));
    for (size_t i = 0; err == NO_ERROR && i < val.size(); ++i) {
        err = writeUtf8AsUtf16(val[i]);
    }
    return err;
}

status_t Parcel::writeParcelable(const Parcelable& parcelable) {
    const status_t status = writeInt32(1);  // present
    if (status != OK) {
        return status;
    }
    return parcelable.writeToParcel(this);
}

status_t Parcel::writeRawNullableParcelable(const Parcelable* parcelable) {
    if (parcelable == nullptr) {
        return writeInt32(0);
    }
    return writeParcelable(*parcelable);
}

status_t Parcel::writeNoException() {
    return binder::Status::ok().writeToParcel(this);
}

void Parcel::recordObject(size_t offset) {
    const auto it = std::lower_bound(mObjects.begin(), mObjects.end(), offset);
    if (it == mObjects.end() || *it != offset) {
        mObjects.insert(it, offset);
    }
}

status_t Parcel::writeObject(const void* flat, size_t size, bool nullMetaData) {
    const size_t pos = mDataPos;
    const status_t err = writeUnpadded(flat, size);
    if (err != NO_ERROR) {
        return err;
    }
    flat_binder_object obj;
    memcpy(&obj, flat, sizeof obj);
    // A null binder (binder == 0) is plain data, as on the device.
    if (nullMetaData || obj.binder != 0) {
        recordObject(pos);
    }
    return NO_ERROR;
}

status_t Parcel::writeStrongBinder(const sp<IBinder>& val) {
    flat_binder_object obj;
    memset(&obj, 0, sizeof obj);
    obj.flags = hostbinder::kStrongBinderFlags;
    if (val != nullptr) {
        BBinder* const local = val->localBinder();
        if (local == nullptr) {
            BpBinder* const proxy = val->remoteBinder();
            if (proxy == nullptr) {
                return BAD_TYPE;
            }
            obj.type = hostbinder::BINDER_TYPE_HANDLE;
            obj.binder = static_cast<uint64_t>(proxy->handle());  // the whole 64-bit field
            obj.cookie = 0;
        } else {
            obj.type = hostbinder::BINDER_TYPE_BINDER;
            obj.binder = reinterpret_cast<uintptr_t>(local->getWeakRefs());
            obj.cookie = reinterpret_cast<uintptr_t>(local);
        }
        mBinderRefs.push_back(val);
    } else {
        obj.type = hostbinder::BINDER_TYPE_BINDER;
        obj.binder = 0;
        obj.cookie = 0;
    }
    return writeObject(&obj, sizeof obj, false);
}

status_t Parcel::writeFileDescriptor(int fd, bool takeOwnership) {
    if (!mAllowFds) {
        return FDS_NOT_ALLOWED;
    }
    if (fd < 0) {
        return BAD_VALUE;
    }
    flat_binder_object obj;
    memset(&obj, 0, sizeof obj);
    obj.type = hostbinder::BINDER_TYPE_FD;
    obj.flags = hostbinder::kFdFlags;
    obj.handle = static_cast<uint32_t>(fd);
    obj.cookie = takeOwnership ? 1 : 0;
    const status_t err = writeObject(&obj, sizeof obj, true);
    if (err == NO_ERROR) {
        mHasFds = true;
        if (takeOwnership) {
            mOwnedFds.push_back(fd);
        }
    }
    return err;
}

}  // namespace android
