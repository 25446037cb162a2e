// ChildProcess runs host programs as they are and programs built for the
// test's own target under the build's emulator (in a cross build).
#include "ChildProcess.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <unistd.h>

#include <chrono>

namespace {

using namespace std::chrono_literals;
using vemo::test::ChildProcess;

std::string ownProgram() {
    char buf[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
    return n > 0 ? std::string(buf, static_cast<size_t>(n)) : std::string();
}

TEST(ChildProcessTest, TargetProgramRunsDirectlyAndFromAHostShell) {
    const std::string self = ownProgram();
    ASSERT_FALSE(self.empty());
    EXPECT_EQ(ChildProcess::isTargetProgram(self), !ChildProcess::emulator().empty());

    // Started directly: runs (under the emulator in a cross build) and exits 0.
    ChildProcess direct(self, {"--gtest_filter=-*"}, {});
    EXPECT_EQ(direct.waitForExit(60s), 0) << direct.output();

    // A host shell starting a target program puts emulator() before it.
    std::vector<std::string> args{"-c", "exec \"$@\" 1>&2", "sh"};
    args.insert(args.end(), ChildProcess::emulator().begin(), ChildProcess::emulator().end());
    args.insert(args.end(), {self, "--gtest_list_tests", "--gtest_filter=ChildProcessTest.*"});
    ChildProcess viaShell("/bin/sh", args, {});
    EXPECT_EQ(viaShell.waitForExit(60s), 0) << viaShell.output();
    EXPECT_TRUE(viaShell.waitForOutput("TargetProgramRunsDirectlyAndFromAHostShell", 10s))
        << viaShell.output();
}

}  // namespace
