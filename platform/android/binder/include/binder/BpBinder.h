#pragma once
// BpBinder: a proxy for a binder object that lives in another process. It is
// created by the transport when a parcel brings a reference to a remote
// object (readStrongBinder) or by the service manager (getService), never by
// hand. handle() is a process-local number naming the remote object, as on
// the device; on this host it is 64 bits wide and never reused, so it cannot
// wrap onto another proxy's number. Once a call finds the hosting process gone, the proxy is dead
// for good: every transact() returns DEAD_OBJECT and death recipients are
// told once. Thread-safe.

#include <atomic>
#include <mutex>
#include <vector>

#include <binder/IBinder.h>

namespace android {

namespace hostbinder {
class Transport;
}

class BpBinder : public IBinder {
  public:
    inline int64_t handle() const { return mHandle; }

    const String16& getInterfaceDescriptor() const override;
    bool isBinderAlive() const override;
    status_t pingBinder() override;
    status_t dump(int fd, const Vector<String16>& args) override;

    status_t transact(uint32_t code, const Parcel& data, Parcel* reply,
                      uint32_t flags = 0) override;

    status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                         uint32_t flags = 0) override;
    status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                           uint32_t flags = 0, wp<DeathRecipient>* outRecipient = nullptr) override;

    BpBinder* remoteBinder() override;

    // Marks the proxy dead and tells its death recipients (once).
    void sendObituary();

  protected:
    ~BpBinder() override;
    void onLastStrongRef(const void* id) override;

  private:
    friend class hostbinder::Transport;
    explicit BpBinder(int64_t handle);

    struct Obituary {
        wp<DeathRecipient> recipient;
        void* cookie;
        uint32_t flags;
    };

    const int64_t mHandle;
    std::atomic<bool> mAlive;
    mutable std::mutex mLock;  // guards mDescriptorCache, mObituaries, mObitsSent
    mutable String16 mDescriptorCache;
    mutable bool mDescriptorCached;
    std::vector<Obituary> mObituaries;
    bool mObitsSent;
};

}  // namespace android
