#pragma once
// Support for the telemetry producer's tests: its data files (tests/data/tdp).

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

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

}  // namespace test
}  // namespace tdp
}  // namespace fact
