#pragma once
// android::binder::Status: the result of a binder call as generated
// interfaces carry it in the reply parcel. Either no error, an exception
// code with a message (EX_SERVICE_SPECIFIC also carries a service-specific
// int32), or EX_TRANSACTION_FAILED holding a transport status_t, which is
// never written to a parcel. Value type.

#include <stdint.h>

#include <sstream>

#include <utils/Errors.h>
#include <utils/String8.h>

namespace android {

class Parcel;

namespace binder {

class Status final {
  public:
    enum Exception {
        EX_NONE = 0,
        EX_SECURITY = -1,
        EX_BAD_PARCELABLE = -2,
        EX_ILLEGAL_ARGUMENT = -3,
        EX_NULL_POINTER = -4,
        EX_ILLEGAL_STATE = -5,
        EX_NETWORK_MAIN_THREAD = -6,
        EX_UNSUPPORTED_OPERATION = -7,
        EX_SERVICE_SPECIFIC = -8,
        EX_PARCELABLE = -9,

        // A reply header the reader skips; then treated as no exception.
        EX_HAS_REPLY_HEADER = -128,
        // Transport failure: the status_t is in transactionError().
        EX_TRANSACTION_FAILED = -129,
    };

    static Status ok();
    // The error code is OK, even for EX_TRANSACTION_FAILED (as at API 28).
    static Status fromExceptionCode(int32_t exceptionCode);
    static Status fromExceptionCode(int32_t exceptionCode, const String8& message);
    static Status fromExceptionCode(int32_t exceptionCode, const char* message);
    static Status fromServiceSpecificError(int32_t serviceSpecificErrorCode);
    static Status fromServiceSpecificError(int32_t serviceSpecificErrorCode,
                                           const String8& message);
    static Status fromServiceSpecificError(int32_t serviceSpecificErrorCode, const char* message);
    // OK gives EX_NONE; anything else EX_TRANSACTION_FAILED with that status.
    static Status fromStatusT(status_t status);

    Status() = default;
    ~Status() = default;
    Status(const Status& status) = default;
    Status(Status&& status) = default;
    Status& operator=(const Status& status) = default;
    Status& operator=(Status&& status) = default;

    // Reads a status written by writeToParcel (or a reply header). On a read
    // failure the status becomes EX_TRANSACTION_FAILED with that error.
    status_t readFromParcel(const Parcel& parcel);
    // EX_TRANSACTION_FAILED writes nothing and returns its error code.
    status_t writeToParcel(Parcel* parcel) const;

    void setException(int32_t ex, const String8& message);
    void setServiceSpecificError(int32_t errorCode, const String8& message);
    void setFromStatusT(status_t status);

    int32_t exceptionCode() const { return mException; }
    const String8& exceptionMessage() const { return mMessage; }
    status_t transactionError() const {
        return mException == EX_TRANSACTION_FAILED ? mErrorCode : OK;
    }
    int32_t serviceSpecificErrorCode() const {
        return mException == EX_SERVICE_SPECIFIC ? mErrorCode : 0;
    }

    bool isOk() const { return mException == EX_NONE; }

    // "No error", or "Status(<ex>): '<message>'" with "<code>: " before the
    // message for service-specific and transaction errors.
    String8 toString8() const;

  private:
    Status(int32_t exceptionCode, int32_t errorCode);
    Status(int32_t exceptionCode, int32_t errorCode, const String8& message);

    int32_t mException = EX_NONE;
    int32_t mErrorCode = 0;
    String8 mMessage;
};

std::stringstream& operator<<(std::stringstream& stream, const Status& s);

}  // namespace binder
}  // namespace android
