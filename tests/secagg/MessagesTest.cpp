// The protocol's texts: the strict readers and writers of the participation
// request and the mask directive (and with them base64url, whose "-" and "_"
// the golden keys hold).
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "secagg/MaskDirective.h"
#include "secagg/ParticipationRequest.h"

namespace secagg {
namespace {

const char kIntegral[] =
    R"({"v":1,"type":"participation_request","kind":"integral","request_id":")"
    R"(BwcHBwcHBwcHBwcHBwcHBw","name":"app \"1\"","second_name":"{\"c\":2}","length":9,)"
    R"("stages":[1],"prg":["aes128ctr"],"pk":"_v7-_v7-_v7-_v7-_v7-_v7-_v7-_v7-_v7-_v7-_v4"})";

// The writer is pinned by a golden text built from fields, the reader by
// reading that text back and writing it again.
TEST(ParticipationRequestTest, GoldenTextsRoundTrip) {
    ParticipationRequest r;
    r.requestId.fill(7);
    r.name = "app \"1\"";
    r.secondName = R"({"c":2})";
    r.length = 9;
    r.publicKey.fill(0xfe);
    std::string text;
    ASSERT_TRUE(writeParticipationRequest(r, text));
    EXPECT_EQ(kIntegral, text);
    r.kind = Kind::Flgr;
    r.scale = 0.1f;
    std::string flgr;
    ASSERT_TRUE(writeParticipationRequest(r, flgr));
    EXPECT_NE(std::string::npos, flgr.find(R"("kind":"flgr")"));
    EXPECT_NE(std::string::npos, flgr.find(R"(,"scale":0.10000000149011612})"));
    r.scale = std::numeric_limits<float>::infinity();
    EXPECT_FALSE(writeParticipationRequest(r, text));
    for (const std::string& golden : {std::string(kIntegral), flgr}) {
        ParticipationRequest back;
        std::string error;
        ASSERT_TRUE(parseParticipationRequest(golden, back, error)) << error;
        ASSERT_TRUE(writeParticipationRequest(back, text));
        EXPECT_EQ(golden, text);
    }
}

// Adds members at the end of a text's object.
std::string appended(const std::string& text, const std::string& members) {
    return text.substr(0, text.size() - 1) + members + "}";
}

// Replaces the first occurrence of `from` in a valid text.
std::string edited(std::string text, const std::string& from, const std::string& to) {
    const size_t at = text.find(from);
    EXPECT_NE(std::string::npos, at) << from;
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

TEST(ParticipationRequestTest, RefusesEverythingButTheExactShape) {
    const std::string integral = kIntegral;
    const std::string flgr =
        appended(edited(integral, "integral", "flgr"), R"(,"scale":0.10000000149011612)");
    const std::vector<std::string> bad = {
        "",
        integral + " x",
        edited(integral, R"("v":1)", R"("v":2)"),
        edited(integral, R"("v":1)", R"("v":"1")"),
        edited(integral, R"("type":"participation_request")", R"("type":"mask")"),
        edited(integral, R"("kind":"integral")", R"("kind":"other")"),
        edited(integral, R"("length":9)", R"("length":0)"),
        edited(integral, R"("length":9)", R"("length":4294967296)"),
        edited(integral, R"("stages":[1])", R"("stages":[])"),
        edited(integral, R"("prg":["aes128ctr"])", R"("prg":"aes128ctr")"),
        edited(integral, R"("name")", R"("nam")"),
        edited(integral, R"("request_id":"BwcHBwcHBwcHBwcHBwcHBw")", R"("request_id":"BwcH")"),
        edited(integral, R"("pk":"_v7)", R"("pk":"+v7)"),
        appended(integral, R"(,"scale":1)"),
        edited(flgr, R"(,"scale":0.10000000149011612)", ""),
        edited(flgr, R"("scale":0.10000000149011612)", R"("scale":1e300)"),
        edited(integral, "app", "\xff\xfe"),
    };
    for (const std::string& text : bad) {
        ParticipationRequest out;
        std::string error;
        EXPECT_FALSE(parseParticipationRequest(text, out, error)) << text;
        EXPECT_FALSE(error.empty()) << text;
    }
}

const char kDirective[] =
    R"({"v":1,"type":"mask","request_id":"AQEBAQEBAQEBAQEBAQEBAQ","session_id":")"
    R"(AgICAgICAgICAgICAgICAgICAgICAgICAgICAgICAgI","stage":1,"prg":"aes128ctr",)"
    R"("kind":"integral","name":"n","second_name":"s","length":3,"cohort_id":"c-1",)"
    R"("neighbours":["CgoKCgoKCgoKCgoKCgoKCgoKCgoKCgoKCgoKCgoKCgo",)"
    R"("CwsLCwsLCwsLCwsLCwsLCwsLCwsLCwsLCwsLCwsLCws"]})";

TEST(MaskDirectiveTest, GoldenTextRoundTrips) {
    MaskDirective d;
    d.requestId.fill(1);
    d.sessionId.fill(2);
    d.name = "n";
    d.secondName = "s";
    d.length = 3;
    d.cohortId = "c-1";
    d.neighbours.assign(2, PublicKey{});
    d.neighbours[0].fill(10);
    d.neighbours[1].fill(11);
    EXPECT_EQ(kDirective, writeMaskDirective(d));
    MaskDirective back;
    std::string error;
    bool named = false;
    ASSERT_EQ(DirectiveParse::Ok, parseMaskDirective(kDirective, back, error, named, 2)) << error;
    EXPECT_EQ(kDirective, writeMaskDirective(back));
}

TEST(MaskDirectiveTest, MalformedDirectivesSayWhetherTheyNamedARequest) {
    const std::string text = kDirective;
    const std::string id = R"("request_id":"AQEBAQEBAQEBAQEBAQEBAQ")";
    const std::vector<std::pair<std::string, bool>> bad = {
        {"{", false},
        {edited(text, id, R"("request_id":1)"), false},
        {edited(text, id, R"("requestid":"AQEBAQEBAQEBAQEBAQEBAQ")"), false},
        {edited(text, R"("v":1)", R"("v":0)"), true},
        {edited(text, R"("stage":1)", R"("stage":"1")"), true},
        {edited(text, R"("session_id":"AgIC)", R"("session_id":"AgI)"), true},
        {edited(text, R"("length":3)", R"("length":2147483648.0)"), true},
        {text.substr(0, text.find(R"("neighbours")")) + R"("neighbours":"x"})", true},
        {edited(text, R"("neighbours":[)", R"("neighbours":["Cg",)"), true},
        {appended(text, R"(,"extra":1)"), true},
    };
    for (const auto& [directive, named] : bad) {
        MaskDirective out;
        std::string error;
        bool read = !named;
        EXPECT_EQ(DirectiveParse::Malformed, parseMaskDirective(directive, out, error, read, 12))
            << directive;
        EXPECT_EQ(named, read) << directive;
        EXPECT_FALSE(error.empty()) << directive;
    }
}

}  // namespace
}  // namespace secagg
