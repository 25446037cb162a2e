// Bins convert event values with the device's 32-bit conversions; these
// tables pin that behaviour on any host.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "FactTestSupport.h"
#include "fact/Attr.h"
#include "fact/Bin.h"
#include "fact/DataType.h"

namespace {

using fact::Attr;
using fact::Bin;
using fact::DataType;
using fact::test::errorOf;

TEST(DataTypeTest, ConvertsExactTextsOnly) {
    const std::string names[] = {"uint32", "uint64", "int32", "int64", "double", "string", "bool"};
    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(i, DataType::FromString(names[i]));
    for (const std::string bad : {"Int32", "int", "", "uint32 "})
        EXPECT_EQ("Invalid data type string: " + bad, errorOf([&] { DataType::FromString(bad); }));
}

// Outcome of one membership test: in, out, or the exception's text.
std::string outcome(const Attr& attr, const std::string& value) {
    bool in = false;
    const std::string error = errorOf([&] { in = attr.inRange(value); });
    return error != "ok" ? "throw " + error : in ? "in" : "out";
}

// One attribute of the declared type holding one bin [min, max] of the kind.
std::shared_ptr<Attr> attrFor(const std::string& kind, const std::string& declared) {
    auto attr = std::make_shared<Attr>("a", declared);
    if (kind == "int")
        attr->addBin<int>("b", 0, 10, true);
    if (kind == "uint")
        attr->addBin<unsigned int>("b", 1, 4294967295u, true);
    if (kind == "ll")
        attr->addBin<long long>("b", -5000000000LL, 5000000000LL, true);
    if (kind == "ull")
        attr->addBin<unsigned long long>("b", 1, 5000000000ULL, true);
    if (kind == "double")
        attr->addBin<double>("b", 0.5, 1.5, false);
    if (kind == "bool")
        attr->addBin<bool>("b", true, true, true);
    return attr;
}

TEST(BinTest, ConvertsByTheDeviceTable) {
    struct Row {
        std::string kind, declared, value, expected;
    };
    const Row rows[] = {
        // int: parsed for the 32-bit integer types, true-rule for the others.
        {"int", "int32", "7", "in"},
        {"int", "int32", " 10", "in"},
        {"int", "int32", "11", "out"},
        {"int", "uint32", "10abc", "in"},
        {"int", "int32", "abc", "throw stoi"},
        {"int", "int32", "2147483648", "throw stoi"},
        {"int", "int64", "true", "in"},  // true-rule: 1
        {"int", "double", "5", "in"},    // true-rule: 0
        {"int", "string", "5", "throw Invalid data type"},
        // unsigned int: strtoul of 32 bits, negative text wraps around.
        {"uint", "uint32", "-1", "in"},
        {"uint", "uint32", "0", "out"},
        {"uint", "uint32", "4294967296", "throw stoul"},
        {"uint", "uint32", "x", "throw stoul"},
        {"uint", "int32", "true", "in"},
        {"uint", "int32", "7", "out"},
        // long long: only 32-bit values, then widened.
        {"ll", "int64", "2147483647", "in"},
        {"ll", "int64", "-2147483648", "in"},
        {"ll", "int64", "2147483648", "throw stol"},
        {"ll", "uint64", "4294967295", "throw stol"},
        {"ll", "int64", "", "throw stol"},
        {"ll", "double", "true", "in"},
        // unsigned long long: 32-bit strtoul.
        {"ull", "uint64", "4294967295", "in"},
        {"ull", "uint64", "4294967296", "throw stoul"},
        {"ull", "uint64", "-1", "in"},
        {"ull", "int64", "3", "out"},
        // double: every numeric declared type parses; bool uses true-rule.
        {"double", "double", "1.0", "in"},
        {"double", "double", "1.5", "out"},
        {"double", "double", "nan", "out"},
        {"double", "int32", "0.5", "in"},
        {"double", "bool", "true", "in"},
        {"double", "double", "x", "throw stod"},
        // bool: true-rule everywhere but "string".
        {"bool", "bool", "true", "in"},
        {"bool", "bool", "True", "out"},
        {"bool", "int32", "1", "out"},
        {"bool", "string", "true", "throw Invalid data type"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.kind + "/" + row.declared + "/" + row.value);
        EXPECT_EQ(row.expected, outcome(*attrFor(row.kind, row.declared), row.value));
    }
}

TEST(BinTest, RangeBoundsAndEnumMatching) {
    Attr open("open", "int32"), closed("closed", "int32"), overlap("overlap", "int32");
    open.addBin<int>("low", 0, 10, false);
    closed.addBin<int>("low", 0, 10, true);
    overlap.addBin<int>("a", 0, 10, true);
    overlap.addBin<int>("b", 5, 15, true);
    Attr text("text", "string"), numbers("numbers", "int64"), empty("empty", "int32");
    text.addBin<std::string>("a", "a");
    text.addBin<std::string>("b", "b");
    numbers.addBin<long long>("seven", 7);
    // Bins of different classes in one attribute each convert the value their own way.
    Attr mixed("mixed", "int32");
    mixed.addBin<int>("small", 0, 10, false);
    mixed.addBin<double>("half", 10.0, 10.5, true);
    mixed.addBin<int>("big", 10, 20, true);
    struct Row {
        const Attr& attr;
        std::string value;
        int index;
    };
    const Row rows[] = {
        {open, "0", 0},    {open, "9", 0},     {open, "10", -1},    {open, "-1", -1},
        {closed, "10", 0}, {overlap, "7", 0},  {overlap, "12", 1},  {overlap, "16", -1},
        {empty, "1", -1},  {text, "b", 1},     {text, "c", -1},     {text, "ab", -1},
        {numbers, "7", 0}, {numbers, "8", -1}, {mixed, "10.25", 1}, {mixed, "10.75", 2},
    };
    for (const Row& row : rows)
        EXPECT_EQ(row.index, row.attr.IndexInRange(row.value)) << row.attr.name << " " << row.value;
}

}  // namespace
