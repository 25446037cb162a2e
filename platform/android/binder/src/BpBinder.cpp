#include <binder/BpBinder.h>

#include <binder/Parcel.h>

#include "Transport.h"

namespace android {

BpBinder::BpBinder(int64_t handle)
    : mHandle(handle), mAlive(true), mDescriptorCached(false), mObitsSent(false) {}

BpBinder::~BpBinder() = default;

void BpBinder::onLastStrongRef(const void* /*id*/) {
    hostbinder::Transport::instance().proxyDestroyed(mHandle);
}

const String16& BpBinder::getInterfaceDescriptor() const {
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mDescriptorCached) {
            return mDescriptorCache;
        }
    }
    Parcel send;
    Parcel reply;
    const status_t err = const_cast<BpBinder*>(this)->transact(INTERFACE_TRANSACTION, send, &reply);
    std::lock_guard<std::mutex> lock(mLock);
    if (err == NO_ERROR && !mDescriptorCached) {
        String16 res;
        if (reply.readString16(&res) == NO_ERROR) {
            mDescriptorCache = res;
            mDescriptorCached = true;
        }
    }
    if (mDescriptorCached) {
        return mDescriptorCache;  // never changes once set
    }
    // On failure the next call asks again.
    static const String16 sEmpty;
    return sEmpty;
}

bool BpBinder::isBinderAlive() const {
    return mAlive.load();
}

status_t BpBinder::pingBinder() {
    Parcel send;
    Parcel reply;
    const status_t err = transact(PING_TRANSACTION, send, &reply);
    if (err != NO_ERROR) {
        return err;
    }
    if (reply.dataSize() < sizeof(status_t)) {
        return NOT_ENOUGH_DATA;
    }
    return static_cast<status_t>(reply.readInt32());
}

status_t BpBinder::dump(int fd, const Vector<String16>& args) {
    Parcel send;
    Parcel reply;
    send.writeFileDescriptor(fd);
    send.writeInt32(static_cast<int32_t>(args.size()));
    for (size_t i = 0; i < args.size(); i++) {
        send.writeString16(args[i]);
    }
    // A parcel with a descriptor cannot leave the process on this host.
    return transact(DUMP_TRANSACTION, send, &reply);
}

status_t BpBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    if (!mAlive.load()) {
        return DEAD_OBJECT;
    }
    return hostbinder::Transport::instance().transact(mHandle, code, data, reply, flags);
}

status_t BpBinder::linkToDeath(const sp<DeathRecipient>& recipient, void* cookie, uint32_t flags) {
    if (recipient == nullptr) {
        return BAD_VALUE;
    }
    const status_t err = hostbinder::Transport::instance().watchDeath(mHandle);
    if (err != OK) {
        return err;
    }
    std::lock_guard<std::mutex> lock(mLock);
    if (mObitsSent) {
        return DEAD_OBJECT;
    }
    mObituaries.push_back(Obituary{recipient, cookie, flags});
    return NO_ERROR;
}

status_t BpBinder::unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie, uint32_t flags,
                                 wp<DeathRecipient>* outRecipient) {
    std::lock_guard<std::mutex> lock(mLock);
    if (mObitsSent) {
        return DEAD_OBJECT;
    }
    for (auto it = mObituaries.begin(); it != mObituaries.end(); ++it) {
        if ((it->recipient == recipient || (recipient == nullptr && it->cookie == cookie)) &&
            it->flags == flags) {
            if (outRecipient != nullptr) {
                *outRecipient = it->recipient;
            }
            mObituaries.erase(it);
            return NO_ERROR;
        }
    }
    return NAME_NOT_FOUND;
}

BpBinder* BpBinder::remoteBinder() {
    return this;
}

void BpBinder::sendObituary() {
    mAlive.store(false);
    std::vector<Obituary> obits;
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mObitsSent) {
            return;
        }
        mObitsSent = true;
        obits.swap(mObituaries);
    }
    const wp<IBinder> self(this);
    for (const auto& obit : obits) {
        const sp<DeathRecipient> recipient = obit.recipient.promote();
        if (recipient != nullptr) {
            recipient->binderDied(self);
        }
    }
}

}  // namespace android
