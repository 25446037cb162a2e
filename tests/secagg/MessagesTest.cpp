// The protocol's texts: base64url, and the strict readers and writers of the
// participation request and the mask directive.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "secagg/Base64Url.h"
#include "secagg/MaskDirective.h"
#include "secagg/ParticipationRequest.h"

namespace secagg {
namespace {

TEST(Base64UrlTest, EncodesAndDecodesStrictly) {
    const std::vector<std::pair<std::string, std::string>> known = {
        {"", ""},           {"f", "Zg"},          {"fo", "Zm8"},      {"foo", "Zm9v"},
        {"foob", "Zm9vYg"}, {"fooba", "Zm9vYmE"}, {"\xfb\xff", "-_8"}};
    for (const auto& [bytes, text] : known) {
        EXPECT_EQ(text, base64UrlEncode(std::vector<uint8_t>(bytes.begin(), bytes.end())));
        std::vector<uint8_t> decoded;
        ASSERT_TRUE(base64UrlDecode(text, decoded)) << text;
        EXPECT_EQ(bytes, std::string(decoded.begin(), decoded.end()));
    }
    // Padding, the standard alphabet, a lone digit, set unused bits, spaces.
    for (const char* bad : {"Zg==", "+/8", "Z", "Zh", "Zm9", "Zm9vY", "Zm 9v"}) {
        std::vector<uint8_t> decoded;
        EXPECT_FALSE(base64UrlDecode(bad, decoded)) << bad;
    }
    std::array<uint8_t, 2> two{};
    EXPECT_TRUE(base64UrlDecodeFixed("-_8", two));
    EXPECT_FALSE(base64UrlDecodeFixed("Zm9v", two));
}

ParticipationRequest sampleRequest(Kind kind) {
    ParticipationRequest r;
    r.kind = kind;
    r.requestId.fill(7);
    r.name = "app \"1\"";
    r.secondName = R"({"campaign_id":"c"})";
    r.length = 9;
    r.publicKey.fill(0xfe);
    r.scale = kind == Kind::Flgr ? 0.1f : 0.0f;
    return r;
}

TEST(ParticipationRequestTest, RoundTripsBothKinds) {
    for (Kind kind : {Kind::Integral, Kind::Flgr}) {
        const ParticipationRequest r = sampleRequest(kind);
        std::string text;
        ASSERT_TRUE(writeParticipationRequest(r, text));
        ParticipationRequest back;
        std::string error;
        ASSERT_TRUE(parseParticipationRequest(text, back, error)) << error << "\n" << text;
        EXPECT_EQ(kind, back.kind);
        EXPECT_EQ(r.requestId, back.requestId);
        EXPECT_EQ(r.name, back.name);
        EXPECT_EQ(r.secondName, back.secondName);
        EXPECT_EQ(r.length, back.length);
        EXPECT_EQ(r.stages, back.stages);
        EXPECT_EQ(r.prgs, back.prgs);
        EXPECT_EQ(r.publicKey, back.publicKey);
        EXPECT_EQ(r.scale, back.scale);
    }
    std::string text;
    ParticipationRequest r = sampleRequest(Kind::Integral);
    ASSERT_TRUE(writeParticipationRequest(r, text));
    EXPECT_EQ(R"({"v":1,"type":"participation_request","kind":"integral","request_id":")"
              R"(BwcHBwcHBwcHBwcHBwcHBw","name":"app \"1\"","second_name":)"
              R"("{\"campaign_id\":\"c\"}","length":9,"stages":[1],"prg":["aes128ctr"],)"
              R"("pk":"_v7-_v7-_v7-_v7-_v7-_v7-_v7-_v7-_v7-_v7-_v4"})",
              text);
}

// Replaces the first occurrence of `from` in a valid text.
std::string edited(std::string text, const std::string& from, const std::string& to) {
    const size_t at = text.find(from);
    EXPECT_NE(std::string::npos, at) << from;
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

TEST(ParticipationRequestTest, RefusesEverythingButTheExactShape) {
    std::string integral;
    std::string flgr;
    ASSERT_TRUE(writeParticipationRequest(sampleRequest(Kind::Integral), integral));
    ASSERT_TRUE(writeParticipationRequest(sampleRequest(Kind::Flgr), flgr));
    const std::vector<std::string> bad = {
        "",
        "[]",
        integral + " x",
        edited(integral, R"("v":1)", R"("v":2)"),
        edited(integral, R"("v":1)", R"("v":"1")"),
        edited(integral, R"("type":"participation_request")", R"("type":"mask")"),
        edited(integral, R"("kind":"integral")", R"("kind":"other")"),
        edited(integral, R"("length":9)", R"("length":0)"),
        edited(integral, R"("length":9)", R"("length":-9)"),
        edited(integral, R"("length":9)", R"("length":4294967296)"),
        edited(integral, R"("length":9)", R"("length":9.5)"),
        edited(integral, R"("stages":[1])", R"("stages":[])"),
        edited(integral, R"("stages":[1])", R"("stages":["1"])"),
        edited(integral, R"("prg":["aes128ctr"])", R"("prg":"aes128ctr")"),
        edited(integral, R"("name")", R"("nam")"),
        edited(integral, R"("name":"app \"1\"")", R"("name":1)"),
        edited(integral, R"("request_id":"BwcHBwcHBwcHBwcHBwcHBw")", R"("request_id":"BwcH")"),
        edited(integral, R"("pk":"_v7)", R"("pk":"+v7)"),
        edited(integral, "}", R"(,"scale":1})"),
        edited(integral, "}", R"(,"v":1})"),
        edited(flgr, R"("scale":)", R"("scale":"x","y":)"),
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

MaskDirective sampleDirective() {
    MaskDirective d;
    d.requestId.fill(1);
    d.sessionId.fill(2);
    d.name = "n";
    d.secondName = "s";
    d.length = 3;
    d.cohortId = "cohort-1";
    d.neighbours.assign(3, PublicKey{});
    for (size_t i = 0; i < d.neighbours.size(); ++i) {
        d.neighbours[i].fill(static_cast<uint8_t>(10 + i));
    }
    return d;
}

TEST(MaskDirectiveTest, RoundTripsAndBoundsNeighboursBeforeDecoding) {
    const MaskDirective d = sampleDirective();
    const std::string text = writeMaskDirective(d);
    MaskDirective back;
    std::string error;
    bool named = false;
    ASSERT_EQ(DirectiveParse::Ok, parseMaskDirective(text, back, error, named, 3)) << error;
    EXPECT_EQ(d.requestId, back.requestId);
    EXPECT_EQ(d.sessionId, back.sessionId);
    EXPECT_EQ(d.stage, back.stage);
    EXPECT_EQ(d.prg, back.prg);
    EXPECT_EQ(d.kind, back.kind);
    EXPECT_EQ(d.name, back.name);
    EXPECT_EQ(d.secondName, back.secondName);
    EXPECT_EQ(d.length, back.length);
    EXPECT_EQ(d.cohortId, back.cohortId);
    EXPECT_EQ(d.neighbours, back.neighbours);
    // A bad key past the bound is never looked at.
    const std::string tooMany = edited(text, R"("neighbours":[)", R"("neighbours":[1,)");
    EXPECT_EQ(DirectiveParse::TooManyNeighbours,
              parseMaskDirective(tooMany, back, error, named, 3));
    EXPECT_TRUE(named);
}

TEST(MaskDirectiveTest, MalformedDirectivesSayWhetherTheyNamedARequest) {
    const std::string text = writeMaskDirective(sampleDirective());
    const std::string id = R"("request_id":"AQEBAQEBAQEBAQEBAQEBAQ")";
    const std::vector<std::pair<std::string, bool>> bad = {
        {"{", false},
        {edited(text, id, R"("request_id":1)"), false},
        {edited(text, id, R"("request_id":"AQEB")"), false},
        {edited(text, id, R"("requestid":"AQEBAQEBAQEBAQEBAQEBAQ")"), false},
        {edited(text, R"("v":1)", R"("v":0)"), true},
        {edited(text, R"("type":"mask")", R"("type":"masks")"), true},
        {edited(text, R"("stage":1)", R"("stage":"1")"), true},
        {edited(text, R"("session_id":"AgIC)", R"("session_id":"AgI)"), true},
        {edited(text, R"("kind":"integral")", R"("kind":"flg")"), true},
        {edited(text, R"("length":3)", R"("length":2147483648.0)"), true},
        {edited(text, R"("cohort_id":"cohort-1")", R"("cohort_id":null)"), true},
        {edited(text, R"("neighbours":[)", R"("neighbours":[true,)"), true},
        {text.substr(0, text.find(R"("neighbours")")) + R"("neighbours":"x"})", true},
        {edited(text, R"("neighbours":[)", R"("neighbours":["Cg",)"), true},
        {edited(text, "}", R"(,"extra":1})"), true},
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
