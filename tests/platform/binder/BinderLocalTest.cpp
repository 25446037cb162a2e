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

#include "BinderTestSupport.h"

namespace {

using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;
using android::wp;
using android::binder::Status;

class ICounter : public android::IInterface {
  public:
    DECLARE_META_INTERFACE(Counter)
    virtual Status add(int32_t delta, int32_t* total) = 0;
};

class BpCounter : public android::BpInterface<ICounter> {
  public:
    explicit BpCounter(const sp<android::IBinder>& impl) : BpInterface<ICounter>(impl) {}
    Status add(int32_t delta, int32_t* total) override {
        Parcel data;
        Parcel reply;
        data.writeInterfaceToken(ICounter::getInterfaceDescriptor());
        data.writeInt32(delta);
        const status_t err =
            remote()->transact(android::IBinder::FIRST_CALL_TRANSACTION, data, &reply);
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

class Counter : public android::BnInterface<ICounter> {
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
    sp<android::IBinder> binder = android::IInterface::asBinder(counter);
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
    EXPECT_EQ(counter->transact(android::IBinder::PING_TRANSACTION, data, &reply), OK);
    EXPECT_EQ(reply.readInt32(), 0);
    reply.freeData();
    EXPECT_EQ(counter->transact(android::IBinder::INTERFACE_TRANSACTION, data, &reply), OK);
    EXPECT_EQ(String8(reply.readString16()), String8("vemo.test.ICounter"));
    reply.freeData();
    EXPECT_EQ(counter->transact(0x1234, data, &reply), android::UNKNOWN_TRANSACTION);
    EXPECT_EQ(counter->transact(android::IBinder::SYSPROPS_TRANSACTION, data, &reply), OK);
    EXPECT_EQ(counter->transact(android::IBinder::DUMP_TRANSACTION, data, &reply), OK);
    // Argument counts far beyond what the parcel holds, which ends in a
    // fragment too short for a string: both calls must return, not spin.
    for (const auto& [code, descriptors] :
         {std::pair<uint32_t, int>{android::IBinder::DUMP_TRANSACTION, 1},
          std::pair<uint32_t, int>{android::IBinder::SHELL_COMMAND_TRANSACTION, 3}}) {
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
    EXPECT_EQ(counter->transact(android::IBinder::FIRST_CALL_TRANSACTION, wrongToken, &reply),
              android::PERMISSION_DENIED);

    sp<android::BBinder> plain = new android::BBinder();
    reply.freeData();
    EXPECT_EQ(plain->transact(android::IBinder::INTERFACE_TRANSACTION, data, &reply), OK);
    EXPECT_EQ(reply.readString16().size(), 0u);
    EXPECT_EQ(plain->linkToDeath(nullptr), android::INVALID_OPERATION);
    EXPECT_TRUE(plain->isBinderAlive());
}

TEST(ServiceManagerLocal, PublishesLocalObjectsUnderValidNames) {
    vemo::test::TempDeviceRoot root;
    const sp<android::IServiceManager> sm = android::defaultServiceManager();
    sp<Counter> counter = new Counter();
    ASSERT_EQ(sm->addService(String16("vemo.test.counter"), counter), OK);
    // In the publishing process the service is the object itself.
    EXPECT_EQ(sm->checkService(String16("vemo.test.counter")).get(),
              static_cast<android::IBinder*>(counter.get()));
    sp<ICounter> iface;
    EXPECT_EQ(android::getService(String16("vemo.test.counter"), &iface), OK);
    EXPECT_EQ(iface.get(), static_cast<ICounter*>(counter.get()));

    const char* badNames[] = {"",
                              ".",
                              "..",
                              ".hidden",
                              "a/b",
                              "0123456789012345678901234567890123456789012345678901234567890123"
                              "0123456789012345678901234567890123456789012345678901234567890123"};
    for (const char* bad : badNames) {
        EXPECT_EQ(sm->addService(String16(bad), counter), android::PERMISSION_DENIED) << bad;
    }
    EXPECT_EQ(sm->addService(String16("vemo.test.null"), nullptr), android::PERMISSION_DENIED);

    // Dump priorities select what is listed.
    ASSERT_EQ(sm->addService(String16("vemo.test.critical"), new Counter(), false,
                             android::IServiceManager::DUMP_FLAG_PRIORITY_CRITICAL),
              OK);
    const auto all = sm->listServices();
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(String8(all[0]), String8("vemo.test.counter"));
    EXPECT_EQ(String8(all[1]), String8("vemo.test.critical"));
    const auto critical = sm->listServices(android::IServiceManager::DUMP_FLAG_PRIORITY_CRITICAL);
    ASSERT_EQ(critical.size(), 1u);
    EXPECT_EQ(String8(critical[0]), String8("vemo.test.critical"));
    EXPECT_TRUE(root.exists("/dev/socket/binder/services/vemo.test.counter"));
}

class Tracked : public android::RefBase {
  public:
    explicit Tracked(std::atomic<int>* events) : mEvents(events) {}
    ~Tracked() override { *mEvents += 100; }

  protected:
    void onFirstRef() override { *mEvents += 1; }
    void onLastStrongRef(const void*) override { *mEvents += 10; }

  private:
    std::atomic<int>* mEvents;
};

TEST(RefBaseTest, LifecycleAndWeakPromotion) {
    std::atomic<int> events{0};
    wp<Tracked> weak;
    {
        sp<Tracked> strong = new Tracked(&events);
        EXPECT_EQ(events.load(), 1);
        weak = strong;
        sp<Tracked> again = weak.promote();
        EXPECT_EQ(again.get(), strong.get());
        EXPECT_EQ(strong->getStrongCount(), 2);
    }
    EXPECT_EQ(events.load(), 111);
    EXPECT_EQ(weak.promote(), nullptr);

    // Only ever weakly held: deleted with its last weak reference.
    std::atomic<int> weakOnly{0};
    {
        wp<Tracked> w(new Tracked(&weakOnly));
        EXPECT_EQ(weakOnly.load(), 0);
    }
    EXPECT_EQ(weakOnly.load(), 100);
}

TEST(RefBaseTest, ConcurrentCopiesAndPromotionsDeleteExactlyOnce) {
    for (int round = 0; round < 20; ++round) {
        std::atomic<int> events{0};
        sp<Tracked> strong = new Tracked(&events);
        wp<Tracked> weak = strong;
        std::vector<std::thread> threads;
        std::atomic<int> promoted{0};
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&weak, &promoted] {
                for (int i = 0; i < 200; ++i) {
                    sp<Tracked> s = weak.promote();
                    if (s != nullptr) {
                        ++promoted;
                        sp<Tracked> copy = s;
                    }
                }
            });
        }
        strong.clear();
        for (auto& t : threads) {
            t.join();
        }
        EXPECT_EQ(weak.promote(), nullptr);
        EXPECT_EQ(events.load(), 111) << round;
    }
}

TEST(StringsTest, Utf8AndUtf16ConvertAsOnTheDevice) {
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
