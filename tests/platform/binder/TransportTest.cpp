// The transport across real processes: binder_test_server is exec'd on the
// test's own device root and called through the service manager.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <future>

#include "BinderTestSupport.h"
#include "Transport.h"
#include "platform/DeviceRoot.h"

namespace {

using namespace std::chrono_literals;
using namespace android;
using namespace vemo::test;

size_t openFds() {
    return static_cast<size_t>(
        std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

class TransportTest : public EchoServerFixture {
  protected:
    // BARRIER from `n` threads at once; what each call answered (1: all parties met).
    std::vector<int32_t> barrierFromThreads(int n, int32_t parties, int32_t timeoutMs) {
        std::vector<std::future<int32_t>> calls;
        for (int i = 0; i < n; ++i) {
            calls.push_back(std::async(std::launch::async, [=] {
                return ask(BARRIER, {parties, timeoutMs});
            }));
        }
        std::vector<int32_t> answers;
        for (auto& c : calls) {
            answers.push_back(c.get());
        }
        return answers;
    }
};

// A registry entry is followed only when this user wrote it, no one else can
// change it or its directory, and it names a socket of this user lying in
// the binder directory itself.
TEST_F(TransportTest, TamperedRegistryEntriesReadAsAbsent) {
    startServer();
    TempDeviceRoot otherRoot;  // a serving process outside our binder directory
    vemo::platform::setDeviceRoot(root.root());
    ChildProcess other(BINDER_TEST_SERVER, {"o"}, {{"VEMO_DEVICE_ROOT", otherRoot.root()}});
    ASSERT_TRUE(other.waitForOutput("ready pid=", 20s)) << other.output();
    const std::string foreign = registryLine(otherRoot.path("/dev/socket/binder/services/o"), 1);
    const std::string entry = root.path("/dev/socket/binder/services/") + kName;
    const std::string ours = registryLine(entry, 1);
    const std::string binderDir = root.path("/dev/socket/binder");
    ASSERT_EQ(symlink(foreign.c_str(), (binderDir + "/link").c_str()), 0);
    const auto writeEntry = [&](const std::string& socket) {
        unlink(entry.c_str());
        std::ofstream(entry) << "binder-service 1\n" << socket << "\n1\n8\n";
        chmod(entry.c_str(), 0644);
    };
    const std::function<void()> tampering[] = {
        [&] { writeEntry(foreign); },
        [&] { writeEntry(binderDir + "/link"); },
        [&] { chmod(entry.c_str(), 0666); },
        [&] {
            rename(entry.c_str(), (binderDir + "/moved").c_str());
            symlink((binderDir + "/moved").c_str(), entry.c_str());
        },
        [&] { chmod(ours.c_str(), 0666); },
    };
    EXPECT_EQ(defaultServiceManager()->checkService(String16("absent")), nullptr);
    EXPECT_EQ(defaultServiceManager()->checkService(String16("../x")), nullptr);
    for (size_t i = 0; i < std::size(tampering); ++i) {
        tampering[i]();
        EXPECT_EQ(defaultServiceManager()->checkService(String16(kName)), nullptr) << i;
        writeEntry(ours);
        chmod(ours.c_str(), 0600);
        EXPECT_NE(defaultServiceManager()->checkService(String16(kName)), nullptr) << i;
    }
}

// Binders sent back are the same objects: our own as the local object, a
// proxy as the same proxy. Handles never wrap: a proxy numbered past 32 bits
// is itself, and comes back as itself.
TEST_F(TransportTest, BindersSentBackAreTheSameObjectsPastThirtyTwoBitHandles) {
    hostbinder::Transport::instance().setNextHandle((int64_t{1} << 32) - 1);
    startServer();
    Parcel made;
    ASSERT_EQ(call(NEW_OBJECT, {}, &made), OK);
    const sp<IBinder> local = new BBinder();
    for (const sp<IBinder>& object : {local, service, made.readStrongBinder()}) {
        const sp<IBinder> to = object == local ? service : object;  // a BBinder does not echo
        Parcel reply;
        ASSERT_EQ(callEcho(
                      to, ECHO, [&](Parcel* p) { p->writeStrongBinder(object); }, &reply),
                  OK);
        EXPECT_EQ(reply.readStrongBinder(), object);
    }
}

TEST_F(TransportTest, ConcurrentCallsAreServedAtOnceAndTheirConnectionsCloseWithTheLastProxy) {
    const size_t before = openFds();
    startServer();
    EXPECT_EQ(barrierFromThreads(6, 6, 20000), std::vector<int32_t>(6, 1));
    EXPECT_GE(openFds(), before + 7);  // the child's stderr pipe and six connections
    service.clear();
    EXPECT_EQ(openFds(), before + 1);
}

TEST_F(TransportTest, PoolNeverExceedsItsBound) {
    startServer({"2"});
    for (const int32_t answer : barrierFromThreads(5, 5, 200)) {
        EXPECT_NE(answer, INT32_MIN);
    }
    const int32_t maxInside = ask(MAX_CONCURRENT);
    EXPECT_GE(maxInside, 2);
    EXPECT_LE(maxInside, 3);  // two pool threads plus the main thread that joined
}

// A two-way call whose peer never answers ends after the call timeout; the
// proxy and the service stay usable. A peer dying mid-call ends that call,
// and afterwards its proxy and its registry entry are dead.
TEST_F(TransportTest, CallsToAPeerThatHangsTimeOutAndToOneThatDiesEndWithDeadObject) {
    startServer();
    hostbinder::Transport::Limits limits;
    limits.callMs = 300;
    hostbinder::Transport::instance().setLimits(limits);
    auto pending = std::async(std::launch::async, [this] { return call(BLOCK); });
    if (pending.wait_for(10s) != std::future_status::ready) {
        server->signal(SIGKILL);  // ends the call (DEAD_OBJECT) and the test
    }
    EXPECT_EQ(pending.get(), TIMED_OUT);
    hostbinder::Transport::instance().setLimits(hostbinder::Transport::Limits());
    EXPECT_EQ(ask(ECHO, {3}), 3);

    pending = std::async(std::launch::async, [this] { return call(BLOCK); });
    ASSERT_TRUE(server->waitForOutput("blocking\nblocking\n", 10s));
    server->signal(SIGKILL);
    ASSERT_EQ(pending.wait_for(10s), std::future_status::ready);
    EXPECT_EQ(pending.get(), DEAD_OBJECT);
    EXPECT_EQ(server->waitForExit(10s), 128 + SIGKILL);
    EXPECT_EQ(call(ECHO), DEAD_OBJECT);
    EXPECT_EQ(service->pingBinder(), DEAD_OBJECT);
    EXPECT_EQ(defaultServiceManager()->checkService(String16(kName)), nullptr);
    EXPECT_EQ(defaultServiceManager()->listServices().size(), 0u);
}

TEST_F(TransportTest, ParcelTooLargeToTravelIsRefusedAndTheServiceStaysUsable) {
    startServer();
    const std::vector<uint8_t> payload(Parcel::kMaxSize, 0xab);
    EXPECT_EQ(callEcho(service, ECHO, [&](Parcel* p) { p->writeByteVector(payload); }),
              FAILED_TRANSACTION);
    EXPECT_EQ(ask(ECHO, {1}), 1);
}

}  // namespace
