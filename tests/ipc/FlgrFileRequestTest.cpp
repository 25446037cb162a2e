#include "ipc/FlgrFileRequest.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using vemo::ipc::FlgrFileRequest;

const std::string kFields = R"({"flgrFilePath":"p","applicationId":"a","metadata":"m",)";

TEST(FlgrFileRequestTest, WritesCompactJsonInMemberOrder) {
    EXPECT_EQ(FlgrFileRequest("/data/vemo/engb1.flgr", "app\"1", "{\"k\":1}", 0.5f).toJson(),
              R"({"flgrFilePath":"/data/vemo/engb1.flgr","applicationId":"app\"1",)"
              R"("metadata":"{\"k\":1}","scaleValue":0.5})");
    // A non-finite scale has no JSON number: null, which reads back as no request.
    EXPECT_EQ(FlgrFileRequest("p", "a", "m", std::numeric_limits<float>::infinity()).toJson(),
              kFields + R"("scaleValue":null})");
}

TEST(FlgrFileRequestTest, ReadsTheFourMembersAndIgnoresOthers) {
    const auto request = FlgrFileRequest::fromJson(
        R"({"extra":[1,2],"scaleValue":2,"metadata":"m","applicationId":"a","flgrFilePath":"p"})");
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(request->toJson(), kFields + R"("scaleValue":2.0})");
}

TEST(FlgrFileRequestTest, EveryFiniteFloatSurvivesTheJsonForm) {
    const float values[] = {0.1f,
                            -1.0f / 3.0f,
                            std::numeric_limits<float>::max(),
                            std::numeric_limits<float>::lowest(),
                            std::numeric_limits<float>::denorm_min(),
                            -0.0f};
    for (const float value : values) {
        const auto back = FlgrFileRequest::fromJson(FlgrFileRequest("p", "a", "m", value).toJson());
        ASSERT_NE(back, nullptr) << value;
        EXPECT_EQ(back->getScaleValue(), value);
        EXPECT_EQ(std::signbit(back->getScaleValue()), std::signbit(value));
    }
    // The float range's bounds written as doubles, and an underflow to zero.
    for (const char* scale : {"-3.4028234663852886e38", "3.4028234663852886e38", "1e-50"}) {
        EXPECT_NE(FlgrFileRequest::fromJson(kFields + R"("scaleValue":)" + scale + "}"), nullptr)
            << scale;
    }
}

TEST(FlgrFileRequestTest, BadJsonGivesNoRequest) {
    const std::string rows[] = {
        "flgr",
        R"(["p","a","m",1])",
        kFields + R"("scaleValue":"1"})",
        kFields + R"("scaleValue":null})",
        R"({"flgrFilePath":"p","applicationId":"a","metadata":"m"})",
        kFields + R"("scaleValue":1e39})",
        kFields + R"("scaleValue":-1e39})",
        R"({"flgrFilePath":1,"applicationId":"a","metadata":"m","scaleValue":1})",
        R"({"flgrFilePath":"p","metadata":"m","scaleValue":1})",
        R"({"flgrFilePath":"p","applicationId":"a","metadata":{},"scaleValue":1})",
    };
    for (const std::string& text : rows) {
        EXPECT_EQ(FlgrFileRequest::fromJson(text), nullptr) << text;
    }
}

TEST(FlgrFileRequestTest, DeepNestingGivesNoRequest) {
    const std::size_t depth = 1000000;
    EXPECT_EQ(FlgrFileRequest::fromJson(std::string(depth, '[') + std::string(depth, ']')),
              nullptr);
    EXPECT_EQ(FlgrFileRequest::fromJson(std::string(depth, '[')), nullptr);
}

}  // namespace
