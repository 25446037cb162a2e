#pragma once
// The bytes exchanged with the cloud: the event document, the directive list
// and message ids. Pure functions, safe from any thread.

#include <cstdint>
#include <string>
#include <vector>

#include "tolmocomm/TolmoDirective.h"
#include "tolmocomm/TolmoEvent.h"

namespace tolmocomm {
namespace wire {

// {"event":{"header":{"namespace","name","messageId","payloadVersion"},"payload"}}
std::string eventDocument(const TolmoEvent& event, const std::string& messageId);

// A random (version 4) UUID in its lower-case text form.
std::string newMessageId();

struct SequencedDirective {
    uint64_t seq;
    TolmoDirective directive;
};

// Reads {"directives":[{"seq","header":{...},"keys","payload"}, ...]}. The
// header's namespace and name, "seq" and "payload" are required; the other
// texts default to empty. A malformed entry is left out and described in
// `skipped`; a body that is not such an object fails with `error` set.
// `highestSeq` is raised to the highest readable "seq", skipped entries
// included, so that they are acknowledged too.
bool parseDirectives(const std::string& body, std::vector<SequencedDirective>& directives,
                     std::vector<std::string>& skipped, uint64_t& highestSeq, std::string& error);

}  // namespace wire
}  // namespace tolmocomm
