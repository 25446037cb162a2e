// Parcels that lie: every read stays within the data and reports the
// device's error, and binder objects are only what was written as one. The
// bytes of the product's own parcels (tokens, records, binders, statuses) are
// pinned in tests/ipc.
#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <binder/Status.h>
#include <gtest/gtest.h>

#include "ParcelBytes.h"

namespace {

using namespace android;
using binder::Status;
using vemo::test::setWireWords;
using vemo::test::wireWords;

template <typename Row>
std::string rowName(const ::testing::TestParamInfo<Row>& info) {
    return info.param.name;
}

// Typed reads as statuses; a read returning a pointer gives NOT_ENOUGH_DATA for null.
status_t readInt32(const Parcel& p) {
    int32_t value = 0;
    return p.readInt32(&value);
}
status_t readInplace8(const Parcel& p) {
    return p.readInplace(8) != nullptr ? OK : NOT_ENOUGH_DATA;
}
status_t readCString(const Parcel& p) {
    return p.readCString() != nullptr ? OK : NOT_ENOUGH_DATA;
}
status_t readString16(const Parcel& p) {
    String16 s(u"old");
    const status_t err = p.readString16(&s);
    EXPECT_EQ(s.size(), 0u);  // a failed read leaves the string empty
    return err;
}

struct BadRead {
    const char* name;
    const char* hex;
    size_t start;
    status_t (*read)(const Parcel&);
    status_t error;
    size_t end;  // the position afterwards
};

const BadRead kBadReads[] = {
    {"Int32AtTheEnd", "01000000 0200", 4, readInt32, NOT_ENOUGH_DATA, 4},
    {"InplaceShort", "01000000 0200", 0, readInplace8, NOT_ENOUGH_DATA, 0},
    {"Int32FarPastTheEnd", "01000000", 1000, readInt32, NOT_ENOUGH_DATA, 1000},
    {"CStringFarPastTheEnd", "01000000", 1000, readCString, NOT_ENOUGH_DATA, 1000},
    {"CStringUnterminated", "61626364", 0, readCString, NOT_ENOUGH_DATA, 0},
    {"CStringOfEmptyParcel", "", 0, readCString, NOT_ENOUGH_DATA, 0},
    // A bad String16 consumes only its length.
    {"String16Null", "ffffffff", 0, readString16, UNEXPECTED_NULL, 4},
    {"String16LengthPastEnd", "05000000 61006200", 0, readString16, UNEXPECTED_NULL, 4},
    {"String16HugeLength", "feffff7f 61006200", 0, readString16, UNEXPECTED_NULL, 4},
    {"String16MaxLength", "ffffff7f", 0, readString16, UNEXPECTED_NULL, 4},
    {"String16NegativeLength", "00000080 00000000", 0, readString16, UNEXPECTED_NULL, 4},
    {"String16TooShortForLength", "0200", 0, readString16, UNEXPECTED_NULL, 0},
    {"String16AtAnOddPosition", "00 01000000 6100 0000", 1, readString16, UNEXPECTED_NULL, 1},
};

class ParcelBadRead : public ::testing::TestWithParam<BadRead> {};

TEST_P(ParcelBadRead, FailsWithinTheData) {
    Parcel p;
    setWireWords(&p, GetParam().hex);
    p.setDataPosition(GetParam().start);
    EXPECT_EQ(GetParam().read(p), GetParam().error);
    EXPECT_EQ(p.dataPosition(), GetParam().end);
}

INSTANTIATE_TEST_SUITE_P(Cases, ParcelBadRead, ::testing::ValuesIn(kBadReads), rowName<BadRead>);

TEST(ParcelRead, InterfaceTokenMustMatchExactly) {
    Parcel p;
    p.writeInterfaceToken(String16("vemo.ipc.IFlgrService"));
    p.setDataPosition(0);
    EXPECT_TRUE(p.enforceInterface(String16("vemo.ipc.IFlgrService")));
    for (const char* wrong :
         {"vemo.ipc.IFlgrServic", "vemo.ipc.IFlgrService2", "", "vemo.ipc.IFlgrCallback"}) {
        p.setDataPosition(0);
        EXPECT_FALSE(p.enforceInterface(String16(wrong))) << wrong;
    }
    Parcel truncated;
    truncated.setData(p.data(), 10);
    EXPECT_FALSE(truncated.enforceInterface(String16("vemo.ipc.IFlgrService")));
}

TEST(ParcelRead, StrongBinders) {
    sp<BBinder> local = new BBinder();
    wp<BBinder> weak = local;
    Parcel p;
    p.writeStrongBinder(local);
    p.writeStrongBinder(nullptr);
    local.clear();
    ASSERT_NE(weak.promote(), nullptr);  // the parcel keeps the object alive
    p.setDataPosition(0);
    sp<IBinder> out;
    EXPECT_EQ(p.readStrongBinder(&out), OK);
    EXPECT_EQ(out.get(), weak.promote().get());
    EXPECT_EQ(p.readStrongBinder(&out), UNEXPECTED_NULL);
    p.setDataPosition(24);
    EXPECT_EQ(p.readNullableStrongBinder(&out), OK);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(p.readNullableStrongBinder(&out), BAD_TYPE);  // past the end
    p.freeData();
    EXPECT_EQ(weak.promote(), nullptr);
}

TEST(ParcelRead, PlainDataOverABinderObjectIsRefused) {
    Parcel p;
    p.writeInt32(5);
    p.writeStrongBinder(new BBinder());
    p.writeInt32(6);
    p.setDataPosition(4);
    int64_t v = 0;
    EXPECT_EQ(p.readInt64(&v), PERMISSION_DENIED);
    p.setDataPosition(20);
    EXPECT_EQ(p.readInplace(8), nullptr);
    p.setDataPosition(28);
    EXPECT_EQ(p.readInt32(), 6);
}

TEST(ParcelRead, ForgedBinderObjectsAreNotObjects) {
    // The bytes of binder objects, but not written as ones: never a pointer or a handle.
    Parcel p;
    sp<IBinder> out;
    setWireWords(&p, "852a6273 13010000 01000000 00000000 efbeadde 00000000");
    EXPECT_EQ(p.readNullableStrongBinder(&out), BAD_TYPE);
    EXPECT_EQ(out, nullptr);
    setWireWords(&p, "852a6873 13010000 07000000 00000000 00000000 00000000");
    EXPECT_EQ(p.readNullableStrongBinder(&out), BAD_TYPE);
    setWireWords(&p, "852a6273 13010000 00000000 00000000 00000000 00000000");
    EXPECT_EQ(p.readNullableStrongBinder(&out), OK);
    EXPECT_EQ(out, nullptr);
}

struct StatusCase {
    const char* name;
    const char* hex;
    status_t result;
    int32_t exception;
    int32_t serviceCode;
    const char* text;
    bool canonical;  // the status read writes these very bytes back
};

const StatusCase kStatusCases[] = {
    {"Ok", "00000000", OK, Status::EX_NONE, 0, "No error", true},
    {"ServiceSpecific", "f8ffffff 01000000 78000000 00000000 03000000", OK,
     Status::EX_SERVICE_SPECIFIC, 3, "Status(-8): '3: x'", true},
    {"StackTraceSkipped", "fdffffff 00000000 00000000 04000000 61626364", OK,
     Status::EX_ILLEGAL_ARGUMENT, 0, "Status(-3): ''", false},
    {"ReplyHeaderSkipped", "80ffffff 08000000 00000000", OK, Status::EX_NONE, 0, "No error", false},
    {"Empty", "", NOT_ENOUGH_DATA, Status::EX_TRANSACTION_FAILED, 0, "Status(-129): '-61: '",
     false},
    {"NullMessage", "fcffffff ffffffff", UNEXPECTED_NULL, Status::EX_TRANSACTION_FAILED, 0,
     "Status(-129): '-2147483640: '", false},
    {"StackTracePastEnd", "fcffffff 00000000 00000000 40000000", UNKNOWN_ERROR,
     Status::EX_TRANSACTION_FAILED, 0, "Status(-129): '-2147483648: '", false},
    {"ReplyHeaderPastEnd", "80ffffff 40000000", UNKNOWN_ERROR, Status::EX_TRANSACTION_FAILED, 0,
     "Status(-129): '-2147483648: '", false},
    {"ServiceCodeMissing", "f8ffffff 00000000 00000000 00000000", NOT_ENOUGH_DATA,
     Status::EX_TRANSACTION_FAILED, 0, "Status(-129): '-61: '", false},
};

class ParcelStatusRead : public ::testing::TestWithParam<StatusCase> {};

TEST_P(ParcelStatusRead, ReadsOrRejects) {
    Parcel p;
    setWireWords(&p, GetParam().hex);
    Status s;
    EXPECT_EQ(s.readFromParcel(p), GetParam().result);
    EXPECT_EQ(s.exceptionCode(), GetParam().exception);
    EXPECT_EQ(s.serviceSpecificErrorCode(), GetParam().serviceCode);
    EXPECT_STREQ(s.toString8().string(), GetParam().text);
    if (GetParam().result == OK) {
        EXPECT_EQ(p.dataAvail(), 0u);
    }
    if (GetParam().canonical) {
        Parcel written;
        EXPECT_EQ(s.writeToParcel(&written), OK);
        EXPECT_EQ(wireWords(written), GetParam().hex);
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, ParcelStatusRead, ::testing::ValuesIn(kStatusCases),
                         rowName<StatusCase>);

}  // namespace
