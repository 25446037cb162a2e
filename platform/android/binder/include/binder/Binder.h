#pragma once
// BBinder: a binder object implemented in this process. transact() rewinds
// the data parcel, answers PING_TRANSACTION itself and hands every other code
// to onTransact(), whose default handles the system codes (INTERFACE, DUMP,
// SHELL_COMMAND, SYSPROPS) and returns UNKNOWN_TRANSACTION otherwise.
// onTransact() runs on whichever thread made the call: the caller's own for an
// in-process call, a pool thread for a call from another process, possibly
// several at once; subclasses provide their own locking.
//
// BpRefBase: base of interface proxies (BpInterface), holding the remote
// IBinder. Host simplification: it keeps a plain strong reference to it.

#include <atomic>

#include <binder/IBinder.h>

namespace android {

class BBinder : public IBinder {
  public:
    BBinder();

    const String16& getInterfaceDescriptor() const override;
    bool isBinderAlive() const override;
    status_t pingBinder() override;
    status_t dump(int fd, const Vector<String16>& args) override;

    status_t transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags = 0) final;

    status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                         uint32_t flags = 0) override;
    status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                           uint32_t flags = 0, wp<DeathRecipient>* outRecipient = nullptr) override;

    BBinder* localBinder() override;

  protected:
    ~BBinder() override;

    virtual status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                uint32_t flags = 0);

  private:
    BBinder(const BBinder& o);
    BBinder& operator=(const BBinder& o);
};

class BpRefBase : public virtual RefBase {
  protected:
    explicit BpRefBase(const sp<IBinder>& o);
    ~BpRefBase() override;

    inline IBinder* remote() { return mRemote.get(); }
    inline IBinder* remote() const { return mRemote.get(); }

  private:
    BpRefBase(const BpRefBase& o);
    BpRefBase& operator=(const BpRefBase& o);

    const sp<IBinder> mRemote;
};

}  // namespace android
