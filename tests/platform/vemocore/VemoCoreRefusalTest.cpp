// What the core refuses, with which code, and whether the refused directive
// used its request up; eviction, creation words, bad arguments, lifecycle and
// logging.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <functional>

#include "CoreDevice.h"
#include "secagg/KeyPair.h"

namespace vemocore {
namespace test {
namespace {

std::mutex gLogLock;
std::vector<std::string> gLog;  // "<level> <text>"; guarded by gLogLock

void recordLog(VemoLogLevel level, const char* text) {
    std::lock_guard<std::mutex> guard(gLogLock);
    gLog.push_back(std::to_string(level) + " " + text);
}

class VemoCoreRefusalTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(0, vemoRegisterLoggingCallback(recordLog, VEMO_LOG_VERBOSE));
        std::lock_guard<std::mutex> guard(gLogLock);
        gLog.clear();
    }
    void TearDown() override { vemoRegisterLoggingCallback(nullptr, VEMO_LOG_VERBOSE); }

    // Lines logged at `level` that begin with `prefix`.
    static size_t logged(int level, const std::string& prefix) {
        std::lock_guard<std::mutex> guard(gLogLock);
        const std::string start = std::to_string(level) + " " + prefix;
        return std::count_if(gLog.begin(), gLog.end(),
                             [&](const std::string& line) { return line.rfind(start, 0) == 0; });
    }
};

TEST_F(VemoCoreRefusalTest, EachRuleHasItsCodeAndUsesTheRequestUpOnlyWhenNamed) {
    using secagg::MaskDirective;
    const secagg::PublicKey peer = secagg::KeyPair::generate().publicKey();
    const secagg::PublicKey other = secagg::KeyPair::generate().publicKey();
    struct Row {
        const char* name;
        int code;
        bool consumes;
        std::function<std::string(MaskDirective, const secagg::PublicKey& own)> directive;
    };
    auto edit = [](std::function<void(MaskDirective&, const secagg::PublicKey&)> change) {
        return [change](MaskDirective d, const secagg::PublicKey& own) {
            change(d, own);
            return secagg::writeMaskDirective(d);
        };
    };
    auto replace = [](const char* from, const char* to) {
        return [from, to](MaskDirective d, const secagg::PublicKey&) {
            std::string text = secagg::writeMaskDirective(d);
            return text.replace(text.find(from), std::strlen(from), to);
        };
    };
    const std::vector<Row> rows = {
        {"unknown request", 2, false, edit([](MaskDirective& d, auto&) { d.requestId[0] ^= 1; })},
        {"used request", 2, true, edit([](MaskDirective&, auto&) {})},
        {"other name", 3, true, edit([](MaskDirective& d, auto&) { d.name += "x"; })},
        {"other second name", 3, true, edit([](MaskDirective& d, auto&) { d.secondName = ""; })},
        {"other kind", 3, true, edit([](MaskDirective& d, auto&) { d.kind = secagg::Kind::Flgr; })},
        {"other length", 3, true, edit([](MaskDirective& d, auto&) { d.length = 4; })},
        {"length 2^31", 3, true, edit([](MaskDirective& d, auto&) { d.length = 1u << 31; })},
        {"stage 2", 3, true, edit([](MaskDirective& d, auto&) { d.stage = 2; })},
        {"other generator", 3, true, edit([](MaskDirective& d, auto&) { d.prg = "chacha20"; })},
        {"own key listed", 3, true,
         edit([](MaskDirective& d, auto& own) { d.neighbours.push_back(own); })},
        {"neighbour twice", 3, true, edit([&](MaskDirective& d, auto&) {
             d.neighbours = {other, peer, other};
         })},
        {"too few neighbours", 3, true, edit([](MaskDirective& d, auto&) { d.neighbours = {}; })},
        {"too many neighbours", 3, true, edit([](MaskDirective& d, auto&) {
             d.neighbours.clear();
             for (int i = 0; i < 13; ++i) {
                 d.neighbours.push_back(secagg::KeyPair::generate().publicKey());
             }
         })},
        {"a million neighbours", 3, true,
         [](MaskDirective d, auto&) {
             const std::string text = secagg::writeMaskDirective(d);
             std::string many(2 * 1000000 - 1, ',');  // "0,0,...,0"
             for (size_t i = 0; i < many.size(); i += 2)
                 many[i] = '0';
             return text.substr(0, text.find("\"neighbours\"")) + "\"neighbours\":[" + many + "]}";
         }},
        {"small-order key", 4, true, edit([&](MaskDirective& d, auto&) {
             d.neighbours = {peer, secagg::PublicKey{}};
         })},
        {"not JSON", 1, false, [](MaskDirective, auto&) { return std::string("{\"v\":1,"); }},
        {"wrong type", 1, true, replace("\"stage\":1", "\"stage\":\"1\"")},
        {"unknown version", 1, true, replace("\"v\":1", "\"v\":2")},
    };
    for (const Row& row : rows) {
        SetUp();
        CoreDevice device;
        const auto request = device.initiate({4, 5, 9});
        const MaskDirective valid = directiveFor(request, {peer});
        const std::string validText = secagg::writeMaskDirective(valid);
        const bool usedBefore = std::string(row.name) == "used request";
        if (usedBefore) {
            ASSERT_EQ(0, vemoHandleMask(device.handle, validText.c_str()));
        }
        EXPECT_EQ(row.code,
                  vemoHandleMask(device.handle, row.directive(valid, request.publicKey).c_str()))
            << row.name;
        EXPECT_EQ(row.consumes ? 2 : 0, vemoHandleMask(device.handle, validText.c_str()))
            << row.name;
        const size_t delivered = (usedBefore ? 1u : 0u) + (row.consumes ? 0u : 1u);
        EXPECT_EQ(delivered, device.finish().size()) << row.name;
        EXPECT_LE(1u, logged(VEMO_LOG_ERROR, "vemoHandleMask:")) << row.name;
    }
}

TEST_F(VemoCoreRefusalTest, TheThirteenthRequestEvictsTheOldest) {
    CoreDevice device;
    std::vector<secagg::ParticipationRequest> requests;
    int code = -1;
    for (int i = 0; i < 12; ++i) {
        requests.push_back(device.initiate({i}, code));
        ASSERT_EQ(0, code);
    }
    requests.push_back(device.initiate({12}, code));
    EXPECT_EQ(5, code);
    EXPECT_EQ(1u, requests.back().length);  // the new request was still handed out
    EXPECT_EQ(1u, logged(VEMO_LOG_WARNING, "vemoHandleIntegralInitiateNewRequest:request"));
    const secagg::PublicKey peer = secagg::KeyPair::generate().publicKey();
    for (size_t i : {0u, 1u, 12u}) {
        const std::string text = secagg::writeMaskDirective(directiveFor(requests[i], {peer}));
        EXPECT_EQ(i == 0 ? 2 : 0, vemoHandleMask(device.handle, text.c_str())) << i;
    }
    EXPECT_EQ(2u, device.finish().size());
}

TEST_F(VemoCoreRefusalTest, BadCreationWordsAndArgumentsAreInvalid) {
    const std::vector<VemoCoreConfig> configs = {
        {static_cast<VemoPreferredProtocol>(1), 12, 1, 12, 1, 0},
        {VEMO_PROTOCOL_AES128CTR, 0, 1, 12, 1, 0},
        {VEMO_PROTOCOL_AES128CTR, 12, 2, 12, 1, 0},
        {VEMO_PROTOCOL_AES128CTR, 12, 1, 12, 0, 0},
        {VEMO_PROTOCOL_AES128CTR, 12, 1, 3, 4, 0},
        {VEMO_PROTOCOL_AES128CTR, 1u << 30, 1, 12, 1, 0},
        {VEMO_PROTOCOL_AES128CTR, 12, 1, 12, 1, 9},
    };
    for (const VemoCoreConfig& config : configs) {
        VemoHandle handle = nullptr;
        EXPECT_EQ(1, vemoHandleCreate(&config, nullptr, &handle)) << config.pendingCapacity;
        EXPECT_EQ(nullptr, handle);
    }
    CoreDevice device;
    const VemoHandle h = device.handle;
    const int32_t data[3] = {1, 2, 3};
    const uint8_t blob[8] = {};
    const float nan = std::nanf("");
    char* out = nullptr;
    const std::vector<std::function<int()>> calls = {
        [&] { return vemoHandleIntegralInitiateNewRequest(nullptr, "n", data, 3, "s", &out); },
        [&] { return vemoHandleIntegralInitiateNewRequest(h, "n", nullptr, 3, "s", &out); },
        [&] { return vemoHandleIntegralInitiateNewRequest(h, "n", data, 0, "s", &out); },
        // Refused on the count alone, before anything is read.
        [&] { return vemoHandleIntegralInitiateNewRequest(h, "n", data, 1u << 31, "s", &out); },
        [&] { return vemoHandleFlgrInitiateNewRequest(h, "a", blob, 7, 1.0f, "m", &out); },
        [&] { return vemoHandleFlgrInitiateNewRequest(h, "a", blob, 8, nan, "m", &out); },
        [&] { return vemoHandleMask(h, nullptr); },
        [&] { return vemoHandleDestroy(nullptr); },
        [&] { return vemoRegisterLoggingCallback(recordLog, static_cast<VemoLogLevel>(0)); },
    };
    for (size_t i = 0; i < calls.size(); ++i) {
        EXPECT_EQ(1, calls[i]()) << i;
        EXPECT_EQ(nullptr, out) << i;
    }
}

TEST_F(VemoCoreRefusalTest, DestroyWaitsForTheDeliveryInFlight) {
    CoreDevice device(std::chrono::milliseconds(100));
    const auto request = device.initiate({1, 2});
    const std::string text = secagg::writeMaskDirective(
        directiveFor(request, {secagg::KeyPair::generate().publicKey()}));
    ASSERT_EQ(0, vemoHandleMask(device.handle, text.c_str()));
    EXPECT_EQ(0u, device.delivered());  // not inside the caller's call
    EXPECT_EQ(1u, device.finish().size());
}

TEST_F(VemoCoreRefusalTest, AttributesAreLoggedAtInfoAndLevelsAboveTheMaximumAreDropped) {
    EXPECT_EQ(0, vemoLibPrintAttributes());
    EXPECT_EQ(1u, logged(VEMO_LOG_INFO,
                         "vemoLibPrintAttributes:version 1.0.0, stage 1, generator aes128ctr"));
    ASSERT_EQ(0, vemoRegisterLoggingCallback(recordLog, VEMO_LOG_WARNING));
    EXPECT_EQ(0, vemoLibPrintAttributes());
    EXPECT_EQ(1u, logged(VEMO_LOG_INFO, "vemoLibPrintAttributes:"));
}

}  // namespace
}  // namespace test
}  // namespace vemocore
