#include <android/log.h>
#include <gtest/gtest.h>

#include "TdpTestSupport.h"
#include "TempDeviceRoot.h"
#include "fact/FactHeartbeatMetric.h"
#include "fact/tdp/TdpEventProducer.h"
#include "hostlog/LogCapture.h"

namespace fact {
namespace tdp {
namespace {

using std::chrono::milliseconds;

const TdpTimePoint kNow{std::chrono::hours(5)};
const char kProducer[] = "TelemetryDataProducer";

class TdpEventProducerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        root.writeBuildProps(
            {{"ro.product.config.type", "A1RABVCI"}, {"ro.product.locale", "en-GB"}});
        ASSERT_TRUE(storage->loadDataProducerConfig(test::readTestFile("config_basic.json")));
        handler->processEcsEvent(R"({"ucids":["hc-1","hc-2"]})");
    }
    int32_t count(const char* name) { return FactHeartbeatMetric::GetInstance().getCount(name); }
    std::string produce() { return producer.produceEvent(kProducer, handler, storage, kNow); }

    vemo::test::TempDeviceRoot root;
    hostlog::LogCapture logs;
    std::unique_ptr<TdpSignalHandler> handler{new TdpSignalHandler};
    std::unique_ptr<TdpSignalStorage> storage{new TdpSignalStorage};
    TdpEventProducer producer;
};

TEST_F(TdpEventProducerTest, BuildsFiveTextAttributesInFixedOrder) {
    storage->updateSignals({"ALARM_STATE_RINGING"}, kNow - milliseconds(90000), false);
    EXPECT_EQ(produce(),
              R"({"data_producer":"TelemetryDataProducer","attributes":[)"
              R"({"key":"device_type","value":"A1RABVCI"},{"key":"locale","value":"en-GB"},)"
              R"({"key":"homecard_uuid","value":"hc-1,hc-2"},)"
              R"({"key":"sensor_output","value":"alarm"},)"
              R"({"key":"time_delta_seconds","value":"0"}]})");
}

TEST_F(TdpEventProducerTest, StoredSignalDeltaTruncatesTowardZero) {
    const struct {
        milliseconds offset;
        int64_t seconds;
    } rows[] = {{milliseconds(-2900), -2},
                {milliseconds(2900), 2},
                {milliseconds(-999), 0},
                {milliseconds(-86400000), -86400},
                {milliseconds(0), 0}};
    for (const auto& row : rows) {
        TdpSignal stored("volume_change", kNow + row.offset, TdpSignal::kStateStored, 4);
        EXPECT_EQ(TdpEventProducer::timeDeltaSeconds(stored, kNow), row.seconds)
            << row.offset.count();
    }
    TdpSignal on("alarm", kNow - milliseconds(5000), TdpSignal::kStateOn, 0);
    EXPECT_EQ(TdpEventProducer::timeDeltaSeconds(on, kNow), 0);
    // Extreme time points saturate rather than overflow.
    TdpSignal ancient("x", TdpTimePoint::min(), TdpSignal::kStateStored, 0);
    EXPECT_EQ(TdpEventProducer::timeDeltaSeconds(ancient, TdpTimePoint::max()),
              INT64_MIN / 1000000000);

    storage->updateSignals({"VOLUME_CHANGED"}, kNow - milliseconds(2900), false);
    EXPECT_NE(produce().find(R"({"key":"time_delta_seconds","value":"-2"})"), std::string::npos);
}

TEST_F(TdpEventProducerTest, NoUcidGivesNothingAndCountsNothing) {
    std::unique_ptr<TdpSignalHandler> fresh{new TdpSignalHandler};
    storage->updateSignals({"VOLUME_CHANGED"}, kNow, false);
    const int32_t noData = count("TdpEventNoDataErrorCount");
    EXPECT_EQ(producer.produceEvent(kProducer, fresh, storage, kNow), "");
    EXPECT_EQ(count("TdpEventNoDataErrorCount"), noData);
    EXPECT_TRUE(logs.contains(ANDROID_LOG_DEBUG, "Vemo:TdpEventProducer",
                              "produceEvent:No UCID available for producing an event."));
}

TEST_F(TdpEventProducerTest, NoOutputSignalIsCountedAsNoData) {
    const int32_t noData = count("TdpEventNoDataErrorCount");
    EXPECT_EQ(produce(), "");
    EXPECT_EQ(count("TdpEventNoDataErrorCount"), noData + 1);
}

TEST_F(TdpEventProducerTest, MissingDeviceFactsAreCountedAndLogged) {
    storage->updateSignals({"VOLUME_CHANGED"}, kNow, false);
    const struct {
        std::map<std::string, std::string> props;
        const char* error;
    } rows[] = {
        {{{"ro.product.locale", "en-GB"}},
         "produceEvent:Invalid device type string when retrieving device type using "
         "__system_property_get()"},
        {{{"ro.product.config.type", "A1RABVCI"}},
         "produceEvent:Invalid locale string when retrieving locales using "
         "__system_property_get()"},
    };
    for (const auto& row : rows) {
        root.writeBuildProps(row.props);
        logs.clear();
        const int32_t before = count("TdpDeviceInfoErrorCount");
        EXPECT_EQ(produce(), "");
        EXPECT_EQ(count("TdpDeviceInfoErrorCount"), before + 1);
        EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, "Vemo:TdpEventProducer", row.error))
            << hostlog::describe(logs.entries());
    }
}

}  // namespace
}  // namespace tdp
}  // namespace fact
