// The cloud-communication stand-in against a scripted HTTPS cloud.
#include "tolmocomm/TolmoComm.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include <condition_variable>

#include "HttpsTestServer.h"
#include "TempDeviceRoot.h"
#include "TestPki.h"
#include "hostlog/LogCapture.h"

namespace {

using namespace std::chrono_literals;
using tolmocomm::TolmoComm;
using tolmocomm::TolmoDirective;
using tolmocomm::TolmoEvent;
using tolmocomm::TolmoEventResult;
using vemo::test::HttpsTestServer;

const char kNs[] = "RA.Tolmo.SecureAggregationSessionController";
const char kEvents[] = "/v20160207/events";
const char kPolls[] = "/v20160207/directives";

TolmoEvent event(const std::string& payload) {
    return TolmoEvent(kNs, "ParticipationRequest", payload, kEvents, false, "1", "", "", "");
}

// What the library hands back, from its threads.
template <class T>
class Inbox {
  public:
    void add(const T& item) {
        std::lock_guard<std::mutex> guard(lock_);
        items_.push_back(item);
        changed_.notify_all();
    }
    std::vector<T> waitFor(size_t count) {
        std::unique_lock<std::mutex> guard(lock_);
        changed_.wait_for(guard, 20s, [&] { return items_.size() >= count; });
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
        options.emptyPollPause = 20ms;
        options.maxAnswerBytes = 64 * 1024;
        return options;
    }
    tolmocomm::EventResultCallback collect() {
        return [this](const TolmoEventResult& result) { results.add(result); };
    }
    void subscribe(TolmoComm& comm) {
        comm.registerClient(TolmoEvent("Tolmo.Discovery", "AddOrUpdateReport", "{}",
                                       "/v20160207/event", false, "1.0", "", "", ""),
                            nullptr, {{kNs, "UploadMaskedData"}}, collect(),
                            [this](const TolmoDirective& d) { directives.add(d); });
    }

    vemo::test::TempDeviceRoot root;
    vemo::test::TestPki pki{root.root() + "/pki"};
    HttpsTestServer cloud{pki.serverCert(), pki.serverKey()};
    hostlog::LogCapture logs;
    Inbox<TolmoEventResult> results;
    Inbox<TolmoDirective> directives;
};

TEST_F(TolmoCommTest, PostsEventsAndMapsTheCloudsAnswersToResultCodes) {
    const struct {
        std::vector<int> first;
        int then, code;
        size_t attempts;
    } cases[] = {
        {{}, 200, TolmoEventResult::kDelivered, 1},
        {{503}, 200, TolmoEventResult::kDeliveredAfterRetry, 2},
        {{}, 409, TolmoEventResult::kAlreadyDelivered, 1},
        {{}, 401, TolmoEventResult::kRefused, 1},
        {{}, 500, TolmoEventResult::kNotDelivered, 3},
        {{}, 302, TolmoEventResult::kNotDelivered, 1},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        cloud.respondWith(cases[i].then, "{}", cases[i].first);
        TolmoComm comm(fast());
        comm.sendEvent(event("{\"v\":1}"), collect());
        const TolmoEventResult result = results.waitFor(i + 1).at(i);
        EXPECT_EQ(result.getResultCode(), cases[i].code) << i;
        const auto posted = cloud.requestsTo(kEvents);
        // Every attempt is the same document, so the cloud can tell a repeat.
        for (size_t a = 0; a < cases[i].attempts; ++a) {
            const auto& one = posted.at(posted.size() - 1 - a);
            EXPECT_EQ(one.body, "{\"event\":{\"header\":{\"namespace\":\"" + std::string(kNs) +
                                    "\",\"name\":\"ParticipationRequest\",\"messageId\":\"" +
                                    result.getMessageId() +
                                    "\",\"payloadVersion\":\"1\"},\"payload\":\"{\\\"v\\\":1}\"}}");
            EXPECT_EQ(one.header("x-qzt-access-token"), "device-token");
        }
    }
    EXPECT_EQ(cloud.requestsTo(kEvents).size(), 1u + 2 + 1 + 1 + 3 + 1);
}

TEST_F(TolmoCommTest, SendsNothingToAnUnusableOrUntrustedCloud) {
    HttpsTestServer impostor(pki.foreignServerCert(), pki.foreignServerKey());
    const std::string port = cloud.baseUrl().substr(cloud.baseUrl().rfind(':'));
    for (const std::string& url : {"http://127.0.0.1" + port, std::string(), impostor.baseUrl()}) {
        pointAt(url);
        logs.clear();
        TolmoComm comm(fast());
        Inbox<TolmoEventResult> out;
        for (int i = 0; i < 2; ++i) {
            comm.sendEvent(event("{}"), [&out](const TolmoEventResult& r) { out.add(r); });
        }
        for (const auto& result : out.waitFor(2)) {
            EXPECT_EQ(result.getResultCode(), TolmoEventResult::kNotDelivered);
        }
        if (url != impostor.baseUrl()) {
            // One line for the refused URL, however many events it refuses.
            EXPECT_EQ(logs.entries().size(), 1u) << hostlog::describe(logs.entries());
        }
    }
    EXPECT_TRUE(cloud.requests().empty());
    EXPECT_TRUE(impostor.requests().empty());
}

TEST_F(TolmoCommTest, AFullQueueIsAnsweredBeforeSendEventReturns) {
    TolmoComm::Options options = fast();
    options.queueCapacity = 2;
    TolmoComm comm(options);
    cloud.holdAnswers();
    comm.sendEvent(event("1"), collect());
    ASSERT_TRUE(cloud.waitForRequests(kEvents, 1, 20s));
    comm.sendEvent(event("2"), collect());
    comm.sendEvent(event("3"), collect());
    int overflow = -1;
    comm.sendEvent(event("4"), [&](const TolmoEventResult& r) { overflow = r.getResultCode(); });
    EXPECT_EQ(overflow, TolmoEventResult::kNotDelivered);
    cloud.release();
    for (const auto& result : results.waitFor(3)) {
        EXPECT_EQ(result.getResultCode(), TolmoEventResult::kDelivered);
    }
}

TEST_F(TolmoCommTest, HandsSubscribedDirectivesInOrderAndAcknowledgesThem) {
    cloud.queueDirective(kNs, "UploadMaskedData", "first");
    cloud.queueDirective(kNs, "SomethingElse", "{}");
    cloud.queueDirective(kNs, "UploadMaskedData", "second");
    TolmoComm comm(fast());
    subscribe(comm);
    const auto got = directives.waitFor(2);
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0].getPayload(), "first");
    EXPECT_EQ(got[0].getMessageId(), "directive-1");
    EXPECT_EQ(got[0].getEventCorrelationToken(), "correlation-1");
    EXPECT_EQ(got[1].getPayload(), "second");
    ASSERT_TRUE(cloud.waitForRequests(kPolls, 2, 20s));
    const auto polls = cloud.requestsTo(kPolls);
    EXPECT_EQ(polls[0].query, "after=0");
    EXPECT_EQ(polls[1].query, "after=3");
    EXPECT_EQ(polls[1].header("x-qzt-access-token"), "device-token");
    EXPECT_EQ(
        logs.count("TolmoComm", "No handler for directive " + std::string(kNs) + "/SomethingElse"),
        1u);
}

TEST_F(TolmoCommTest, HostilePollAnswersChangeNothingAndAreNotAskedInATightLoop) {
    const std::string entry = "{\"seq\":1,\"header\":{\"namespace\":\"" + std::string(kNs) +
                              "\",\"name\":\"UploadMaskedData\"},\"payload\":";
    const std::string list = "{\"directives\":[" + entry;
    const struct {
        int status;
        std::string body, location;
    } cases[] = {
        {200, "{\"directives\":[", ""},
        {200, "{\"directive\":[]}", ""},
        {200, list + "\"x\"}" + std::string(100 * 1024, ' ') + "]}", ""},  // over the bound
        {500, "", ""},
        {302, "", "http://127.0.0.1:9/v20160207/directives"},
        {200, list + "5}]}", ""},
    };
    for (const auto& c : cases) {
        cloud.answerPollsRaw(c.status, c.body, c.location);
        const size_t before = cloud.requestsTo(kPolls).size();
        {
            TolmoComm comm(fast());
            subscribe(comm);
            std::this_thread::sleep_for(300ms);
        }
        const size_t polls = cloud.requestsTo(kPolls).size() - before;
        EXPECT_GE(polls, 1u) << c.body.substr(0, 40);
        EXPECT_LE(polls, 20u) << c.body.substr(0, 40);
    }
    EXPECT_TRUE(directives.waitFor(0).empty());
    // A directive already acknowledged is not obeyed again when repeated.
    cloud.answerPollsRaw(200, list + "\"x\"}]}");
    TolmoComm comm(fast());
    subscribe(comm);
    ASSERT_TRUE(cloud.waitForRequests(kPolls, cloud.requestsTo(kPolls).size() + 3, 20s));
    EXPECT_EQ(directives.waitFor(1).size(), 1u);
}

TEST_F(TolmoCommTest, ShutdownEndsAPollAndARetryInFlightAtOnce) {
    TolmoComm::Options options = fast();
    options.retryBase = options.retryMax = options.pollTimeout = 60s;
    cloud.setPollHold(60s);
    cloud.respondWith(503, "{}");
    TolmoComm comm(options);
    subscribe(comm);
    ASSERT_TRUE(cloud.waitForRequests(kPolls, 1, 20s));
    ASSERT_TRUE(cloud.waitForRequests("/v20160207/event", 1, 20s));
    const auto start = std::chrono::steady_clock::now();
    comm.shutdown();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
    comm.sendEvent(event("{}"), collect());
    const auto answered = results.waitFor(1);
    ASSERT_EQ(answered.size(), 1u);  // the announcement in its backoff is never answered
    EXPECT_EQ(answered[0].getResultCode(), TolmoEventResult::kNotDelivered);
}

}  // namespace
