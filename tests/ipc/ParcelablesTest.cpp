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

}  // namespace
