// A small process publishing the echo service, for the cross-process tests.
// Usage: binder_test_server <service name> [max pool threads [idle ms [partial frame ms]]]
// Prints "ready" on stderr once the service is published.
#include <binder/Binder.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

#include "EchoService.h"
#include "Transport.h"

namespace {

using namespace android;
using namespace vemo::test;

std::atomic<int32_t> sLiveObjects{0};

class EchoService : public BBinder {
  public:
    explicit EchoService(bool counted = false) : mCounted(counted) { sLiveObjects += counted; }
    ~EchoService() override { sLiveObjects -= mCounted; }

    const String16& getInterfaceDescriptor() const override { return mDescriptor; }

  protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        if (code < ECHO || code > LIVE_OBJECTS) {
            return BBinder::onTransact(code, data, reply, flags);
        }
        if (!data.enforceInterface(mDescriptor)) {
            return PERMISSION_DENIED;
        }
        switch (code) {
            case ECHO:
                return reply->appendFrom(&data, data.dataPosition(), data.dataAvail());
            case CALL_ME_LATER: {
                sp<IBinder> callback;
                if (const status_t err = data.readStrongBinder(&callback); err != OK) {
                    return err;
                }
                const int32_t delayMs = data.readInt32();
                const int32_t value = data.readInt32();
                std::thread([callback, delayMs, value] {
                    std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
                    Parcel p;
                    Parcel r;
                    p.writeInt32(value);
                    p.writeString16(String16("later"));
                    const status_t s = callback->transact(1, p, &r);
                    fprintf(stderr, "callback status %d\n", s);
                }).detach();
                return OK;
            }
            case BARRIER: {
                const int32_t parties = data.readInt32();
                const int32_t timeoutMs = data.readInt32();
                return barrier(parties, timeoutMs, reply);
            }
            case BLOCK:
                fprintf(stderr, "blocking\n");
                for (;;) {
                    std::this_thread::sleep_for(std::chrono::hours(1));
                }
            case MAX_CONCURRENT: {
                std::lock_guard<std::mutex> lock(mMutex);
                return reply->writeInt32(mMaxInside);
            }
            case NEW_OBJECT:
                return reply->writeStrongBinder(new EchoService(true));
            case LIVE_OBJECTS:
                return reply->writeInt32(sLiveObjects.load());
            default:
                return UNKNOWN_TRANSACTION;
        }
    }

  private:
    status_t barrier(int32_t parties, int32_t timeoutMs, Parcel* reply) {
        std::unique_lock<std::mutex> lock(mMutex);
        ++mInside;
        ++mArrived;
        mMaxInside = std::max(mMaxInside, mInside);
        mCv.notify_all();
        const bool reached = mCv.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                          [&] { return mArrived >= parties; });
        --mInside;
        return reply->writeInt32(reached ? 1 : 0);
    }

    const bool mCounted;
    const String16 mDescriptor{kEchoDescriptor};
    std::mutex mMutex;  // guards the barrier counters
    std::condition_variable mCv;
    int32_t mInside = 0;
    int32_t mArrived = 0;
    int32_t mMaxInside = 0;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s <service name> [max threads]\n", argv[0]);
        return 2;
    }
    if (argc > 2) {
        ProcessState::self()->setThreadPoolMaxThreadCount(static_cast<size_t>(atoi(argv[2])));
    }
    if (argc > 4) {
        hostbinder::Transport::Limits limits;
        limits.idleMs = atoi(argv[3]);
        limits.partialFrameMs = atoi(argv[4]);
        hostbinder::Transport::instance().setLimits(limits);
    }
    ProcessState::self()->startThreadPool();
    const status_t err = defaultServiceManager()->addService(String16(argv[1]), new EchoService());
    if (err != OK) {
        fprintf(stderr, "addService failed %d\n", err);
        return 1;
    }
    fprintf(stderr, "ready pid=%d\n", static_cast<int>(getpid()));
    IPCThreadState::self()->joinThreadPool();
    return 0;
}
