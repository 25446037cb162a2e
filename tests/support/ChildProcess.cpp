#include "ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

#include "ChildProcessEmulator.h"

namespace vemo {
namespace test {

namespace {

// ELF class, byte order and machine: what decides whether a program is built
// for the same target as the running test.
bool readElfKind(const std::string& path, std::string* kind) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    unsigned char header[20];
    const ssize_t n = read(fd, header, sizeof header);
    close(fd);
    if (n != static_cast<ssize_t>(sizeof header) || header[0] != 0x7f || header[1] != 'E' ||
        header[2] != 'L' || header[3] != 'F') {
        return false;
    }
    kind->assign({static_cast<char>(header[4]), static_cast<char>(header[5]),
                  static_cast<char>(header[18]), static_cast<char>(header[19])});
    return true;
}

// True when `path` is a program for the cross build's target, which runs
// under the emulator.
bool isTargetProgram(const std::string& path) {
    if (childProcessEmulator().empty()) {
        return false;
    }
    // Under qemu-user /proc/self/exe is the emulated test program itself.
    std::string own;
    std::string other;
    return readElfKind("/proc/self/exe", &own) && readElfKind(path, &other) && own == other;
}

}  // namespace

ChildProcess::ChildProcess(const std::string& path, const std::vector<std::string>& args,
                           const std::map<std::string, std::string>& env) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe failed");
    }
    std::vector<std::string> argStore;
    if (isTargetProgram(path)) {
        argStore = emulator();
    }
    argStore.push_back(path);
    argStore.insert(argStore.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& a : argStore) {
        argv.push_back(&a[0]);
    }
    argv.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        dup2(fds[1], STDERR_FILENO);
        // The child must not inherit the test's blocked signals.
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        for (const auto& kv : env) {
            setenv(kv.first.c_str(), kv.second.c_str(), 1);
        }
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(fds[1]);
    if (pid_ < 0) {
        close(fds[0]);
        throw std::runtime_error("fork failed");
    }
    stderrFd_ = fds[0];
    reader_ = std::thread([this] {
        char buf[4096];
        for (;;) {
            const ssize_t n = read(stderrFd_, buf, sizeof buf);
            if (n <= 0) {
                break;
            }
            std::lock_guard<std::mutex> lock(mutex_);
            output_.append(buf, static_cast<size_t>(n));
        }
        std::lock_guard<std::mutex> lock(mutex_);
        eof_ = true;
    });
}

const std::vector<std::string>& ChildProcess::emulator() {
    return childProcessEmulator();
}

ChildProcess::~ChildProcess() {
    if (!exited_ && pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    if (reader_.joinable()) {
        reader_.join();
    }
    if (stderrFd_ >= 0) {
        close(stderrFd_);
    }
}

bool ChildProcess::waitForOutput(const std::string& text, std::chrono::milliseconds bound) {
    const auto deadline = std::chrono::steady_clock::now() + bound;
    while (std::chrono::steady_clock::now() < deadline) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (output_.find(text) != std::string::npos) {
                return true;
            }
            if (eof_) {
                return false;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

std::string ChildProcess::output() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return output_;
}

void ChildProcess::signal(int sig) {
    if (!exited_) {
        kill(pid_, sig);
    }
}

int ChildProcess::waitForExit(std::chrono::milliseconds bound) {
    const auto deadline = std::chrono::steady_clock::now() + bound;
    while (!exited_) {
        int status = 0;
        const pid_t r = waitpid(pid_, &status, WNOHANG);
        if (r == pid_) {
            exited_ = true;
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            break;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return status_;
}

}  // namespace test
}  // namespace vemo
