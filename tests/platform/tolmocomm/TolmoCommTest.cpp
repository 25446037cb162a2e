// The cloud-communication stand-in against a scripted HTTPS cloud.

#include <android/log.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <regex>

#include "ScriptedCloud.h"
#include "TempDeviceRoot.h"
#include "TestPki.h"
#include "hostlog/LogCapture.h"
#include "tolmocomm/TolmoComm.h"

namespace {

using namespace std::chrono_literals;
using tolmocomm::TolmoComm;
using tolmocomm::TolmoDirective;
using tolmocomm::TolmoEvent;
using tolmocomm::TolmoEventResult;
using vemo::test::ScriptedCloud;

const char kNs[] = "RA.Tolmo.SecureAggregationSessionController";
const char kTag[] = "TolmoComm";

TolmoEvent event(const std::string& payload, const std::string& path = "/v20160207/events") {
    return TolmoEvent(kNs, "ParticipationRequest", payload, path, false, "1", "", "", "");
}

// Collects what the library hands back, from its threads.
template <class T>
class Inbox {
  public:
    void add(const T& item) {
        std::lock_guard<std::mutex> guard(lock_);
        items_.push_back(item);
        changed_.notify_all();
    }
    bool waitFor(size_t count, std::chrono::milliseconds bound = 20s) {
        std::unique_lock<std::mutex> guard(lock_);
        return changed_.wait_for(guard, bound, [&] { return items_.size() >= count; });
    }
    std::vector<T> items() {
        std::lock_guard<std::mutex> guard(lock_);
        return items_;
    }

  private:
    std::mutex lock_;
    std::condition_variable changed_;
    std::vector<T> items_;
};

class TolmoCommTest : public ::testing::Test {
  protected:
    void SetUp() override {
        root.provision(1, "device-token");
        pointAt(cloud.baseUrl());
    }
    void pointAt(const std::string& url) {
        root.writeFile(
            "/data/property/persist.prop",
            "persist.vemo.cloud.url=" + url + "\npersist.vemo.cloud.cafile=" + pki.caFile() + "\n");
    }
    static TolmoComm::Options fast() {
        TolmoComm::Options options;
        options.maxAttempts = 3;
        options.retryBase = 20ms;
        options.retryMax = 100ms;
        options.pollTimeout = 5s;
        options.emptyPollPause = 20ms;
        options.maxAnswerBytes = 64 * 1024;
        return options;
    }
    tolmocomm::EventResultCallback collect() {
        return [this](const TolmoEventResult& result) { results.add(result); };
    }
    void registerHandler(TolmoComm& comm) {
        comm.registerClient(TolmoEvent("Tolmo.Discovery", "AddOrUpdateReport", "{}",
                                       "/v20160207/event", false, "1.0", "", "", ""),
                            nullptr, {{kNs, "UploadMaskedData"}}, collect(),
                            [this](const TolmoDirective& d) { directives.add(d); });
    }

    vemo::test::TempDeviceRoot root;
    vemo::test::TestPki pki{root.root() + "/pki"};
    ScriptedCloud cloud{pki.serverCert(), pki.serverKey()};
    hostlog::LogCapture logs;
    Inbox<TolmoEventResult> results;
    Inbox<TolmoDirective> directives;
};

TEST_F(TolmoCommTest, PostsTheEventDocumentWithTheDeviceToken) {
    TolmoComm comm(fast());
    comm.sendEvent(event("{\"v\":1}"), collect());
    ASSERT_TRUE(results.waitFor(1));
    const TolmoEventResult result = results.items()[0];
    EXPECT_EQ(result.getResultCode(), TolmoEventResult::kDelivered);
    EXPECT_TRUE(std::regex_match(
        result.getMessageId(),
        std::regex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}")));
    const auto posted = cloud.requestsTo("/v20160207/events");
    ASSERT_EQ(posted.size(), 1u);
    EXPECT_EQ(posted[0].body, "{\"event\":{\"header\":{\"namespace\":\"" + std::string(kNs) +
                                  "\",\"name\":\"ParticipationRequest\",\"messageId\":\"" +
                                  result.getMessageId() +
                                  "\",\"payloadVersion\":\"1\"},\"payload\":\"{\\\"v\\\":1}\"}}");
    EXPECT_EQ(posted[0].token, "device-token");
    EXPECT_EQ(posted[0].contentType, "application/json");
}

TEST_F(TolmoCommTest, MapsTheCloudsAnswersToResultCodes) {
    const struct {
        const char* name;
        std::vector<int> first;
        int then;
        int code;
        size_t attempts;
    } cases[] = {
        {"accepted", {}, 200, TolmoEventResult::kDelivered, 1},
        {"overloaded once", {503}, 200, TolmoEventResult::kDeliveredAfterRetry, 2},
        {"duplicate", {}, 409, TolmoEventResult::kAlreadyDelivered, 1},
        {"malformed", {}, 400, TolmoEventResult::kRefused, 1},
        {"bad token", {}, 401, TolmoEventResult::kRefused, 1},
        {"server down", {}, 500, TolmoEventResult::kNotDelivered, 3},
        {"redirect", {}, 302, TolmoEventResult::kNotDelivered, 1},
    };
    size_t seen = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        cloud.answerPosts(c.then, c.first);
        TolmoComm comm(fast());
        Inbox<TolmoEventResult> one;
        comm.sendEvent(event("{}"), [&one](const TolmoEventResult& r) { one.add(r); });
        ASSERT_TRUE(one.waitFor(1));
        EXPECT_EQ(one.items()[0].getResultCode(), c.code);
        const auto posted = cloud.requestsTo("/v20160207/events");
        ASSERT_EQ(posted.size() - seen, c.attempts);
        // Retries repeat the message id, so the cloud can tell a repeat.
        EXPECT_EQ(posted.back().body, posted[seen].body);
        seen = posted.size();
    }
}

TEST_F(TolmoCommTest, RefusesAnUnusableUrlWithOneLineAndSendsNothing) {
    for (const std::string& url :
         std::vector<std::string>{"http://127.0.0.1:" + cloud.baseUrl().substr(18), ""}) {
        SCOPED_TRACE(url);
        pointAt(url);
        logs.clear();
        TolmoComm comm(fast());
        Inbox<TolmoEventResult> out;
        comm.sendEvent(event("{}"), [&out](const TolmoEventResult& r) { out.add(r); });
        comm.sendEvent(event("{}"), [&out](const TolmoEventResult& r) { out.add(r); });
        ASSERT_TRUE(out.waitFor(2));
        EXPECT_EQ(out.items()[0].getResultCode(), TolmoEventResult::kNotDelivered);
        EXPECT_EQ(out.items()[1].getResultCode(), TolmoEventResult::kNotDelivered);
        EXPECT_EQ(logs.entries().size(), 1u) << hostlog::describe(logs.entries());
        EXPECT_EQ(logs.count(kTag, url.empty() ? "is not set" : "only https is allowed"), 1u);
    }
    EXPECT_TRUE(cloud.requests().empty());
}

TEST_F(TolmoCommTest, DoesNotTrustACertificateItsCaDidNotSign) {
    ScriptedCloud impostor(pki.foreignServerCert(), pki.foreignServerKey());
    pointAt(impostor.baseUrl());
    TolmoComm comm(fast());
    comm.sendEvent(event("{}"), collect());
    ASSERT_TRUE(results.waitFor(1));
    EXPECT_EQ(results.items()[0].getResultCode(), TolmoEventResult::kNotDelivered);
    EXPECT_TRUE(impostor.requests().empty());
}

TEST_F(TolmoCommTest, AFullQueueAnswersAtOnceOnTheCallersThread) {
    TolmoComm::Options options = fast();
    options.queueCapacity = 2;
    TolmoComm comm(options);
    cloud.holdPosts(true);
    comm.sendEvent(event("1"), collect());
    ASSERT_TRUE(cloud.waitForRequests("/v20160207/events", 1, 20s));
    comm.sendEvent(event("2"), collect());
    comm.sendEvent(event("3"), collect());
    const auto caller = std::this_thread::get_id();
    std::thread::id answeredOn;
    comm.sendEvent(event("4"), [&](const TolmoEventResult& r) {
        answeredOn = std::this_thread::get_id();
        EXPECT_EQ(r.getResultCode(), TolmoEventResult::kNotDelivered);
    });
    EXPECT_EQ(answeredOn, caller);
    EXPECT_TRUE(results.items().empty());
    cloud.holdPosts(false);
    ASSERT_TRUE(results.waitFor(3));
    for (const auto& r : results.items()) {
        EXPECT_EQ(r.getResultCode(), TolmoEventResult::kDelivered);
    }
}

TEST_F(TolmoCommTest, HandsSubscribedDirectivesInOrderAndAcknowledgesThem) {
    TolmoComm comm(fast());
    registerHandler(comm);
    ASSERT_TRUE(results.waitFor(1));
    const auto announced = cloud.requestsTo("/v20160207/event");
    ASSERT_EQ(announced.size(), 1u);
    EXPECT_NE(announced[0].body.find("\"namespace\":\"Tolmo.Discovery\",\"name\":"
                                     "\"AddOrUpdateReport\""),
              std::string::npos);
    EXPECT_NE(announced[0].body.find("\"payloadVersion\":\"1.0\""), std::string::npos);

    cloud.queueDirective(kNs, "UploadMaskedData", "{\"payload\":{\"n\":1}}");
    cloud.queueDirective(kNs, "SomethingElse", "{}");
    cloud.queueDirective(kNs, "UploadMaskedData", "second");
    ASSERT_TRUE(directives.waitFor(2));
    // The poll after the hand-over acknowledges all three.
    for (int i = 0; i < 2000 && cloud.requestsTo("/v20160207/directives").back().query != "after=3";
         ++i) {
        std::this_thread::sleep_for(5ms);
    }
    const auto got = directives.items();
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0].getPayload(), "{\"payload\":{\"n\":1}}");
    EXPECT_EQ(got[0].getMessageId(), "directive-1");
    EXPECT_EQ(got[0].getEventCorrelationToken(), "correlation-1");
    EXPECT_EQ(got[0].getPayloadVersion(), "1");
    EXPECT_EQ(got[1].getPayload(), "second");
    EXPECT_EQ(logs.count(kTag, "No handler for directive " + std::string(kNs) + "/SomethingElse"),
              1u);
    const auto polls = cloud.requestsTo("/v20160207/directives");
    EXPECT_EQ(polls.front().query, "after=0");
    EXPECT_EQ(polls.back().query, "after=3");
    EXPECT_EQ(polls.back().token, "device-token");
}

TEST_F(TolmoCommTest, HostilePollAnswersChangeNothingAndAreNotAskedInATightLoop) {
    const std::string entry = "{\"seq\":1,\"header\":{\"namespace\":\"" + std::string(kNs) +
                              "\",\"name\":\"UploadMaskedData\"},\"payload\":";
    const struct {
        const char* name;
        int status;
        std::string body;
        std::string location;
    } cases[] = {
        {"not JSON", 200, "{\"directives\":[", ""},
        {"no list", 200, "{\"directive\":[]}", ""},
        {"huge", 200, "{\"directives\":[" + entry + "\"x\"}" + std::string(100 * 1024, ' ') + "]}",
         ""},
        {"server error", 500, "", ""},
        {"redirect to http", 302, "", "http://127.0.0.1:9/v20160207/directives"},
        {"payload not text", 200, "{\"directives\":[" + entry + "5}]}", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        cloud.answerPollsRaw(c.status, c.body, c.location);
        const size_t before = cloud.requestsTo("/v20160207/directives").size();
        {
            TolmoComm comm(fast());
            registerHandler(comm);
            std::this_thread::sleep_for(300ms);
        }
        const size_t polls = cloud.requestsTo("/v20160207/directives").size() - before;
        EXPECT_GE(polls, 1u);
        EXPECT_LE(polls, 20u);
        EXPECT_TRUE(directives.items().empty());
    }
    // A directive already acknowledged is not obeyed again when repeated.
    cloud.answerPollsRaw(200, "{\"directives\":[" + entry + "\"x\"}]}");
    TolmoComm comm(fast());
    registerHandler(comm);
    ASSERT_TRUE(cloud.waitForRequests("/v20160207/directives",
                                      cloud.requestsTo("/v20160207/directives").size() + 3, 20s));
    EXPECT_EQ(directives.items().size(), 1u);
}

TEST_F(TolmoCommTest, ShutdownEndsAPollAndARetryInFlightAtOnce) {
    TolmoComm::Options options = fast();
    options.retryBase = options.retryMax = 60s;
    options.pollTimeout = 60s;
    cloud.setPollHold(60s);
    cloud.answerPosts(503);
    TolmoComm comm(options);
    registerHandler(comm);
    ASSERT_TRUE(cloud.waitForRequests("/v20160207/directives", 1, 20s));
    ASSERT_TRUE(cloud.waitForRequests("/v20160207/event", 1, 20s));
    const auto start = std::chrono::steady_clock::now();
    comm.shutdown();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
    comm.sendEvent(event("{}"), collect());
    ASSERT_EQ(results.items().size(), 1u);
    EXPECT_EQ(results.items()[0].getResultCode(), TolmoEventResult::kNotDelivered);
}

}  // namespace
