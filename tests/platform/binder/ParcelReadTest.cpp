// Reading parcels back, and reading parcels that lie: every read stays within
// the data and reports the device's error.
#include <binder/Binder.h>
#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <binder/Status.h>
#include <gtest/gtest.h>

#include <climits>
#include <memory>

#include "ParcelTestUtil.h"

namespace {

using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;
using android::binder::Status;
using vemo::test::unhex;

Parcel* fromHex(Parcel* p, const std::string& hex) {
    const auto bytes = unhex(hex);
    p->setData(bytes.data(), bytes.size());
    return p;
}

class Pair : public android::Parcelable {
  public:
    int32_t a = 0;
    std::string b;
    status_t writeToParcel(Parcel* p) const override {
        p->writeInt32(a);
        return p->writeCString(b.c_str());
    }
    status_t readFromParcel(const Parcel* p) override {
        status_t s = p->readInt32(&a);
        const char* str = p->readCString();
        if (s == android::OK && str == nullptr) {
            s = android::BAD_VALUE;
        }
        b = str ? str : "";
        return s;
    }
};

TEST(ParcelRead, RoundTripsEveryScalarAndString) {
    Parcel p;
    p.writeInt32(-7);
    p.writeUint32(0xdeadbeef);
    p.writeInt64(-1234567890123LL);
    p.writeFloat(3.5f);
    p.writeDouble(-0.25);
    p.writeBool(true);
    p.writeCString("hello");
    p.writeString16(String16("w\xc3\xb6rld"));
    p.writeString8(String8("eight"));
    p.writeUtf8AsUtf16(std::string("utf"));
    p.writeByteVector(std::vector<uint8_t>{9, 8, 7, 6, 5});
    p.writeInt64Vector({1, -2});
    p.setDataPosition(0);

    EXPECT_EQ(p.readInt32(), -7);
    EXPECT_EQ(p.readUint32(), 0xdeadbeefu);
    EXPECT_EQ(p.readInt64(), -1234567890123LL);
    EXPECT_EQ(p.readFloat(), 3.5f);
    EXPECT_EQ(p.readDouble(), -0.25);
    EXPECT_TRUE(p.readBool());
    EXPECT_STREQ(p.readCString(), "hello");
    EXPECT_EQ(String8(p.readString16()), String8("w\xc3\xb6rld"));
    EXPECT_EQ(p.readString8(), String8("eight"));
    std::string utf;
    EXPECT_EQ(p.readUtf8FromUtf16(&utf), android::OK);
    EXPECT_EQ(utf, "utf");
    std::vector<uint8_t> bytes;
    EXPECT_EQ(p.readByteVector(&bytes), android::OK);
    EXPECT_EQ(bytes, (std::vector<uint8_t>{9, 8, 7, 6, 5}));
    std::vector<int64_t> longs;
    EXPECT_EQ(p.readInt64Vector(&longs), android::OK);
    EXPECT_EQ(longs, (std::vector<int64_t>{1, -2}));
    EXPECT_EQ(p.dataAvail(), 0u);
    EXPECT_EQ(p.readInt32(), 0);
}

TEST(ParcelRead, ShortReadsFailWithoutMoving) {
    Parcel p;
    fromHex(&p, "01000000 0200");
    int64_t v64 = 0;
    int32_t v32 = 0;
    p.setDataPosition(4);
    EXPECT_EQ(p.readInt32(&v32), android::NOT_ENOUGH_DATA);
    EXPECT_EQ(p.dataPosition(), 4u);
    p.setDataPosition(0);
    EXPECT_EQ(p.readInt64(&v64), android::NOT_ENOUGH_DATA);
    EXPECT_EQ(p.dataPosition(), 0u);
    EXPECT_EQ(p.readInplace(8), nullptr);
    char buf[8];
    EXPECT_EQ(p.read(buf, 8), android::NOT_ENOUGH_DATA);
    // Beyond the end every read fails, and nothing is read there.
    p.setDataPosition(1000);
    EXPECT_EQ(p.readInt32(&v32), android::NOT_ENOUGH_DATA);
    EXPECT_EQ(p.readCString(), nullptr);
    EXPECT_EQ(p.readInplace(0), nullptr);
}

TEST(ParcelRead, CStringWithoutTerminatorIsNullAndKeepsPosition) {
    Parcel p;
    fromHex(&p, "61626364");
    EXPECT_EQ(p.readCString(), nullptr);
    EXPECT_EQ(p.dataPosition(), 0u);
    Parcel empty;
    EXPECT_EQ(empty.readCString(), nullptr);
}

struct BadString16 {
    const char* name;
    const char* hex;
};

class ParcelBadString16 : public ::testing::TestWithParam<BadString16> {};

TEST_P(ParcelBadString16, IsUnexpectedNullAndNeverOverreads) {
    Parcel p;
    fromHex(&p, GetParam().hex);
    String16 s(u"old");
    EXPECT_EQ(p.readString16(&s), android::UNEXPECTED_NULL);
    EXPECT_EQ(s.size(), 0u);
    p.setDataPosition(0);
    size_t len = 99;
    EXPECT_EQ(p.readString16Inplace(&len), nullptr);
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(p.dataPosition(), p.dataSize() >= 4 ? 4u : 0u);  // only the length is consumed
    p.setDataPosition(0);
    std::string utf8;
    EXPECT_NE(p.readUtf8FromUtf16(&utf8), android::OK);
}

const BadString16 kBadString16[] = {
    {"Null", "ffffffff"},
    {"LengthPastEnd", "05000000 61006200"},
    {"HugeLength", "feffff7f 61006200"},
    {"MaxLength", "ffffff7f"},
    {"NegativeLength", "00000080 00000000"},
    {"TooShortForLength", "0200"},
    {"Empty", ""},
};

INSTANTIATE_TEST_SUITE_P(Cases, ParcelBadString16, ::testing::ValuesIn(kBadString16),
                         [](const ::testing::TestParamInfo<BadString16>& info) {
                             return std::string(info.param.name);
                         });

TEST(ParcelRead, String16AtAnOddPositionIsNotRead) {
    Parcel p;
    fromHex(&p, "00 01000000 6100 0000");
    p.setDataPosition(1);
    String16 s;
    EXPECT_EQ(p.readString16(&s), android::UNEXPECTED_NULL);
    EXPECT_EQ(p.dataPosition(), 1u);
}

TEST(ParcelRead, NullableString16OfMinusOneIsNullAndOk) {
    Parcel p;
    fromHex(&p, "ffffffff");
    std::unique_ptr<String16> s(new String16("x"));
    EXPECT_EQ(p.readString16(&s), android::OK);
    EXPECT_EQ(s, nullptr);
    p.setDataPosition(0);
    std::unique_ptr<std::string> u(new std::string("x"));
    EXPECT_EQ(p.readUtf8FromUtf16(&u), android::OK);
    EXPECT_EQ(u, nullptr);
}

TEST(ParcelRead, HugeVectorCountsAreRefusedBeforeAllocating) {
    Parcel p;
    fromHex(&p, "ffffff7f 00000000");
    std::vector<uint8_t> bytes;
    EXPECT_EQ(p.readByteVector(&bytes), android::BAD_VALUE);
    p.setDataPosition(0);
    std::vector<String16> strings;
    EXPECT_EQ(p.readString16Vector(&strings), android::BAD_VALUE);
    p.setDataPosition(0);
    std::vector<int64_t> longs;
    EXPECT_EQ(p.readInt64Vector(&longs), android::BAD_VALUE);
    fromHex(&p, "ffffffff");
    EXPECT_EQ(p.readInt32Vector(nullptr), android::UNEXPECTED_NULL);
}

TEST(ParcelRead, ParcelablePresenceFlag) {
    Parcel p;
    Pair in;
    in.a = 4;
    in.b = "four";
    p.writeParcelable(in);
    p.writeNullableParcelable(std::unique_ptr<Pair>());
    p.writeInt32(1);  // present, but the record is missing
    p.setDataPosition(0);

    Pair out;
    EXPECT_EQ(p.readParcelable(&out), android::OK);
    EXPECT_EQ(out.a, 4);
    EXPECT_EQ(out.b, "four");
    const size_t nullAt = p.dataPosition();
    EXPECT_EQ(p.readParcelable(&out), android::UNEXPECTED_NULL);
    EXPECT_EQ(p.dataPosition(), nullAt + 4);
    std::unique_ptr<Pair> ptr(new Pair());
    p.setDataPosition(nullAt);
    EXPECT_EQ(p.readParcelable(&ptr), android::OK);
    EXPECT_EQ(ptr, nullptr);
    EXPECT_EQ(p.readParcelable(&ptr), android::NOT_ENOUGH_DATA);
    EXPECT_EQ(ptr, nullptr);
}

TEST(ParcelRead, InterfaceTokenMustMatchExactly) {
    Parcel p;
    p.writeInterfaceToken(String16("vemo.ipc.IFlgrService"));
    p.setDataPosition(0);
    EXPECT_TRUE(p.enforceInterface(String16("vemo.ipc.IFlgrService")));
    EXPECT_EQ(android::IPCThreadState::self()->getStrictModePolicy(), 0x400000);
    android::IPCThreadState::self()->setStrictModePolicy(0);
    const char* wrong[] = {"vemo.ipc.IFlgrServic", "vemo.ipc.IFlgrService2", "",
                           "vemo.ipc.IFlgrCallback"};
    for (const char* w : wrong) {
        p.setDataPosition(0);
        EXPECT_FALSE(p.enforceInterface(String16(w))) << w;
    }
    Parcel truncated;
    truncated.setData(p.data(), 10);
    EXPECT_FALSE(truncated.enforceInterface(String16("vemo.ipc.IFlgrService")));
    android::IPCThreadState::self()->setStrictModePolicy(0);
}

TEST(ParcelRead, StrongBinders) {
    sp<android::BBinder> local = new android::BBinder();
    android::wp<android::BBinder> weak = local;
    Parcel p;
    p.writeStrongBinder(local);
    p.writeStrongBinder(nullptr);
    local.clear();
    // The parcel keeps the object alive.
    ASSERT_NE(weak.promote(), nullptr);
    p.setDataPosition(0);
    sp<android::IBinder> out;
    EXPECT_EQ(p.readStrongBinder(&out), android::OK);
    EXPECT_EQ(out.get(), weak.promote().get());
    EXPECT_EQ(p.readStrongBinder(&out), android::UNEXPECTED_NULL);
    p.setDataPosition(24);
    EXPECT_EQ(p.readNullableStrongBinder(&out), android::OK);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(p.readNullableStrongBinder(&out), android::BAD_TYPE);  // past the end
    out.clear();
    p.freeData();
    EXPECT_EQ(weak.promote(), nullptr);
}

TEST(ParcelRead, PlainDataOverABinderObjectIsRefused) {
    sp<android::BBinder> local = new android::BBinder();
    Parcel p;
    p.writeInt32(5);
    p.writeStrongBinder(local);
    p.writeInt32(6);
    p.setDataPosition(0);
    EXPECT_EQ(p.readInt32(), 5);
    int64_t v = 0;
    EXPECT_EQ(p.readInt64(&v), android::PERMISSION_DENIED);
    p.setDataPosition(20);
    EXPECT_EQ(p.readInplace(8), nullptr);
    p.setDataPosition(28);
    int32_t after = 0;
    EXPECT_EQ(p.readInt32(&after), android::OK);
    EXPECT_EQ(after, 6);
}

TEST(ParcelRead, ForgedBinderObjectsAreNotObjects) {
    // The bytes of a local binder object, but not written as one: never a pointer.
    Parcel p;
    fromHex(&p, "852a6273 13010000 01000000 00000000 efbeadde 00000000");
    sp<android::IBinder> out;
    EXPECT_EQ(p.readNullableStrongBinder(&out), android::BAD_TYPE);
    EXPECT_EQ(out, nullptr);
    fromHex(&p, "852a6873 13010000 07000000 00000000 00000000 00000000");
    EXPECT_EQ(p.readNullableStrongBinder(&out), android::BAD_TYPE);
    fromHex(&p, "852a6273 13010000 00000000 00000000 00000000 00000000");
    EXPECT_EQ(p.readNullableStrongBinder(&out), android::OK);
    EXPECT_EQ(out, nullptr);
}

TEST(ParcelRead, AppendFromAndSetDataSizeKeepObjectsConsistent) {
    sp<android::BBinder> local = new android::BBinder();
    Parcel src;
    src.writeInt32(1);
    src.writeStrongBinder(local);
    Parcel dst;
    dst.writeInt32(9);
    ASSERT_EQ(dst.appendFrom(&src, 0, src.dataSize()), android::OK);
    EXPECT_EQ(dst.objectsCount(), 1u);
    EXPECT_EQ(dst.ipcObjects()[0], 8u);
    dst.setDataPosition(8);
    EXPECT_EQ(dst.readStrongBinder().get(), static_cast<android::IBinder*>(local.get()));
    EXPECT_EQ(dst.appendFrom(&src, 4, 100), android::BAD_VALUE);
    dst.setDataSize(10);
    EXPECT_EQ(dst.objectsCount(), 0u);
    EXPECT_EQ(dst.dataSize(), 10u);
}

struct StatusCase {
    const char* name;
    const char* hex;
    status_t result;
    int32_t exception;
    int32_t serviceCode;
    const char* text;
};

class StatusRead : public ::testing::TestWithParam<StatusCase> {};

TEST_P(StatusRead, ReadsOrRejects) {
    Parcel p;
    fromHex(&p, GetParam().hex);
    Status s;
    EXPECT_EQ(s.readFromParcel(p), GetParam().result);
    EXPECT_EQ(s.exceptionCode(), GetParam().exception);
    EXPECT_EQ(s.serviceSpecificErrorCode(), GetParam().serviceCode);
    EXPECT_STREQ(s.toString8().string(), GetParam().text);
}

const StatusCase kStatusCases[] = {
    {"Ok", "00000000", android::OK, Status::EX_NONE, 0, "No error"},
    {"ServiceSpecific", "f8ffffff 01000000 78000000 00000000 03000000", android::OK,
     Status::EX_SERVICE_SPECIFIC, 3, "Status(-8): '3: x'"},
    {"StackTraceSkipped", "fdffffff 00000000 00000000 04000000 61626364", android::OK,
     Status::EX_ILLEGAL_ARGUMENT, 0, "Status(-3): ''"},
    {"ReplyHeaderSkipped", "80ffffff 08000000 00000000", android::OK, Status::EX_NONE, 0,
     "No error"},
    {"Empty", "", android::NOT_ENOUGH_DATA, Status::EX_TRANSACTION_FAILED, 0,
     "Status(-129): '-61: '"},
    {"NullMessage", "fcffffff ffffffff", android::UNEXPECTED_NULL, Status::EX_TRANSACTION_FAILED, 0,
     "Status(-129): '-2147483640: '"},
    {"StackTracePastEnd", "fcffffff 00000000 00000000 40000000", android::UNKNOWN_ERROR,
     Status::EX_TRANSACTION_FAILED, 0, "Status(-129): '-2147483648: '"},
    {"ReplyHeaderPastEnd", "80ffffff 40000000", android::UNKNOWN_ERROR,
     Status::EX_TRANSACTION_FAILED, 0, "Status(-129): '-2147483648: '"},
    {"ServiceCodeMissing", "f8ffffff 00000000 00000000 00000000", android::NOT_ENOUGH_DATA,
     Status::EX_TRANSACTION_FAILED, 0, "Status(-129): '-61: '"},
};

INSTANTIATE_TEST_SUITE_P(Cases, StatusRead, ::testing::ValuesIn(kStatusCases),
                         [](const ::testing::TestParamInfo<StatusCase>& info) {
                             return std::string(info.param.name);
                         });

TEST(StatusRead, RoundTripKeepsCodeAndMessage) {
    Parcel p;
    Status::fromServiceSpecificError(3, "UnknownError").writeToParcel(&p);
    p.setDataPosition(0);
    Status s;
    ASSERT_EQ(s.readFromParcel(p), android::OK);
    EXPECT_EQ(s.serviceSpecificErrorCode(), 3);
    EXPECT_EQ(s.exceptionMessage(), String8("UnknownError"));
    EXPECT_EQ(p.dataAvail(), 0u);
    p.setDataPosition(0);
    EXPECT_EQ(p.readExceptionCode(), Status::EX_SERVICE_SPECIFIC);
    EXPECT_EQ(Status::fromStatusT(android::DEAD_OBJECT).transactionError(), android::DEAD_OBJECT);
    EXPECT_TRUE(Status::fromStatusT(android::OK).isOk());
}

}  // namespace
