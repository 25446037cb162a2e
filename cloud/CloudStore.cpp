#include "CloudStore.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <cstring>

namespace vemo {
namespace cloud {

namespace {

SessionState stateFrom(const std::string& text) {
    if (text == "open") {
        return SessionState::kOpen;
    }
    return text == "complete" ? SessionState::kComplete : SessionState::kFailed;
}

std::string packWords(const std::vector<uint32_t>& words) {
    std::string bytes(words.size() * 4, '\0');
    for (size_t i = 0; i < words.size(); ++i) {
        for (int k = 0; k < 4; ++k) {
            bytes[4 * i + k] = static_cast<char>((words[i] >> (8 * k)) & 0xffu);
        }
    }
    return bytes;
}

std::vector<uint32_t> unpackWords(const std::string& bytes) {
    std::vector<uint32_t> words(bytes.size() / 4);
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    for (size_t i = 0; i < words.size(); ++i, p += 4) {
        words[i] =
            uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
    }
    return words;
}

// Tokens are kept as SHA-256 digests: a copy of the database does not let
// anyone speak for a device.
std::string tokenDigest(const std::string& token) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (EVP_Digest(token.data(), token.size(), digest, &size, EVP_sha256(), nullptr) != 1) {
        throw StoreError("SHA-256 failed");
    }
    static const char* hex = "0123456789abcdef";
    std::string out;
    for (unsigned int i = 0; i < size; ++i) {
        out += hex[digest[i] >> 4];
        out += hex[digest[i] & 0xf];
    }
    return out;
}

constexpr const char* kSchema = R"SQL(
CREATE TABLE IF NOT EXISTS devices(
    token_sha256 TEXT PRIMARY KEY, device_id TEXT NOT NULL);
CREATE TABLE IF NOT EXISTS events(
    device_id TEXT NOT NULL, message_id TEXT NOT NULL, namespace TEXT, name TEXT,
    received_ms INTEGER, PRIMARY KEY(device_id, message_id));
CREATE TABLE IF NOT EXISTS requests(
    id INTEGER PRIMARY KEY, device_id TEXT NOT NULL, request_id TEXT NOT NULL,
    kind TEXT NOT NULL, name TEXT NOT NULL, second_name TEXT NOT NULL, length INTEGER NOT NULL,
    public_key TEXT NOT NULL, event_message_id TEXT, received_ms INTEGER NOT NULL,
    session_id TEXT, UNIQUE(device_id, request_id));
CREATE INDEX IF NOT EXISTS requests_waiting ON requests(session_id, id);
CREATE TABLE IF NOT EXISTS sessions(
    session_id TEXT PRIMARY KEY, campaign_id TEXT NOT NULL, application_id TEXT NOT NULL,
    length INTEGER NOT NULL, state TEXT NOT NULL, created_ms INTEGER NOT NULL,
    deadline_ms INTEGER NOT NULL, reason TEXT NOT NULL DEFAULT '');
CREATE INDEX IF NOT EXISTS sessions_state ON sessions(state);
CREATE TABLE IF NOT EXISTS members(
    session_id TEXT NOT NULL, device_id TEXT NOT NULL, request_id TEXT NOT NULL, vector BLOB,
    uploaded INTEGER NOT NULL DEFAULT 0, PRIMARY KEY(session_id, device_id));
CREATE TABLE IF NOT EXISTS directives(
    seq INTEGER PRIMARY KEY AUTOINCREMENT, device_id TEXT NOT NULL, body TEXT NOT NULL);
CREATE INDEX IF NOT EXISTS directives_device ON directives(device_id, seq);
CREATE TABLE IF NOT EXISTS totals(
    campaign_id TEXT NOT NULL, application_id TEXT NOT NULL, length INTEGER NOT NULL,
    sum BLOB NOT NULL, sessions INTEGER NOT NULL, uploads INTEGER NOT NULL,
    PRIMARY KEY(campaign_id, application_id));
CREATE TABLE IF NOT EXISTS contributors(
    campaign_id TEXT NOT NULL, application_id TEXT NOT NULL, device_id TEXT NOT NULL,
    PRIMARY KEY(campaign_id, application_id, device_id));
)SQL";

}  // namespace

// A prepared statement with positional binding; reset on destruction.
class CloudStore::Statement {
  public:
    Statement(sqlite3* db, const char* sql) : db_(db) {
        if (sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr) != SQLITE_OK) {
            throw StoreError(std::string("prepare failed: ") + sqlite3_errmsg(db));
        }
    }
    ~Statement() { sqlite3_finalize(stmt_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& bind(const std::string& text) {
        check(sqlite3_bind_text(stmt_, ++index_, text.data(), static_cast<int>(text.size()),
                                SQLITE_TRANSIENT));
        return *this;
    }
    Statement& bindBlob(const std::string& bytes) {
        check(sqlite3_bind_blob(stmt_, ++index_, bytes.data(), static_cast<int>(bytes.size()),
                                SQLITE_TRANSIENT));
        return *this;
    }
    Statement& bind(int64_t value) {
        check(sqlite3_bind_int64(stmt_, ++index_, value));
        return *this;
    }
    // True while a row is available.
    bool step() {
        const int rc = sqlite3_step(stmt_);
        if (rc == SQLITE_ROW) {
            return true;
        }
        if (rc == SQLITE_DONE) {
            return false;
        }
        throw StoreError(std::string("step failed: ") + sqlite3_errmsg(db_));
    }
    // Runs a statement that yields no row; false on a constraint violation.
    bool run() {
        const int rc = sqlite3_step(stmt_);
        if (rc == SQLITE_DONE) {
            return true;
        }
        if ((rc & 0xff) == SQLITE_CONSTRAINT) {
            return false;
        }
        throw StoreError(std::string("step failed: ") + sqlite3_errmsg(db_));
    }
    int64_t integer(int column) { return sqlite3_column_int64(stmt_, column); }
    bool isNull(int column) { return sqlite3_column_type(stmt_, column) == SQLITE_NULL; }
    std::string text(int column) {
        const auto* data = sqlite3_column_blob(stmt_, column);
        const int size = sqlite3_column_bytes(stmt_, column);
        return data ? std::string(static_cast<const char*>(data), static_cast<size_t>(size))
                    : std::string();
    }

  private:
    void check(int rc) {
        if (rc != SQLITE_OK) {
            throw StoreError(std::string("bind failed: ") + sqlite3_errmsg(db_));
        }
    }
    sqlite3* db_;
    sqlite3_stmt* stmt_ = nullptr;
    int index_ = 0;
};

// BEGIN IMMEDIATE ... COMMIT; rolled back unless committed.
class CloudStore::Transaction {
  public:
    explicit Transaction(CloudStore& store) : store_(store) { store_.exec("BEGIN IMMEDIATE"); }
    ~Transaction() {
        if (!done_) {
            sqlite3_exec(store_.db_, "ROLLBACK", nullptr, nullptr, nullptr);
        }
    }
    void commit() {
        store_.exec("COMMIT");
        done_ = true;
    }

  private:
    CloudStore& store_;
    bool done_ = false;
};

CloudStore::CloudStore(const std::string& path) {
    // A new database is readable by its owner only; SQLite gives its WAL and
    // shared-memory files the same mode.
    if (!path.empty() && path != ":memory:") {
        const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd >= 0) {
            ::close(fd);
        }
    }
    if (sqlite3_open_v2(path.c_str(), &db_,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX,
                        nullptr) != SQLITE_OK) {
        const std::string message = db_ ? sqlite3_errmsg(db_) : "out of memory";
        sqlite3_close(db_);
        db_ = nullptr;
        throw StoreError("cannot open database " + path + ": " + message);
    }
    try {
        sqlite3_busy_timeout(db_, 5000);
        exec("PRAGMA journal_mode=WAL");
        // FULL: a commit in WAL mode is on disk before the call returns, which
        // is what an acknowledged upload promises.
        exec("PRAGMA synchronous=FULL");
        migrate();
    } catch (...) {
        sqlite3_close(db_);
        db_ = nullptr;
        throw;
    }
}

CloudStore::~CloudStore() {
    sqlite3_close(db_);
}

void CloudStore::migrate() {
    Statement version(db_, "PRAGMA user_version");
    version.step();
    const int64_t found = version.integer(0);
    Statement tables(db_, "SELECT COUNT(*) FROM sqlite_master");
    tables.step();
    if (found == 0 && tables.integer(0) == 0) {
        exec(kSchema);
        exec(("PRAGMA user_version=" + std::to_string(kSchemaVersion)).c_str());
    } else if (found != kSchemaVersion) {
        throw StoreError("database schema version " + std::to_string(found) +
                         ", this program reads version " + std::to_string(kSchemaVersion));
    }
}

void CloudStore::exec(const char* sql) {
    char* error = nullptr;
    if (sqlite3_exec(db_, sql, nullptr, nullptr, &error) != SQLITE_OK) {
        const std::string message = error ? error : sqlite3_errmsg(db_);
        sqlite3_free(error);
        throw StoreError(message);
    }
}

void CloudStore::registerDevices(
    const std::vector<std::pair<std::string, std::string>>& tokenToDevice) {
    std::lock_guard<std::mutex> lock(mutex_);
    Transaction tx(*this);
    for (const auto& entry : tokenToDevice) {
        Statement(db_, "INSERT OR REPLACE INTO devices(token_sha256, device_id) VALUES(?, ?)")
            .bind(tokenDigest(entry.first))
            .bind(entry.second)
            .run();
    }
    tx.commit();
}

std::optional<std::string> CloudStore::deviceForToken(const std::string& token) {
    std::lock_guard<std::mutex> lock(mutex_);
    Statement q(db_, "SELECT device_id FROM devices WHERE token_sha256 = ?");
    q.bind(tokenDigest(token));
    if (q.step()) {
        return q.text(0);
    }
    return std::nullopt;
}

EventOutcome CloudStore::storeEvent(const std::string& deviceId, const std::string& messageId,
                                    const std::string& eventNamespace, const std::string& eventName,
                                    EventEffect effect, const RequestRecord* request,
                                    int64_t nowMs) {
    std::lock_guard<std::mutex> lock(mutex_);
    Transaction tx(*this);
    if (!Statement(db_,
                   "INSERT INTO events(device_id, message_id, namespace, name, received_ms) "
                   "VALUES(?, ?, ?, ?, ?)")
             .bind(deviceId)
             .bind(messageId)
             .bind(eventNamespace)
             .bind(eventName)
             .bind(nowMs)
             .run()) {
        return EventOutcome::kDuplicate;
    }
    if (effect == EventEffect::kAnnouncement) {
        Statement(db_, "DELETE FROM directives WHERE device_id = ?").bind(deviceId).run();
        Statement(db_, "DELETE FROM requests WHERE device_id = ? AND session_id IS NULL")
            .bind(deviceId)
            .run();
    } else if (effect == EventEffect::kRequest && request) {
        // A request id the device used before is a replay under a new
        // message id: recorded as a duplicate, not queued twice.
        if (!Statement(db_,
                       "INSERT INTO requests(device_id, request_id, kind, name, second_name, "
                       "length, public_key, event_message_id, received_ms) "
                       "VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?)")
                 .bind(deviceId)
                 .bind(request->requestId)
                 .bind(request->kind)
                 .bind(request->name)
                 .bind(request->secondName)
                 .bind(int64_t{request->length})
                 .bind(request->publicKey)
                 .bind(messageId)
                 .bind(nowMs)
                 .run()) {
            return EventOutcome::kDuplicate;
        }
    }
    tx.commit();
    return EventOutcome::kStored;
}

std::vector<RequestRecord> CloudStore::waitingRequests() {
    std::lock_guard<std::mutex> lock(mutex_);
    Statement q(db_,
                "SELECT id, device_id, request_id, kind, name, second_name, length, public_key, "
                "event_message_id, received_ms FROM requests WHERE session_id IS NULL "
                "ORDER BY id");
    std::vector<RequestRecord> out;
    while (q.step()) {
        RequestRecord r;
        r.id = q.integer(0);
        r.deviceId = q.text(1);
        r.requestId = q.text(2);
        r.kind = q.text(3);
        r.name = q.text(4);
        r.secondName = q.text(5);
        r.length = static_cast<uint32_t>(q.integer(6));
        r.publicKey = q.text(7);
        r.eventMessageId = q.text(8);
        r.receivedMs = q.integer(9);
        out.push_back(std::move(r));
    }
    return out;
}

int64_t CloudStore::waitingRequestCount() {
    std::lock_guard<std::mutex> lock(mutex_);
    Statement q(db_, "SELECT COUNT(*) FROM requests WHERE session_id IS NULL");
    q.step();
    return q.integer(0);
}

std::vector<int64_t> CloudStore::createSession(const SessionRecord& session,
                                               const std::vector<RequestRecord>& members,
                                               const std::vector<NewDirective>& directives) {
    std::lock_guard<std::mutex> lock(mutex_);
    Transaction tx(*this);
    Statement(db_,
              "INSERT INTO sessions(session_id, campaign_id, application_id, length, state, "
              "created_ms, deadline_ms) VALUES(?, ?, ?, ?, 'open', ?, ?)")
        .bind(session.sessionId)
        .bind(session.campaignId)
        .bind(session.applicationId)
        .bind(int64_t{session.length})
        .bind(session.createdMs)
        .bind(session.deadlineMs)
        .run();
    for (const auto& member : members) {
        Statement(db_, "UPDATE requests SET session_id = ? WHERE id = ?")
            .bind(session.sessionId)
            .bind(member.id)
            .run();
        if (!Statement(db_, "INSERT INTO members(session_id, device_id, request_id) VALUES(?,?,?)")
                 .bind(session.sessionId)
                 .bind(member.deviceId)
                 .bind(member.requestId)
                 .run()) {
            throw StoreError("a device appears twice in session " + session.sessionId);
        }
    }
    std::vector<int64_t> seqs;
    for (const auto& directive : directives) {
        Statement(db_, "INSERT INTO directives(device_id, body) VALUES(?, ?)")
            .bind(directive.deviceId)
            .bind(directive.body)
            .run();
        seqs.push_back(sqlite3_last_insert_rowid(db_));
    }
    tx.commit();
    return seqs;
}

std::vector<DirectiveRecord> CloudStore::directivesAfter(const std::string& deviceId, int64_t after,
                                                         size_t limit) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (after > 0) {
        Statement(db_, "DELETE FROM directives WHERE device_id = ? AND seq <= ?")
            .bind(deviceId)
            .bind(after)
            .run();
    }
    Statement q(db_,
                "SELECT seq, body FROM directives WHERE device_id = ? AND seq > ? "
                "ORDER BY seq LIMIT ?");
    q.bind(deviceId).bind(after).bind(static_cast<int64_t>(limit));
    std::vector<DirectiveRecord> out;
    while (q.step()) {
        out.push_back({q.integer(0), q.text(1)});
    }
    return out;
}

std::optional<SessionRecord> CloudStore::session(const std::string& sessionId) {
    std::lock_guard<std::mutex> lock(mutex_);
    Statement q(db_,
                "SELECT session_id, campaign_id, application_id, length, state, created_ms, "
                "deadline_ms, reason FROM sessions WHERE session_id = ?");
    q.bind(sessionId);
    if (!q.step()) {
        return std::nullopt;
    }
    SessionRecord s;
    s.sessionId = q.text(0);
    s.campaignId = q.text(1);
    s.applicationId = q.text(2);
    s.length = static_cast<uint32_t>(q.integer(3));
    s.state = stateFrom(q.text(4));
    s.createdMs = q.integer(5);
    s.deadlineMs = q.integer(6);
    s.reason = q.text(7);
    return s;
}

std::vector<MemberRecord> CloudStore::members(const std::string& sessionId) {
    std::lock_guard<std::mutex> lock(mutex_);
    Statement q(db_,
                "SELECT device_id, request_id, uploaded FROM members "
                "WHERE session_id = ? ORDER BY device_id");
    q.bind(sessionId);
    std::vector<MemberRecord> out;
    while (q.step()) {
        out.push_back({q.text(0), q.text(1), q.integer(2) != 0});
    }
    return out;
}

std::vector<SessionRecord> CloudStore::openSessions() {
    std::vector<std::string> ids;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        Statement q(db_, "SELECT session_id FROM sessions WHERE state = 'open'");
        while (q.step()) {
            ids.push_back(q.text(0));
        }
    }
    std::vector<SessionRecord> out;
    for (const auto& id : ids) {
        if (auto s = session(id)) {
            out.push_back(std::move(*s));
        }
    }
    return out;
}

UploadResult CloudStore::storeUpload(const std::string& sessionId, const std::string& deviceId,
                                     const std::string& vectorBytes) {
    std::lock_guard<std::mutex> lock(mutex_);
    Transaction tx(*this);
    Statement q(db_,
                "SELECT m.vector, s.state, m.uploaded FROM members m JOIN sessions s "
                "USING(session_id) WHERE m.session_id = ? AND m.device_id = ?");
    q.bind(sessionId).bind(deviceId);
    if (!q.step()) {
        return {UploadOutcome::kNotMember, false};
    }
    if (q.integer(2) != 0 && q.isNull(0)) {
        return {UploadOutcome::kClosed, false};
    }
    if (q.integer(2) != 0) {
        return {q.text(0) == vectorBytes ? UploadOutcome::kRepeat : UploadOutcome::kConflict,
                false};
    }
    if (q.text(1) != "open") {
        return {UploadOutcome::kClosed, false};
    }
    Statement(db_,
              "UPDATE members SET vector = ?, uploaded = 1 WHERE session_id = ? AND device_id = ?")
        .bindBlob(vectorBytes)
        .bind(sessionId)
        .bind(deviceId)
        .run();
    Statement missing(db_, "SELECT COUNT(*) FROM members WHERE session_id = ? AND uploaded = 0");
    missing.bind(sessionId);
    missing.step();
    const bool full = missing.integer(0) == 0;
    tx.commit();
    return {UploadOutcome::kStored, full};
}

std::vector<std::string> CloudStore::sessionVectors(const std::string& sessionId) {
    std::lock_guard<std::mutex> lock(mutex_);
    Statement q(db_, "SELECT vector FROM members WHERE session_id = ? ORDER BY device_id");
    q.bind(sessionId);
    std::vector<std::string> out;
    while (q.step()) {
        out.push_back(q.text(0));
    }
    return out;
}

bool CloudStore::completeSession(const std::string& sessionId, const std::vector<uint32_t>& sum) {
    std::lock_guard<std::mutex> lock(mutex_);
    Transaction tx(*this);
    Statement s(db_,
                "SELECT campaign_id, application_id FROM sessions "
                "WHERE session_id = ? AND state = 'open'");
    s.bind(sessionId);
    if (!s.step()) {
        return false;
    }
    const std::string campaignId = s.text(0);
    const std::string applicationId = s.text(1);
    int64_t memberCount = 0;
    {
        Statement m(db_, "SELECT COUNT(*) FROM members WHERE session_id = ?");
        m.bind(sessionId);
        m.step();
        memberCount = m.integer(0);
    }
    Statement t(db_, "SELECT length, sum FROM totals WHERE campaign_id = ? AND application_id = ?");
    t.bind(campaignId).bind(applicationId);
    std::vector<uint32_t> total(sum.size(), 0);
    if (t.step()) {
        if (static_cast<size_t>(t.integer(0)) != sum.size()) {
            const std::string reason = "sum length " + std::to_string(sum.size()) +
                                       " differs from the published length " +
                                       std::to_string(t.integer(0));
            failSessionLocked(sessionId, reason);
            tx.commit();
            return false;
        }
        total = unpackWords(t.text(1));
    }
    for (size_t i = 0; i < sum.size(); ++i) {
        total[i] += sum[i];
    }
    Statement(db_,
              "INSERT INTO totals(campaign_id, application_id, length, sum, sessions, uploads) "
              "VALUES(?, ?, ?, ?, 1, ?) ON CONFLICT(campaign_id, application_id) DO UPDATE SET "
              "sum = excluded.sum, sessions = sessions + 1, uploads = uploads + excluded.uploads")
        .bind(campaignId)
        .bind(applicationId)
        .bind(static_cast<int64_t>(sum.size()))
        .bindBlob(packWords(total))
        .bind(memberCount)
        .run();
    Statement(db_,
              "INSERT OR IGNORE INTO contributors(campaign_id, application_id, device_id) "
              "SELECT ?, ?, device_id FROM members WHERE session_id = ?")
        .bind(campaignId)
        .bind(applicationId)
        .bind(sessionId)
        .run();
    Statement(db_, "UPDATE sessions SET state = 'complete' WHERE session_id = ?")
        .bind(sessionId)
        .run();
    tx.commit();
    return true;
}

bool CloudStore::failSessionLocked(const std::string& sessionId, const std::string& reason) {
    Statement u(db_,
                "UPDATE sessions SET state = 'failed', reason = ? "
                "WHERE session_id = ? AND state = 'open'");
    u.bind(reason).bind(sessionId).run();
    if (sqlite3_changes(db_) == 0) {
        return false;
    }
    // Vectors of a failed session are never summed; keeping them would only
    // keep masked data that can never be unmasked.
    Statement(db_, "UPDATE members SET vector = NULL WHERE session_id = ?").bind(sessionId).run();
    return true;
}

bool CloudStore::failSession(const std::string& sessionId, const std::string& reason) {
    std::lock_guard<std::mutex> lock(mutex_);
    Transaction tx(*this);
    const bool changed = failSessionLocked(sessionId, reason);
    tx.commit();
    return changed;
}

std::vector<Totals> CloudStore::totals(const std::string& campaignId) {
    std::lock_guard<std::mutex> lock(mutex_);
    Statement q(db_,
                "SELECT t.application_id, t.length, t.sum, t.sessions, t.uploads, "
                "(SELECT COUNT(*) FROM contributors c WHERE c.campaign_id = t.campaign_id AND "
                " c.application_id = t.application_id), "
                "(SELECT COUNT(*) FROM sessions s WHERE s.campaign_id = t.campaign_id AND "
                " s.application_id = t.application_id AND s.state = 'failed' AND "
                " s.reason LIKE 'checksum%') "
                "FROM totals t WHERE t.campaign_id = ? ORDER BY t.application_id");
    q.bind(campaignId);
    std::vector<Totals> out;
    while (q.step()) {
        Totals t;
        t.applicationId = q.text(0);
        t.length = static_cast<uint32_t>(q.integer(1));
        t.sum = unpackWords(q.text(2));
        t.sessions = q.integer(3);
        t.uploads = q.integer(4);
        t.devices = q.integer(5);
        t.checksumFailures = q.integer(6);
        out.push_back(std::move(t));
    }
    return out;
}

HealthCounts CloudStore::health() {
    std::lock_guard<std::mutex> lock(mutex_);
    Statement q(db_,
                "SELECT (SELECT COUNT(*) FROM sessions WHERE state = 'open'), "
                "(SELECT COUNT(*) FROM sessions WHERE state = 'complete'), "
                "(SELECT COUNT(*) FROM sessions WHERE state = 'failed'), "
                "(SELECT COUNT(*) FROM members WHERE uploaded = 1), "
                "(SELECT COUNT(*) FROM directives), "
                "(SELECT COUNT(*) FROM requests WHERE session_id IS NULL)");
    q.step();
    HealthCounts h;
    h.sessionsOpen = q.integer(0);
    h.sessionsComplete = q.integer(1);
    h.sessionsFailed = q.integer(2);
    h.uploads = q.integer(3);
    h.directivesQueued = q.integer(4);
    h.requestsWaiting = q.integer(5);
    return h;
}

}  // namespace cloud
}  // namespace vemo
