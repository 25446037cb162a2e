// The wrapper over the real core: eviction surfaces as a warning and a count,
// and a directive's result comes back through the wrapper's callback.
#include <android/log.h>
#include <gtest/gtest.h>
#include <hostlog/LogCapture.h>

#include <condition_variable>
#include <mutex>

#include "aggregation/VemoCoreWrapper.h"
#include "fact/FactHeartbeatMetric.h"
#include "secagg/KeyPair.h"
#include "secagg/MaskDirective.h"
#include "secagg/ParticipationRequest.h"

namespace vemo {
namespace {

TEST(VemoCoreWrapperCoreTest, ThirteenthRequestEvictsAndAResultComesBack) {
    std::mutex lock;
    std::condition_variable arrived;
    std::vector<int32_t> masked;  // guarded by lock
    std::string texts;            // guarded by lock
    // After the state its callback writes, so that it goes first.
    auto wrapper = std::make_shared<VemoCoreWrapper>();
    wrapper->setVemoIntegralResultCallback([&](VemoIntegralResult r) {
        std::lock_guard<std::mutex> guard(lock);
        masked.assign(r.maskedData, r.maskedData + r.count);
        texts = std::string(r.firstText) + "|" + r.secondText + "|" + r.thirdText;
        arrived.notify_all();
    });
    hostlog::LogCapture log;
    const int32_t before =
        fact::FactHeartbeatMetric::GetInstance().getCount("VemoOldRequestEvicted");
    const int data[3] = {1, 2, 3};
    std::vector<std::string> requests(13);
    for (std::string& request : requests) {
        ASSERT_EQ(0, wrapper->integralInitiateNewRequest("app", data, 3, "{}", request));
    }
    EXPECT_EQ(1u, log.count("Vemo:VemoCoreWrapper",
                            "integralInitiateNewRequest:Old VEMO request evicted"));
    EXPECT_EQ(before + 1,
              fact::FactHeartbeatMetric::GetInstance().getCount("VemoOldRequestEvicted"));

    secagg::ParticipationRequest last;
    std::string error;
    ASSERT_TRUE(secagg::parseParticipationRequest(requests.back(), last, error)) << error;
    secagg::MaskDirective d;
    d.requestId = last.requestId;
    d.name = "app";
    d.secondName = "{}";
    d.length = 3;
    d.cohortId = "c9";
    d.neighbours = {secagg::KeyPair::generate().publicKey()};
    EXPECT_EQ(0, wrapper->mask(secagg::writeMaskDirective(d)));
    EXPECT_EQ(6, wrapper->mask(secagg::writeMaskDirective(d)));  // used
    std::unique_lock<std::mutex> guard(lock);
    ASSERT_TRUE(arrived.wait_for(guard, std::chrono::seconds(10), [&] { return !masked.empty(); }));
    EXPECT_EQ(3u, masked.size());
    EXPECT_EQ("{}|app|c9", texts);
}

}  // namespace
}  // namespace vemo
