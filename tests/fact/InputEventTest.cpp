#include "fact/InputEvent.h"

#include <gtest/gtest.h>

#include <string>
#include <unordered_map>

#include "FactTestSupport.h"

namespace {

using fact::InputEvent;

std::string failure(const std::string& text) {
    return fact::test::errorOf([&] { InputEvent event(text); });
}

TEST(InputEventTest, CopiesProducerAndAttributesFirstValueWins) {
    const InputEvent event(R"({"data_producer": "tdp", "extra": [1, {"x": null}],
        "attributes": [{"key": "a", "value": "1"}, {"key": "b", "value": "x_y", "more": 2},
                       {"key": "a", "value": "2"}]})");
    EXPECT_EQ("tdp", event.dataProducer);
    ASSERT_EQ(2u, event.attributes.size());
    EXPECT_EQ("1", event.attributes.at("a"));
    EXPECT_EQ("x_y", event.attributes.at("b"));
    // The plain shape producers send, members in either order.
    const InputEvent plain(
        R"({"attributes": [{"value": "v", "key": "k"}, {"key": "k2", "value": ""}],
        "data_producer": "p"})");
    EXPECT_EQ("p", plain.dataProducer);
    EXPECT_EQ((std::unordered_map<std::string, std::string>{{"k", "v"}, {"k2", ""}}),
              plain.attributes);
}

TEST(InputEventTest, RefusesBadTextsWithExactErrors) {
    const std::string deep = std::string(30000, '[') + std::string(30000, ']');
    struct Row {
        std::string text, error;
    };
    const Row rows[] = {
        {"", "Empty InputEvent json"},
        {"[", "Failed to parse json: Invalid value."},
        {"{} x", "Failed to parse json: The document root must not be followed by other values."},
        {"{\"data_producer\": \"\xff\"}", "Failed to parse json: Invalid encoding in string."},
        // Invalid early and broken later: parsing is reported first.
        {R"({"data_producer": 5, "attributes": [)", "Failed to parse json: Invalid value."},
        {R"("text")", "Invalid schema: #\nInvalid keyword: type\nInvalid document: #"},
        {deep, "Invalid schema: #\nInvalid keyword: type\nInvalid document: #"},
        {R"({"data_producer": "p"})",
         "Invalid schema: #\nInvalid keyword: required\nInvalid document: #"},
        {R"({"data_producer": "p", "attributes": []})",
         "Invalid schema: #/properties/attributes\nInvalid keyword: minItems\n"
         "Invalid document: #/attributes"},
        {R"({"data_producer": "p", "attributes": [{"key": "k", "value": "v"}, {"key": "k", "value": "v"}]})",
         "Invalid schema: #/properties/attributes\nInvalid keyword: uniqueItems\nInvalid document: "
         "#/attributes/1"},
        {R"({"data_producer": "p", "attributes": [{"key": "k"}]})",
         "Invalid schema: #/properties/attributes/items\nInvalid keyword: required\nInvalid "
         "document: #/attributes/0"},
        {R"({"data_producer": "p", "attributes": [{"key": "a", "value": "1"}, {"value": "1", "key": "a"}]})",
         "Invalid schema: #/properties/attributes\nInvalid keyword: uniqueItems\nInvalid document: "
         "#/attributes/1"},
        {R"({"data_producer": 5, "attributes": [{"key": "k", "value": "v"}]})",
         "Invalid schema: #/properties/data_producer\nInvalid keyword: type\nInvalid document: "
         "#/data_producer"},
        {R"({"data_producer": "p", "data_producer": 5, "attributes": [{"key": "k", "value": "v"}]})",
         "Invalid schema: #/properties/data_producer\nInvalid keyword: type\nInvalid document: "
         "#/data_producer"},
        {R"({"data_producer": "p", "attributes": {"key": "k", "value": "v"}})",
         "Invalid schema: #/properties/attributes\nInvalid keyword: type\nInvalid document: "
         "#/attributes"},
        {R"({"data_producer": "p", "attributes": ["k"]})",
         "Invalid schema: #/properties/attributes/items\nInvalid keyword: type\nInvalid document: "
         "#/attributes/0"},
        {R"({"data_producer": "p", "attributes": [{"key": 1, "value": "v"}]})",
         "Invalid schema: #/properties/attributes/items/properties/key\nInvalid keyword: "
         "type\nInvalid "
         "document: #/attributes/0/key"},
        {R"({"data_producer": "p", "attributes": [{"key\u0000": "k", "value": "v"}]})",
         "Invalid schema: #/properties/attributes/items\nInvalid keyword: required\nInvalid "
         "document: #/attributes/0"},
        {R"({"data_producer": "p", "attributes": [{"key": "a", "value": 1}]})",
         "Invalid schema: #/properties/attributes/items/properties/value\nInvalid keyword: "
         "type\nInvalid document: #/attributes/0/value"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(row.error, failure(row.text)) << row.text.substr(0, 80);
    std::string big = R"({"data_producer": "p", "attributes": [{"key": "k", "value": ")";
    big += std::string(65536 - big.size() - 4, 'v') + "\"}]}";
    ASSERT_EQ(65536u, big.size());
    EXPECT_EQ("ok", failure(big));
    EXPECT_EQ("Oversized InputEvent json: 65537 bytes, limit 65536", failure(big + " "));
    // Deep nesting where the schema allows anything is fine: nothing recurses.
    const std::string half = std::string(15000, '[') + std::string(15000, ']');
    EXPECT_EQ("ok", failure(R"({"data_producer": "p", "extra": )" + half +
                            R"(, "attributes": [{"key": "k", "value": "v", "x": )" + half + "}]}"));
}

}  // namespace
