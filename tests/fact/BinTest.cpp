// Bins convert event values with the device's 32-bit conversions; these
// tables pin that behaviour on any host.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "FactTestSupport.h"
#include "fact/Attr.h"
#include "fact/Bin.h"

namespace {

using fact::Attr;
using fact::Bin;
using fact::test::errorOf;

// Outcome of one membership test: in, out, or the exception's text.
std::string outcome(const Attr& attr, const std::string& value) {
    bool in = false;
    const std::string error = errorOf([&] { in = attr.inRange(value); });
    return error != "ok" ? "throw " + error : in ? "in" : "out";
}

// One attribute of the type holding one bin [min, max] of that type, as the
// campaign loader builds it (a bin always has its attribute's type).
std::shared_ptr<Attr> attrFor(const std::string& type) {
    auto attr = std::make_shared<Attr>("a", type);
    if (type == "int32")
        attr->addBin<int>("b", 0, 10, true);
    if (type == "uint32")
        attr->addBin<unsigned int>("b", 1, 4294967295u, true);
    if (type == "int64")
        attr->addBin<long long>("b", -5000000000LL, 5000000000LL, true);
    if (type == "uint64")
        attr->addBin<unsigned long long>("b", 1, 5000000000ULL, true);
    if (type == "double")
        attr->addBin<double>("b", 0.5, 1.5, false);
    if (type == "bool")
        attr->addBin<bool>("b", true, true, true);
    return attr;
}

TEST(BinTest, ConvertsByTheDeviceTable) {
    struct Row {
        std::string type, value, expected;
    };
    const Row rows[] = {
        // int32: stoi, which skips leading space and stops at the first non-digit.
        {"int32", "7", "in"},
        {"int32", " 10", "in"},
        {"int32", "10abc", "in"},
        {"int32", "11", "out"},
        {"int32", "abc", "throw stoi"},
        {"int32", "2147483648", "throw stoi"},
        // uint32: strtoul of 32 bits, negative text wraps around.
        {"uint32", "-1", "in"},
        {"uint32", "0", "out"},
        {"uint32", "4294967296", "throw stoul"},
        {"uint32", "x", "throw stoul"},
        // int64: only 32-bit values, then widened.
        {"int64", "2147483647", "in"},
        {"int64", "-2147483648", "in"},
        {"int64", "2147483648", "throw stol"},
        {"int64", "", "throw stol"},
        // uint64: 32-bit strtoul.
        {"uint64", "4294967295", "in"},
        {"uint64", "4294967296", "throw stoul"},
        {"uint64", "-1", "in"},
        {"double", "1.0", "in"},
        {"double", "1.5", "out"},
        {"double", "nan", "out"},
        {"double", "x", "throw stod"},
        // bool: "true" exactly, anything else is false.
        {"bool", "true", "in"},
        {"bool", "True", "out"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.type + "/" + row.value);
        EXPECT_EQ(row.expected, outcome(*attrFor(row.type), row.value));
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
