#include <binder/Parcel.h>
#include <gtest/gtest.h>
#include <utils/Errors.h>

#include "ParcelBytes.h"
#include "ipc/PFactRequest.h"
#include "ipc/PFlgrRequest.h"
#include "ipc/PFlgrResponse.h"

namespace {

using android::Parcel;
using vemo::ipc::FlgrFileRequest;
using vemo::ipc::PFactRequest;
using vemo::ipc::PFlgrRequest;
using vemo::ipc::PFlgrResponse;
using vemo::test::setWireWords;
using vemo::test::wireWords;

std::string written(const android::Parcelable& record) {
    Parcel parcel;
    EXPECT_EQ(parcel.writeParcelable(record), android::OK);
    return wireWords(parcel);
}

TEST(ParcelablesTest, EachRecordIsItsPresenceFlagThenItsFields) {
    // "prod" needs its NUL in a word of its own.
    EXPECT_EQ(written(PFactRequest("c", "prod", "msg")),
              "01000000 63000000 70726f64 00000000 6d736700");
    // "cl", then {"flgrFilePath":"f","applicationId":"a","metadata":"m","scaleValue":0.5}
    EXPECT_EQ(written(PFlgrRequest("cl", std::make_shared<FlgrFileRequest>("f", "a", "m", 0.5f))),
              "01000000 636c0000 "
              "7b22666c 67724669 6c655061 7468223a 2266222c 22617070 6c696361 74696f6e "
              "4964223a 2261222c 226d6574 61646174 61223a22 6d222c22 7363616c 6556616c "
              "7565223a 302e357d 00000000");
    EXPECT_EQ(written(PFlgrRequest("cl", nullptr)), "01000000 636c0000 00000000");
    EXPECT_EQ(written(PFlgrResponse(nullptr)), "01000000");
}

TEST(ParcelablesTest, ShortParcelsAreRefusedAndKeepTheFields) {
    // Both requests read each parcel; only the gradient-file request accepts
    // two strings, where the second is unreadable JSON: no params.
    const struct {
        const char* words;
        android::status_t flgrResult;
    } cases[] = {{"01000000", android::BAD_VALUE},
                 {"01000000 63000000", android::BAD_VALUE},
                 {"01000000 63000000 70000000", android::OK},
                 {"01000000 63636363", android::BAD_VALUE},
                 {"01000000 63000000 64646464", android::BAD_VALUE}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.words);
        Parcel parcel;
        setWireWords(&parcel, c.words);
        PFactRequest fact("c0", "p0", "m0");
        EXPECT_EQ(parcel.readParcelable(&fact), android::BAD_VALUE);
        EXPECT_EQ(fact.getClientName() + fact.getDataProducer() + fact.getMessage(), "c0p0m0");

        parcel.setDataPosition(0);
        PFlgrRequest flgr("old", std::make_shared<FlgrFileRequest>("f", "a", "m", 1.0f));
        ASSERT_EQ(parcel.readParcelable(&flgr), c.flgrResult);
        EXPECT_EQ(flgr.getClientName(), c.flgrResult == android::OK ? "c" : "old");
        EXPECT_EQ(flgr.getParams() == nullptr, c.flgrResult == android::OK);
    }
}

}  // namespace
