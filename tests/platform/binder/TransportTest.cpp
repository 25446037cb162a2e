// The transport across real processes: binder_test_server is exec'd on the
// test's own device root and called through the service manager.
#include <binder/IPCThreadState.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <future>

#include "BinderTestSupport.h"
#include "Transport.h"
#include "WireFormat.h"
#include "platform/DeviceRoot.h"

namespace {

using namespace std::chrono_literals;
using namespace android;
using namespace vemo::test;

// True once `done` holds, polled for up to 10 s.
bool eventually(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(10ms);
    }
    return true;
}

size_t openFds() {
    return static_cast<size_t>(
        std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

// A local binder whose code 1 (int32, String16) is recorded.
class Callback : public BBinder {
  public:
    struct Call {
        int32_t value;
        std::string text;
        pid_t callingPid;
        std::thread::id thread;
    };
    std::promise<Call> called;

  protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        if (code != 1) {
            return BBinder::onTransact(code, data, reply, flags);
        }
        called.set_value(Call{data.readInt32(), String8(data.readString16()).string(),
                              IPCThreadState::self()->getCallingPid(), std::this_thread::get_id()});
        return OK;
    }
};

// CALL_ME_LATER to `to`: after `delayMs` it calls `callback` with `value`.
status_t callMeLater(const sp<IBinder>& to, const sp<IBinder>& callback, int32_t delayMs,
                     int32_t value) {
    return callEcho(to, CALL_ME_LATER, [&](Parcel* p) {
        p->writeStrongBinder(callback);
        p->writeInt32(delayMs);
        p->writeInt32(value);
    });
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

TEST_F(TransportTest, PublishedServiceIsFoundAndAnswers) {
    startServer();
    ASSERT_NE(service->remoteBinder(), nullptr);
    EXPECT_EQ(service->localBinder(), nullptr);
    EXPECT_EQ(service->pingBinder(), OK);
    EXPECT_EQ(String8(service->getInterfaceDescriptor()), String8(kEchoDescriptor));
    EXPECT_TRUE(service->isBinderAlive());

    EXPECT_EQ(ask(ECHO, {42}), 42);

    // The caller's credentials, and TF_ACCEPT_FDS added to every call as on the device.
    Parcel who;
    ASSERT_EQ(call(WHO, {}, &who), OK);
    EXPECT_EQ(who.readInt32(), static_cast<int32_t>(getpid()));
    EXPECT_EQ(who.readInt32(), static_cast<int32_t>(getuid()));
    EXPECT_EQ(who.readInt32(), 0x10);

    const sp<IServiceManager> sm = defaultServiceManager();
    ASSERT_EQ(sm->listServices().size(), 1u);
    EXPECT_EQ(String8(sm->listServices()[0]), String8(kName));
    EXPECT_EQ(sm->checkService(String16("absent")), nullptr);
    EXPECT_EQ(sm->checkService(String16("../x")), nullptr);
}

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// The socket path (second line) of a registry entry.
std::string socketOf(const std::string& entry) {
    const size_t begin = entry.find('\n') + 1;
    return entry.substr(begin, entry.find('\n', begin) - begin);
}

// A registry entry is trusted only when this user wrote it, no one else can
// change it or its directory, and it names a socket of this user lying in
// the binder directory itself.
TEST_F(TransportTest, TamperedRegistryEntriesReadAsAbsent) {
    startServer();
    TempDeviceRoot otherRoot;  // a server outside our binder directory
    vemo::platform::setDeviceRoot(root.root());
    ChildProcess other(BINDER_TEST_SERVER, {"vemo.test.other"},
                       {{"VEMO_DEVICE_ROOT", otherRoot.root()}});
    ASSERT_TRUE(other.waitForOutput("ready pid=", 20s)) << other.output();
    const std::string foreign =
        socketOf(readFile(otherRoot.path("/dev/socket/binder/services/vemo.test.other")));
    const std::string dir = root.path("/dev/socket/binder/services");
    const std::string entry = dir + "/" + kName;
    const std::string genuine = readFile(entry);
    const std::string ours = socketOf(genuine);
    const std::string link = root.path("/dev/socket/binder/link");
    ASSERT_EQ(symlink(foreign.c_str(), link.c_str()), 0);
    const auto writeEntry = [&](const std::string& socket) {
        unlink(entry.c_str());
        std::string text = genuine;
        text.replace(text.find(ours), ours.size(), socket);
        std::ofstream(entry) << text;
        chmod(entry.c_str(), 0644);
    };
    const std::string moved = root.path("/dev/socket/binder/moved-entry");
    const struct {
        const char* name;
        std::function<void()> tamper;
    } rows[] = {
        {"SocketOutsideTheBinderDirectory", [&] { writeEntry(foreign); }},
        {"LinkInTheBinderDirectory", [&] { writeEntry(link); }},
        {"DotsInTheSocketPath",
         [&] {
             writeEntry(root.path("/dev/socket/binder/../binder/") +
                        ours.substr(ours.rfind('/') + 1));
         }},
        {"EntryWritableByOthers", [&] { chmod(entry.c_str(), 0666); }},
        {"EntryIsALink",
         [&] {
             rename(entry.c_str(), moved.c_str());
             symlink(moved.c_str(), entry.c_str());
         }},
        {"RegistryWritableByOthers", [&] { chmod(dir.c_str(), 0777); }},
        {"SocketWritableByOthers", [&] { chmod(ours.c_str(), 0666); }},
    };
    const sp<IServiceManager> sm = defaultServiceManager();
    for (const auto& row : rows) {
        row.tamper();
        EXPECT_EQ(sm->checkService(String16(kName)), nullptr) << row.name;
        EXPECT_EQ(sm->listServices().size(), 0u) << row.name;
        writeEntry(ours);
        chmod(dir.c_str(), 0755);
        chmod(ours.c_str(), 0600);
        EXPECT_NE(sm->checkService(String16(kName)), nullptr) << row.name;
    }
}

TEST_F(TransportTest, OneWayCallsFromOneThreadArriveInOrder) {
    startServer();
    std::vector<int32_t> sent;
    for (int32_t i = 0; i < 50; ++i) {
        ASSERT_EQ(call(RECORD, {i}, nullptr, IBinder::FLAG_ONEWAY), OK);
        sent.push_back(i);
    }
    Parcel reply;
    ASSERT_EQ(call(GET_RECORDS, {}, &reply), OK);
    std::vector<int32_t> records;
    ASSERT_EQ(reply.readInt32Vector(&records), OK);
    EXPECT_EQ(records, sent);
}

TEST_F(TransportTest, BinderPassedInAParcelIsCalledBackLaterFromAnotherThread) {
    startServer();
    sp<Callback> callback = new Callback();
    wp<Callback> weak = callback;
    auto called = callback->called.get_future();
    ASSERT_EQ(callMeLater(service, callback, 50, 7), OK);
    ASSERT_EQ(called.wait_for(10s), std::future_status::ready);
    const Callback::Call call = called.get();
    EXPECT_EQ(call.value, 7);
    EXPECT_EQ(call.text, "later");
    EXPECT_EQ(call.callingPid, serverPid);
    EXPECT_NE(call.thread, std::this_thread::get_id());
    ASSERT_TRUE(server->waitForOutput("callback status 0", 10s)) << server->output();

    // Once the server dropped its proxy, only our reference keeps the callback.
    callback.clear();
    EXPECT_TRUE(eventually([&] { return weak.promote() == nullptr; }));
}

// This process's own socket.
std::string ownEndpoint(const TempDeviceRoot& root) {
    const std::string prefix = std::to_string(getpid()) + "-";
    for (const auto& e : std::filesystem::directory_iterator(root.path("/dev/socket/binder"))) {
        if (e.path().filename().string().rfind(prefix, 0) == 0) {
            return e.path().string();
        }
    }
    return "";
}

// Another peer cannot release a reference it was not handed (freeing the
// callback the server holds), nor acquire one.
TEST_F(TransportTest, PeersReleaseAndAcquireOnlyWhatTheyHold) {
    startServer();
    sp<Callback> callback = new Callback();
    ASSERT_EQ(callMeLater(service, callback, 300, 7), OK);
    const std::string own = ownEndpoint(root);
    ASSERT_FALSE(own.empty());
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    memcpy(addr.sun_path, own.c_str(), own.size() + 1);
    ASSERT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
    int acquired = 0;
    for (uint64_t node = 1; node <= 16; ++node) {
        hostbinder::Frame release;
        release.header.kind = hostbinder::FRAME_RELEASE;
        release.header.code = 1000;
        release.header.target = node;
        hostbinder::Frame acquire;
        acquire.header.kind = hostbinder::FRAME_ACQUIRE;
        acquire.header.code = 1;
        acquire.header.target = node;
        for (hostbinder::Frame* f : {&release, &acquire}) {
            const auto bytes = hostbinder::encodeFrame(f);
            ASSERT_EQ(hostbinder::sendAll(fd, bytes.data(), bytes.size()), OK);
        }
        hostbinder::Frame answer;
        ASSERT_EQ(hostbinder::readFrame(fd, &answer), OK);
        acquired += answer.header.status == OK;
    }
    close(fd);
    EXPECT_EQ(acquired, 0);
    callback.clear();  // the server's reference alone keeps it now
    ASSERT_TRUE(server->waitForOutput("callback status ", 10s));
    EXPECT_TRUE(server->waitForOutput("callback status 0\n", 1s)) << server->output();
}

TEST_F(TransportTest, BindersSentBackAreTheSameObjects) {
    startServer();
    // Our own binder comes back as the local object, the service as the same proxy.
    const sp<IBinder> local = new BBinder();
    for (const sp<IBinder>& sent : {local, service}) {
        Parcel reply;
        ASSERT_EQ(callEcho(
                      service, ECHO, [&](Parcel* p) { p->writeStrongBinder(sent); }, &reply),
                  OK);
        EXPECT_EQ(reply.readStrongBinder(), sent);
    }
}

// Handles never wrap: proxies numbered across the 32-bit boundaries are
// distinct and come back as themselves.
TEST_F(TransportTest, ProxyHandlesGoPastThirtyTwoBits) {
    hostbinder::Transport::instance().setNextHandle((int64_t{1} << 32) - 2);
    startServer();
    std::vector<sp<IBinder>> objects{service};
    for (int i = 0; i < 3; ++i) {
        Parcel reply;
        ASSERT_EQ(call(NEW_OBJECT, {}, &reply), OK);
        objects.push_back(reply.readStrongBinder());
    }
    for (size_t i = 0; i < objects.size(); ++i) {
        SCOPED_TRACE(i);
        ASSERT_NE(objects[i], nullptr);
        EXPECT_GE(objects[i]->remoteBinder()->handle(), (int64_t{1} << 32) - 2);
        Parcel reply;
        ASSERT_EQ(
            callEcho(
                objects[i], ECHO, [&](Parcel* p) { p->writeStrongBinder(objects[i]); }, &reply),
            OK);
        EXPECT_EQ(reply.readStrongBinder(), objects[i]);
    }
}

TEST_F(TransportTest, HandlerStatusesReachTheCaller) {
    startServer();
    Parcel reply;
    EXPECT_EQ(call(FAIL_WITH, {BAD_VALUE}, &reply), BAD_VALUE);
    EXPECT_EQ(reply.dataSize(), 0u);
    EXPECT_EQ(call(FAIL_WITH, {5}), OK);  // positive results are not errors
    EXPECT_EQ(call(999), UNKNOWN_TRANSACTION);
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
    startServer("2");
    for (const int32_t answer : barrierFromThreads(5, 5, 200)) {
        EXPECT_NE(answer, INT32_MIN);
    }
    const int32_t maxInside = ask(MAX_CONCURRENT);
    EXPECT_GE(maxInside, 2);
    EXPECT_LE(maxInside, 3);  // two pool threads plus the main thread that joined
}

class DeathRecorder : public IBinder::DeathRecipient {
  public:
    void binderDied(const wp<IBinder>& who) override { died.set_value(who.unsafe_get()); }
    std::promise<IBinder*> died;
};

TEST_F(TransportTest, PeerThatDiedGivesDeadObjectAndAnObituary) {
    startServer();
    sp<DeathRecorder> recorder = new DeathRecorder();
    auto obituary = recorder->died.get_future();
    ASSERT_EQ(service->linkToDeath(recorder), OK);
    server->signal(SIGKILL);
    EXPECT_EQ(server->waitForExit(10s), 128 + SIGKILL);
    ASSERT_EQ(obituary.wait_for(10s), std::future_status::ready);
    EXPECT_EQ(obituary.get(), service.get());

    EXPECT_EQ(call(ECHO), DEAD_OBJECT);
    EXPECT_FALSE(service->isBinderAlive());
    EXPECT_EQ(service->pingBinder(), DEAD_OBJECT);
    EXPECT_EQ(service->linkToDeath(recorder), DEAD_OBJECT);
    EXPECT_EQ(defaultServiceManager()->checkService(String16(kName)), nullptr);
    EXPECT_EQ(defaultServiceManager()->listServices().size(), 0u);
}

// A two-way call whose peer never answers ends after the call timeout; the
// proxy and the service stay usable.
TEST_F(TransportTest, CallNeverAnsweredTimesOut) {
    startServer();
    hostbinder::Transport& transport = hostbinder::Transport::instance();
    const hostbinder::Transport::Limits saved = transport.limits();
    hostbinder::Transport::Limits limits = saved;
    limits.callMs = 300;
    transport.setLimits(limits);
    auto pending = std::async(std::launch::async, [this] { return call(BLOCK); });
    const bool ended = pending.wait_for(10s) == std::future_status::ready;
    if (!ended) {
        server->signal(SIGKILL);  // so that the call ends and the test goes on
    }
    EXPECT_TRUE(ended);
    EXPECT_EQ(pending.get(), TIMED_OUT);
    transport.setLimits(saved);
    EXPECT_TRUE(service->isBinderAlive());
    EXPECT_EQ(ask(ECHO, {3}), 3);
}

TEST_F(TransportTest, PeerDyingMidCallEndsTheCallWithDeadObject) {
    startServer();
    auto pending = std::async(std::launch::async, [this] { return call(BLOCK); });
    ASSERT_TRUE(server->waitForOutput("blocking", 10s));
    server->signal(SIGKILL);
    ASSERT_EQ(pending.wait_for(10s), std::future_status::ready);
    EXPECT_EQ(pending.get(), DEAD_OBJECT);
}

TEST_F(TransportTest, ParcelsThatCannotTravelAreRefusedAndTheServiceStaysUsable) {
    startServer();
    const std::vector<uint8_t> payload(Parcel::kMaxSize, 0xab);
    EXPECT_EQ(callEcho(service, ECHO, [&](Parcel* p) { p->writeByteVector(payload); }),
              FAILED_TRANSACTION);
    EXPECT_EQ(callEcho(service, ECHO, [](Parcel* p) { p->writeFileDescriptor(STDERR_FILENO); }),
              FDS_NOT_ALLOWED);
    EXPECT_EQ(ask(ECHO, {1}), 1);
}

TEST_F(TransportTest, GetServiceWaitsForALateService) {
    auto lookup = std::async(std::launch::async,
                             [] { return defaultServiceManager()->getService(String16(kName)); });
    startServer();
    ASSERT_EQ(lookup.wait_for(10s), std::future_status::ready);
    EXPECT_NE(lookup.get(), nullptr);
}

// A proxy this process received and passed on stays usable by its new holder
// after we drop ours, and the owner frees the object once every holder is done.
TEST_F(TransportTest, ForwardedProxyKeepsTheObjectAliveForItsNewHolder) {
    startServer();
    sp<IBinder> second;
    const auto secondServer = launch("vemo.test.second", "", &second);
    ASSERT_NE(second, nullptr);
    Parcel reply;
    ASSERT_EQ(call(NEW_OBJECT, {}, &reply), OK);
    sp<IBinder> object = reply.readStrongBinder();
    ASSERT_NE(object, nullptr);
    reply.freeData();
    EXPECT_EQ(ask(LIVE_OBJECTS), 1);

    ASSERT_EQ(callMeLater(second, object, 300, 1), OK);
    object.clear();  // only the second server holds it now

    // The object answers (it refuses the call's missing token) instead of being gone.
    ASSERT_TRUE(secondServer->waitForOutput("callback status ", 10s));
    EXPECT_TRUE(secondServer->waitForOutput("callback status -1\n", 1s)) << secondServer->output();
    EXPECT_TRUE(eventually([&] { return ask(LIVE_OBJECTS) == 0; }));
}

}  // namespace
