// The vemoctl binary against the test service process.
#include "VemoCtl.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <iterator>
#include <map>
#include <regex>
#include <sstream>

#include "ChildProcess.h"
#include "TempDeviceRoot.h"

namespace {

using namespace std::chrono_literals;
using vemo::ctl::VemoCtl;
using vemo::test::ChildProcess;

std::vector<std::string> words(const std::string& text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

class VemoCtlTest : public ::testing::Test {
  protected:
    struct Result {
        int exitCode;
        std::string out;
        std::string err;
    };

    // args: separated by spaces.
    void startService(const std::string& args) {
        service_ = std::make_unique<ChildProcess>(FLGR_TEST_SERVICE_PATH, words(args), env());
        ASSERT_TRUE(service_->waitForOutput(
            "start:addedBinderService, descriptor=vemo.ipc.IFlgrService", 30s))
            << service_->output();
    }
    std::unique_ptr<ChildProcess> startCtl(const std::vector<std::string>& args) {
        // stdout goes to a file so that it stays apart from stderr.
        std::vector<std::string> shell{"-c", "out=$1; shift; exec \"$@\" >\"$out\"", "sh",
                                       root_.path("/vemoctl.out")};
        // The shell is a host program; vemoctl may need the target's emulator.
        const auto& emulator = ChildProcess::emulator();
        shell.insert(shell.end(), emulator.begin(), emulator.end());
        shell.push_back(VEMOCTL_PATH);
        shell.insert(shell.end(), args.begin(), args.end());
        return std::make_unique<ChildProcess>("/bin/sh", shell, env());
    }
    Result runCtl(const std::vector<std::string>& args) {
        auto ctl = startCtl(args);
        const int exitCode = ctl->waitForExit(60s);
        ctl->waitForOutput("\x01 never printed", 10s);  // returns at end of output
        // On the host liblog writes to stderr too (on the device it goes to logcat).
        static const std::regex logLine(R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} [^\n]*\n)");
        return {exitCode, root_.readFile("/vemoctl.out"),
                std::regex_replace(ctl->output(), logLine, "")};
    }
    std::map<std::string, std::string> env() const { return {{"VEMO_DEVICE_ROOT", root_.root()}}; }

    vemo::test::TempDeviceRoot root_;
    std::unique_ptr<ChildProcess> service_;
};

struct CtlCase {
    const char* name;
    const char* serviceArgs;  // nullptr: no service
    const char* args;
    int exitCode;
    std::string out;
    std::string err;
};

CtlCase usage(const char* name, const char* args, const std::string& error) {
    return {name, nullptr, args, 2, "", "vemoctl: " + error + "\n" + VemoCtl::usage()};
}

class VemoCtlRunTest : public VemoCtlTest, public ::testing::WithParamInterface<CtlCase> {};

TEST_P(VemoCtlRunTest, ExitCodeAndOutput) {
    if (GetParam().serviceArgs != nullptr) {
        startService(GetParam().serviceArgs);
    }
    const Result result = runCtl(words(GetParam().args));
    EXPECT_EQ(result.exitCode, GetParam().exitCode);
    EXPECT_EQ(result.out, GetParam().out);
    EXPECT_EQ(result.err, GetParam().err);
}

const char kNotFound[] = "vemoctl: service 'vemo.ipc.IFlgrService' not found\n";
const char kWaiting[] = "flgrRequest: ok, waiting for onResults\n";

INSTANTIATE_TEST_SUITE_P(
    Table, VemoCtlRunTest,
    ::testing::Values(
        CtlCase{"Ping", "", "ping", 0, "vemo.ipc.IFlgrService: alive\n", ""},
        CtlCase{"List", "", "list", 0, "vemo.ipc.IFlgrService\n", ""},
        CtlCase{"Fact", "", "fact p m", 0, "factRequest: ok\n", ""},
        CtlCase{"Flgr", "", "flgr f a m 1", 0, std::string(kWaiting) + "onResults: status 0\n", ""},
        CtlCase{"Help", nullptr, "--help", 0, VemoCtl::usage(), ""},
        CtlCase{"FactServiceError", "--status 3", "fact p m", 1, "",
                "vemoctl: factRequest failed: service-specific error 3: UnknownError\n"},
        CtlCase{"PingNoService", nullptr, "ping", 3, "", kNotFound},
        CtlCase{"FactNoService", nullptr, "fact p m", 3, "", kNotFound},
        CtlCase{"FlgrTimeout", "--delay-ms 2000", "--timeout 0.05 flgr f a m 1", 4, kWaiting,
                "vemoctl: no onResults within 0.05 s\n"},
        CtlCase{"MissingMessageFile", "", "fact p @/nonexistent/event.json", 2, "",
                "vemoctl: cannot read message file '/nonexistent/event.json'\n"},
        usage("NoCommand", "", "no command given"),
        usage("UnknownCommand", "send", "unknown command 'send'"),
        usage("UnknownOption", "--verbose list", "unknown option '--verbose'"),
        usage("OptionWithoutValue", "--client", "option '--client' needs a value"),
        usage("FactOneArgument", "fact p", "fact needs <dataProducer> and <message | @file>"),
        usage("FlgrThreeArguments", "flgr f a m",
              "flgr needs <file> <applicationId> <metadata> <scale>"),
        usage("FlgrBadScale", "flgr f a m 0.5x", "bad scale '0.5x': a finite number"),
        usage("FlgrInfiniteScale", "flgr f a m 1e39", "bad scale '1e39': a finite number"),
        usage("BadTimeout", "--timeout 0 list", "bad timeout '0': a number of seconds above 0"),
        usage("ListWithArgument", "list x", "list takes no arguments"),
        usage("PingTwoNames", "ping a b", "ping takes at most one service name")),
    [](const ::testing::TestParamInfo<CtlCase>& info) { return std::string(info.param.name); });

TEST_F(VemoCtlTest, RequestsCarryTheClientArgumentsAndFileContents) {
    startService("");
    root_.writeFile("/tmp/event.json", "{\"header\":{}}\n");
    EXPECT_EQ(runCtl({"fact", "FactOrvuManager", "/data/vemo/campaign.json"}).exitCode, 0);
    EXPECT_EQ(
        runCtl({"--client", "me", "fact", "Fo", "@" + root_.path("/tmp/event.json")}).exitCode, 0);
    EXPECT_EQ(runCtl({"flgr", "/data/vemo/engb1.flgr", "app", "{}", "-1.5"}).exitCode, 0);
    root_.writeFile("/tmp/trace.jsonl", "{\"a\":1}\n\n{\"b\":2}");
    const Result lines =
        runCtl({"--each-line", "fact", "Us", "@" + root_.path("/tmp/trace.jsonl")});
    EXPECT_EQ(lines.exitCode, 0);
    EXPECT_EQ(lines.out, "factRequest: ok, 2 requests\n");
    for (const char* line :
         {"RecordingConnector:factRequest client=vemoctl producer=FactOrvuManager "
          "message=/data/vemo/campaign.json\n",
          "RecordingConnector:factRequest client=me producer=Fo message={\"header\":{}}\n\n",
          "RecordingConnector:flgrRequest client=vemoctl file=/data/vemo/engb1.flgr app=app "
          "metadata={} scale=-1.5\n",
          "RecordingConnector:factRequest client=vemoctl producer=Us message={\"a\":1}\n",
          "RecordingConnector:factRequest client=vemoctl producer=Us message={\"b\":2}\n"}) {
        EXPECT_TRUE(service_->waitForOutput(line, 10s)) << line << service_->output();
    }
}

TEST_F(VemoCtlTest, CompletionForADeadClientLeavesTheServiceServing) {
    startService("--delay-ms 500");
    auto ctl = startCtl({"flgr", "f", "a", "m", "1"});
    ASSERT_TRUE(service_->waitForOutput("RecordingConnector:flgrRequest client=vemoctl", 30s));
    ctl->signal(SIGKILL);
    EXPECT_EQ(ctl->waitForExit(10s), 128 + SIGKILL);
    ASSERT_TRUE(service_->waitForOutput("RecordingConnector:completed", 30s)) << service_->output();
    EXPECT_EQ(runCtl({"fact", "p", "still-there"}).exitCode, 0);
}

}  // namespace
