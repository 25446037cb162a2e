#include "ipc/FlgrFileRequest.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using vemo::ipc::FlgrFileRequest;

TEST(FlgrFileRequestTest, WritesCompactJsonInMemberOrder) {
    const FlgrFileRequest request("/data/vemo/engb1.flgr", "app\"1", "{\"k\":1}", 0.5f);
    EXPECT_EQ(request.toJson(),
              R"({"flgrFilePath":"/data/vemo/engb1.flgr","applicationId":"app\"1",)"
              R"("metadata":"{\"k\":1}","scaleValue":0.5})");
}

TEST(FlgrFileRequestTest, FloatsSurviveWideningAndNarrowing) {
    const float values[] = {0.1f,
                            -1.0f / 3.0f,
                            std::numeric_limits<float>::max(),
                            std::numeric_limits<float>::lowest(),
                            std::numeric_limits<float>::denorm_min(),
                            0.0f,
                            -0.0f};
    for (const float value : values) {
        const auto back = FlgrFileRequest::fromJson(FlgrFileRequest("p", "a", "m", value).toJson());
        ASSERT_NE(back, nullptr) << value;
        EXPECT_EQ(back->getScaleValue(), value);
        EXPECT_EQ(std::signbit(back->getScaleValue()), std::signbit(value));
    }
}

TEST(FlgrFileRequestTest, ReadsTheFourMembersAndIgnoresOthers) {
    const auto request = FlgrFileRequest::fromJson(
        R"({"extra":[1,2],"scaleValue":2,"metadata":"m","applicationId":"a","flgrFilePath":"p"})");
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(request->getFilePath(), "p");
    EXPECT_EQ(request->getApplicationId(), "a");
    EXPECT_EQ(request->getMetadata(), "m");
    EXPECT_EQ(request->getScaleValue(), 2.0f);
    EXPECT_EQ(request->toJson(),
              R"({"flgrFilePath":"p","applicationId":"a","metadata":"m","scaleValue":2.0})");
}

TEST(FlgrFileRequestTest, AcceptsTheFiniteFloatRangeBoundsIncluded) {
    for (const char* scale : {"-3.4028234663852886e38", "3.4028234663852886e38", "-0", "1e-50"}) {
        const auto request = FlgrFileRequest::fromJson(
            std::string(R"({"flgrFilePath":"p","applicationId":"a","metadata":"m","scaleValue":)") +
            scale + "}");
        EXPECT_NE(request, nullptr) << scale;
    }
}

struct BadJson {
    const char* name;
    const char* text;
};

class FlgrFileRequestBadJsonTest : public ::testing::TestWithParam<BadJson> {};

TEST_P(FlgrFileRequestBadJsonTest, GivesNoRequest) {
    EXPECT_EQ(FlgrFileRequest::fromJson(GetParam().text), nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Table, FlgrFileRequestBadJsonTest,
    ::testing::Values(
        BadJson{"Empty", ""}, BadJson{"NotJson", "flgr"},
        BadJson{"Truncated", R"({"flgrFilePath":"p","applicationId":"a")"},
        BadJson{"Array", R"(["p","a","m",1])"},
        BadJson{"ScaleAsString",
                R"({"flgrFilePath":"p","applicationId":"a","metadata":"m","scaleValue":"1"})"},
        BadJson{"ScaleMissing", R"({"flgrFilePath":"p","applicationId":"a","metadata":"m"})"},
        BadJson{"ScaleTooLarge",
                R"({"flgrFilePath":"p","applicationId":"a","metadata":"m","scaleValue":1e39})"},
        BadJson{"ScaleTooSmall",
                R"({"flgrFilePath":"p","applicationId":"a","metadata":"m","scaleValue":-1e39})"},
        BadJson{"ScaleOutOfDouble",
                R"({"flgrFilePath":"p","applicationId":"a","metadata":"m","scaleValue":1e400})"},
        BadJson{"ScaleNull",
                R"({"flgrFilePath":"p","applicationId":"a","metadata":"m","scaleValue":null})"},
        BadJson{"PathMissing", R"({"applicationId":"a","metadata":"m","scaleValue":1})"},
        BadJson{"PathNumber",
                R"({"flgrFilePath":1,"applicationId":"a","metadata":"m","scaleValue":1})"},
        BadJson{"AppIdMissing", R"({"flgrFilePath":"p","metadata":"m","scaleValue":1})"},
        BadJson{"MetadataObject",
                R"({"flgrFilePath":"p","applicationId":"a","metadata":{},"scaleValue":1})"}),
    [](const ::testing::TestParamInfo<BadJson>& info) { return std::string(info.param.name); });

TEST(FlgrFileRequestTest, DeepNestingGivesNoRequest) {
    const std::size_t depth = 1000000;
    EXPECT_EQ(FlgrFileRequest::fromJson(std::string(depth, '[') + std::string(depth, ']')),
              nullptr);
    EXPECT_EQ(FlgrFileRequest::fromJson(std::string(depth, '[')), nullptr);
}

TEST(FlgrFileRequestTest, NonFiniteScaleHasNoReadableForm) {
    const FlgrFileRequest request("p", "a", "m", std::numeric_limits<float>::infinity());
    EXPECT_EQ(request.toJson(),
              R"({"flgrFilePath":"p","applicationId":"a","metadata":"m","scaleValue":null})");
    EXPECT_EQ(FlgrFileRequest::fromJson(request.toJson()), nullptr);
}

}  // namespace
