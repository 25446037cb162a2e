#pragma once
// A child process for integration tests: started with extra environment
// variables, its stderr collected on a thread, stopped with a signal.
// In a cross build (tests under qemu-user) a child program built for the
// target runs under the same emulator as the test (its pid is still the
// program's own); host programs such as /bin/sh run as they are, so a host
// program that starts a target program must put emulator() before it.

#include <sys/types.h>

#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vemo {
namespace test {

class ChildProcess {
  public:
    ChildProcess(const std::string& path, const std::vector<std::string>& args,
                 const std::map<std::string, std::string>& env);
    ~ChildProcess();  // kills the child if it still runs
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Waits until stderr contains `text`; false when the bound passes or the
    // child closed stderr first.
    bool waitForOutput(const std::string& text, std::chrono::milliseconds bound);
    std::string output() const;

    // The command prefix that runs a target program (empty in a native build).
    static const std::vector<std::string>& emulator();

    void signal(int sig);
    // Waits for exit; the exit status (or 128 + signal), -1 when the bound passed.
    int waitForExit(std::chrono::milliseconds bound);

  private:
    pid_t pid_ = -1;
    int stderrFd_ = -1;
    bool exited_ = false;
    int status_ = -1;
    mutable std::mutex mutex_;  // guards output_ and eof_
    std::string output_;
    bool eof_ = false;
    std::thread reader_;
};

}  // namespace test
}  // namespace vemo
