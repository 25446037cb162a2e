#pragma once
// The cloud's durable state in one SQLite database: the device registry,
// accepted events, participation requests, sessions and their members'
// vectors, per-device directive queues and the published totals per
// campaign and application id. Every mutating call is one transaction in
// WAL mode with synchronous commits, so a call that returned has reached
// the disk; a process killed between two calls leaves the state of the
// last one.
//
// Owns its connection. Thread-safe: one mutex serialises every statement.

#include <sqlite3.h>

#include <cstdint>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace vemo {
namespace cloud {

// A failure of the database itself (disk full, corrupt file); the server
// answers 500 and the transaction is rolled back.
class StoreError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct RequestRecord {
    int64_t id = 0;  // assigned by the store, in arrival order
    std::string deviceId;
    std::string requestId;
    std::string kind;
    std::string name;
    std::string secondName;
    uint32_t length = 0;
    std::string publicKey;
    std::string eventMessageId;
    int64_t receivedMs = 0;
};

enum class SessionState { kOpen, kComplete, kFailed };

struct SessionRecord {
    std::string sessionId;  // also the cohort id devices echo
    std::string campaignId;
    std::string applicationId;
    uint32_t length = 0;
    SessionState state = SessionState::kOpen;
    int64_t createdMs = 0;
    int64_t deadlineMs = 0;
    std::string reason;
};

struct MemberRecord {
    std::string deviceId;
    std::string requestId;
    bool uploaded = false;
};

struct DirectiveRecord {
    int64_t seq = 0;
    std::string body;  // the directive object's JSON without "seq"
};

struct NewDirective {
    std::string deviceId;
    std::string body;
};

enum class EventOutcome { kStored, kDuplicate };

// What an accepted event changes besides being recorded.
enum class EventEffect { kNone, kRequest, kAnnouncement };

enum class UploadOutcome {
    kStored,     // first vector of this member
    kRepeat,     // identical to the stored one
    kConflict,   // a different vector was stored before
    kNotMember,  // unknown session, or the device is not its member
    kClosed,     // session already failed or complete without this member's vector
};

struct UploadResult {
    UploadOutcome outcome = UploadOutcome::kNotMember;
    bool full = false;  // every member has now uploaded
};

struct Totals {
    std::string applicationId;
    uint32_t length = 0;
    std::vector<uint32_t> sum;
    int64_t sessions = 0;
    int64_t uploads = 0;  // member vectors summed (a device counts once per session)
    int64_t devices = 0;  // distinct devices
    int64_t checksumFailures = 0;
};

struct HealthCounts {
    int64_t sessionsOpen = 0;
    int64_t sessionsComplete = 0;
    int64_t sessionsFailed = 0;
    int64_t uploads = 0;
    int64_t directivesQueued = 0;
    int64_t requestsWaiting = 0;
};

class CloudStore {
  public:
    // Opens (creating when absent) the database; throws StoreError.
    explicit CloudStore(const std::string& path);
    ~CloudStore();
    CloudStore(const CloudStore&) = delete;
    CloudStore& operator=(const CloudStore&) = delete;

    // Adds or re-maps tokens; a token keeps one device id.
    void registerDevices(const std::vector<std::pair<std::string, std::string>>& tokenToDevice);
    std::optional<std::string> deviceForToken(const std::string& token);

    // Records the event (device, message id) and its effect in one
    // transaction. A repeated message id changes nothing. An announcement
    // drops the device's queued directives and its requests not yet in a
    // session: a restarted device has lost their keys.
    EventOutcome storeEvent(const std::string& deviceId, const std::string& messageId,
                            const std::string& eventNamespace, const std::string& eventName,
                            EventEffect effect, const RequestRecord* request, int64_t nowMs);

    // Requests not in a session, oldest first.
    std::vector<RequestRecord> waitingRequests();
    int64_t waitingRequestCount();

    // Creates the session, binds its members' requests to it and queues
    // their directives, in one transaction. Returns the directives' seqs.
    std::vector<int64_t> createSession(const SessionRecord& session,
                                       const std::vector<RequestRecord>& members,
                                       const std::vector<NewDirective>& directives);

    // Directives of the device above `after`, oldest first; those at or
    // below `after` are acknowledged and deleted.
    std::vector<DirectiveRecord> directivesAfter(const std::string& deviceId, int64_t after,
                                                 size_t limit);

    std::optional<SessionRecord> session(const std::string& sessionId);
    std::vector<MemberRecord> members(const std::string& sessionId);
    std::vector<SessionRecord> openSessions();

    // Stores a member's little-endian vector bytes once.
    UploadResult storeUpload(const std::string& sessionId, const std::string& deviceId,
                             const std::string& vectorBytes);
    // The members' vectors, in device order; empty strings where missing.
    std::vector<std::string> sessionVectors(const std::string& sessionId);

    // Marks an open session complete and adds `sum` (checksum removed) to
    // the totals of its campaign and application id. False when the session
    // was no longer open, or the totals have another length (then the
    // session fails with that reason).
    bool completeSession(const std::string& sessionId, const std::vector<uint32_t>& sum);
    // Marks an open session failed; false when it was not open.
    bool failSession(const std::string& sessionId, const std::string& reason);

    std::vector<Totals> totals(const std::string& campaignId);
    HealthCounts health();

    static constexpr int64_t kSchemaVersion = 1;

  private:
    class Statement;
    class Transaction;

    // Creates the tables in a new database; refuses another schema version.
    void migrate();
    void exec(const char* sql);
    bool failSessionLocked(const std::string& sessionId, const std::string& reason);

    sqlite3* db_ = nullptr;
    std::mutex mutex_;  // guards db_ and every statement run on it
};

}  // namespace cloud
}  // namespace vemo
