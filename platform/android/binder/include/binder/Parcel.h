#pragma once
// Parcel: the byte container of binder calls, laid out exactly as on the
// device (API 28, little-endian): every item padded to a multiple of 4 with
// zero bytes; int64/double take 8 bytes at a 4-aligned offset; C strings are
// NUL-terminated without length; String16 is an int32 length, the UTF-16
// units, a 0x0000 terminator and padding (-1 for null); binder references
// are 24-byte flat_binder_objects whose offsets the parcel records.
//
// Reads never go past dataSize(): a short read returns NOT_ENOUGH_DATA (or a
// null/zero value for the by-value forms) and leaves the parcel intact; a
// plain-data read overlapping a recorded binder object fails with
// PERMISSION_DENIED. Write failures (out of memory, sizes beyond INT32_MAX)
// set errorCheck(). A parcel holding binder objects keeps a strong reference
// to each until its data is freed, as on the device.
//
// A Parcel is a value owned by one thread at a time; not thread-safe.
//
// Host limits: file descriptors can be written (writeFileDescriptor) and read
// back inside one process, but a parcel carrying one cannot cross processes
// (FDS_NOT_ALLOWED).

#include <stddef.h>
#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include <binder/IBinder.h>
#include <binder/IInterface.h>
#include <binder/Parcelable.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String16.h>
#include <utils/String8.h>

namespace android {

class IPCThreadState;

namespace hostbinder {
class Transport;
}

typedef uint64_t binder_size_t;

class Parcel {
  public:
    // Largest parcel (data bytes) that may cross processes on this host, as
    // the device's 1 MB binder buffer bounds a transaction. Larger parcels
    // are fine within a process; sending one fails with FAILED_TRANSACTION.
    static constexpr size_t kMaxSize = 1024 * 1024;

    Parcel();
    ~Parcel();
    Parcel(const Parcel&) = delete;
    Parcel& operator=(const Parcel&) = delete;

    const uint8_t* data() const;
    size_t dataSize() const;
    size_t dataAvail() const;
    size_t dataPosition() const;
    size_t dataCapacity() const;

    status_t setDataSize(size_t size);
    void setDataPosition(size_t pos) const;
    status_t setDataCapacity(size_t size);
    // Replaces the contents with a copy of `buffer` (no binder objects).
    status_t setData(const uint8_t* buffer, size_t len);
    // Appends [start, start+len) of `parcel`, binder objects included.
    status_t appendFrom(const Parcel* parcel, size_t start, size_t len);

    void freeData();
    size_t objectsCount() const;

    status_t errorCheck() const;
    void setError(status_t err);

    bool allowFds() const;
    bool pushAllowFds(bool allowFds);
    void restoreAllowFds(bool lastValue);
    bool hasFileDescriptors() const;

    // Strict-mode policy (with PENALTY_GATHER) and the String16 descriptor.
    status_t writeInterfaceToken(const String16& interface);
    bool enforceInterface(const String16& interface, IPCThreadState* threadState = nullptr) const;
    bool checkInterface(IBinder* binder) const;

    status_t write(const void* data, size_t len);
    void* writeInplace(size_t len);
    status_t writeUnpadded(const void* data, size_t len);
    status_t writeInt32(int32_t val);
    status_t writeUint32(uint32_t val);
    status_t writeInt64(int64_t val);
    status_t writeUint64(uint64_t val);
    status_t writeFloat(float val);
    status_t writeDouble(double val);
    status_t writeCString(const char* str);
    status_t writeString8(const String8& str);
    status_t writeString16(const String16& str);
    status_t writeString16(const std::unique_ptr<String16>& str);
    status_t writeString16(const char16_t* str, size_t len);
    // UTF-8 text written as a String16, as generated code sends std::string.
    status_t writeUtf8AsUtf16(const std::string& str);
    status_t writeUtf8AsUtf16(const std::unique_ptr<std::string>& str);
    status_t writeStrongBinder(const sp<IBinder>& val);
    status_t writeInt32Array(size_t len, const int32_t* val);
    status_t writeByteArray(size_t len, const uint8_t* val);
    status_t writeBool(bool val);
    status_t writeChar(char16_t val);
    status_t writeByte(int8_t val);

    status_t writeByteVector(const std::vector<int8_t>& val);
    status_t writeByteVector(const std::vector<uint8_t>& val);
    status_t writeInt32Vector(const std::vector<int32_t>& val);
    status_t writeInt64Vector(const std::vector<int64_t>& val);
    status_t writeString16Vector(const std::vector<String16>& val);
    status_t writeUtf8VectorAsUtf16Vector(const std::vector<std::string>& val);

    // Presence flag 1, then the record's own fields.
    status_t writeParcelable(const Parcelable& parcelable);
    template <typename T>
    status_t writeNullableParcelable(const std::unique_ptr<T>& parcelable);
    status_t writeRawNullableParcelable(const Parcelable* parcelable);

    // Host: within one process only (see the header comment).
    status_t writeFileDescriptor(int fd, bool takeOwnership = false);

    // int32 0: the "no exception" reply header.
    status_t writeNoException();

    status_t read(void* outData, size_t len) const;
    const void* readInplace(size_t len) const;
    int32_t readInt32() const;
    status_t readInt32(int32_t* pArg) const;
    uint32_t readUint32() const;
    status_t readUint32(uint32_t* pArg) const;
    int64_t readInt64() const;
    status_t readInt64(int64_t* pArg) const;
    uint64_t readUint64() const;
    status_t readUint64(uint64_t* pArg) const;
    float readFloat() const;
    status_t readFloat(float* pArg) const;
    double readDouble() const;
    status_t readDouble(double* pArg) const;
    bool readBool() const;
    status_t readBool(bool* pArg) const;
    char16_t readChar() const;
    status_t readChar(char16_t* pArg) const;
    int8_t readByte() const;
    status_t readByte(int8_t* pArg) const;

    // Pointer into the parcel, or nullptr (position unchanged) when no NUL
    // is found before dataSize().
    const char* readCString() const;
    String8 readString8() const;
    status_t readString8(String8* pArg) const;
    String16 readString16() const;
    status_t readString16(String16* pArg) const;
    status_t readString16(std::unique_ptr<String16>* pArg) const;
    const char16_t* readString16Inplace(size_t* outLen) const;
    status_t readUtf8FromUtf16(std::string* str) const;
    status_t readUtf8FromUtf16(std::unique_ptr<std::string>* str) const;

    sp<IBinder> readStrongBinder() const;
    // UNEXPECTED_NULL for a null binder.
    status_t readStrongBinder(sp<IBinder>* val) const;
    status_t readNullableStrongBinder(sp<IBinder>* val) const;
    template <typename T>
    status_t readStrongBinder(sp<T>* val) const;
    template <typename T>
    status_t readNullableStrongBinder(sp<T>* val) const;

    status_t readByteVector(std::vector<int8_t>* val) const;
    status_t readByteVector(std::vector<uint8_t>* val) const;
    status_t readInt32Vector(std::vector<int32_t>* val) const;
    status_t readInt64Vector(std::vector<int64_t>* val) const;
    status_t readString16Vector(std::vector<String16>* val) const;
    status_t readUtf8VectorFromUtf16Vector(std::vector<std::string>* val) const;

    // Presence flag 0 gives UNEXPECTED_NULL; otherwise readFromParcel.
    status_t readParcelable(Parcelable* parcelable) const;
    // Presence flag 0 leaves *parcelable null and returns OK.
    template <typename T>
    status_t readParcelable(std::unique_ptr<T>* parcelable) const;

    // The file descriptor number, or BAD_TYPE.
    int readFileDescriptor() const;

    // Reads a binder::Status from the reply and returns its exception code.
    int32_t readExceptionCode() const;

    // Offsets of the binder objects in the data (as the driver sees them).
    const binder_size_t* ipcObjects() const;
    size_t ipcObjectsCount() const;

  private:
    friend class hostbinder::Transport;

    status_t growData(size_t len);
    status_t continueWrite(size_t desired);
    status_t finishWrite(size_t len);
    template <class T>
    status_t writeAligned(T val);
    template <class T>
    status_t readAligned(T* pArg) const;
    template <class T>
    T readAligned() const;
    status_t validateReadData(size_t upperBound) const;
    status_t writeObject(const void* flat, size_t size, bool nullMetaData);
    const void* readObject(bool nullMetaData) const;
    status_t unflattenBinder(sp<IBinder>* out) const;
    void recordObject(size_t offset);

    std::vector<uint8_t> mData;  // size() is the capacity
    size_t mDataSize;
    mutable size_t mDataPos;
    std::vector<binder_size_t> mObjects;  // ascending offsets of flat_binder_objects
    mutable size_t mNextObjectHint;
    status_t mError;
    bool mAllowFds;
    bool mHasFds;
    std::vector<int> mOwnedFds;            // closed when the parcel's data is freed
    std::vector<sp<IBinder>> mBinderRefs;  // keeps the objects written here alive
};

template <typename T>
status_t Parcel::writeNullableParcelable(const std::unique_ptr<T>& parcelable) {
    return writeRawNullableParcelable(parcelable.get());
}

template <typename T>
status_t Parcel::readStrongBinder(sp<T>* val) const {
    sp<IBinder> tmp;
    status_t ret = readStrongBinder(&tmp);
    if (ret == OK) {
        *val = interface_cast<T>(tmp);
        if (val->get() == nullptr) {
            return UNKNOWN_ERROR;
        }
    }
    return ret;
}

template <typename T>
status_t Parcel::readNullableStrongBinder(sp<T>* val) const {
    sp<IBinder> tmp;
    status_t ret = readNullableStrongBinder(&tmp);
    if (ret == OK) {
        *val = interface_cast<T>(tmp);
        if (val->get() == nullptr && tmp.get() != nullptr) {
            ret = UNKNOWN_ERROR;
        }
    }
    return ret;
}

template <typename T>
status_t Parcel::readParcelable(std::unique_ptr<T>* parcelable) const {
    const size_t start = dataPosition();
    int32_t present;
    status_t status = readInt32(&present);
    parcelable->reset();
    if (status != OK || !present) {
        return status;
    }
    setDataPosition(start);
    parcelable->reset(new T());
    status = readParcelable(parcelable->get());
    if (status != OK) {
        parcelable->reset();
    }
    return status;
}

}  // namespace android
