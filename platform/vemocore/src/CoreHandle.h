#pragma once
// One handle of the core: the table of requests waiting for their directive,
// the masking of a directive against the request it names, and the handle's
// result callbacks, called from its own delivery thread.
//
// Every public operation may be called from any thread. `lock_` guards the
// pending table and the callbacks; masking itself runs outside it on the
// request, which has already left the table.

#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "ResultQueue.h"
#include "SecretWords.h"
#include "secagg/KeyPair.h"
#include "secagg/MaskDirective.h"
#include "secagg/Masker.h"
#include "vemocore/vemo_core.h"

namespace vemocore {

// Elements a request may hold: a bound on what the pending table keeps.
constexpr uint32_t kMaxElements = 1u << 24;

struct CoreLimits {
    uint32_t capacity;
    uint32_t stage;
    uint32_t mostNeighbours;
    uint32_t fewestNeighbours;
};

class CoreHandle {
  public:
    // Throws std::runtime_error (OpenSSL) or std::system_error (thread).
    CoreHandle(const CoreLimits& limits, void* userdata);
    // Wipes the pending requests; delivers what was queued, then stops.
    ~CoreHandle();
    CoreHandle(const CoreHandle&) = delete;
    CoreHandle& operator=(const CoreHandle&) = delete;

    void setFlgrCallback(VemoFlgrResultCallback callback);
    void setIntegralCallback(VemoIntegralResultCallback callback);

    // Stores `words` under a fresh request and writes its participation
    // request into a string the caller frees. Returns 0, or 5 when the oldest
    // pending request made room.
    int initiate(secagg::Kind kind, const char* name, const char* secondName, SecretWords words,
                 float scale, char** out);
    // A core code (0 to 4) for one directive.
    int mask(const char* directive);

    bool onDeliveryThread() const { return results_.onDeliveryThread(); }

  private:
    struct Pending {
        secagg::RequestId id;
        secagg::Kind kind;
        std::string name;
        std::string secondName;
        SecretWords words;
        secagg::KeyPair keys;
    };

    // Takes the request out of the table; null when it is not there.
    std::unique_ptr<Pending> take(const secagg::RequestId& id);
    int refusal(const Pending& request, const secagg::MaskDirective& directive) const;
    void deliver(const MaskedResult& result);

    const CoreLimits limits_;
    void* const userdata_;
    const secagg::Masker masker_;

    std::mutex lock_;
    // Oldest first; `index_` finds an entry by its request id.
    std::list<std::unique_ptr<Pending>> pending_;  // guarded by lock_
    std::map<secagg::RequestId, std::list<std::unique_ptr<Pending>>::iterator>
        index_;                                              // guarded by lock_
    VemoFlgrResultCallback flgrCallback_ = nullptr;          // guarded by lock_
    VemoIntegralResultCallback integralCallback_ = nullptr;  // guarded by lock_

    // Last: destroyed first, so no delivery outlives the members above.
    ResultQueue results_;
};

}  // namespace vemocore
