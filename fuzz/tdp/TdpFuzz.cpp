// Feeds arbitrary bytes to the telemetry producer: as an ECS event (first
// byte even) or as a producer configuration (first byte odd), against one
// long-lived, configured manager so that remembered state accumulates as on
// a device. Anything but a clean return is a finding.
#include <stdint.h>
#include <stdlib.h>

#include <fstream>
#include <string>

#include "fact/tdp/TdpManager.h"
#include "hostlog/LogCapture.h"
#include "platform/DeviceRoot.h"

namespace {

const char kConfig[] = R"({"version":"1","ecs_sensory_events":{
    "event_emit_criteria":["alarm_state_idle","volume_changed","a_b_changed"],
    "output_priority":["alarm","volume_change","ab"],
    "sticky_signal_config":{"alarm":{"start_transition":["ALARM_STATE_RINGING"],
                                     "end_transition":["ALARM_STATE_IDLE"]}},
    "passthrough_config":{"VOLUME_CHANGED":"volume_change","A_B_CHANGED":"ab"}}})";

struct Producer {
    Producer()
        : manager(fact::tdp::TdpClock::steady(),
                  [](const char*, const char* event) { return event[0] == '{' ? 0u : 1u; }) {
        manager.connect();
        manager.loadDataProducerConfig(fact::tdp::TdpManager::kDataProducer, kConfig);
        manager.handleEcsEvent(R"({"ucids":"u","volume":"0","a":{"b":"0"}})");
    }
    hostlog::LogCapture logs{false};
    fact::tdp::TdpManager manager;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    char dir[] = "/tmp/tdp_fuzz.XXXXXX";
    if (mkdtemp(dir) == nullptr) {
        abort();
    }
    vemo::platform::setDeviceRoot(dir);
    const std::string props = vemo::platform::devicePath("/system/build.prop");
    vemo::platform::makeParentDirectories(props);
    std::ofstream(props) << "ro.product.config.type=A1\npersist.sys.locale=en-GB\n";
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Producer* producer = new Producer;
    if (size == 0) {
        return 0;
    }
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (data[0] % 2 == 0) {
        producer->manager.handleEcsEvent(text);
    } else if (producer->manager.loadDataProducerConfig(fact::tdp::TdpManager::kDataProducer,
                                                        text) != 0 ||
               !producer->manager.isEnabled()) {
        // Keep exploring events against a configured producer.
        producer->manager.loadDataProducerConfig(fact::tdp::TdpManager::kDataProducer, kConfig);
    }
    producer->logs.clear();
    return 0;
}
