#include <binder/Binder.h>

#include <android/log.h>
#include <binder/IInterface.h>
#include <binder/Parcel.h>

namespace android {

namespace {
constexpr const char* kTag = "Binder";
}

IBinder::IBinder() = default;
IBinder::~IBinder() = default;

sp<IInterface> IBinder::queryLocalInterface(const String16& /*descriptor*/) {
    return nullptr;
}

bool IBinder::checkSubclass(const void* /*subclassID*/) const {
    return false;
}

BBinder* IBinder::localBinder() {
    return nullptr;
}

BpBinder* IBinder::remoteBinder() {
    return nullptr;
}

BBinder::BBinder() = default;
BBinder::~BBinder() = default;

const String16& BBinder::getInterfaceDescriptor() const {
    // A plain BBinder has no interface; the device answers with an empty one.
    __android_log_print(ANDROID_LOG_WARN, kTag, "reached BBinder::getInterfaceDescriptor (this=%p)",
                        static_cast<const void*>(this));
    static const String16 sEmptyDescriptor;
    return sEmptyDescriptor;
}

bool BBinder::isBinderAlive() const {
    return true;
}

status_t BBinder::pingBinder() {
    return NO_ERROR;
}

status_t BBinder::dump(int /*fd*/, const Vector<String16>& /*args*/) {
    return NO_ERROR;
}

status_t BBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    data.setDataPosition(0);
    status_t err = NO_ERROR;
    switch (code) {
        case PING_TRANSACTION:
            if (reply != nullptr) {
                reply->writeInt32(pingBinder());
            }
            break;
        default:
            err = onTransact(code, data, reply, flags);
            break;
    }
    if (reply != nullptr) {
        reply->setDataPosition(0);
    }
    return err;
}

status_t BBinder::linkToDeath(const sp<DeathRecipient>& /*recipient*/, void* /*cookie*/,
                              uint32_t /*flags*/) {
    return INVALID_OPERATION;
}

status_t BBinder::unlinkToDeath(const wp<DeathRecipient>& /*recipient*/, void* /*cookie*/,
                                uint32_t /*flags*/, wp<DeathRecipient>* /*outRecipient*/) {
    return INVALID_OPERATION;
}

BBinder* BBinder::localBinder() {
    return this;
}

status_t BBinder::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t /*flags*/) {
    switch (code) {
        case INTERFACE_TRANSACTION:
            if (reply == nullptr) {
                return BAD_VALUE;
            }
            reply->writeString16(getInterfaceDescriptor());
            return NO_ERROR;
        case DUMP_TRANSACTION: {
            const int fd = data.readFileDescriptor();
            const int32_t argc = data.readInt32();
            Vector<String16> args;
            // Stop at the first argument that is not there: a parcel that
            // claims more than it holds must not keep the thread looping.
            String16 arg;
            for (int32_t i = 0; i < argc && data.readString16(&arg) == NO_ERROR; i++) {
                args.add(arg);
            }
            return dump(fd, args);
        }
        case SHELL_COMMAND_TRANSACTION: {
            // No shell commands on this host: consume the arguments and tell
            // the result receiver (if any) that the operation is unsupported.
            data.readFileDescriptor();
            data.readFileDescriptor();
            data.readFileDescriptor();
            const int32_t argc = data.readInt32();
            String16 arg;
            for (int32_t i = 0; i < argc && data.readString16(&arg) == NO_ERROR; i++) {
            }
            data.readStrongBinder();  // shell callback
            const sp<IBinder> resultReceiver = data.readStrongBinder();
            if (resultReceiver != nullptr) {
                Parcel result;
                result.writeInterfaceToken(String16("com.android.internal.os.IResultReceiver"));
                result.writeInt32(INVALID_OPERATION);
                resultReceiver->transact(FIRST_CALL_TRANSACTION, result, nullptr, FLAG_ONEWAY);
            }
            return NO_ERROR;
        }
        case SYSPROPS_TRANSACTION:
            // Properties are re-read on every access on this host: nothing to refresh.
            return NO_ERROR;
        default:
            return UNKNOWN_TRANSACTION;
    }
}

BpRefBase::BpRefBase(const sp<IBinder>& o) : mRemote(o) {}

BpRefBase::~BpRefBase() = default;

IInterface::IInterface() = default;
IInterface::~IInterface() = default;

sp<IBinder> IInterface::asBinder(const IInterface* iface) {
    if (iface == nullptr) {
        return nullptr;
    }
    return const_cast<IInterface*>(iface)->onAsBinder();
}

sp<IBinder> IInterface::asBinder(const sp<IInterface>& iface) {
    if (iface == nullptr) {
        return nullptr;
    }
    return iface->onAsBinder();
}

}  // namespace android
