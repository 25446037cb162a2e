#pragma once
// Turns one ECS event (a JSON object of device state keys, possibly nested)
// into the ECS signal names the signal storage consumes. Nested objects are
// flattened into underscore-joined keys; the last value of every key is
// remembered and a key whose value changes yields "KEY_VALUE" and
// "KEY_CHANGED" (upper-cased). A signal that is one of the configured emit
// criteria raises the data-event-triggered flag. The handler also keeps the
// device's current UCID list (key "ucids").
//
// Bad events (not JSON, not an object, too many signals, larger than
// kMaxEventBytes) are counted under "TdpUnifiedSensingEventErrorCount" and
// yield nothing; nothing throws. Remembered key states survive configuration
// changes; at most kMaxKeys keys are remembered, so that a client sending ever
// new keys cannot grow the daemon without bound.
//
// Not synchronised: TdpManager serialises every call on its mutex.

#include <rapidjson/document.h>

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

namespace fact {
namespace tdp {

class TdpSignalHandler {
  public:
    // Nesting deeper than this below the top level is skipped.
    static constexpr int kMaxDepth = 5;
    // An event whose signals exceed this before a further top-level member is
    // dropped.
    static constexpr int kMaxSignals = 30;
    // A device's ECS event is a few hundred bytes; a larger text is dropped
    // before it is parsed.
    static constexpr std::size_t kMaxEventBytes = 64 * 1024;
    // Keys beyond this many are not remembered (and so never signal); the
    // device reports a few dozen.
    static constexpr std::size_t kMaxKeys = 512;

    TdpSignalHandler();

    // Forgets the emit criteria and clears the triggered flag.
    void resetConfig();

    // Loads the emit criteria ("ecs_sensory_events" / "event_emit_criteria")
    // upper-cased. False when the text does not parse (criteria left empty).
    bool loadDataProducerConfig(const std::string& json);

    // The signals of one event, in document order; empty for a bad event.
    std::vector<std::string> processEcsEvent(const std::string& json);

    // KEY_VALUE and KEY_CHANGED for every remembered key, to re-seed a freshly
    // configured storage with the device's present state.
    std::vector<std::string> getSignalStorageInitVector() const;

    bool getDataEventTriggered() const { return dataEventTriggered_; }
    void clearDataEventTriggered() { dataEventTriggered_ = false; }
    // True once an event parsed and stayed within the limits.
    bool getEventReceived() const { return eventReceived_; }
    const std::string& getUcid() const { return ucids_; }
    const std::vector<std::string>& getEmitCriteria() const { return emitCriteria_; }
    const std::unordered_map<std::string, std::string>& getKeyStates() const { return keyStates_; }

  private:
    // The recursive steps of processEcsEvent. `key` holds the flattened key of
    // the member's parent and is restored before returning.
    // processNestedEcsState gives false when the depth or signal limit was
    // already passed on entry.
    bool processNestedEcsState(std::string& key, const rapidjson::Value::Member& member,
                               std::vector<std::string>& signals, int depth);
    void submitNewState(const std::string& key, const rapidjson::Value& raw,
                        std::vector<std::string>& signals);
    void addSignal(std::string signal, std::vector<std::string>& signals);

    bool eventReceived_ = false;
    bool dataEventTriggered_ = false;
    std::vector<std::string> emitCriteria_;
    std::string ucids_;
    std::unordered_map<std::string, std::string> keyStates_;
    // New keys of the current event that kMaxKeys kept out; logged once per event.
    std::size_t keysRefused_ = 0;
    // The value being submitted, kept to reuse its buffer: most events repeat
    // most values, and comparing needs no allocation.
    std::string value_;
};

}  // namespace tdp
}  // namespace fact
