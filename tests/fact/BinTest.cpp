// Bins convert event values with the device's 32-bit conversions; these
// tables pin that behaviour on any host.

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "fact/Attr.h"
#include "fact/Bin.h"
#include "fact/DataType.h"

namespace {

using fact::Attr;
using fact::Bin;
using fact::DataType;

TEST(DataTypeTest, ConvertsExactTextsOnly) {
    const std::vector<std::pair<std::string, int>> rows = {
        {"uint32", 0}, {"uint64", 1}, {"int32", 2}, {"int64", 3},
        {"double", 4}, {"string", 5}, {"bool", 6}};
    for (const auto& row : rows) {
        EXPECT_EQ(row.second, DataType::FromString(row.first));
    }
    for (const std::string bad : {"Int32", "int", "", "uint32 "}) {
        try {
            DataType::FromString(bad);
            ADD_FAILURE() << bad;
        } catch (const std::invalid_argument& e) {
            EXPECT_EQ("Invalid data type string: " + bad, e.what());
        }
    }
}

// Outcome of one membership test: in, out, or the exception's text.
std::string outcome(const Attr& attr, const std::string& value) {
    try {
        return attr.inRange(value) ? "in" : "out";
    } catch (const std::exception& e) {
        return std::string("throw ") + e.what();
    }
}

struct ConversionRow {
    std::string declared;  // the attribute's type
    std::string binKind;   // which Bin<T>
    std::string value;
    std::string expected;
};

// One attribute per row holding one bin [min, max] of the row's T.
std::shared_ptr<Attr> attrFor(const ConversionRow& row) {
    auto attr = std::make_shared<Attr>("a", row.declared);
    if (row.binKind == "int")
        attr->addBin<int>("b", 0, 10, true);
    if (row.binKind == "uint")
        attr->addBin<unsigned int>("b", 1, 4294967295u, true);
    if (row.binKind == "ll")
        attr->addBin<long long>("b", -5000000000LL, 5000000000LL, true);
    if (row.binKind == "ull")
        attr->addBin<unsigned long long>("b", 1, 5000000000ULL, true);
    if (row.binKind == "double")
        attr->addBin<double>("b", 0.5, 1.5, false);
    if (row.binKind == "bool")
        attr->addBin<bool>("b", true, true, true);
    return attr;
}

TEST(BinTest, ConvertsByTheDeviceTable) {
    const std::vector<ConversionRow> rows = {
        // int: parsed for the 32-bit integer types, true-rule for the others.
        {"int32", "int", "7", "in"},
        {"int32", "int", " 10", "in"},
        {"int32", "int", "11", "out"},
        {"uint32", "int", "10abc", "in"},
        {"int32", "int", "abc", "throw stoi"},
        {"int32", "int", "2147483648", "throw stoi"},
        {"int64", "int", "true", "in"},  // true-rule: 1
        {"double", "int", "5", "in"},    // true-rule: 0
        {"string", "int", "5", "throw Invalid data type"},
        // unsigned int: strtoul of 32 bits, negative text wraps around.
        {"uint32", "uint", "-1", "in"},
        {"uint32", "uint", "0", "out"},
        {"uint32", "uint", "4294967296", "throw stoul"},
        {"uint32", "uint", "x", "throw stoul"},
        {"int32", "uint", "true", "in"},
        {"int32", "uint", "7", "out"},
        // long long: only 32-bit values, then widened.
        {"int64", "ll", "2147483647", "in"},
        {"int64", "ll", "-2147483648", "in"},
        {"int64", "ll", "2147483648", "throw stol"},
        {"uint64", "ll", "4294967295", "throw stol"},
        {"int64", "ll", "", "throw stol"},
        {"double", "ll", "true", "in"},
        // unsigned long long: 32-bit strtoul.
        {"uint64", "ull", "4294967295", "in"},
        {"uint64", "ull", "4294967296", "throw stoul"},
        {"uint64", "ull", "-1", "in"},
        {"int64", "ull", "3", "out"},
        // double: every numeric declared type parses; bool uses true-rule.
        {"double", "double", "1.0", "in"},
        {"double", "double", "1.5", "out"},
        {"double", "double", "nan", "out"},
        {"int32", "double", "0.5", "in"},
        {"bool", "double", "true", "in"},
        {"double", "double", "x", "throw stod"},
        // bool: true-rule everywhere but "string".
        {"bool", "bool", "true", "in"},
        {"bool", "bool", "True", "out"},
        {"int32", "bool", "1", "out"},
        {"string", "bool", "true", "throw Invalid data type"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.declared + "/" + row.binKind + "/" + row.value);
        EXPECT_EQ(row.expected, outcome(*attrFor(row), row.value));
    }
}

TEST(BinTest, RangeBoundsAndEnumMatching) {
    Attr attr("n", "int32");
    attr.addBin<int>("low", 0, 10, false);
    EXPECT_TRUE(attr.inRange("0"));
    EXPECT_TRUE(attr.inRange("9"));
    EXPECT_FALSE(attr.inRange("10"));
    EXPECT_FALSE(attr.inRange("-1"));
    Attr closed("n", "int32");
    closed.addBin<int>("low", 0, 10, true);
    EXPECT_TRUE(closed.inRange("10"));

    Attr overlap("n", "int32");
    overlap.addBin<int>("a", 0, 10, true);
    overlap.addBin<int>("b", 5, 15, true);
    EXPECT_EQ(0, overlap.IndexInRange("7"));
    EXPECT_EQ(1, overlap.IndexInRange("12"));
    EXPECT_EQ(-1, overlap.IndexInRange("16"));
    EXPECT_EQ(-1, Attr("empty", "int32").IndexInRange("1"));

    Attr text("s", "string");
    text.addBin<std::string>("a", "a");
    text.addBin<std::string>("b", "b");
    EXPECT_EQ(1, text.IndexInRange("b"));
    EXPECT_EQ(-1, text.IndexInRange("c"));
    EXPECT_EQ(-1, text.IndexInRange("ab"));

    Attr numbers("e", "int64");
    numbers.addBin<long long>("seven", 7);
    EXPECT_EQ(0, numbers.IndexInRange("7"));
    EXPECT_EQ(-1, numbers.IndexInRange("8"));
}

TEST(BinTest, StringRangesCompareBytes) {
    Bin<std::string> bin("m", "b", "d", false);
    EXPECT_TRUE(bin.inRange("b"));
    EXPECT_TRUE(bin.inRange("czz"));
    EXPECT_FALSE(bin.inRange("d"));
    EXPECT_FALSE(bin.inRange("a"));
    // Bytes above 0x7f sort after ASCII whatever the signedness of char.
    Bin<std::string> high("h", "z", "\xc3\xa9", true);
    EXPECT_TRUE(high.inRange("\xc3\xa9"));
    EXPECT_TRUE(high.inRange("\xc3"));
    EXPECT_FALSE(high.inRange("y"));
}

TEST(BinTest, OwnTypeTextIsFixedByTheInstantiation) {
    EXPECT_EQ("int32", Bin<int>("b", 1).type);
    EXPECT_EQ("uint32", Bin<unsigned int>("b", 1u).type);
    EXPECT_EQ("int64", Bin<long long>("b", 1LL).type);
    EXPECT_EQ("uint64", Bin<unsigned long long>("b", 1ULL).type);
    EXPECT_EQ("double", Bin<double>("b", 1.0).type);
    EXPECT_EQ("bool", Bin<bool>("b", false, true, true).type);
    EXPECT_EQ("string", Bin<std::string>("b", std::string("x")).type);
    Bin<int> enumBin("b", 3);
    EXPECT_EQ(3, enumBin.min);
    EXPECT_EQ(3, enumBin.max);
    EXPECT_TRUE(enumBin.includeMax);
}

}  // namespace
