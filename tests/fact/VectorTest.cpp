#include "fact/Vector.h"

#include <gtest/gtest.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <string>

#include "FactTestSupport.h"

namespace {

using fact::Vector;

// The text a JSON writer gives an object of these string members.
std::string written(const fact::test::Pairs& members) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartObject();
    for (const auto& m : members) {
        writer.Key(m.first.data(), static_cast<rapidjson::SizeType>(m.first.size()));
        writer.String(m.second.data(), static_cast<rapidjson::SizeType>(m.second.size()));
    }
    writer.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize());
}

TEST(VectorTest, MetadataIsTheTextAJsonWriterGives) {
    std::string text(1, '\0');
    for (int c = 1; c < 0x20; ++c)
        text += static_cast<char>(c);
    text += "\"\\/\x7f\xff\xc3\xa9";
    Vector appended(0, "");
    appended.AddMetadataField("k\t1", text);
    appended.AddMetadataField("second", "x\"y");
    EXPECT_EQ(written({{"k\t1", text}, {"second", "x\"y"}}), appended.metadata());
}

TEST(VectorTest, SumWrapsAndAdoptsMetadataOnlyWhenEmpty) {
    Vector a(3, "");
    a.elements() = {2147483647, 1, -5};
    Vector b(3, "{\"m\":\"b\"}");
    b.elements() = {1, 2, 5};
    a += b;
    EXPECT_EQ((std::vector<int32_t>{-2147483647 - 1, 3, 0}), a.elements());
    EXPECT_EQ("{\"m\":\"b\"}", a.metadata());
    Vector c(3, "{\"m\":\"c\"}");
    a += c;
    EXPECT_EQ("{\"m\":\"b\"}", a.metadata());
}

}  // namespace
