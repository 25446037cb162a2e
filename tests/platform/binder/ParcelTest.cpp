// Parcels byte for byte against the device's layout, and reading them back,
// including parcels that lie: every read stays within the data and reports
// the device's error.
#include <binder/Binder.h>
#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <binder/Status.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <memory>

namespace {

using namespace android;
using binder::Status;

template <typename Row>
std::string rowName(const ::testing::TestParamInfo<Row>& info) {
    return info.param.name;
}

// "0100 0000" -> a parcel holding {1,0,0,0}; spaces are ignored.
Parcel* fromHex(Parcel* p, const std::string& hex) {
    std::string digits;
    for (const char c : hex) {
        if (c != ' ') {
            digits.push_back(c);
        }
    }
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    p->setData(bytes.data(), bytes.size());
    return p;
}

// Parcel bytes as hex, a space between 4-byte words.
std::string hexOf(const Parcel& p) {
    std::string out;
    char buf[3];
    for (size_t i = 0; i < p.dataSize(); ++i) {
        if (i > 0 && i % 4 == 0) {
            out += ' ';
        }
        snprintf(buf, sizeof buf, "%02x", p.data()[i]);
        out += buf;
    }
    return out;
}

class Point : public Parcelable {
  public:
    explicit Point(int32_t a = 0, int32_t b = 0) : x(a), y(b) {}
    int32_t x;
    int32_t y;
    status_t writeToParcel(Parcel* p) const override {
        status_t s = p->writeInt32(x);
        return s != OK ? s : p->writeInt32(y);
    }
    status_t readFromParcel(const Parcel* p) override {
        status_t s = p->readInt32(&x);
        return s != OK ? s : p->readInt32(&y);
    }
};

struct GoldenCase {
    const char* name;
    std::function<void(Parcel*)> write;
    const char* hex;
};

const GoldenCase kGoldenCases[] = {
    {"Int64AfterInt32IsOnly4Aligned",
     [](Parcel* p) {
         p->writeInt32(1);
         p->writeInt64(0x0102030405060708LL);
     },
     "01000000 08070605 04030201"},
    {"Float", [](Parcel* p) { p->writeFloat(1.0f); }, "0000803f"},
    {"Double", [](Parcel* p) { p->writeDouble(1.0); }, "00000000 0000f03f"},
    {"BoolIsInt32", [](Parcel* p) { p->writeBool(true); }, "01000000"},
    {"ByteIsInt32", [](Parcel* p) { p->writeByte(-1); }, "ffffffff"},
    {"CharIsInt32", [](Parcel* p) { p->writeChar(u'A'); }, "41000000"},
    {"CStringPaddedWithZeros", [](Parcel* p) { p->writeCString("ab"); }, "61620000"},
    {"CStringExactlyFour", [](Parcel* p) { p->writeCString("abc"); }, "61626300"},
    {"CStringNulStartsNewWord", [](Parcel* p) { p->writeCString("abcd"); }, "61626364 00000000"},
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
     [](Parcel* p) { p->writeByteArray(3, reinterpret_cast<const uint8_t*>("\1\2\3")); },
     "03000000 01020300"},
    {"NullByteArray", [](Parcel* p) { p->writeByteArray(0, nullptr); }, "ffffffff"},
    {"Int32Vector",
     [](Parcel* p) {
         p->writeInt32Vector({1, -1});
     },
     "02000000 01000000 ffffffff"},
    {"NullStrongBinder", [](Parcel* p) { p->writeStrongBinder(nullptr); },
     "852a6273 13010000 00000000 00000000 00000000 00000000"},
    {"Parcelable", [](Parcel* p) { p->writeParcelable(Point(7, -1)); },
     "01000000 07000000 ffffffff"},
    {"NullNullableParcelable",
     [](Parcel* p) { p->writeNullableParcelable(std::unique_ptr<Point>()); }, "00000000"},
    {"StatusOk", [](Parcel* p) { Status::ok().writeToParcel(p); }, "00000000"},
    {"StatusServiceSpecific",
     [](Parcel* p) { Status::fromServiceSpecificError(5).writeToParcel(p); },
     "f8ffffff 00000000 00000000 00000000 05000000"},
    {"StatusNullPointer",
     [](Parcel* p) { Status::fromExceptionCode(Status::EX_NULL_POINTER, "x").writeToParcel(p); },
     "fcffffff 01000000 78000000 00000000"},
    {"StatusParcelable",
     [](Parcel* p) { Status::fromExceptionCode(Status::EX_PARCELABLE).writeToParcel(p); },
     "f7ffffff 00000000 00000000 00000000 00000000"},
};

class ParcelGoldenTest : public ::testing::TestWithParam<GoldenCase> {};

TEST_P(ParcelGoldenTest, WritesTheDeviceBytes) {
    Parcel p;
    Parcel expected;
    GetParam().write(&p);
    EXPECT_EQ(p.errorCheck(), OK);
    EXPECT_EQ(hexOf(p), hexOf(*fromHex(&expected, GetParam().hex)));
    EXPECT_EQ(p.dataPosition(), p.dataSize());
}

INSTANTIATE_TEST_SUITE_P(Layouts, ParcelGoldenTest, ::testing::ValuesIn(kGoldenCases),
                         rowName<GoldenCase>);

TEST(ParcelGolden, LocalBinderIsTypeBinderWithWeakrefsAndCookie) {
    sp<BBinder> local = new BBinder();
    Parcel p;
    ASSERT_EQ(p.writeStrongBinder(local), OK);
    Parcel expected;
    expected.writeUint32(0x73622a85);
    expected.writeUint32(0x113);
    expected.writeUint64(reinterpret_cast<uintptr_t>(local->getWeakRefs()));
    expected.writeUint64(reinterpret_cast<uintptr_t>(local.get()));
    EXPECT_EQ(hexOf(p), hexOf(expected));
    ASSERT_EQ(p.objectsCount(), 1u);
    EXPECT_EQ(p.ipcObjects()[0], 0u);
}

TEST(ParcelGolden, TransactionFailedStatusWritesNothing) {
    Parcel p;
    const Status failed = Status::fromStatusT(DEAD_OBJECT);
    EXPECT_EQ(failed.writeToParcel(&p), DEAD_OBJECT);
    EXPECT_EQ(failed.transactionError(), DEAD_OBJECT);
    // At this API level the exception-code factory leaves the error code OK.
    EXPECT_EQ(Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED).writeToParcel(&p), OK);
    EXPECT_EQ(p.dataSize(), 0u);
}

TEST(ParcelGolden, SystemTransactionCodesMatchTheDevice) {
    EXPECT_EQ(IBinder::PING_TRANSACTION, 0x5f504e47u);
    EXPECT_EQ(IBinder::INTERFACE_TRANSACTION, 0x5f4e5446u);
    EXPECT_EQ(IBinder::DUMP_TRANSACTION, 0x5f444d50u);
    EXPECT_EQ(IBinder::SHELL_COMMAND_TRANSACTION, 0x5f434d44u);
    EXPECT_EQ(IBinder::SYSPROPS_TRANSACTION, 0x5f535052u);
}

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
    EXPECT_EQ(p.readUtf8FromUtf16(&utf), OK);
    EXPECT_EQ(utf, "utf");
    std::vector<uint8_t> bytes;
    EXPECT_EQ(p.readByteVector(&bytes), OK);
    EXPECT_EQ(bytes, (std::vector<uint8_t>{9, 8, 7, 6, 5}));
    std::vector<int64_t> longs;
    EXPECT_EQ(p.readInt64Vector(&longs), OK);
    EXPECT_EQ(longs, (std::vector<int64_t>{1, -2}));
    EXPECT_EQ(p.dataAvail(), 0u);
    EXPECT_EQ(p.readInt32(), 0);
}

// Typed reads as statuses; a read returning a pointer gives NOT_ENOUGH_DATA for null.
template <typename T, status_t (Parcel::*read)(T*) const>
status_t readInto(const Parcel& p) {
    T value{};
    return (p.*read)(&value);
}
status_t readRaw8(const Parcel& p) {
    char buf[8];
    return p.read(buf, sizeof buf);
}
template <size_t n>
status_t readInplace(const Parcel& p) {
    return p.readInplace(n) != nullptr ? OK : NOT_ENOUGH_DATA;
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
    {"Int32AtTheEnd", "01000000 0200", 4, readInto<int32_t, &Parcel::readInt32>, NOT_ENOUGH_DATA,
     4},
    {"Int64Short", "01000000 0200", 0, readInto<int64_t, &Parcel::readInt64>, NOT_ENOUGH_DATA, 0},
    {"InplaceShort", "01000000 0200", 0, readInplace<8>, NOT_ENOUGH_DATA, 0},
    {"RawShort", "01000000 0200", 0, readRaw8, NOT_ENOUGH_DATA, 0},
    {"Int32FarPastTheEnd", "01000000", 1000, readInto<int32_t, &Parcel::readInt32>, NOT_ENOUGH_DATA,
     1000},
    {"CStringFarPastTheEnd", "01000000", 1000, readCString, NOT_ENOUGH_DATA, 1000},
    {"InplaceFarPastTheEnd", "01000000", 1000, readInplace<0>, NOT_ENOUGH_DATA, 1000},
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
    {"Utf8LengthPastEnd", "05000000 61006200", 0, readInto<std::string, &Parcel::readUtf8FromUtf16>,
     UNEXPECTED_NULL, 4},
    // Counts beyond the data are refused before anything is allocated.
    {"HugeByteVector", "ffffff7f 00000000", 0,
     readInto<std::vector<uint8_t>, &Parcel::readByteVector>, BAD_VALUE, 4},
    {"HugeString16Vector", "ffffff7f 00000000", 0,
     readInto<std::vector<String16>, &Parcel::readString16Vector>, BAD_VALUE, 4},
    {"HugeInt64Vector", "ffffff7f 00000000", 0,
     readInto<std::vector<int64_t>, &Parcel::readInt64Vector>, BAD_VALUE, 4},
    {"NullInt32Vector", "ffffffff", 0, readInto<std::vector<int32_t>, &Parcel::readInt32Vector>,
     UNEXPECTED_NULL, 4},
};

class ParcelBadRead : public ::testing::TestWithParam<BadRead> {};

TEST_P(ParcelBadRead, FailsWithinTheData) {
    Parcel p;
    fromHex(&p, GetParam().hex);
    p.setDataPosition(GetParam().start);
    EXPECT_EQ(GetParam().read(p), GetParam().error);
    EXPECT_EQ(p.dataPosition(), GetParam().end);
}

INSTANTIATE_TEST_SUITE_P(Cases, ParcelBadRead, ::testing::ValuesIn(kBadReads), rowName<BadRead>);

TEST(ParcelRead, NullableString16OfMinusOneIsNullAndOk) {
    Parcel p;
    fromHex(&p, "ffffffff");
    std::unique_ptr<String16> s(new String16("x"));
    EXPECT_EQ(p.readString16(&s), OK);
    EXPECT_EQ(s, nullptr);
    p.setDataPosition(0);
    std::unique_ptr<std::string> u(new std::string("x"));
    EXPECT_EQ(p.readUtf8FromUtf16(&u), OK);
    EXPECT_EQ(u, nullptr);
}

TEST(ParcelRead, ParcelablePresenceFlag) {
    Parcel p;
    p.writeParcelable(Point(4, 5));
    p.writeNullableParcelable(std::unique_ptr<Point>());
    p.writeInt32(1);  // present, but the record is missing
    p.setDataPosition(0);

    Point out;
    EXPECT_EQ(p.readParcelable(&out), OK);
    EXPECT_EQ(out.x, 4);
    EXPECT_EQ(out.y, 5);
    const size_t nullAt = p.dataPosition();
    EXPECT_EQ(p.readParcelable(&out), UNEXPECTED_NULL);
    EXPECT_EQ(p.dataPosition(), nullAt + 4);
    std::unique_ptr<Point> ptr(new Point());
    p.setDataPosition(nullAt);
    EXPECT_EQ(p.readParcelable(&ptr), OK);
    EXPECT_EQ(ptr, nullptr);
    EXPECT_EQ(p.readParcelable(&ptr), NOT_ENOUGH_DATA);
    EXPECT_EQ(ptr, nullptr);
}

TEST(ParcelRead, InterfaceTokenMustMatchExactly) {
    Parcel p;
    p.writeInterfaceToken(String16("vemo.ipc.IFlgrService"));
    p.setDataPosition(0);
    EXPECT_TRUE(p.enforceInterface(String16("vemo.ipc.IFlgrService")));
    EXPECT_EQ(IPCThreadState::self()->getStrictModePolicy(), 0x400000);
    for (const char* wrong :
         {"vemo.ipc.IFlgrServic", "vemo.ipc.IFlgrService2", "", "vemo.ipc.IFlgrCallback"}) {
        p.setDataPosition(0);
        EXPECT_FALSE(p.enforceInterface(String16(wrong))) << wrong;
    }
    Parcel truncated;
    truncated.setData(p.data(), 10);
    EXPECT_FALSE(truncated.enforceInterface(String16("vemo.ipc.IFlgrService")));
    IPCThreadState::self()->setStrictModePolicy(0);
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
    fromHex(&p, "852a6273 13010000 01000000 00000000 efbeadde 00000000");
    EXPECT_EQ(p.readNullableStrongBinder(&out), BAD_TYPE);
    EXPECT_EQ(out, nullptr);
    fromHex(&p, "852a6873 13010000 07000000 00000000 00000000 00000000");
    EXPECT_EQ(p.readNullableStrongBinder(&out), BAD_TYPE);
    fromHex(&p, "852a6273 13010000 00000000 00000000 00000000 00000000");
    EXPECT_EQ(p.readNullableStrongBinder(&out), OK);
    EXPECT_EQ(out, nullptr);
}

TEST(ParcelRead, AppendFromAndSetDataSizeKeepObjectsConsistent) {
    sp<BBinder> local = new BBinder();
    Parcel src;
    src.writeInt32(1);
    src.writeStrongBinder(local);
    Parcel dst;
    dst.writeInt32(9);
    ASSERT_EQ(dst.appendFrom(&src, 0, src.dataSize()), OK);
    ASSERT_EQ(dst.objectsCount(), 1u);
    EXPECT_EQ(dst.ipcObjects()[0], 8u);
    dst.setDataPosition(8);
    EXPECT_EQ(dst.readStrongBinder().get(), static_cast<IBinder*>(local.get()));
    EXPECT_EQ(dst.appendFrom(&src, 4, 100), BAD_VALUE);
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

const StatusCase kStatusCases[] = {
    {"Ok", "00000000", OK, Status::EX_NONE, 0, "No error"},
    {"ServiceSpecific", "f8ffffff 01000000 78000000 00000000 03000000", OK,
     Status::EX_SERVICE_SPECIFIC, 3, "Status(-8): '3: x'"},
    {"StackTraceSkipped", "fdffffff 00000000 00000000 04000000 61626364", OK,
     Status::EX_ILLEGAL_ARGUMENT, 0, "Status(-3): ''"},
    {"ReplyHeaderSkipped", "80ffffff 08000000 00000000", OK, Status::EX_NONE, 0, "No error"},
    {"Empty", "", NOT_ENOUGH_DATA, Status::EX_TRANSACTION_FAILED, 0, "Status(-129): '-61: '"},
    {"NullMessage", "fcffffff ffffffff", UNEXPECTED_NULL, Status::EX_TRANSACTION_FAILED, 0,
     "Status(-129): '-2147483640: '"},
    {"StackTracePastEnd", "fcffffff 00000000 00000000 40000000", UNKNOWN_ERROR,
     Status::EX_TRANSACTION_FAILED, 0, "Status(-129): '-2147483648: '"},
    {"ReplyHeaderPastEnd", "80ffffff 40000000", UNKNOWN_ERROR, Status::EX_TRANSACTION_FAILED, 0,
     "Status(-129): '-2147483648: '"},
    {"ServiceCodeMissing", "f8ffffff 00000000 00000000 00000000", NOT_ENOUGH_DATA,
     Status::EX_TRANSACTION_FAILED, 0, "Status(-129): '-61: '"},
};

class ParcelStatusRead : public ::testing::TestWithParam<StatusCase> {};

TEST_P(ParcelStatusRead, ReadsOrRejects) {
    Parcel p;
    fromHex(&p, GetParam().hex);
    Status s;
    EXPECT_EQ(s.readFromParcel(p), GetParam().result);
    EXPECT_EQ(s.exceptionCode(), GetParam().exception);
    EXPECT_EQ(s.serviceSpecificErrorCode(), GetParam().serviceCode);
    EXPECT_STREQ(s.toString8().string(), GetParam().text);
    if (GetParam().result == OK) {
        EXPECT_EQ(p.dataAvail(), 0u);
    }
    p.setDataPosition(0);
    EXPECT_EQ(p.readExceptionCode(), GetParam().exception);
}

INSTANTIATE_TEST_SUITE_P(Cases, ParcelStatusRead, ::testing::ValuesIn(kStatusCases),
                         rowName<StatusCase>);

}  // namespace
