// Binder objects within one process: the default handling of system codes,
// publishing, reference counting and string conversion.
#include <binder/Binder.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "TempDeviceRoot.h"

namespace {

using namespace android;

TEST(BinderLocal, DumpAndShellCommandsWithLyingCountsReturn) {
    // Argument counts far beyond what the parcel holds, which ends in a
    // fragment too short for a string: both calls must return, not spin.
    sp<BBinder> binder = new BBinder();
    for (const auto& [code, descriptors] :
         {std::pair<uint32_t, int>{IBinder::DUMP_TRANSACTION, 1},
          std::pair<uint32_t, int>{IBinder::SHELL_COMMAND_TRANSACTION, 3}}) {
        Parcel lying;
        Parcel reply;
        for (int i = 0; i < descriptors * 6; ++i) {
            lying.writeInt32(0);  // not a file descriptor object
        }
        lying.writeInt32(0x7fffffff);
        lying.writeInt32(0);
        lying.setDataSize(lying.dataSize() - 2);
        lying.setDataPosition(0);
        EXPECT_EQ(binder->transact(code, lying, &reply), OK) << code;
    }
}

TEST(ServiceManagerLocal, PublishesLocalObjectsUnderValidNames) {
    vemo::test::TempDeviceRoot root;
    const sp<IServiceManager> sm = defaultServiceManager();
    sp<BBinder> object = new BBinder();
    ASSERT_EQ(sm->addService(String16("vemo.test.object"), object), OK);
    // In the publishing process the service is the object itself.
    EXPECT_EQ(sm->checkService(String16("vemo.test.object")).get(),
              static_cast<IBinder*>(object.get()));
    EXPECT_TRUE(root.exists("/dev/socket/binder/services/vemo.test.object"));

    for (const std::string& bad :
         std::vector<std::string>{"", ".", "..", ".hidden", "a/b", std::string(128, 'n')}) {
        EXPECT_EQ(sm->addService(String16(bad.c_str()), object), PERMISSION_DENIED) << bad;
    }
    EXPECT_EQ(sm->addService(String16("vemo.test.null"), nullptr), PERMISSION_DENIED);
    EXPECT_EQ(sm->listServices().size(), 1u);
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
}

}  // namespace
