// Bad input on the wire, sent over raw sockets to binder_test_server: the
// server answers with an error or drops that one connection, and keeps
// serving everyone else.
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <future>

#include "BinderTestSupport.h"
#include "FlatBinderObject.h"
#include "Transport.h"
#include "WireFormat.h"

namespace {

using namespace android;
using namespace android::hostbinder;
using namespace vemo::test;

class WireAbuseTest : public EchoServerFixture {
  protected:
    // binder_test_server's arguments after the name.
    virtual std::vector<std::string> serverArgs() const { return {}; }

    void SetUp() override {
        startServer(serverArgs());
        const std::string entry = root.path("/dev/socket/binder/services/") + kName;
        ASSERT_EQ(registryLine(entry, 0), "binder-service 1");
        path = registryLine(entry, 1);
        serviceNode = std::stoull(registryLine(entry, 2));
    }

    static sockaddr_un address(const std::string& socketPath) {
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        memcpy(addr.sun_path, socketPath.c_str(), socketPath.size() + 1);
        return addr;
    }

    // A raw connection to the server (or to the socket `to`).
    int connectRaw(const std::string& to = "") {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_un addr = address(to.empty() ? path : to);
        EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr), 0);
        setSocketTimeouts(fd, 10000, 10000);
        return fd;
    }

    // True when the server closed the connection in time: end of stream, or
    // a reset when it closed with our unread bytes still queued. Closes `fd`.
    static bool droppedByPeer(int fd) {
        pollfd p{fd, POLLIN, 0};
        char c;
        const ssize_t n = poll(&p, 1, 10000) == 1 ? recv(fd, &c, 1, 0) : 1;  // 1: still open
        const bool dropped = n == 0 || (n < 0 && errno == ECONNRESET);
        close(fd);
        return dropped;
    }

    // A transaction to the service's node carrying `data`.
    Frame transaction(uint32_t code, const std::vector<uint8_t>& data = {}) const {
        Frame f;
        f.header.kind = FRAME_TRANSACTION;
        f.header.code = code;
        f.header.target = serviceNode;
        f.data = data;
        return f;
    }

    // A transaction to the service carrying one object per reference.
    Frame withObjects(uint32_t code, std::vector<ObjectRef> refs) const {
        Frame f = transaction(code, std::vector<uint8_t>(refs.size() * sizeof(flat_binder_object)));
        for (uint32_t i = 0; i < refs.size(); ++i) {
            flat_binder_object obj{};
            obj.type = BINDER_TYPE_HANDLE;
            obj.handle = i;
            memcpy(&f.data[i * sizeof obj], &obj, sizeof obj);
            f.offsets.push_back(i * sizeof obj);
        }
        f.refs = std::move(refs);
        return f;
    }

    // A RELEASE or ACQUIRE of `count` references to `node`.
    static Frame refCount(uint32_t kind, uint64_t node, uint32_t count, uint32_t flags = 0) {
        Frame f;
        f.header = FrameHeader{kFrameMagic, kind, count, flags, node};
        return f;
    }

    // Sends `f`, or only its first `bytes` bytes.
    static void sendFrame(int fd, Frame f, size_t bytes = SIZE_MAX) {
        const auto encoded = encodeFrame(&f);
        EXPECT_EQ(sendAll(fd, encoded.data(), std::min(bytes, encoded.size())), OK);
    }

    // A new raw connection that has sent `f` (or its first `bytes` bytes).
    int sending(Frame f, size_t bytes = SIZE_MAX) {
        const int fd = connectRaw();
        sendFrame(fd, std::move(f), bytes);
        return fd;
    }

    // True when an ordinary call is answered within a second. A server that
    // does not answer is killed, so that the call ends.
    bool answersPromptly() {
        auto pending = std::async(std::launch::async, [this] { return ask(ECHO, {77}); });
        const bool inTime = pending.wait_for(std::chrono::seconds(1)) == std::future_status::ready;
        if (!inTime) {
            server->signal(SIGKILL);
        }
        return inTime && pending.get() == 77;
    }

    // Sends `f` and reads the answer into `reply`; its status.
    int32_t exchange(int fd, Frame f) {
        sendFrame(fd, std::move(f));
        EXPECT_EQ(readFrame(fd, &reply), OK);
        return reply.header.status;
    }

    Frame reply;
    std::string path;
    uint64_t serviceNode = 0;
};

// The echo service's token followed by `ints`, as parcel bytes.
std::vector<uint8_t> tokenAnd(std::initializer_list<int32_t> ints) {
    Parcel p;
    p.writeInterfaceToken(String16(kEchoDescriptor));
    for (const int32_t v : ints) {
        p.writeInt32(v);
    }
    return std::vector<uint8_t>(p.data(), p.data() + p.dataSize());
}

struct BadFrame {
    const char* name;
    FrameHeader header;  // its target is set to the service's node
    size_t sent;         // bytes of the frame actually sent (zeros after the header)
};

constexpr size_t kHeader = kFrameHeaderSize;
constexpr uint32_t kTxn = FRAME_TRANSACTION;

const BadFrame kBadFrames[] = {
    {"Garbage", {0x2b160b05, 0x9b8e81, 0xf4e7dacd, 0xb3a69980, 7, -5, 0x7f726558, 9, 9}, 200},
    {"WrongMagic", {0x12345678, kTxn, ECHO}, kHeader},
    {"UnknownKind", {kFrameMagic, 9, ECHO}, kHeader},
    {"OversizedData", {kFrameMagic, kTxn, ECHO, 0, 0, 0, 0xffffffffu}, kHeader},
    {"JustOverTheBound", {kFrameMagic, kTxn, ECHO, 0, 0, 0, Parcel::kMaxSize + 4}, kHeader},
    {"TooManyObjects", {kFrameMagic, kTxn, ECHO, 0, 0, 0, 48, 3}, kHeader},
    {"ObjectsWithoutReferences", {kFrameMagic, kTxn, ECHO, 0, 0, 0, 24, 1, 0xfffffff0u}, kHeader},
    {"TruncatedHeader", {kFrameMagic, kTxn, ECHO}, 20},
    {"TruncatedPayload", {kFrameMagic, kTxn, ECHO, 0, 0, 0, 1000}, kHeader + 10},
    {"ReplySentToAServer", {kFrameMagic, FRAME_REPLY, ECHO}, kHeader},
};

class WireAbuseFrames : public WireAbuseTest, public ::testing::WithParamInterface<BadFrame> {};

TEST_P(WireAbuseFrames, DropOnlyThatConnection) {
    const int bystander = connectRaw();
    const int fd = connectRaw();
    FrameHeader h = GetParam().header;
    h.target = serviceNode;
    std::vector<uint8_t> bytes(std::max(GetParam().sent, kHeader), 0);
    encodeHeader(h, bytes.data());
    ASSERT_EQ(sendAll(fd, bytes.data(), GetParam().sent), OK);
    shutdown(fd, SHUT_WR);  // a truncated frame ends with the stream
    EXPECT_TRUE(droppedByPeer(fd));

    // Another raw connection, opened before, is still served.
    EXPECT_EQ(exchange(bystander, transaction(ECHO, tokenAnd({5}))), OK);
    EXPECT_EQ(reply.header.kind, static_cast<uint32_t>(FRAME_REPLY));
    EXPECT_EQ(reply.data.size(), 4u);
    close(bystander);
    EXPECT_TRUE(answersPromptly());
}

INSTANTIATE_TEST_SUITE_P(Cases, WireAbuseFrames, ::testing::ValuesIn(kBadFrames),
                         [](const ::testing::TestParamInfo<BadFrame>& i) { return i.param.name; });

// Well-framed transactions whose content is wrong get an error reply and the
// connection stays usable.
TEST_F(WireAbuseTest, BadContentIsAnsweredWithAnErrorStatus) {
    const int fd = connectRaw();
    Frame unknownNode = transaction(ECHO);
    unknownNode.header.target = 987654;
    EXPECT_EQ(exchange(fd, unknownNode), DEAD_OBJECT);

    // One object, of `type` in the data, whose reference is {node, path}.
    struct BadObject {
        uint32_t type;
        uint64_t node;
        std::string path;
    };
    const std::string link = root.path("/dev/socket/binder/link");
    ASSERT_EQ(symlink(root.path("/data/other.sock").c_str(), link.c_str()), 0);
    const BadObject badObjects[] = {
        {BINDER_TYPE_HANDLE, 999999, path},              // a node of the server's that is not
        {BINDER_TYPE_BINDER, 1, "/nonexistent/socket"},  // the wrong type in the data
        // Sockets outside the binder directory: the server must not be made to connect there.
        {BINDER_TYPE_HANDLE, 1, root.path("/data/other.sock")},
        {BINDER_TYPE_HANDLE, 1, path + "/../x"},
        {BINDER_TYPE_HANDLE, 1, "relative"},
        {BINDER_TYPE_HANDLE, 1, path + "/"},
        {BINDER_TYPE_HANDLE, 1, link},  // a link in the binder directory, out of it
    };
    for (const BadObject& bad : badObjects) {
        Frame f = withObjects(ECHO, {ObjectRef{bad.node, 0, bad.path}});
        memcpy(f.data.data() + offsetof(flat_binder_object, type), &bad.type, sizeof bad.type);
        EXPECT_EQ(exchange(fd, f), FAILED_TRANSACTION) << bad.path;
    }

    // Truncated parcels reach the handler, whose reads fail cleanly.
    std::vector<uint8_t> token = tokenAnd({});
    EXPECT_EQ(exchange(fd, transaction(CALL_ME_LATER, token)), BAD_TYPE);  // no callback
    token.resize(token.size() - 2);
    EXPECT_EQ(exchange(fd, transaction(CALL_ME_LATER, token)), PERMISSION_DENIED);
    close(fd);
    EXPECT_TRUE(answersPromptly());
}

TEST_F(WireAbuseTest, OverlappingOrMisplacedObjectOffsetsDropTheConnection) {
    // Past the end, overlapping, misaligned, far out.
    const std::vector<std::vector<uint32_t>> badOffsets = {{12}, {0, 4}, {2}, {100}};
    for (const auto& offsets : badOffsets) {
        // Well-formed objects and references: only the offsets are wrong.
        Frame f = withObjects(ECHO, std::vector<ObjectRef>(offsets.size(), ObjectRef{1, 0, path}));
        f.data.resize(std::max<size_t>(f.data.size(), 32));  // an object at 2 would fit
        f.offsets = offsets;
        EXPECT_TRUE(droppedByPeer(sending(f))) << offsets[0];
    }
    EXPECT_TRUE(answersPromptly());
}

// More peers than the pool has threads stop in the middle of a frame; an
// ordinary call is still served while they are all connected (a server that
// waited on them would answer only after dropping them).
TEST_F(WireAbuseTest, PeersStalledMidFrameHoldNoThread) {
    const Frame f = transaction(ECHO, std::vector<uint8_t>(1000, 0));
    std::vector<int> stalled;
    for (int i = 0; i < 20; ++i) {
        // Into the payload, or into the header.
        stalled.push_back(sending(f, i % 2 == 0 ? kHeader + 1 : 4));
    }
    EXPECT_TRUE(answersPromptly());
    for (const int fd : stalled) {
        pollfd p{fd, POLLIN, 0};
        EXPECT_EQ(poll(&p, 1, 0), 0) << "a stalled peer was dropped first";
        close(fd);
    }
    EXPECT_TRUE(answersPromptly());
}

// Counted references to objects of a process that never accepts: the
// server's release notices for them must not hold its pool threads.
TEST_F(WireAbuseTest, ReleaseNoticesToAPeerThatDoesNotAcceptHoldNoThread) {
    const std::string sink = root.path("/dev/socket/binder/sink");
    const sockaddr_un addr = address(sink);
    std::vector<int> fds{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    ASSERT_EQ(bind(fds[0], reinterpret_cast<const sockaddr*>(&addr), sizeof addr), 0);
    chmod(sink.c_str(), 0600);
    ASSERT_EQ(listen(fds[0], 0), 0);
    do {  // until its backlog is full
        fds.push_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    } while (connect(fds.back(), reinterpret_cast<const sockaddr*>(&addr), sizeof addr) == 0 &&
             fds.size() < 10);
    for (uint64_t peer = 0; peer < 20; ++peer) {  // more peers than pool threads
        std::vector<ObjectRef> refs;
        for (uint64_t i = 1; i <= 20; ++i) {
            refs.push_back(ObjectRef{peer * 100 + i, REF_COUNTED, sink});
        }
        fds.push_back(sending(withObjects(999, refs)));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // the server takes them all
    EXPECT_TRUE(answersPromptly());
    for (const int fd : fds) {
        close(fd);
    }
}

// A process that opens more connections than the server serves in all
// cannot lock the others out.
TEST_F(WireAbuseTest, OneProcessCannotTakeEveryConnection) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const sockaddr_un addr = address(path);
    const pid_t hog = fork();
    for (int i = 0; hog == 0 && i < 600; ++i) {
        connect(socket(AF_UNIX, SOCK_STREAM, 0), reinterpret_cast<const sockaddr*>(&addr),
                sizeof addr);
    }
    if (hog == 0) {
        _exit(write(ready[1], "x", 1) == 1 ? pause() : 1);
    }
    ASSERT_EQ(read(ready[0], ready, 1), 1);
    service.clear();  // our pooled connections close with the last proxy
    service = defaultServiceManager()->checkService(String16(kName));
    EXPECT_TRUE(service != nullptr && answersPromptly());
    kill(hog, SIGKILL);
    waitpid(hog, nullptr, 0);
}

// Another peer (here this process, which holds none of its own objects) can
// neither release the reference the server holds to our callback, nor
// acquire any: that reference alone keeps the callback, until the server
// drops it in turn.
TEST_F(WireAbuseTest, PeersReleaseAndAcquireOnlyWhatTheyHold) {
    sp<IBinder> callback = new BBinder();
    wp<IBinder> weak = callback;
    ASSERT_EQ(callMeLater(service, callback, 300, 7), OK);
    std::string own;  // this process's socket
    uint64_t node;
    ASSERT_EQ(Transport::instance().publish(new BBinder(), &own, &node), OK);
    const int fd = connectRaw(own);
    for (uint64_t node = 1; node <= 16; ++node) {
        sendFrame(fd, refCount(FRAME_RELEASE, node, 1000));
        EXPECT_NE(exchange(fd, refCount(FRAME_ACQUIRE, node, 1)), OK) << node;
    }
    close(fd);
    callback.clear();  // the server's reference alone keeps it
    ASSERT_TRUE(server->waitForOutput("callback status ", std::chrono::seconds(10)));
    // A BBinder answers code 1 with UNKNOWN_TRANSACTION; a freed one would be DEAD_OBJECT.
    EXPECT_TRUE(server->waitForOutput("callback status -74\n", std::chrono::seconds(1)))
        << server->output();
    EXPECT_TRUE(eventually([&] { return weak.promote() == nullptr; }));
}

// A transaction the server refuses still gives back the references it
// counted for the server, or the object they keep would never be freed.
TEST_F(WireAbuseTest, RefusedFramesReleaseTheirReferences) {
    const int fd = connectRaw();
    ASSERT_EQ(exchange(fd, transaction(NEW_OBJECT, tokenAnd({}))), OK);
    ASSERT_EQ(reply.refs.size(), 1u);
    const ObjectRef object = reply.refs[0];  // counted for this process
    const Frame badNeighbour = withObjects(ECHO, {ObjectRef{1, 0, "/nonexistent/socket"}, object});
    Frame unknownTarget = withObjects(ECHO, {object});
    unknownTarget.header.target = 987654;
    for (const Frame& refused : {unknownTarget, badNeighbour}) {
        // Counted for the server, as a process forwarding it there does.
        ASSERT_EQ(exchange(fd, refCount(FRAME_ACQUIRE, object.node, 1, serverPid)), OK);
        EXPECT_NE(exchange(fd, refused), OK);
    }
    sendFrame(fd, refCount(FRAME_RELEASE, object.node, 1));
    // The release goes on another connection.
    EXPECT_TRUE(eventually([this] { return ask(LIVE_OBJECTS) == 0; }));
    close(fd);
}

class WireDeadlineTest : public WireAbuseTest {
  protected:
    std::vector<std::string> serverArgs() const override { return {"15", "500", "300"}; }
};

// Peers that send nothing, or stop inside a frame, are closed; this
// process's own pooled connections are not disturbed.
TEST_F(WireDeadlineTest, IdleAndHalfSentConnectionsAreClosed) {
    Transport::Limits limits;
    limits.idleMs = 500;  // pooled connections are dropped after half of it
    Transport::instance().setLimits(limits);
    const int idle = connectRaw();
    const int half = sending(transaction(ECHO, tokenAnd({1})), kHeader + 1);
    EXPECT_TRUE(droppedByPeer(idle));
    EXPECT_TRUE(droppedByPeer(half));
    EXPECT_EQ(ask(ECHO, {5}), 5);
    Transport::instance().setLimits(Transport::Limits());
}

TEST_F(WireAbuseTest, CallerThatLeavesMidCallDoesNotDisturbTheServer) {
    // Two parties that never come, 100 ms.
    const Frame f = transaction(BARRIER, tokenAnd({2, 100}));
    for (int i = 0; i < 3; ++i) {
        close(sending(f));  // gone before the reply
    }
    // Whether an abandoned call still runs depends on when the server sees
    // the hang-up; what matters is that everyone else is still served.
    EXPECT_TRUE(answersPromptly());
}

}  // namespace
