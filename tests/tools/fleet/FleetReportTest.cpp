// The verdict must fail for every way the cloud's answer can betray the
// truth, and pass an honest one.
#include <gtest/gtest.h>

#include "FleetReport.h"

namespace vemo {
namespace fleet {
namespace {

const std::string kTruth =
    R"({"campaign_id":"c","application_id":"P_en-US_c","seed":1,"devices":5,)"
    R"("events_per_device":4,"items":[{"name":"item","length":4,"reports":20,)"
    R"("counts":[9,0,5,6]}]})";

std::string results(const std::string& checksum = "true", const std::string& devices = "5",
                    const std::string& reports = "20",
                    const std::string& lastInterval = "[3.5,8.5]") {
    return R"({"campaign_id":"c","applications":[{"application_id":"P_en-US_c","devices":)" +
           devices + R"(,"sessions":1,"checksum_ok":)" + checksum +
           R"(,"items":[{"name":"item","length":4,"reports":)" + reports +
           R"(,"privacy":{"epsilon":1,"cohort_size":16,"effective_epsilon":4,)"
           R"("reports_per_device":4,"no_noise":false,"warnings":["wide"]},"bins":[)"
           R"({"label":"a / x","noisy_count":8,"estimate":8.7,"stderr":1,"ci95":[6.7,10.7]},)"
           R"({"label":"a / y","noisy_count":1,"estimate":0.2,"stderr":1,"ci95":[-1.8,2.2]},)"
           R"({"label":"b / x","noisy_count":5,"estimate":4.9,"stderr":1,"ci95":[2.9,6.9]},)"
           R"({"label":"b / y","noisy_count":6,"estimate":6.2,"stderr":1,"ci95":)" +
           lastInterval + "}]}]}]}";
}

std::string health(const std::string& complete, const std::string& failed) {
    return R"({"status":"ok","sessions_open":0,"sessions_complete":)" + complete +
           R"(,"sessions_failed":)" + failed +
           R"(,"uploads":5,"directives_queued":0,"requests_waiting":0})";
}

TEST(FleetReportTest, HonestAnswerPassesWithItsTable) {
    const FleetReport::Outcome outcome = FleetReport::build(kTruth, results(), health("1", "0"));
    EXPECT_TRUE(outcome.ok) << outcome.text;
    EXPECT_NE(outcome.text.find("  b / y      6      6       6.2   [    3.5,     8.5]\n"),
              std::string::npos)
        << outcome.text;
    EXPECT_NE(outcome.text.find("privacy: effective epsilon 4 per report (epsilon 1 x sqrt("
                                "cohort size 16)), 4 reports per device per upload window\n"
                                "  warning: wide\n"),
              std::string::npos)
        << outcome.text;
    EXPECT_NE(outcome.text.find("verdict: ok: 1 session complete, 0 failed; sums checked over 5 "
                                "of 5 devices; 4 of 4 bins' 95% intervals hold the truth\n"),
              std::string::npos)
        << outcome.text;
}

TEST(FleetReportTest, AnswersThatBetrayTheTruthFail) {
    const struct {
        std::string results;
        std::string health;
        std::string fault;
    } cases[] = {
        {results("false"), health("1", "0"), "the sum's checksum failed"},
        {results("true", "4"), health("1", "0"), "the sum holds 4 of 5 devices"},
        {results("true", "5", "19"), health("1", "0"), "item summed 19 of 20 reports"},
        {results(), health("1", "1"), "1 session failed, 1 complete"},
        {results(), health("0", "0"), "0 sessions failed, 0 complete"},
        {results(), R"({"status":"ok"})", "the health answer has no \"sessions_complete\""},
        {results("true", "5", "20", "[7,9]"), health("1", "0"), ""},  // one miss of four is fine
        {results("true", "5", "20", "[7,9]").replace(results().find("[6.7,10.7]"), 10, "[0,1]"),
         health("1", "0"), ""},  // two of four still hold
        {R"({"campaign_id":"c","applications":[]})", health("1", "0"),
         "the cloud published nothing for P_en-US_c"},
        {"<html>", health("1", "0"), "the results is not a JSON object"},
    };
    for (const auto& c : cases) {
        const FleetReport::Outcome outcome = FleetReport::build(kTruth, c.results, c.health);
        EXPECT_EQ(outcome.ok, c.fault.empty()) << outcome.text;
        EXPECT_NE(outcome.text.find(c.fault), std::string::npos) << outcome.text;
    }
    // Three of four intervals missing is a fault, not chance.
    std::string missing = results("true", "5", "20", "[7,9]");
    missing.replace(missing.find("[6.7,10.7]"), 10, "[0,1]");
    missing.replace(missing.find("[2.9,6.9]"), 9, "[0,1]");
    const FleetReport::Outcome outcome = FleetReport::build(kTruth, missing, health("1", "0"));
    EXPECT_FALSE(outcome.ok);
    EXPECT_NE(outcome.text.find("1 of 4 bins' 95% intervals hold the truth; most intervals miss"),
              std::string::npos)
        << outcome.text;
}

}  // namespace
}  // namespace fleet
}  // namespace vemo
