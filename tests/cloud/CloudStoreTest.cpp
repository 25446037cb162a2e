#include "CloudStore.h"

#include <gtest/gtest.h>

#include "TempDeviceRoot.h"

namespace vemo {
namespace cloud {
namespace {

RequestRecord request(const std::string& device, const std::string& id) {
    RequestRecord r;
    r.deviceId = device;
    r.requestId = id;
    r.kind = "integral";
    r.name = "app";
    r.secondName = "{}";
    r.length = 2;
    r.publicKey = "pk-" + device;
    return r;
}

class CloudStoreTest : public ::testing::Test {
  protected:
    // A session "s" of devices a and b, formed from their stored requests.
    void formSession(const std::string& id = "s") {
        for (const char* d : {"a", "b"}) {
            const auto r = request(d, std::string("r-") + d + id);
            ASSERT_EQ(
                store.storeEvent(d, "m-" + r.requestId, "ns", "n", EventEffect::kRequest, &r, 0),
                EventOutcome::kStored);
        }
        SessionRecord s;
        s.sessionId = id;
        s.campaignId = "c";
        s.applicationId = "app";
        s.length = 2;
        store.createSession(s, store.waitingRequests(), {{"a", "{}"}, {"b", "{}"}});
    }

    test::TempDeviceRoot dir;
    CloudStore store{dir.root() + "/cloud.db"};
};

TEST_F(CloudStoreTest, FailedSessionRefusesLateUploadsAndPublishesNothing) {
    formSession();
    ASSERT_EQ(store.storeUpload("s", "a", "AAAAAAAA").outcome, UploadOutcome::kStored);
    EXPECT_TRUE(store.failSession("s", "deadline passed"));
    EXPECT_FALSE(store.failSession("s", "again"));
    EXPECT_EQ(store.storeUpload("s", "b", "AAAAAAAA").outcome, UploadOutcome::kClosed);
    EXPECT_EQ(store.storeUpload("s", "a", "AAAAAAAA").outcome, UploadOutcome::kClosed);
    EXPECT_FALSE(store.completeSession("s", {1, 2}));
    EXPECT_TRUE(store.totals("c").empty());
    EXPECT_EQ(store.health().sessionsFailed, 1);
}

TEST_F(CloudStoreTest, TotalsAccumulateAcrossSessionsAndWrap) {
    formSession("s1");
    formSession("s2");
    ASSERT_TRUE(store.completeSession("s1", {0xffffffffu, 5}));
    ASSERT_TRUE(store.completeSession("s2", {2, 5}));
    EXPECT_FALSE(store.completeSession("s2", {2, 5}));
    const auto totals = store.totals("c");
    ASSERT_EQ(totals.size(), 1u);
    EXPECT_EQ(totals[0].sum, (std::vector<uint32_t>{1, 10}));
    EXPECT_EQ(totals[0].sessions, 2);
    EXPECT_EQ(totals[0].uploads, 4);
    EXPECT_EQ(totals[0].devices, 2);
}

TEST_F(CloudStoreTest, AnnouncementDropsQueuedDirectivesAndWaitingRequests) {
    formSession();
    const auto late = request("a", "r-late");
    store.storeEvent("a", "m-late", "ns", "n", EventEffect::kRequest, &late, 0);
    EXPECT_EQ(store.directivesAfter("a", 0, 10).size(), 1u);
    EXPECT_EQ(store.storeEvent("a", "m-late", "ns", "n", EventEffect::kNone, nullptr, 0),
              EventOutcome::kDuplicate);
    // The same request id under a new message id is a replay.
    EXPECT_EQ(store.storeEvent("a", "m-new", "ns", "n", EventEffect::kRequest, &late, 0),
              EventOutcome::kDuplicate);
    EXPECT_EQ(store.storeEvent("a", "m-hello", "ns", "n", EventEffect::kAnnouncement, nullptr, 0),
              EventOutcome::kStored);
    EXPECT_TRUE(store.directivesAfter("a", 0, 10).empty());
    EXPECT_EQ(store.directivesAfter("b", 0, 10).size(), 1u);
    EXPECT_EQ(store.waitingRequestCount(), 0);
    // Acknowledged directives are gone.
    const int64_t seq = store.directivesAfter("b", 0, 10)[0].seq;
    EXPECT_TRUE(store.directivesAfter("b", seq, 10).empty());
    EXPECT_EQ(store.health().directivesQueued, 0);
}

}  // namespace
}  // namespace cloud
}  // namespace vemo
