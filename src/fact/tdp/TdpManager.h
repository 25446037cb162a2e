#pragma once
// The telemetry data producer as a whole. It registers with the analytics
// library as the data producer "TelemetryDataProducer", takes that
// producer's configuration when a campaign delivers one, runs the device's
// ECS events through the signal handler and the signal storage, and, when an
// emit criterion fires, has the event producer build an input event that it
// sends to the library with factDataProducerAdapter_SendEvent.
//
// GetInstance() is the daemon's instance; tests construct their own with a
// scripted clock and sender.
//
// Thread-safety: ECS events arrive on binder threads and configurations on
// the analytics library's calling thread (inside the library's mutex).
// `mutex_` serialises the handler, the storage and the enabled flag. It is
// never held while calling into the analytics library, so the library's
// mutex and this one never nest the other way round and cannot deadlock.

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "fact/tdp/TdpClock.h"
#include "fact/tdp/TdpEventProducer.h"
#include "fact/tdp/TdpSignalHandler.h"
#include "fact/tdp/TdpSignalStorage.h"

namespace fact {
namespace tdp {

// The configuration callback handed to the analytics library: forwards to
// GetInstance().loadDataProducerConfig. Null texts count as empty.
int telemetryDataProducerLoadConfig(const char* dataProducer, const char* config);

class TdpManager {
  public:
    static constexpr const char* kDataProducer = "TelemetryDataProducer";
    // Validation runs inside the library's calls, under its lock, and costs
    // time quadratic in an array's length ("uniqueItems"): configurations
    // get the bounds of the campaign files they come from.
    static constexpr size_t kMaxConfigBytes = 1 << 20;

    // Sends one produced event; 0 on success (the library's status).
    using EventSender = std::function<uint32_t(const char* dataProducer, const char* event)>;
    using EcsCallback = std::function<void(const std::string& json)>;

    // The process's instance (steady clock, the library's send entry point),
    // created on first use.
    static TdpManager& GetInstance();

    // `clock` must outlive the manager. `sender` becomes the event sender when
    // connect() is called; until then produced events are dropped.
    explicit TdpManager(const TdpClock& clock = TdpClock::steady(), EventSender sender = nullptr);
    TdpManager(const TdpManager&) = delete;
    TdpManager& operator=(const TdpManager&) = delete;

    // Activates the event sender and registers telemetryDataProducerLoadConfig
    // with the analytics library.
    void connect();

    // A callable that hands ECS event text to this manager's handleEcsEvent.
    EcsCallback getEcsCallback();

    // 0 when the configuration was accepted or disabled the producer ("" or
    // "{}"), 1 when it was refused: addressed to another producer, not JSON,
    // beyond the campaign loader's bounds (kMaxConfigBytes, nesting, array
    // items), or not valid under the schema (state unchanged), or not
    // loadable (producer left disabled and empty).
    int loadDataProducerConfig(const std::string& dataProducer, const std::string& config);

    // Processes one ECS event and sends the event it triggers, if any.
    void handleEcsEvent(const std::string& json);

    // Hands one produced event to the library; failures are counted
    // ("TdpSendEventErrorCount") and logged, and the event is dropped.
    void sendEvent(const std::string& event);

    void publishCapability();

    bool isEnabled() const;
    // The output signal the next event would report.
    TdpSignal currentOutputSignal() const;

  private:
    const std::string dataProducer_;
    const TdpClock& clock_;
    const EventSender sender_;
    std::atomic<bool> connected_{false};

    mutable std::mutex mutex_;  // guards storage_, handler_ and enabled_
    std::unique_ptr<TdpSignalStorage> storage_;
    std::unique_ptr<TdpSignalHandler> handler_;
    const TdpEventProducer producer_;
    bool enabled_ = false;
};

}  // namespace tdp
}  // namespace fact
