#include <binder/Status.h>

#include <binder/Parcel.h>

namespace android {
namespace binder {

Status Status::ok() {
    return Status();
}

Status Status::fromExceptionCode(int32_t exceptionCode) {
    return Status(exceptionCode, OK);
}

Status Status::fromExceptionCode(int32_t exceptionCode, const String8& message) {
    return Status(exceptionCode, OK, message);
}

Status Status::fromExceptionCode(int32_t exceptionCode, const char* message) {
    return fromExceptionCode(exceptionCode, String8(message));
}

Status Status::fromServiceSpecificError(int32_t serviceSpecificErrorCode) {
    return Status(EX_SERVICE_SPECIFIC, serviceSpecificErrorCode);
}

Status Status::fromServiceSpecificError(int32_t serviceSpecificErrorCode, const String8& message) {
    return Status(EX_SERVICE_SPECIFIC, serviceSpecificErrorCode, message);
}

Status Status::fromServiceSpecificError(int32_t serviceSpecificErrorCode, const char* message) {
    return fromServiceSpecificError(serviceSpecificErrorCode, String8(message));
}

Status Status::fromStatusT(status_t status) {
    Status ret;
    ret.setFromStatusT(status);
    return ret;
}

Status::Status(int32_t exceptionCode, int32_t errorCode)
    : mException(exceptionCode), mErrorCode(errorCode) {}

Status::Status(int32_t exceptionCode, int32_t errorCode, const String8& message)
    : mException(exceptionCode), mErrorCode(errorCode), mMessage(message) {}

status_t Status::readFromParcel(const Parcel& parcel) {
    status_t status = parcel.readInt32(&mException);
    if (status != OK) {
        setFromStatusT(status);
        return status;
    }

    if (mException == EX_HAS_REPLY_HEADER) {
        // The header size counts its own 4 bytes.
        const size_t headerStart = parcel.dataPosition();
        const int32_t headerSize = parcel.readInt32();
        if (headerSize < 0 || static_cast<size_t>(headerSize) > parcel.dataSize() - headerStart) {
            status = UNKNOWN_ERROR;
            setFromStatusT(status);
            return status;
        }
        parcel.setDataPosition(headerStart + static_cast<size_t>(headerSize));
        mException = EX_NONE;
    }

    if (mException == EX_NONE) {
        return status;
    }

    String16 message;
    status = parcel.readString16(&message);
    if (status != OK) {
        setFromStatusT(status);
        return status;
    }
    mMessage = String8(message);

    // Skip the remote stack trace; its size excludes the size field.
    const int32_t remoteStackTraceHeaderSize = parcel.readInt32();
    if (remoteStackTraceHeaderSize < 0 ||
        static_cast<size_t>(remoteStackTraceHeaderSize) > parcel.dataAvail()) {
        status = UNKNOWN_ERROR;
        setFromStatusT(status);
        return status;
    }
    parcel.setDataPosition(parcel.dataPosition() + static_cast<size_t>(remoteStackTraceHeaderSize));

    if (mException == EX_SERVICE_SPECIFIC) {
        status = parcel.readInt32(&mErrorCode);
    } else if (mException == EX_PARCELABLE) {
        const size_t headerStart = parcel.dataPosition();
        const int32_t headerSize = parcel.readInt32();
        if (headerSize < 0 || static_cast<size_t>(headerSize) > parcel.dataSize() - headerStart) {
            status = UNKNOWN_ERROR;
            setFromStatusT(status);
            return status;
        }
        parcel.setDataPosition(headerStart + static_cast<size_t>(headerSize));
    }
    if (status != OK) {
        setFromStatusT(status);
        return status;
    }
    return status;
}

status_t Status::writeToParcel(Parcel* parcel) const {
    // A transport failure is not sent: the caller returns the status_t itself.
    if (mException == EX_TRANSACTION_FAILED) {
        return mErrorCode;
    }

    status_t status = parcel->writeInt32(mException);
    if (status != OK) {
        return status;
    }
    if (mException == EX_NONE) {
        return status;
    }
    // As on the device, the results of the remaining writes are not checked.
    parcel->writeString16(String16(mMessage));
    parcel->writeInt32(0);  // empty remote stack trace header
    if (mException == EX_SERVICE_SPECIFIC) {
        status = parcel->writeInt32(mErrorCode);
    } else if (mException == EX_PARCELABLE) {
        status = parcel->writeInt32(0);
    }
    return status;
}

void Status::setException(int32_t ex, const String8& message) {
    mException = ex;
    mErrorCode = NO_ERROR;
    mMessage.setTo(message);
}

void Status::setServiceSpecificError(int32_t errorCode, const String8& message) {
    setException(EX_SERVICE_SPECIFIC, message);
    mErrorCode = errorCode;
}

void Status::setFromStatusT(status_t status) {
    mException = (status == NO_ERROR) ? EX_NONE : EX_TRANSACTION_FAILED;
    mErrorCode = status;
    mMessage.clear();
}

String8 Status::toString8() const {
    String8 ret;
    if (mException == EX_NONE) {
        ret.append("No error");
    } else {
        ret.appendFormat("Status(%d): '", mException);
        if (mException == EX_SERVICE_SPECIFIC || mException == EX_TRANSACTION_FAILED) {
            ret.appendFormat("%d: ", mErrorCode);
        }
        ret.append(mMessage);
        ret.append("'");
    }
    return ret;
}

std::stringstream& operator<<(std::stringstream& stream, const Status& s) {
    stream << s.toString8().string();
    return stream;
}

}  // namespace binder
}  // namespace android
