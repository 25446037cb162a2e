// One factRequest round trip through the binder emulation (client proxy ->
// UNIX socket -> service process's binder thread -> NativeService -> a
// connector that does nothing -> Status reply) against the irreducible
// baseline: a raw UNIX-socket round trip between two processes moving the
// same request and reply bytes. Both servers run in child processes forked
// before the benchmarks start; the figure that matters is the ratio.
#include <benchmark/benchmark.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "ipc/BpFlgrService.h"
#include "ipc/IFlgrService.h"
#include "ipc/NativeService.h"
#include "ipc/ServiceHost.h"
#include "platform/DeviceRoot.h"

namespace {

using vemo::ipc::IFlgrService;
using vemo::ipc::PFactRequest;

class NoopConnector : public vemo::ipc::ServiceConnector {
  public:
    vemo::VemoStatus flgrRequest(const std::string&, const vemo::ipc::FlgrFileRequest&,
                                 FlgrDone) override {
        return vemo::kVemoStatusOk;
    }
    vemo::VemoStatus factRequest(const std::string&, const std::string&,
                                 const std::string&) override {
        return vemo::kVemoStatusOk;
    }
    vemo::VemoStatus registerResetCb(std::function<void()>) override { return vemo::kVemoStatusOk; }
};

// A typical analytics message: a small ECS event document.
const PFactRequest& sampleRequest() {
    static const PFactRequest request(
        "bench", "UnifiedSensingService",
        R"({"header":{"namespace":"Ecs","name":"SensoryEvent","messageId":"0d9f"},)"
        R"("payload":{"signal":"AmbientNoise","value":"high","timestamp":1700000000}})");
    return request;
}

// Size of the request parcel a proxy sends, and of the ok reply.
size_t requestBytes() {
    android::Parcel data;
    data.writeInterfaceToken(IFlgrService::descriptor);
    data.writeParcelable(sampleRequest());
    return data.dataSize();
}
constexpr size_t kReplyBytes = 4;

bool readFully(int fd, char* buffer, size_t size) {
    while (size > 0) {
        const ssize_t n = read(fd, buffer, size);
        if (n <= 0) {
            return false;
        }
        buffer += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

bool writeFully(int fd, const char* buffer, size_t size) {
    while (size > 0) {
        const ssize_t n = write(fd, buffer, size);
        if (n <= 0) {
            return false;
        }
        buffer += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

struct Servers {
    pid_t binderServer = -1;
    pid_t rawServer = -1;
    int rawSocket = -1;
    std::string root;
};

Servers& servers() {
    static Servers s;
    return s;
}

// Forks both servers; must run before this process touches binder state.
bool startServers() {
    Servers& s = servers();
    char root[] = "/tmp/vemo-bench-XXXXXX";
    if (mkdtemp(root) == nullptr) {
        return false;
    }
    s.root = root;
    vemo::platform::setDeviceRoot(s.root);
    const size_t request = requestBytes();

    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) {
        return false;
    }
    s.rawServer = fork();
    if (s.rawServer == 0) {
        close(fds[0]);
        std::vector<char> in(request);
        const std::vector<char> out(kReplyBytes, 0);
        while (readFully(fds[1], in.data(), in.size()) &&
               writeFully(fds[1], out.data(), out.size())) {
        }
        _exit(0);
    }
    close(fds[1]);
    s.rawSocket = fds[0];

    s.binderServer = fork();
    if (s.binderServer == 0) {
        if (vemo::ipc::ServiceHost::getInstance()->start(std::make_shared<NoopConnector>()) != 0) {
            _exit(1);
        }
        for (;;) {
            pause();
        }
    }
    return s.rawServer > 0 && s.binderServer > 0;
}

void stopServers() {
    Servers& s = servers();
    close(s.rawSocket);
    for (const pid_t pid : {s.rawServer, s.binderServer}) {
        if (pid > 0) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
    }
    std::system(("rm -rf '" + s.root + "'").c_str());
}

android::sp<IFlgrService> findService() {
    for (int attempt = 0; attempt < 500; ++attempt) {
        const android::sp<android::IBinder> binder =
            android::defaultServiceManager()->checkService(IFlgrService::descriptor);
        if (binder != nullptr) {
            return IFlgrService::asInterface(binder);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return nullptr;
}

void BM_FactRequestThroughBinder(benchmark::State& state) {
    const android::sp<IFlgrService> service = findService();
    if (service == nullptr) {
        state.SkipWithError("service not published");
        return;
    }
    for (auto _ : state) {
        const android::binder::Status status = service->factRequest(sampleRequest());
        if (!status.isOk()) {
            state.SkipWithError(status.toString8().string());
            return;
        }
    }
    state.counters["request_bytes"] = static_cast<double>(requestBytes());
}
BENCHMARK(BM_FactRequestThroughBinder)->UseRealTime();

// The share of the round trip that is this system's own code: the same call
// into a service object in this process (marshalling, the stub, the
// connector, the Status), without any transport.
void BM_FactRequestInProcess(benchmark::State& state) {
    const android::sp<vemo::ipc::NativeService> local =
        new vemo::ipc::NativeService(std::make_shared<NoopConnector>());
    const android::sp<IFlgrService> service = new vemo::ipc::BpFlgrService(local);
    for (auto _ : state) {
        if (!service->factRequest(sampleRequest()).isOk()) {
            state.SkipWithError("in-process call failed");
            return;
        }
    }
}
BENCHMARK(BM_FactRequestInProcess)->UseRealTime();

void BM_RawUnixSocketRoundTrip(benchmark::State& state) {
    const int fd = servers().rawSocket;
    const std::vector<char> request(requestBytes(), 'x');
    std::vector<char> reply(kReplyBytes);
    for (auto _ : state) {
        if (!writeFully(fd, request.data(), request.size()) ||
            !readFully(fd, reply.data(), reply.size())) {
            state.SkipWithError("raw server gone");
            return;
        }
    }
    state.counters["request_bytes"] = static_cast<double>(request.size());
}
BENCHMARK(BM_RawUnixSocketRoundTrip)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (!startServers()) {
        std::fprintf(stderr, "cannot start the benchmark's servers\n");
        stopServers();
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    stopServers();
    return 0;
}
