// Cohorts of in-process handles play whole sessions against the library's
// neighbour graph: the masks must cancel in the sum, and nothing else.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <random>

#include "CoreDevice.h"
#include "secagg/Checksum.h"
#include "secagg/NeighbourGraph.h"

namespace vemocore {
namespace test {
namespace {

struct Session {
    std::vector<std::vector<uint32_t>> masked;
    std::string texts;  // of the first member's result
};

// Every device initiates, the cloud links them and sends each its directive,
// every device masks; returns what each delivered.
Session play(size_t members,
             const std::function<secagg::ParticipationRequest(CoreDevice&)>& start) {
    std::vector<std::unique_ptr<CoreDevice>> devices;
    std::vector<secagg::ParticipationRequest> requests;
    for (size_t i = 0; i < members; ++i) {
        devices.push_back(std::make_unique<CoreDevice>());
        requests.push_back(start(*devices.back()));
    }
    const auto graph = secagg::neighbourGraph(members, 12);
    const secagg::MaskDirective shared = directiveFor(requests[0], {});
    for (size_t i = 0; i < members; ++i) {
        std::vector<secagg::PublicKey> neighbours;
        for (size_t j : graph[i]) {
            neighbours.push_back(requests[j].publicKey);
        }
        secagg::MaskDirective d = directiveFor(requests[i], neighbours);
        d.sessionId = shared.sessionId;
        const std::string text = secagg::writeMaskDirective(d);
        EXPECT_EQ(0, vemoHandleMask(devices[i]->handle, text.c_str()));
    }
    Session out;
    for (auto& device : devices) {
        const std::vector<Received> received = device->finish();
        EXPECT_EQ(1u, received.size());
        if (received.empty()) {
            continue;
        }
        EXPECT_NE(std::this_thread::get_id(), received[0].thread);
        out.texts = received[0].texts;
        out.masked.push_back(received[0].words);
    }
    return out;
}

TEST(VemoCoreCohortTest, MasksCancelInTheSumAndTheChecksumCatchesFaults) {
    std::mt19937 random(7);
    for (size_t members : {2u, 3u, 13u}) {
        std::vector<std::vector<int32_t>> inputs(members);
        std::vector<uint32_t> expected(41, 0);
        for (auto& input : inputs) {
            for (int i = 0; i < 40; ++i) {
                input.push_back(static_cast<int32_t>(random()));
            }
            input[0] = std::numeric_limits<int32_t>::max();
            input[1] = std::numeric_limits<int32_t>::min();
            input[2] = -1;
            input.push_back(secagg::checksumOf(input.data(), input.size()));
            secagg::addInto(expected.data(), reinterpret_cast<const uint32_t*>(input.data()), 41);
        }
        size_t next = 0;
        const Session s =
            play(members, [&](CoreDevice& device) { return device.initiate(inputs[next++]); });
        ASSERT_EQ(members, s.masked.size());
        // First the metadata, then the application id: the upload's order.
        EXPECT_EQ("meta|app|cohort-7", s.texts);
        std::vector<uint32_t> sum(41, 0);
        for (size_t i = 0; i < members; ++i) {
            EXPECT_NE(std::vector<uint32_t>(inputs[i].begin(), inputs[i].end()), s.masked[i]);
            secagg::addInto(sum.data(), s.masked[i].data(), 41);
        }
        EXPECT_EQ(expected, sum) << members;

        // Without one member the masks do not cancel, which the checksum shows.
        std::vector<uint32_t> missing(41, 0);
        for (size_t i = 1; i < members; ++i) {
            secagg::addInto(missing.data(), s.masked[i].data(), 41);
        }
        EXPECT_FALSE(secagg::checksumHolds(missing.data(), missing.size())) << members;
    }
}

TEST(VemoCoreCohortTest, GradientBlobsAreQuantisedThenMasked) {
    const float inf = std::numeric_limits<float>::infinity();
    const std::vector<float> values = {1.25f, -0.5f, 1e30f, std::nanf(""), -inf, 0.004f, 0.025f};
    const std::vector<int32_t> quantised = {
        125, -50, std::numeric_limits<int32_t>::max(), 0, std::numeric_limits<int32_t>::min(),
        0,   3};
    const Session s = play(3, [&](CoreDevice& device) {
        auto request = device.initiateFlgr(values, 100.0f);
        EXPECT_EQ(secagg::Kind::Flgr, request.kind);
        EXPECT_EQ(100.0f, request.scale);
        return request;
    });
    ASSERT_EQ(3u, s.masked.size());
    EXPECT_EQ("app|meta|cohort-7", s.texts);
    std::vector<uint32_t> sum(values.size(), 0);
    for (const auto& words : s.masked) {
        ASSERT_EQ(values.size(), words.size());
        secagg::addInto(sum.data(), words.data(), sum.size());
    }
    for (size_t i = 0; i < values.size(); ++i) {
        EXPECT_EQ(3u * static_cast<uint32_t>(quantised[i]), sum[i]) << i;
    }
}

TEST(VemoCoreCohortTest, AMaskedVectorLooksUniform) {
    // A one-hot vector: without masks its bytes are almost all zero.
    std::vector<int32_t> oneHot(1 << 16, 0);
    oneHot[5] = 1;
    const Session s = play(2, [&](CoreDevice& device) { return device.initiate(oneHot); });
    ASSERT_EQ(2u, s.masked.size());
    std::vector<double> counts(256, 0.0);
    for (uint32_t word : s.masked[0]) {
        for (int b = 0; b < 4; ++b) {
            counts[(word >> (8 * b)) & 0xff] += 1;
        }
    }
    const double expected = 4.0 * oneHot.size() / 256;
    double chiSquare = 0;
    for (double c : counts) {
        chiSquare += (c - expected) * (c - expected) / expected;
    }
    // 255 degrees of freedom: mean 255, and above 420 with probability below
    // 1e-9 for uniform bytes; a repeated or missing mask lands far beyond.
    EXPECT_LT(chiSquare, 420.0);
}

}  // namespace
}  // namespace test
}  // namespace vemocore
