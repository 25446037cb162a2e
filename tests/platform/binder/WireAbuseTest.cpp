// Bad input on the wire, sent over raw sockets to binder_test_server: the
// server answers with an error or drops that one connection, and keeps
// serving everyone else.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "BinderTestSupport.h"
#include "FlatBinderObject.h"
#include "WireFormat.h"

namespace {

using namespace std::chrono_literals;
using android::Parcel;
using namespace android::hostbinder;
using namespace vemo::test;

class WireAbuseTest : public EchoServerFixture {
  protected:
    void SetUp() override {
        startServer();
        std::ifstream entry(root.path("/dev/socket/binder/services/") + kName);
        std::string magic;
        std::string node;
        std::getline(entry, magic);
        std::getline(entry, path);
        std::getline(entry, node);
        serviceNode = std::stoull(node);
        ASSERT_EQ(magic, "binder-service 1");
    }

    int connectRaw() {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        memcpy(addr.sun_path, path.c_str(), path.size() + 1);
        EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
        setSocketTimeouts(fd, 10000, 10000);
        return fd;
    }

    // True when the server closed the connection in time: end of stream, or
    // a reset when it closed with our unread bytes still queued.
    static bool closedByPeer(int fd) {
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, 10000) != 1) {
            return false;
        }
        char c;
        const ssize_t n = recv(fd, &c, 1, 0);
        return n == 0 || (n < 0 && errno == ECONNRESET);
    }

    static std::vector<uint8_t> transaction(uint64_t node, const Parcel& data, uint32_t code) {
        Frame f;
        f.header.kind = FRAME_TRANSACTION;
        f.header.code = code;
        f.header.target = node;
        f.data.assign(data.data(), data.data() + data.dataSize());
        return encodeFrame(&f);
    }

    // The service still answers an ordinary call.
    void expectStillServing() {
        auto data = request();
        data->writeInt32(77);
        Parcel reply;
        ASSERT_EQ(call(ECHO, data.get(), &reply), android::OK);
        EXPECT_EQ(reply.readInt32(), 77);
    }

    std::string path;
    uint64_t serviceNode = 0;
};

struct BadFrame {
    const char* name;
    std::vector<uint8_t> (*make)(uint64_t node);
};

std::vector<uint8_t> header(uint32_t magic, uint32_t kind, uint32_t dataSize, uint32_t objects,
                            uint32_t refs, uint64_t node) {
    FrameHeader h;
    h.magic = magic;
    h.kind = kind;
    h.code = ECHO;
    h.target = node;
    h.dataSize = dataSize;
    h.objectCount = objects;
    h.refsSize = refs;
    std::vector<uint8_t> out(kFrameHeaderSize);
    encodeHeader(h, out.data());
    return out;
}

const BadFrame kBadFrames[] = {
    {"Garbage",
     [](uint64_t) {
         std::vector<uint8_t> g(200);
         for (size_t i = 0; i < g.size(); ++i) {
             g[i] = static_cast<uint8_t>(i * 37 + 11);
         }
         return g;
     }},
    {"WrongMagic", [](uint64_t n) { return header(0x12345678, FRAME_TRANSACTION, 0, 0, 0, n); }},
    {"UnknownKind", [](uint64_t n) { return header(kFrameMagic, 9, 0, 0, 0, n); }},
    {"OversizedData",
     [](uint64_t n) { return header(kFrameMagic, FRAME_TRANSACTION, 0xffffffffu, 0, 0, n); }},
    {"JustOverTheBound",
     [](uint64_t n) {
         return header(kFrameMagic, FRAME_TRANSACTION, Parcel::kMaxSize + 4, 0, 0, n);
     }},
    {"TooManyObjects",
     [](uint64_t n) { return header(kFrameMagic, FRAME_TRANSACTION, 48, 3, 0, n); }},
    {"ObjectsWithoutReferences",
     [](uint64_t n) {
         auto h = header(kFrameMagic, FRAME_TRANSACTION, 24, 1, 0xfffffff0u, n);
         return h;
     }},
    {"TruncatedHeader",
     [](uint64_t n) {
         auto h = header(kFrameMagic, FRAME_TRANSACTION, 0, 0, 0, n);
         h.resize(20);
         return h;
     }},
    {"TruncatedPayload",
     [](uint64_t n) {
         auto h = header(kFrameMagic, FRAME_TRANSACTION, 1000, 0, 0, n);
         h.resize(h.size() + 10, 0);
         return h;
     }},
    {"ReplySentToAServer", [](uint64_t n) { return header(kFrameMagic, FRAME_REPLY, 0, 0, 0, n); }},
};

class WireAbuseFrames : public WireAbuseTest, public ::testing::WithParamInterface<BadFrame> {};

TEST_P(WireAbuseFrames, DropOnlyThatConnection) {
    const int bystander = connectRaw();
    const int fd = connectRaw();
    const auto bytes = GetParam().make(serviceNode);
    ASSERT_EQ(sendAll(fd, bytes.data(), bytes.size()), android::OK);
    shutdown(fd, SHUT_WR);  // a truncated frame ends with the stream
    EXPECT_TRUE(closedByPeer(fd));
    close(fd);

    // Another raw connection, opened before, is still served.
    auto data = request();
    data->writeInt32(5);
    const auto ok = transaction(serviceNode, *data, ECHO);
    ASSERT_EQ(sendAll(bystander, ok.data(), ok.size()), android::OK);
    Frame answer;
    ASSERT_EQ(readFrame(bystander, &answer), android::OK);
    EXPECT_EQ(answer.header.kind, static_cast<uint32_t>(FRAME_REPLY));
    EXPECT_EQ(answer.header.status, android::OK);
    ASSERT_EQ(answer.data.size(), 4u);
    close(bystander);
    expectStillServing();
}

INSTANTIATE_TEST_SUITE_P(Cases, WireAbuseFrames, ::testing::ValuesIn(kBadFrames),
                         [](const ::testing::TestParamInfo<BadFrame>& info) {
                             return std::string(info.param.name);
                         });

// Well-framed transactions whose content is wrong get an error reply and the
// connection stays usable.
TEST_F(WireAbuseTest, BadContentIsAnsweredWithAnErrorStatus) {
    const int fd = connectRaw();
    auto exchange = [&](Frame* f) {
        const auto bytes = encodeFrame(f);
        EXPECT_EQ(sendAll(fd, bytes.data(), bytes.size()), android::OK);
        Frame answer;
        EXPECT_EQ(readFrame(fd, &answer), android::OK);
        return answer.header.status;
    };

    Frame unknownNode;
    unknownNode.header.kind = FRAME_TRANSACTION;
    unknownNode.header.target = 987654;
    unknownNode.header.code = ECHO;
    EXPECT_EQ(exchange(&unknownNode), android::DEAD_OBJECT);

    // An object whose table entry names one of the server's own nodes that does not exist.
    Frame badObject;
    badObject.header.kind = FRAME_TRANSACTION;
    badObject.header.target = serviceNode;
    badObject.header.code = ECHO;
    badObject.data.assign(24, 0);
    flat_binder_object obj{};
    obj.type = BINDER_TYPE_HANDLE;
    memcpy(badObject.data.data(), &obj, sizeof obj);
    badObject.offsets.push_back(0);
    badObject.refs.push_back(ObjectRef{999999, 0, path});
    EXPECT_EQ(exchange(&badObject), android::FAILED_TRANSACTION);

    // Wrong object type in the data.
    obj.type = BINDER_TYPE_BINDER;
    memcpy(badObject.data.data(), &obj, sizeof obj);
    badObject.refs[0] = ObjectRef{1, 0, "/nonexistent/socket"};
    EXPECT_EQ(exchange(&badObject), android::FAILED_TRANSACTION);

    // References naming sockets outside the binder directory: the server
    // must not be made to connect there.
    obj.type = BINDER_TYPE_HANDLE;
    memcpy(badObject.data.data(), &obj, sizeof obj);
    for (const std::string& elsewhere :
         {root.path("/data/other.sock"), path + "/../x", std::string("relative"), path + "/"}) {
        badObject.refs[0] = ObjectRef{1, 0, elsewhere};
        EXPECT_EQ(exchange(&badObject), android::FAILED_TRANSACTION) << elsewhere;
    }

    // Truncated parcels reach the handler, whose reads fail cleanly.
    Frame truncated;
    truncated.header.kind = FRAME_TRANSACTION;
    truncated.header.target = serviceNode;
    truncated.header.code = CALL_ME_LATER;
    Parcel p;
    p.writeInterfaceToken(android::String16(kEchoDescriptor));
    truncated.data.assign(p.data(), p.data() + p.dataSize() - 2);
    EXPECT_EQ(exchange(&truncated), android::PERMISSION_DENIED);
    truncated.data.assign(p.data(), p.data() + p.dataSize());
    EXPECT_EQ(exchange(&truncated), android::BAD_TYPE);  // no callback binder to read
    close(fd);
    expectStillServing();
}

TEST_F(WireAbuseTest, OverlappingOrMisplacedObjectOffsetsDropTheConnection) {
    // Past the end, overlapping, misaligned, far out.
    const std::vector<std::vector<uint32_t>> badOffsets = {{12}, {0, 4}, {2}, {100}};
    for (const auto& offsets : badOffsets) {
        const int fd = connectRaw();
        Frame f;
        f.header.kind = FRAME_TRANSACTION;
        f.header.target = serviceNode;
        f.data.assign(32, 0);
        f.offsets = offsets;
        for (size_t i = 0; i < offsets.size(); ++i) {
            f.refs.push_back(ObjectRef{1, 0, path});
        }
        const auto bytes = encodeFrame(&f);
        ASSERT_EQ(sendAll(fd, bytes.data(), bytes.size()), android::OK);
        EXPECT_TRUE(closedByPeer(fd)) << offsets[0];
        close(fd);
    }
    expectStillServing();
}

// More peers than the pool has threads stop in the middle of a frame; an
// ordinary call is still served while they are all connected (a server that
// waited on them would answer only after dropping them).
TEST_F(WireAbuseTest, PeersStalledMidFrameHoldNoThread) {
    std::vector<int> stalled;
    for (int i = 0; i < 20; ++i) {
        const int fd = connectRaw();
        auto bytes = header(kFrameMagic, FRAME_TRANSACTION, 1000, 0, 0, serviceNode);
        bytes.resize(i % 2 == 0 ? bytes.size() + 1 : 4, 0);  // into the payload, or the header
        ASSERT_EQ(sendAll(fd, bytes.data(), bytes.size()), android::OK);
        stalled.push_back(fd);
    }
    expectStillServing();
    for (const int fd : stalled) {
        pollfd p{fd, POLLIN, 0};
        EXPECT_EQ(poll(&p, 1, 0), 0) << "a stalled peer was dropped first";
        close(fd);
    }
    expectStillServing();
}

TEST_F(WireAbuseTest, CallerThatLeavesMidCallDoesNotDisturbTheServer) {
    for (int i = 0; i < 3; ++i) {
        const int fd = connectRaw();
        auto data = request();
        data->writeInt32(2);    // parties that never come
        data->writeInt32(100);  // ms
        const auto bytes = transaction(serviceNode, *data, BARRIER);
        ASSERT_EQ(sendAll(fd, bytes.data(), bytes.size()), android::OK);
        close(fd);  // gone before the reply
    }
    // Whether an abandoned call still runs depends on when the server sees
    // the hang-up; what matters is that everyone else is still served.
    expectStillServing();
    auto data = request();
    Parcel reply;
    ASSERT_EQ(call(MAX_CONCURRENT, data.get(), &reply), android::OK);
}

}  // namespace
