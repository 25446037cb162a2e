#include "fact/Vector.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <stdexcept>
#include <string>

#include "fact/FactHeartbeatMetric.h"

namespace {

using fact::FactHeartbeatMetric;
using fact::Vector;

TEST(VectorTest, MetadataFieldsAppendInOrder) {
    Vector v(3, "");
    v.AddMetadataField("differential_privacy", "{\"cohort_size\": 5}");
    v.AddMetadataField("campaign_id", "C\"1");
    EXPECT_EQ(R"({"differential_privacy":"{\"cohort_size\": 5}","campaign_id":"C\"1"})",
              v.metadata());
    EXPECT_EQ(3u * 4 + 36 + v.metadata().size(), v.memSize());
    EXPECT_EQ(36u, Vector(0, "").memSize());
}

TEST(VectorTest, AppendingGivesTheTextOfParsingAndRewriting) {
    const std::string first = "q\"\\\n\x01\xc3\xa9/";
    Vector appended(0, "");
    appended.AddMetadataField("k\t1", first);
    // The same member given from outside, spaced: parsed and rewritten.
    Vector rewritten(0, "{ \"k\\t1\" : \"q\\\"\\\\\\n\\u0001\xc3\xa9/\" }");
    for (Vector* v : {&appended, &rewritten})
        v->AddMetadataField("second", "x\"y");
    EXPECT_EQ(rewritten.metadata(), appended.metadata());
    EXPECT_EQ("{\"k\\t1\":\"q\\\"\\\\\\n\\u0001\xc3\xa9/\",\"second\":\"x\\\"y\"}",
              appended.metadata());
}

TEST(VectorTest, EscapesEveryControlCharacterAsTheWriterDoes) {
    std::string text(1, '\0');
    for (int c = 1; c < 0x20; ++c)
        text += static_cast<char>(c);
    text += "\"\\/\x7f\xff";
    rapidjson::Document doc;
    doc.SetObject();
    doc.AddMember(rapidjson::Value("k", doc.GetAllocator()),
                  rapidjson::Value(text.data(), static_cast<rapidjson::SizeType>(text.size()),
                                   doc.GetAllocator()),
                  doc.GetAllocator());
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    doc.Accept(writer);
    Vector v(0, "");
    v.AddMetadataField("k", text);
    EXPECT_EQ(std::string(buffer.GetString(), buffer.GetSize()), v.metadata());
}

TEST(VectorTest, UnparsableMetadataIsCountedAndRefused) {
    auto& metric = FactHeartbeatMetric::GetInstance();
    for (const std::string bad : {"{oops", "[1]", "\"text\""}) {
        const int before = metric.getCount("VectorMetadataErrorCount");
        Vector v(1, bad);
        try {
            v.AddMetadataField("k", "v");
            ADD_FAILURE() << bad;
        } catch (const std::runtime_error& e) {
            EXPECT_EQ("Failed to parse json: " + bad, e.what());
        }
        EXPECT_EQ(bad, v.metadata());
        EXPECT_EQ(before + 1, metric.getCount("VectorMetadataErrorCount"));
    }
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

    auto& metric = FactHeartbeatMetric::GetInstance();
    const int before = metric.getCount("VectorMismatchCount");
    Vector seven(7, ""), eight(8, "");
    EXPECT_THROW(seven += eight, std::runtime_error);
    EXPECT_EQ(before + 1, metric.getCount("VectorMismatchCount"));
    EXPECT_EQ((std::vector<int32_t>(7, 0)), seven.elements());
}

TEST(VectorTest, ConcatenateKeepsTheFirstMetadata) {
    Vector a(2, "{\"m\":\"a\"}");
    a.elements()[1] = 4;
    Vector b(3, "");
    b.elements()[0] = 9;
    a.Concatenate(b);
    EXPECT_EQ((std::vector<int32_t>{0, 4, 9, 0, 0}), a.elements());
    EXPECT_EQ("{\"m\":\"a\"}", a.metadata());
    Vector empty(0, "");
    empty.Concatenate(a);
    EXPECT_EQ(a.elements(), empty.elements());
    EXPECT_EQ(a.metadata(), empty.metadata());
}

}  // namespace
