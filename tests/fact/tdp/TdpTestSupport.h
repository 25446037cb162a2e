#pragma once
// Support for the telemetry producer's tests: its data files
// (tests/data/tdp) and a heartbeat that has sent its first report, so that
// counts taken by a test are not zeroed under it.

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "TempDeviceRoot.h"
#include "fact/FactHeartbeatMetric.h"
#include "hostlog/LogCapture.h"

namespace fact {
namespace tdp {
namespace test {

inline std::string readTestFile(const std::string& name) {
    std::ifstream in(std::string(TDP_TEST_DATA_DIR) + "/" + name, std::ios::binary);
    if (!in) {
        throw std::runtime_error("missing test data file " + name);
    }
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// The non-empty lines of a test data file.
inline std::vector<std::string> readTestLines(const std::string& name) {
    std::istringstream in(readTestFile(name));
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
        if (!line.empty()) {
            lines.push_back(line);
        }
    }
    return lines;
}

// Starts the process-wide heartbeat and waits (bounded) for its first report,
// which zeroes every counter; registered as a global test environment.
class HeartbeatStarted : public ::testing::Environment {
  public:
    void SetUp() override {
        vemo::test::TempDeviceRoot root;
        hostlog::LogCapture logs;
        FactHeartbeatMetric::GetInstance();
        for (int i = 0; i < 1000 && logs.count("Vemo:FactMetrics", "sendMetrics:Sending") == 0;
             ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        ASSERT_NE(logs.count("Vemo:FactMetrics", "sendMetrics:Sending"), 0u);
    }
};

}  // namespace test
}  // namespace tdp
}  // namespace fact
