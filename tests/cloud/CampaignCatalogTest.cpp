#include "CampaignCatalog.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "fact/InputEvent.h"
#include "fact/VectorProducer.h"

namespace vemo {
namespace cloud {
namespace {

const std::string kCampaigns = CLOUD_TEST_DATA_DIR "/campaigns";

// The label at the position where the device's own producer puts an event
// must name that event's bins, attribute by attribute in name order.
TEST(CampaignCatalogTest, LabelsMatchTheDevicesPositions) {
    const auto layout = CampaignCatalog(kCampaigns).find("wakeword_quality");
    ASSERT_TRUE(layout);
    const fact::VectorProducer producer(layout->schema.vectorProducerConfigs[1], nullptr);
    const auto& labels = layout->items[1].labels;
    ASSERT_EQ(labels.size(), static_cast<size_t>(producer.vectorSize()));
    EXPECT_EQ(labels[1], CampaignCatalog::kUnusedLabel);
    for (const char* channel : {"near", "far"}) {
        for (const auto& ms : {std::make_pair("5", "fast"), std::make_pair("500", "slow")}) {
            const fact::InputEvent event(
                std::string(R"({"data_producer":"TestProducer","attributes":[)") +
                R"({"key":"channel","value":")" + channel + R"("},{"key":"ms","value":")" +
                ms.first + R"("}]})");
            const fact::Vector vector = producer.CreateVector(event);
            const auto& elements = vector.elements();
            const size_t position =
                std::find(elements.begin(), elements.end(), 1) - elements.begin();
            std::string expected = std::string(channel) + " / " + ms.second;
            if (position == 0) {
                expected += CampaignCatalog::kNoBinSuffix;
            }
            EXPECT_EQ(labels.at(position), expected);
        }
    }
}

}  // namespace
}  // namespace cloud
}  // namespace vemo
