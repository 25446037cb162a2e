// vemoctl's logic in-process over a fake directory, then the real binary
// against the test service process.
#include "VemoCtl.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include "ChildProcess.h"
#include "RecordingConnector.h"
#include "TempDeviceRoot.h"
#include "ipc/NativeService.h"

namespace {

using namespace std::chrono_literals;
using vemo::ctl::VemoCtl;
using vemo::test::ChildProcess;
using vemo::test::RecordingConnector;

class FakeDirectory : public vemo::ctl::ServiceDirectory {
  public:
    android::sp<android::IBinder> find(const std::string& name) override {
        const auto it = services.find(name);
        return it == services.end() ? nullptr : it->second;
    }
    std::vector<std::string> list() override {
        std::vector<std::string> names;
        for (const auto& entry : services) {
            names.push_back(entry.first);
        }
        return names;
    }
    std::map<std::string, android::sp<android::IBinder>> services;
};

class VemoCtlTest : public ::testing::Test {
  protected:
    void serve(std::shared_ptr<RecordingConnector> connector) {
        connector_ = connector;
        directory_.services["vemo.ipc.IFlgrService"] =
            new vemo::ipc::NativeService(std::move(connector));
    }
    int run(const std::vector<std::string>& args) {
        out_.str("");
        err_.str("");
        return VemoCtl(directory_, out_, err_).run(args);
    }

    vemo::test::TempDeviceRoot root_;
    FakeDirectory directory_;
    std::shared_ptr<RecordingConnector> connector_;
    std::ostringstream out_;
    std::ostringstream err_;
};

struct UsageCase {
    const char* name;
    std::vector<std::string> args;
    const char* error;
};

class VemoCtlUsageTest : public VemoCtlTest, public ::testing::WithParamInterface<UsageCase> {};

TEST_P(VemoCtlUsageTest, PrintsTheErrorAndUsageAndExitsTwo) {
    serve(std::make_shared<RecordingConnector>());
    EXPECT_EQ(run(GetParam().args), VemoCtl::kExitUsage);
    EXPECT_EQ(err_.str(), std::string("vemoctl: ") + GetParam().error + "\n" + VemoCtl::usage());
    EXPECT_EQ(out_.str(), "");
    EXPECT_TRUE(connector_->factCalls().empty());
    EXPECT_TRUE(connector_->flgrCalls().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Table, VemoCtlUsageTest,
    ::testing::Values(
        UsageCase{"NoCommand", {}, "no command given"},
        UsageCase{"UnknownCommand", {"send"}, "unknown command 'send'"},
        UsageCase{"UnknownOption", {"--verbose", "list"}, "unknown option '--verbose'"},
        UsageCase{"OptionWithoutValue", {"--client"}, "option '--client' needs a value"},
        UsageCase{
            "FactOneArgument", {"fact", "p"}, "fact needs <dataProducer> and <message | @file>"},
        UsageCase{"FlgrThreeArguments",
                  {"flgr", "f", "a", "m"},
                  "flgr needs <file> <applicationId> <metadata> <scale>"},
        UsageCase{
            "FlgrBadScale", {"flgr", "f", "a", "m", "0.5x"}, "bad scale '0.5x': a finite number"},
        UsageCase{"FlgrInfiniteScale",
                  {"flgr", "f", "a", "m", "1e39"},
                  "bad scale '1e39': a finite number"},
        UsageCase{"BadTimeout",
                  {"--timeout", "0", "list"},
                  "bad timeout '0': a number of seconds above 0"},
        UsageCase{"ListWithArgument", {"list", "x"}, "list takes no arguments"},
        UsageCase{"PingTwoNames", {"ping", "a", "b"}, "ping takes at most one service name"}),
    [](const ::testing::TestParamInfo<UsageCase>& info) { return std::string(info.param.name); });

TEST_F(VemoCtlTest, FactSendsTheMessageOrAFilesContents) {
    serve(std::make_shared<RecordingConnector>());
    EXPECT_EQ(run({"fact", "UnifiedSensingService", "{\"e\":1}"}), VemoCtl::kExitOk);
    EXPECT_EQ(out_.str(), "factRequest: ok\n");
    root_.writeFile("/tmp/event.json", "{\"header\":{}}\n");
    EXPECT_EQ(run({"--client", "me", "fact", "UnifiedSensingService",
                   "@" + root_.path("/tmp/event.json")}),
              VemoCtl::kExitOk);
    const auto calls = connector_->factCalls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].client, "vemoctl");
    EXPECT_EQ(calls[0].message, "{\"e\":1}");
    EXPECT_EQ(calls[1].client, "me");
    EXPECT_EQ(calls[1].dataProducer, "UnifiedSensingService");
    EXPECT_EQ(calls[1].message, "{\"header\":{}}\n");

    EXPECT_EQ(run({"fact", "p", "@" + root_.path("/tmp/missing")}), VemoCtl::kExitUsage);
    EXPECT_EQ(err_.str(),
              "vemoctl: cannot read message file '" + root_.path("/tmp/missing") + "'\n");
}

TEST_F(VemoCtlTest, ServiceErrorsPrintCodeAndMessage) {
    serve(std::make_shared<RecordingConnector>(3));
    EXPECT_EQ(run({"fact", "p", "m"}), VemoCtl::kExitServiceError);
    EXPECT_EQ(err_.str(), "vemoctl: factRequest failed: service-specific error 3: UnknownError\n");
    EXPECT_EQ(run({"flgr", "f", "a", "m", "1"}), VemoCtl::kExitServiceError);
    EXPECT_EQ(err_.str(), "vemoctl: flgrRequest failed: service-specific error 3: UnknownError\n");
    serve(nullptr);
    EXPECT_EQ(run({"fact", "p", "m"}), VemoCtl::kExitServiceError);
    EXPECT_EQ(err_.str(),
              "vemoctl: factRequest failed: service-specific error 121: ServerNotReady\n");
}

TEST_F(VemoCtlTest, FlgrWaitsForOnResults) {
    serve(std::make_shared<RecordingConnector>());
    EXPECT_EQ(run({"flgr", "/data/vemo/engb1.flgr", "app", "{}", "-1.5"}), VemoCtl::kExitOk);
    EXPECT_EQ(out_.str(), "flgrRequest: ok, waiting for onResults\nonResults: status 0\n");
    ASSERT_EQ(connector_->flgrCalls().size(), 1u);
    EXPECT_EQ(connector_->flgrCalls()[0].scaleValue, -1.5f);
}

TEST_F(VemoCtlTest, FlgrGivesUpAfterTheTimeout) {
    serve(std::make_shared<RecordingConnector>(0, nullptr, 2s));
    EXPECT_EQ(run({"--timeout", "0.05", "flgr", "f", "a", "m", "1"}), VemoCtl::kExitTimeout);
    EXPECT_EQ(err_.str(), "vemoctl: no onResults within 0.05 s\n");
}

TEST_F(VemoCtlTest, ListPingAndMissingServices) {
    EXPECT_EQ(run({"ping"}), VemoCtl::kExitUnavailable);
    EXPECT_EQ(err_.str(), "vemoctl: service 'vemo.ipc.IFlgrService' not found\n");
    EXPECT_EQ(run({"fact", "p", "m"}), VemoCtl::kExitUnavailable);
    serve(std::make_shared<RecordingConnector>());
    EXPECT_EQ(run({"list"}), VemoCtl::kExitOk);
    EXPECT_EQ(out_.str(), "vemo.ipc.IFlgrService\n");
    EXPECT_EQ(run({"ping"}), VemoCtl::kExitOk);
    EXPECT_EQ(out_.str(), "vemo.ipc.IFlgrService: alive\n");
    EXPECT_EQ(run({"--help"}), VemoCtl::kExitOk);
    EXPECT_EQ(out_.str(), VemoCtl::usage());
}

// The real binary against the service process.
class VemoCtlProcessTest : public ::testing::Test {
  protected:
    struct Result {
        int exitCode;
        std::string out;
        std::string err;
    };

    std::unique_ptr<ChildProcess> startCtl(const std::vector<std::string>& args) {
        // stdout goes to a file so that it stays apart from stderr.
        std::vector<std::string> shell{"-c", "out=$1; shift; exec \"$@\" >\"$out\"", "sh",
                                       root_.path("/vemoctl.out")};
        // The shell is a host program; vemoctl may need the target's emulator.
        const auto& emulator = ChildProcess::emulator();
        shell.insert(shell.end(), emulator.begin(), emulator.end());
        shell.push_back(VEMOCTL_PATH);
        shell.insert(shell.end(), args.begin(), args.end());
        return std::make_unique<ChildProcess>(
            "/bin/sh", shell,
            std::map<std::string, std::string>{{"VEMO_DEVICE_ROOT", root_.root()}});
    }
    Result runCtl(const std::vector<std::string>& args) {
        auto ctl = startCtl(args);
        Result result{ctl->waitForExit(60s), "", ""};
        ctl->waitForOutput("\x01 never printed", 10s);  // returns at end of output
        // On the host liblog writes to stderr too (on the device it goes to logcat).
        static const std::regex logLine(R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} [^\n]*\n)");
        result.err = std::regex_replace(ctl->output(), logLine, "");
        result.out = root_.readFile("/vemoctl.out");
        return result;
    }
    void startService(const std::vector<std::string>& args = {}) {
        service_ = std::make_unique<ChildProcess>(
            FLGR_TEST_SERVICE_PATH, args,
            std::map<std::string, std::string>{{"VEMO_DEVICE_ROOT", root_.root()}});
        ASSERT_TRUE(service_->waitForOutput(
            "start:addedBinderService, descriptor=vemo.ipc.IFlgrService", 30s))
            << service_->output();
    }

    vemo::test::TempDeviceRoot root_;
    std::unique_ptr<ChildProcess> service_;
};

TEST_F(VemoCtlProcessTest, UsageAndMissingService) {
    Result result = runCtl({});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "vemoctl: no command given\n" + VemoCtl::usage());
    result = runCtl({"ping"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err, "vemoctl: service 'vemo.ipc.IFlgrService' not found\n");
}

TEST_F(VemoCtlProcessTest, PingListFactAndFlgrSucceed) {
    startService();
    Result result = runCtl({"ping"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "vemo.ipc.IFlgrService: alive\n");
    result = runCtl({"list"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("vemo.ipc.IFlgrService\n"), std::string::npos) << result.out;
    result = runCtl({"fact", "FactOrvuManager", "/data/vemo/campaign.json"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "factRequest: ok\n");
    EXPECT_TRUE(
        service_->waitForOutput("RecordingConnector:factRequest client=vemoctl "
                                "producer=FactOrvuManager message=/data/vemo/campaign.json",
                                10s));
    result = runCtl({"flgr", "/data/vemo/engb1.flgr", "app", "{}", "0.5"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "flgrRequest: ok, waiting for onResults\nonResults: status 0\n");
}

TEST_F(VemoCtlProcessTest, ServiceErrorIsPrintedWithItsCode) {
    startService({"--status", "3"});
    const Result result = runCtl({"fact", "p", "m"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "vemoctl: factRequest failed: service-specific error 3: UnknownError\n");
    EXPECT_EQ(result.out, "");
}

TEST_F(VemoCtlProcessTest, CompletionForADeadClientLeavesTheServiceServing) {
    startService({"--delay-ms", "500"});
    auto ctl = startCtl({"flgr", "f", "a", "m", "1"});
    ASSERT_TRUE(service_->waitForOutput("RecordingConnector:flgrRequest client=vemoctl", 30s));
    ctl->signal(SIGKILL);
    EXPECT_EQ(ctl->waitForExit(10s), 128 + SIGKILL);
    ASSERT_TRUE(service_->waitForOutput("RecordingConnector:completed", 30s)) << service_->output();
    const Result result = runCtl({"fact", "p", "still-there"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
}

}  // namespace
