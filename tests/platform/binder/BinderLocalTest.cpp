// Binder objects within one process: BBinder's system codes, the interface
// macros, and reference counting.
#include <binder/Binder.h>
#include <binder/IInterface.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/Status.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "TempDeviceRoot.h"

namespace {

using namespace android;
using binder::Status;

class ICounter : public IInterface {
  public:
    DECLARE_META_INTERFACE(Counter)
    virtual Status add(int32_t delta, int32_t* total) = 0;
};

class BpCounter : public BpInterface<ICounter> {
  public:
    explicit BpCounter(const sp<IBinder>& impl) : BpInterface<ICounter>(impl) {}
    Status add(int32_t delta, int32_t* total) override {
        Parcel data;
        Parcel reply;
        data.writeInterfaceToken(ICounter::getInterfaceDescriptor());
        data.writeInt32(delta);
        const status_t err = remote()->transact(IBinder::FIRST_CALL_TRANSACTION, data, &reply);
        if (err != OK) {
            return Status::fromStatusT(err);
        }
        Status status;
        if (status.readFromParcel(reply) != OK || !status.isOk()) {
            return status;
        }
        return Status::fromStatusT(reply.readInt32(total));
    }
};

IMPLEMENT_META_INTERFACE(Counter, "vemo.test.ICounter")

class Counter : public BnInterface<ICounter> {
  public:
    Status add(int32_t delta, int32_t* total) override {
        if (delta < 0) {
            return Status::fromServiceSpecificError(7, "negative");
        }
        *total = (mTotal += delta);
        return Status::ok();
    }

  protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        if (code != FIRST_CALL_TRANSACTION) {
            return BBinder::onTransact(code, data, reply, flags);
        }
        CHECK_INTERFACE(ICounter, data, reply);
        int32_t total = 0;
        const Status s = add(data.readInt32(), &total);
        status_t err = s.writeToParcel(reply);
        if (err == OK && s.isOk()) {
            err = reply->writeInt32(total);
        }
        return err;
    }

  private:
    std::atomic<int32_t> mTotal{0};
};

TEST(BinderLocal, AsInterfaceGivesTheLocalObjectAndAProxyCallsThroughTransact) {
    sp<Counter> counter = new Counter();
    sp<IBinder> binder = IInterface::asBinder(counter);
    EXPECT_EQ(ICounter::asInterface(binder).get(), static_cast<ICounter*>(counter.get()));
    EXPECT_EQ(ICounter::asInterface(nullptr), nullptr);
    EXPECT_EQ(String8(binder->getInterfaceDescriptor()), String8("vemo.test.ICounter"));

    // A BpCounter over the local binder goes through transact and the parcels.
    sp<ICounter> proxy = new BpCounter(binder);
    int32_t total = 0;
    EXPECT_TRUE(proxy->add(5, &total).isOk());
    EXPECT_TRUE(proxy->add(2, &total).isOk());
    EXPECT_EQ(total, 7);
    const Status refused = proxy->add(-1, &total);
    EXPECT_EQ(refused.serviceSpecificErrorCode(), 7);
    EXPECT_STREQ(refused.toString8().string(), "Status(-8): '7: negative'");
}

TEST(BinderLocal, SystemTransactionsAndUnknownCodes) {
    sp<Counter> counter = new Counter();
    Parcel data;
    Parcel reply;
    EXPECT_EQ(counter->transact(IBinder::PING_TRANSACTION, data, &reply), OK);
    EXPECT_EQ(reply.readInt32(), 0);
    reply.freeData();
    EXPECT_EQ(counter->transact(IBinder::INTERFACE_TRANSACTION, data, &reply), OK);
    EXPECT_EQ(String8(reply.readString16()), String8("vemo.test.ICounter"));
    EXPECT_EQ(counter->transact(0x1234, data, &reply), UNKNOWN_TRANSACTION);
    EXPECT_EQ(counter->transact(IBinder::SYSPROPS_TRANSACTION, data, &reply), OK);
    EXPECT_EQ(counter->transact(IBinder::DUMP_TRANSACTION, data, &reply), OK);
    // Argument counts far beyond what the parcel holds, which ends in a
    // fragment too short for a string: both calls must return, not spin.
    for (const auto& [code, descriptors] :
         {std::pair<uint32_t, int>{IBinder::DUMP_TRANSACTION, 1},
          std::pair<uint32_t, int>{IBinder::SHELL_COMMAND_TRANSACTION, 3}}) {
        Parcel lying;
        for (int i = 0; i < descriptors * 6; ++i) {
            lying.writeInt32(0);  // not a file descriptor object
        }
        lying.writeInt32(0x7fffffff);
        lying.writeInt32(0);
        lying.setDataSize(lying.dataSize() - 2);
        lying.setDataPosition(0);
        EXPECT_EQ(counter->transact(code, lying, &reply), OK) << code;
    }
    Parcel wrongToken;
    wrongToken.writeInterfaceToken(String16("vemo.test.IOther"));
    EXPECT_EQ(counter->transact(IBinder::FIRST_CALL_TRANSACTION, wrongToken, &reply),
              PERMISSION_DENIED);

    sp<BBinder> plain = new BBinder();
    reply.freeData();
    EXPECT_EQ(plain->transact(IBinder::INTERFACE_TRANSACTION, data, &reply), OK);
    EXPECT_EQ(reply.readString16().size(), 0u);
    EXPECT_EQ(plain->linkToDeath(nullptr), INVALID_OPERATION);
    EXPECT_TRUE(plain->isBinderAlive());
}

TEST(ServiceManagerLocal, PublishesLocalObjectsUnderValidNames) {
    vemo::test::TempDeviceRoot root;
    const sp<IServiceManager> sm = defaultServiceManager();
    sp<Counter> counter = new Counter();
    ASSERT_EQ(sm->addService(String16("vemo.test.counter"), counter), OK);
    // In the publishing process the service is the object itself.
    EXPECT_EQ(sm->checkService(String16("vemo.test.counter")).get(),
              static_cast<IBinder*>(counter.get()));
    sp<ICounter> iface;
    EXPECT_EQ(getService(String16("vemo.test.counter"), &iface), OK);
    EXPECT_EQ(iface.get(), static_cast<ICounter*>(counter.get()));

    for (const std::string& bad :
         std::vector<std::string>{"", ".", "..", ".hidden", "a/b", std::string(128, 'n')}) {
        EXPECT_EQ(sm->addService(String16(bad.c_str()), counter), PERMISSION_DENIED) << bad;
    }
    EXPECT_EQ(sm->addService(String16("vemo.test.null"), nullptr), PERMISSION_DENIED);

    // Dump priorities select what is listed.
    ASSERT_EQ(sm->addService(String16("vemo.test.critical"), new Counter(), false,
                             IServiceManager::DUMP_FLAG_PRIORITY_CRITICAL),
              OK);
    const auto all = sm->listServices();
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(String8(all[0]), String8("vemo.test.counter"));
    EXPECT_EQ(String8(all[1]), String8("vemo.test.critical"));
    const auto critical = sm->listServices(IServiceManager::DUMP_FLAG_PRIORITY_CRITICAL);
    ASSERT_EQ(critical.size(), 1u);
    EXPECT_EQ(String8(critical[0]), String8("vemo.test.critical"));
    EXPECT_TRUE(root.exists("/dev/socket/binder/services/vemo.test.counter"));
}

class Tracked : public RefBase {
  public:
    explicit Tracked(std::atomic<int>* events) : mEvents(events) {}
    ~Tracked() override { *mEvents += 100; }

  protected:
    void onFirstRef() override { *mEvents += 1; }
    void onLastStrongRef(const void*) override { *mEvents += 10; }

  private:
    std::atomic<int>* mEvents;
};

TEST(BinderRefBase, ConcurrentCopiesAndPromotionsDeleteExactlyOnce) {
    for (int round = 0; round < 20; ++round) {
        std::atomic<int> events{0};
        sp<Tracked> strong = new Tracked(&events);
        wp<Tracked> weak = strong;
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&weak] {
                for (int i = 0; i < 200; ++i) {
                    sp<Tracked> s = weak.promote();
                    sp<Tracked> copy = s;
                }
            });
        }
        strong.clear();
        for (auto& t : threads) {
            t.join();
        }
        EXPECT_EQ(weak.promote(), nullptr);
        EXPECT_EQ(events.load(), 111) << round;  // onFirstRef, onLastStrongRef, deletion: once each
    }
}

TEST(BinderStrings, Utf8AndUtf16ConvertAsOnTheDevice) {
    const String16 s("a\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80");
    EXPECT_EQ(s.size(), 5u);  // a, e-acute, euro, surrogate pair
    EXPECT_EQ(String8(s), String8("a\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80"));
    const char* invalid[] = {"\xff", "\xc3", "a\xe2\x82", "\xc0\x80", "\xed\xa0\x80"};
    for (const char* bad : invalid) {
        EXPECT_EQ(String16(bad).size(), 0u) << bad;
    }
    const char16_t lone[] = {u'a', 0xd800, 0};
    EXPECT_EQ(String8(lone).size(), 0u);
    EXPECT_EQ(String8::format("%s:%d", "x", 5), String8("x:5"));
    EXPECT_TRUE(String16("vemo.ipc.IFlgrService") == String16(u"vemo.ipc.IFlgrService"));
    EXPECT_FALSE(String16("a") == String16("a\0b", 3));
}

}  // namespace
