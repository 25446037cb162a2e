#include <android/log.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <vector>

#include "LogRegistry.h"
#include "hostlog/LogCapture.h"

namespace hostlog {
namespace {

std::mutex& registryMutex() {
    static std::mutex m;
    return m;
}

// Guarded by registryMutex(); also serialises the stderr writes.
std::vector<LogCapture*>& captures() {
    static std::vector<LogCapture*> c;
    return c;
}

// Every line carries the pid and tid; asking the kernel twice per line is a
// measurable share of a binder call, so both are remembered (and forgotten
// in a forked child, whose ids differ).
std::atomic<int> gPid{0};
thread_local long tTid = 0;

void forgetIdsAfterFork() {
    gPid.store(0, std::memory_order_relaxed);
    tTid = 0;
}

[[maybe_unused]] const bool kAtForkRegistered =
    pthread_atfork(nullptr, nullptr, forgetIdsAfterFork) == 0;

int processId() {
    int pid = gPid.load(std::memory_order_relaxed);
    if (pid == 0) {
        pid = static_cast<int>(getpid());
        gPid.store(pid, std::memory_order_relaxed);
    }
    return pid;
}

long threadId() {
    if (tTid == 0) {
        tTid = static_cast<long>(syscall(SYS_gettid));
    }
    return tTid;
}

// "MM-DD HH:MM:SS" of the given second. Converting to local time takes the
// time-zone lock and formats a dozen fields; lines come in bursts within one
// second, so each thread keeps the text of the last second it wrote.
const char* secondStamp(time_t second) {
    thread_local time_t tSecond = -1;
    thread_local char tStamp[32];
    if (second != tSecond) {
        tm local{};
        localtime_r(&second, &local);
        strftime(tStamp, sizeof tStamp, "%m-%d %H:%M:%S", &local);
        tSecond = second;
    }
    return tStamp;
}

char priorityLetter(int prio) {
    static const char kLetters[] = "??VDIWEFS";
    return (prio >= 0 && prio <= ANDROID_LOG_SILENT) ? kLetters[prio] : '?';
}

}  // namespace

void registerCapture(LogCapture* capture) {
    std::lock_guard<std::mutex> lock(registryMutex());
    captures().push_back(capture);
}

void unregisterCapture(LogCapture* capture) {
    std::lock_guard<std::mutex> lock(registryMutex());
    auto& c = captures();
    c.erase(std::remove(c.begin(), c.end(), capture), c.end());
}

int writeMessage(int prio, const char* tag, const char* text) {
    if (tag == nullptr) {
        tag = "";
    }
    if (text == nullptr) {
        return -EINVAL;
    }
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);

    const LogEntry entry{prio, tag, text};
    std::lock_guard<std::mutex> lock(registryMutex());
    bool echo = true;
    for (LogCapture* c : captures()) {
        c->record(entry);
        echo = echo && c->echo();
    }
    if (echo) {
        std::fprintf(stderr, "%s.%03ld %5d %5ld %c %-8s: %s\n", secondStamp(now.tv_sec),
                     now.tv_nsec / 1000000L, processId(), threadId(), priorityLetter(prio), tag,
                     text);
        std::fflush(stderr);
    }
    return static_cast<int>(entry.message.size()) + 1;
}

}  // namespace hostlog

extern "C" {

int __android_log_write(int prio, const char* tag, const char* text) {
    return hostlog::writeMessage(prio, tag, text);
}

int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap) {
    // liblog formats into a fixed buffer of this size and truncates the rest.
    char buf[1024];
    if (fmt == nullptr) {
        return -EINVAL;
    }
    std::vsnprintf(buf, sizeof buf, fmt, ap);
    return hostlog::writeMessage(prio, tag, buf);
}

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    const int r = __android_log_vprint(prio, tag, fmt, ap);
    va_end(ap);
    return r;
}

}  // extern "C"
