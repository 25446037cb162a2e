#include "ReportRenderer.h"

#include <gtest/gtest.h>

namespace vemo {
namespace cloud {
namespace {

CampaignResults sample() {
    ItemEstimate estimate;
    estimate.reports = 12;
    estimate.privacy = {0.5, 4, 1.0, 6.0, false, {"w"}};
    BinEstimate known;
    known.label = "a <b> & c";
    known.noisyCount = 10;
    known.estimate = 9.5;
    known.standardError = 2;
    known.low = 5.5;
    known.high = 13.5;
    BinEstimate unknown;
    unknown.label = "z";
    unknown.noisyCount = 2;
    unknown.estimable = false;
    estimate.bins = {known, unknown};
    return {"camp", {{"app", 3, 1, false, {{"item", 2, estimate}}}}};
}

// Other programs read these names and this order.
TEST(ReportRendererTest, ResultsJsonKeepsItsContract) {
    EXPECT_EQ(ReportRenderer::json(sample()),
              R"({"campaign_id":"camp","applications":[{"application_id":"app","devices":3,)"
              R"("sessions":1,"checksum_ok":false,"items":[{"name":"item","length":2,"reports":12,)"
              R"("privacy":{"epsilon":0.5,"cohort_size":4,"effective_epsilon":1.0,)"
              R"("reports_per_device":6.0,"no_noise":false,"warnings":["w"]},"bins":[)"
              R"({"label":"a <b> & c","noisy_count":10,"estimate":9.5,"stderr":2.0,)"
              R"("ci95":[5.5,13.5]},{"label":"z","noisy_count":2,"estimate":null,"stderr":null,)"
              R"("ci95":null}]}]}]})");
}

TEST(ReportRendererTest, HtmlEscapesTextAndDrawsEveryBin) {
    const std::string html = ReportRenderer::html(sample());
    EXPECT_EQ(html.find("<b>"), std::string::npos);
    EXPECT_NE(html.find("a &lt;b&gt; &amp; c"), std::string::npos);
    size_t dots = 0;
    for (size_t at = html.find("<circle"); at != std::string::npos;
         at = html.find("<circle", at + 1)) {
        ++dots;
    }
    EXPECT_EQ(dots, 2u);
}

}  // namespace
}  // namespace cloud
}  // namespace vemo
