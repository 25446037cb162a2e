#include <binder/Parcel.h>
#include <gtest/gtest.h>
#include <utils/Errors.h>

#include <limits>

#include "ParcelBytes.h"
#include "ipc/PFactRequest.h"
#include "ipc/PFlgrRequest.h"
#include "ipc/PFlgrResponse.h"

namespace {

using android::Parcel;
using vemo::ipc::FlgrFileRequest;
using vemo::ipc::FlgrFileResponse;
using vemo::ipc::PFactRequest;
using vemo::ipc::PFlgrRequest;
using vemo::ipc::PFlgrResponse;
using vemo::test::setWireWords;
using vemo::test::wireWords;

TEST(ParcelablesTest, FactRequestIsFlagThenThreeCStrings) {
    Parcel parcel;
    ASSERT_EQ(parcel.writeParcelable(PFactRequest("c", "prod", "msg")), android::OK);
    // "prod" needs its NUL in a word of its own.
    EXPECT_EQ(wireWords(parcel), "01000000 63000000 70726f64 00000000 6d736700");
}

TEST(ParcelablesTest, FlgrRequestIsFlagClientNameThenJson) {
    Parcel parcel;
    const auto params = std::make_shared<FlgrFileRequest>("f", "a", "m", 0.5f);
    ASSERT_EQ(parcel.writeParcelable(PFlgrRequest("cl", params)), android::OK);
    // {"flgrFilePath":"f","applicationId":"a","metadata":"m","scaleValue":0.5}
    EXPECT_EQ(wireWords(parcel),
              "01000000 636c0000 "
              "7b22666c 67724669 6c655061 7468223a 2266222c 22617070 6c696361 74696f6e "
              "4964223a 2261222c 226d6574 61646174 61223a22 6d222c22 7363616c 6556616c "
              "7565223a 302e357d 00000000");
}

TEST(ParcelablesTest, FlgrResponseIsOnlyItsPresenceFlag) {
    Parcel parcel;
    ASSERT_EQ(parcel.writeParcelable(PFlgrResponse(nullptr)), android::OK);
    EXPECT_EQ(wireWords(parcel), "01000000");
}

TEST(ParcelablesTest, FlgrRequestRoundTripKeepsEveryField) {
    for (const float scale : {0.1f, -2.75e-20f, std::numeric_limits<float>::max()}) {
        Parcel parcel;
        const auto params = std::make_shared<FlgrFileRequest>("/data/vemo/engb1.flgr",
                                                              "UnifiedSensingService_x\\_y_c1",
                                                              "{\"n\":\"\\u00e9\"}", scale);
        ASSERT_EQ(parcel.writeParcelable(PFlgrRequest("client", params)), android::OK);
        parcel.setDataPosition(0);
        PFlgrRequest read;
        ASSERT_EQ(parcel.readParcelable(&read), android::OK);
        EXPECT_EQ(read.getClientName(), "client");
        ASSERT_NE(read.getParams(), nullptr);
        EXPECT_EQ(read.getParams()->getFilePath(), "/data/vemo/engb1.flgr");
        EXPECT_EQ(read.getParams()->getApplicationId(), "UnifiedSensingService_x\\_y_c1");
        EXPECT_EQ(read.getParams()->getMetadata(), "{\"n\":\"\\u00e9\"}");
        EXPECT_EQ(read.getParams()->getScaleValue(), scale);
        EXPECT_EQ(parcel.dataPosition(), parcel.dataSize());
    }
}

TEST(ParcelablesTest, FactRequestRoundTripKeepsEveryField) {
    Parcel parcel;
    const std::string event = "{\"header\":{\"namespace\":\"Ecs\"},\"payload\":\"\xc3\xa9\"}";
    ASSERT_EQ(parcel.writeParcelable(PFactRequest("client", "UnifiedSensingService", event)),
              android::OK);
    parcel.setDataPosition(0);
    PFactRequest read;
    ASSERT_EQ(parcel.readParcelable(&read), android::OK);
    EXPECT_EQ(read.getClientName(), "client");
    EXPECT_EQ(read.getDataProducer(), "UnifiedSensingService");
    EXPECT_EQ(read.getMessage(), event);
}

TEST(ParcelablesTest, FlgrResponseReadsAsStatusZeroWhateverItHeld) {
    int owner = 0;
    const std::shared_ptr<int> keep(&owner, [](int*) {});
    // Opaque core types: aliasing pointers stand in for real results.
    const auto held = std::make_shared<FlgrFileResponse>(
        5, std::shared_ptr<FlgrResultContext>(keep, reinterpret_cast<FlgrResultContext*>(&owner)),
        std::shared_ptr<FlgrResults>(keep, reinterpret_cast<FlgrResults*>(&owner)));
    PFlgrResponse response(held);
    Parcel parcel;
    ASSERT_EQ(parcel.writeParcelable(response), android::OK);
    parcel.setDataPosition(0);
    ASSERT_EQ(parcel.readParcelable(&response), android::OK);
    ASSERT_NE(response.getResponse(), nullptr);
    EXPECT_NE(response.getResponse(), held);
    EXPECT_EQ(response.getResponse()->getStatus(), 0);
    EXPECT_EQ(response.getResponse()->getContext(), nullptr);
    EXPECT_EQ(response.getResponse()->getResults(), nullptr);
}

TEST(ParcelablesTest, UnreadableJsonLeavesParamsEmptyButReadsTheClient) {
    Parcel parcel;
    // flag, "cl", "{bad"
    setWireWords(&parcel, "01000000 636c0000 7b626164 00000000");
    PFlgrRequest read("old", std::make_shared<FlgrFileRequest>("f", "a", "m", 1.0f));
    ASSERT_EQ(parcel.readParcelable(&read), android::OK);
    EXPECT_EQ(read.getClientName(), "cl");
    EXPECT_EQ(read.getParams(), nullptr);
}

TEST(ParcelablesTest, EmptyParamsAreWrittenAsAnEmptyText) {
    Parcel parcel;
    ASSERT_EQ(parcel.writeParcelable(PFlgrRequest("cl", nullptr)), android::OK);
    EXPECT_EQ(wireWords(parcel), "01000000 636c0000 00000000");
}

// Parcels that end early or hold a string without its NUL.
struct ShortParcel {
    const char* name;
    const char* words;
};

class ShortParcelTest : public ::testing::TestWithParam<ShortParcel> {};

TEST_P(ShortParcelTest, FactRequestReadFailsAndKeepsItsFields) {
    Parcel parcel;
    setWireWords(&parcel, GetParam().words);
    PFactRequest read("c0", "p0", "m0");
    EXPECT_EQ(parcel.readParcelable(&read), android::BAD_VALUE);
    EXPECT_EQ(read.getClientName(), "c0");
    EXPECT_EQ(read.getDataProducer(), "p0");
    EXPECT_EQ(read.getMessage(), "m0");
}

TEST_P(ShortParcelTest, FlgrRequestReadFails) {
    Parcel parcel;
    setWireWords(&parcel, GetParam().words);
    PFlgrRequest read;
    EXPECT_EQ(parcel.readParcelable(&read), android::BAD_VALUE);
    EXPECT_EQ(read.getParams(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ShortParcelTest,
    ::testing::Values(ShortParcel{"FlagOnly", "01000000"},
                      ShortParcel{"OneString", "01000000 63000000"},
                      ShortParcel{"NoNul", "01000000 63636363"},
                      ShortParcel{"SecondWithoutNul", "01000000 63000000 64646464"}),
    [](const ::testing::TestParamInfo<ShortParcel>& info) { return std::string(info.param.name); });

TEST(ParcelablesTest, TwoStringsAreTooFewForAFactRequest) {
    Parcel parcel;
    setWireWords(&parcel, "01000000 63000000 70000000");
    PFactRequest read;
    EXPECT_EQ(parcel.readParcelable(&read), android::BAD_VALUE);
}

TEST(ParcelablesTest, AbsentRecordIsAnUnexpectedNull) {
    Parcel parcel;
    setWireWords(&parcel, "00000000");
    PFactRequest read;
    EXPECT_EQ(parcel.readParcelable(&read), android::UNEXPECTED_NULL);
}

}  // namespace
