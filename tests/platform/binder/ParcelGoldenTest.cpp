// Byte-exact layouts of everything a parcel can hold, against the device's.
#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <binder/Status.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "ParcelTestUtil.h"

namespace {

using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;
using android::binder::Status;
using vemo::test::hexOf;
using vemo::test::normalizeHex;

class Point : public android::Parcelable {
  public:
    int32_t x = 0;
    int32_t y = 0;
    status_t writeToParcel(Parcel* p) const override {
        status_t s = p->writeInt32(x);
        return s != android::OK ? s : p->writeInt32(y);
    }
    status_t readFromParcel(const Parcel* p) override {
        status_t s = p->readInt32(&x);
        return s != android::OK ? s : p->readInt32(&y);
    }
};

struct GoldenCase {
    const char* name;
    std::function<void(Parcel*)> write;
    const char* hex;
};

const GoldenCase kGoldenCases[] = {
    {"Int32", [](Parcel* p) { p->writeInt32(-2); }, "feffffff"},
    {"Int64AfterInt32IsOnly4Aligned",
     [](Parcel* p) {
         p->writeInt32(1);
         p->writeInt64(0x0102030405060708LL);
     },
     "01000000 08070605 04030201"},
    {"Float", [](Parcel* p) { p->writeFloat(1.0f); }, "0000803f"},
    {"Double", [](Parcel* p) { p->writeDouble(1.0); }, "00000000 0000f03f"},
    {"BoolTrueFalse",
     [](Parcel* p) {
         p->writeBool(true);
         p->writeBool(false);
     },
     "01000000 00000000"},
    {"ByteAndCharAreInt32",
     [](Parcel* p) {
         p->writeByte(-1);
         p->writeChar(u'A');
     },
     "ffffffff 41000000"},
    {"CStringPaddedWithZeros", [](Parcel* p) { p->writeCString("ab"); }, "61620000"},
    {"CStringExactlyFour", [](Parcel* p) { p->writeCString("abc"); }, "61626300"},
    {"CStringNulStartsNewWord", [](Parcel* p) { p->writeCString("abcd"); }, "61626364 00000000"},
    {"CStringEmpty", [](Parcel* p) { p->writeCString(""); }, "00000000"},
    {"String16Empty", [](Parcel* p) { p->writeString16(String16("")); }, "00000000 00000000"},
    {"String16Ab", [](Parcel* p) { p->writeString16(String16("ab")); },
     "02000000 61006200 00000000"},
    {"String16Abc", [](Parcel* p) { p->writeString16(String16("abc")); },
     "03000000 61006200 63000000"},
    {"String16Null", [](Parcel* p) { p->writeString16(std::unique_ptr<String16>()); }, "ffffffff"},
    {"String16SurrogatePair", [](Parcel* p) { p->writeString16(String16("\xf0\x9f\x98\x80")); },
     "02000000 3dd800de 00000000"},
    {"Utf8AsUtf16", [](Parcel* p) { p->writeUtf8AsUtf16(std::string("\xc3\xa9")); },
     "01000000 e9000000"},
    {"String8", [](Parcel* p) { p->writeString8(String8("ab")); }, "02000000 61620000"},
    {"String8EmptyIsOnlyItsLength", [](Parcel* p) { p->writeString8(String8("")); }, "00000000"},
    {"InterfaceToken", [](Parcel* p) { p->writeInterfaceToken(String16("a.I")); },
     "00004000 03000000 61002e00 49000000"},
    {"ByteArray",
     [](Parcel* p) {
         const uint8_t b[] = {1, 2, 3};
         p->writeByteArray(3, b);
     },
     "03000000 01020300"},
    {"NullByteArray", [](Parcel* p) { p->writeByteArray(0, nullptr); }, "ffffffff"},
    {"Int32Vector",
     [](Parcel* p) {
         p->writeInt32Vector({1, -1});
     },
     "02000000 01000000 ffffffff"},
    {"NullStrongBinder", [](Parcel* p) { p->writeStrongBinder(nullptr); },
     "852a6273 13010000 00000000 00000000 00000000 00000000"},
    {"Parcelable",
     [](Parcel* p) {
         Point pt;
         pt.x = 7;
         pt.y = -1;
         p->writeParcelable(pt);
     },
     "01000000 07000000 ffffffff"},
    {"NullNullableParcelable",
     [](Parcel* p) { p->writeNullableParcelable(std::unique_ptr<Point>()); }, "00000000"},
    {"StatusOk", [](Parcel* p) { Status::ok().writeToParcel(p); }, "00000000"},
    {"StatusServiceSpecific",
     [](Parcel* p) { Status::fromServiceSpecificError(5).writeToParcel(p); },
     "f8ffffff 00000000 00000000 00000000 05000000"},
    {"StatusServiceSpecificWithMessage",
     [](Parcel* p) { Status::fromServiceSpecificError(121, "ServerNotReady").writeToParcel(p); },
     "f8ffffff 0e000000 53006500 72007600 65007200 4e006f00 74005200 65006100 64007900 00000000 "
     "00000000 79000000"},
    {"StatusNullPointer",
     [](Parcel* p) { Status::fromExceptionCode(Status::EX_NULL_POINTER, "x").writeToParcel(p); },
     "fcffffff 01000000 78000000 00000000"},
    {"StatusParcelable",
     [](Parcel* p) { Status::fromExceptionCode(Status::EX_PARCELABLE).writeToParcel(p); },
     "f7ffffff 00000000 00000000 00000000 00000000"},
    {"NoException", [](Parcel* p) { p->writeNoException(); }, "00000000"},
};

class ParcelGoldenTest : public ::testing::TestWithParam<GoldenCase> {};

TEST_P(ParcelGoldenTest, WritesTheDeviceBytes) {
    Parcel p;
    GetParam().write(&p);
    EXPECT_EQ(p.errorCheck(), android::OK);
    EXPECT_EQ(hexOf(p), normalizeHex(GetParam().hex));
    EXPECT_EQ(p.dataPosition(), p.dataSize());
}

INSTANTIATE_TEST_SUITE_P(Layouts, ParcelGoldenTest, ::testing::ValuesIn(kGoldenCases),
                         [](const ::testing::TestParamInfo<GoldenCase>& info) {
                             return std::string(info.param.name);
                         });

TEST(ParcelGolden, ServiceManagerTokenIs64Bytes) {
    Parcel p;
    p.writeInterfaceToken(String16("android.os.IServiceManager"));
    ASSERT_EQ(p.dataSize(), 64u);
    EXPECT_EQ(hexOf(p).substr(0, 17), "00004000 1a000000");
    EXPECT_EQ(hexOf(p).substr(hexOf(p).size() - 8), "00000000");
}

TEST(ParcelGolden, LocalBinderIsTypeBinderWithWeakrefsAndCookie) {
    sp<android::BBinder> local = new android::BBinder();
    Parcel p;
    ASSERT_EQ(p.writeStrongBinder(local), android::OK);
    ASSERT_EQ(p.dataSize(), 24u);
    ASSERT_EQ(p.objectsCount(), 1u);
    EXPECT_EQ(p.ipcObjects()[0], 0u);
    uint32_t type;
    uint32_t flags;
    uint64_t binder;
    uint64_t cookie;
    memcpy(&type, p.data(), 4);
    memcpy(&flags, p.data() + 4, 4);
    memcpy(&binder, p.data() + 8, 8);
    memcpy(&cookie, p.data() + 16, 8);
    EXPECT_EQ(type, 0x73622a85u);
    EXPECT_EQ(flags, 0x113u);
    EXPECT_EQ(binder, reinterpret_cast<uintptr_t>(local->getWeakRefs()));
    EXPECT_EQ(cookie, reinterpret_cast<uintptr_t>(local.get()));
}

TEST(ParcelGolden, TransactionFailedStatusWritesNothing) {
    Parcel p;
    EXPECT_EQ(Status::fromStatusT(android::DEAD_OBJECT).writeToParcel(&p), android::DEAD_OBJECT);
    EXPECT_EQ(p.dataSize(), 0u);
    // At this API level the exception-code factory leaves the error code OK.
    EXPECT_EQ(Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED).writeToParcel(&p),
              android::OK);
    EXPECT_EQ(p.dataSize(), 0u);
}

TEST(ParcelGolden, StatusValuesMatchTheDevice) {
    EXPECT_EQ(android::UNKNOWN_ERROR, static_cast<int32_t>(0x80000000));
    EXPECT_EQ(android::BAD_TYPE, static_cast<int32_t>(0x80000001));
    EXPECT_EQ(android::FAILED_TRANSACTION, static_cast<int32_t>(0x80000002));
    EXPECT_EQ(android::FDS_NOT_ALLOWED, static_cast<int32_t>(0x80000007));
    EXPECT_EQ(android::UNEXPECTED_NULL, static_cast<int32_t>(0x80000008));
    const std::pair<int32_t, int32_t> errnoBased[] = {
        {android::NO_MEMORY, -12},           {android::INVALID_OPERATION, -38},
        {android::BAD_VALUE, -22},           {android::NAME_NOT_FOUND, -2},
        {android::PERMISSION_DENIED, -1},    {android::NO_INIT, -19},
        {android::ALREADY_EXISTS, -17},      {android::DEAD_OBJECT, -32},
        {android::BAD_INDEX, -75},           {android::NOT_ENOUGH_DATA, -61},
        {android::WOULD_BLOCK, -11},         {android::TIMED_OUT, -110},
        {android::UNKNOWN_TRANSACTION, -74},
    };
    for (const auto& v : errnoBased) {
        EXPECT_EQ(v.first, v.second);
    }
    EXPECT_EQ(android::IBinder::PING_TRANSACTION, 0x5f504e47u);
    EXPECT_EQ(android::IBinder::INTERFACE_TRANSACTION, 0x5f4e5446u);
    EXPECT_EQ(android::IBinder::DUMP_TRANSACTION, 0x5f444d50u);
}

}  // namespace
