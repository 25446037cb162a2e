// The transport across real processes: binder_test_server is exec'd on the
// test's own device root and called through the service manager.
#include <binder/BpBinder.h>
#include <binder/ProcessState.h>
#include <dirent.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <future>

#include "BinderTestSupport.h"

namespace {

using namespace std::chrono_literals;
using android::OK;
using android::Parcel;
using android::sp;
using android::String16;
using android::String8;
using vemo::test::EchoServerFixture;
using vemo::test::RecordingCallback;
using namespace vemo::test;

class TransportTest : public EchoServerFixture {};

TEST_F(TransportTest, PublishedServiceIsFoundAndAnswers) {
    startServer();
    ASSERT_NE(service->remoteBinder(), nullptr);
    EXPECT_EQ(service->localBinder(), nullptr);
    EXPECT_EQ(service->pingBinder(), OK);
    EXPECT_EQ(String8(service->getInterfaceDescriptor()), String8(kEchoDescriptor));
    EXPECT_TRUE(service->isBinderAlive());

    auto data = request();
    data->writeString16(String16("hello"));
    data->writeInt32(42);
    data->writeCString("c");
    Parcel reply;
    ASSERT_EQ(call(ECHO, data.get(), &reply), OK);
    EXPECT_EQ(String8(reply.readString16()), String8("hello"));
    EXPECT_EQ(reply.readInt32(), 42);
    EXPECT_STREQ(reply.readCString(), "c");

    const auto names = android::defaultServiceManager()->listServices();
    ASSERT_EQ(names.size(), 1u);
    EXPECT_EQ(String8(names[0]), String8(kName));
    EXPECT_EQ(android::defaultServiceManager()->checkService(String16("absent")), nullptr);
    EXPECT_EQ(android::defaultServiceManager()->checkService(String16("../x")), nullptr);
}

TEST_F(TransportTest, OneWayCallsFromOneThreadArriveInOrder) {
    startServer();
    for (int32_t i = 0; i < 50; ++i) {
        auto data = request();
        data->writeInt32(i);
        ASSERT_EQ(call(RECORD, data.get(), nullptr, android::IBinder::FLAG_ONEWAY), OK);
    }
    auto data = request();
    Parcel reply;
    ASSERT_EQ(call(GET_RECORDS, data.get(), &reply), OK);
    std::vector<int32_t> records;
    ASSERT_EQ(reply.readInt32Vector(&records), OK);
    std::vector<int32_t> expected(50);
    for (int32_t i = 0; i < 50; ++i) {
        expected[i] = i;
    }
    EXPECT_EQ(records, expected);
}

TEST_F(TransportTest, BinderPassedInAParcelIsCalledBackLaterFromAnotherThread) {
    startServer();
    sp<RecordingCallback> callback = new RecordingCallback();
    android::wp<RecordingCallback> weak = callback;
    auto data = request();
    data->writeStrongBinder(callback);
    data->writeInt32(50);
    data->writeInt32(7);
    Parcel reply;
    ASSERT_EQ(call(CALL_ME_LATER, data.get(), &reply), OK);
    data.reset();
    ASSERT_TRUE(callback->waitForCalls(1, 10s));
    const auto calls = callback->snapshot();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].value, 7);
    EXPECT_EQ(calls[0].text, "later");
    EXPECT_EQ(calls[0].callingPid, serverPid);
    EXPECT_NE(calls[0].thread, std::this_thread::get_id());
    ASSERT_TRUE(server->waitForOutput("callback status 0", 10s)) << server->output();

    // Once the server dropped its proxy, only our reference keeps the callback.
    callback.clear();
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (weak.promote() != nullptr && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_EQ(weak.promote(), nullptr);
}

TEST_F(TransportTest, OwnBinderComesBackAsTheLocalObject) {
    startServer();
    sp<android::BBinder> local = new RecordingCallback();
    auto data = request();
    data->writeStrongBinder(local);
    Parcel reply;
    ASSERT_EQ(call(RETURN_BINDER, data.get(), &reply), OK);
    sp<android::IBinder> back;
    ASSERT_EQ(reply.readStrongBinder(&back), OK);
    EXPECT_EQ(back.get(), static_cast<android::IBinder*>(local.get()));

    // And a remote binder passed back and forth stays the same proxy.
    data = request();
    data->writeStrongBinder(service);
    Parcel reply2;
    ASSERT_EQ(call(RETURN_BINDER, data.get(), &reply2), OK);
    EXPECT_EQ(reply2.readStrongBinder().get(), service.get());
}

TEST_F(TransportTest, ServerSeesTheCallersCredentialsAndFlags) {
    startServer();
    auto data = request();
    Parcel reply;
    ASSERT_EQ(call(WHO, data.get(), &reply), OK);
    EXPECT_EQ(reply.readInt32(), static_cast<int32_t>(getpid()));
    EXPECT_EQ(reply.readInt32(), static_cast<int32_t>(getuid()));
    EXPECT_EQ(reply.readInt32(), 0x10);  // TF_ACCEPT_FDS, added to every call as on the device
}

TEST_F(TransportTest, HandlerStatusesReachTheCaller) {
    startServer();
    auto data = request();
    data->writeInt32(android::BAD_VALUE);
    Parcel reply;
    EXPECT_EQ(call(FAIL_WITH, data.get(), &reply), android::BAD_VALUE);
    EXPECT_EQ(reply.dataSize(), 0u);
    data = request();
    data->writeInt32(5);  // positive results are not errors
    EXPECT_EQ(call(FAIL_WITH, data.get(), &reply), OK);
    data = request();
    EXPECT_EQ(call(999, data.get(), &reply), android::UNKNOWN_TRANSACTION);
    Parcel wrongToken;
    wrongToken.writeInterfaceToken(String16("vemo.test.IOther"));
    EXPECT_EQ(call(ECHO, &wrongToken, &reply), android::PERMISSION_DENIED);
}

TEST_F(TransportTest, ConcurrentCallsAreServedByThePoolAtOnce) {
    startServer();
    constexpr int kParties = 6;
    std::vector<std::future<int32_t>> results;
    for (int i = 0; i < kParties; ++i) {
        results.push_back(std::async(std::launch::async, [this] {
            auto data = request();
            data->writeInt32(kParties);
            data->writeInt32(20000);
            Parcel reply;
            return call(BARRIER, data.get(), &reply) == OK ? reply.readInt32() : -1;
        }));
    }
    for (auto& r : results) {
        EXPECT_EQ(r.get(), 1);  // every call was inside at the same time
    }
}

TEST_F(TransportTest, PoolNeverExceedsItsBound) {
    startServer("2");
    std::vector<std::future<void>> calls;
    for (int i = 0; i < 5; ++i) {
        calls.push_back(std::async(std::launch::async, [this] {
            auto data = request();
            data->writeInt32(5);
            data->writeInt32(200);
            Parcel reply;
            EXPECT_EQ(call(BARRIER, data.get(), &reply), OK);
        }));
    }
    for (auto& c : calls) {
        c.get();
    }
    auto data = request();
    Parcel reply;
    ASSERT_EQ(call(MAX_CONCURRENT, data.get(), &reply), OK);
    const int32_t maxInside = reply.readInt32();
    EXPECT_GE(maxInside, 2);
    EXPECT_LE(maxInside, 3);  // two pool threads plus the main thread that joined
}

class DeathRecorder : public android::IBinder::DeathRecipient {
  public:
    void binderDied(const android::wp<android::IBinder>& who) override {
        std::lock_guard<std::mutex> lock(mutex);
        died = who.unsafe_get();
        cv.notify_all();
    }
    bool waitDied(std::chrono::milliseconds bound) {
        std::unique_lock<std::mutex> lock(mutex);
        return cv.wait_for(lock, bound, [&] { return died != nullptr; });
    }
    std::mutex mutex;  // guards died
    std::condition_variable cv;
    android::IBinder* died = nullptr;
};

TEST_F(TransportTest, PeerThatDiedGivesDeadObjectAndAnObituary) {
    startServer();
    sp<DeathRecorder> recorder = new DeathRecorder();
    ASSERT_EQ(service->linkToDeath(recorder), OK);
    auto data = request();
    ASSERT_EQ(call(EXIT, data.get(), nullptr, android::IBinder::FLAG_ONEWAY), OK);
    EXPECT_EQ(server->waitForExit(10s), 3);
    EXPECT_TRUE(recorder->waitDied(10s));
    EXPECT_EQ(recorder->died, service.get());

    data = request();
    Parcel reply;
    EXPECT_EQ(call(ECHO, data.get(), &reply), android::DEAD_OBJECT);
    EXPECT_FALSE(service->isBinderAlive());
    EXPECT_EQ(service->pingBinder(), android::DEAD_OBJECT);
    EXPECT_EQ(service->linkToDeath(recorder), android::DEAD_OBJECT);
    EXPECT_EQ(android::defaultServiceManager()->checkService(String16(kName)), nullptr);
    EXPECT_EQ(android::defaultServiceManager()->listServices().size(), 0u);
}

TEST_F(TransportTest, PeerDyingMidCallEndsTheCallWithDeadObject) {
    startServer();
    auto pending = std::async(std::launch::async, [this] {
        auto data = request();
        Parcel reply;
        return call(BLOCK, data.get(), &reply);
    });
    ASSERT_TRUE(server->waitForOutput("blocking", 10s));
    server->signal(SIGKILL);
    ASSERT_EQ(pending.wait_for(10s), std::future_status::ready);
    EXPECT_EQ(pending.get(), android::DEAD_OBJECT);
}

TEST_F(TransportTest, ParcelsThatCannotTravelAreRefusedAndTheServiceStaysUsable) {
    startServer();
    auto big = request();
    std::vector<uint8_t> payload(Parcel::kMaxSize, 0xab);
    big->writeByteVector(payload);
    Parcel reply;
    EXPECT_EQ(call(ECHO, big.get(), &reply), android::FAILED_TRANSACTION);

    auto withFd = request();
    withFd->writeFileDescriptor(STDERR_FILENO);
    EXPECT_EQ(call(ECHO, withFd.get(), &reply), android::FDS_NOT_ALLOWED);

    auto data = request();
    data->writeInt32(1);
    EXPECT_EQ(call(ECHO, data.get(), &reply), OK);
    EXPECT_EQ(reply.readInt32(), 1);
}

TEST_F(TransportTest, GetServiceWaitsForALateService) {
    auto lookup = std::async(std::launch::async, [] {
        return android::defaultServiceManager()->getService(String16("vemo.test.echo"));
    });
    startServer();
    ASSERT_EQ(lookup.wait_for(10s), std::future_status::ready);
    EXPECT_NE(lookup.get(), nullptr);
}

size_t openFds() {
    size_t n = 0;
    DIR* const d = opendir("/proc/self/fd");
    while (d != nullptr && readdir(d) != nullptr) {
        ++n;
    }
    if (d != nullptr) {
        closedir(d);
    }
    return n;
}

TEST_F(TransportTest, ConnectionsToAProcessCloseWithTheLastProxy) {
    const size_t before = openFds();
    startServer();
    std::vector<std::future<android::status_t>> calls;
    for (int i = 0; i < 3; ++i) {
        calls.push_back(std::async(std::launch::async, [this] {
            auto data = request();
            data->writeInt32(3);
            data->writeInt32(5000);
            Parcel reply;
            return call(BARRIER, data.get(), &reply);
        }));
    }
    for (auto& c : calls) {
        EXPECT_EQ(c.get(), OK);
    }
    EXPECT_GE(openFds(), before + 4);  // the child's stderr pipe and three connections
    service.clear();
    EXPECT_EQ(openFds(), before + 1);
}

}  // namespace
