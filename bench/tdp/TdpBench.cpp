// One ECS event through the telemetry producer (flatten, signals, output
// signal, event text, send to the analytics library), against the floor of
// the same work that no producer can avoid: RapidJSON parsing the ECS text
// plus one factDataProducerAdapter_SendEvent of the event it produces.
//
// Both run in one process against the same campaign and the same log sink (a
// non-echoing capture, cleared outside the timed region), so the figures
// compare as a ratio.
#include <benchmark/benchmark.h>
#include <fact/fact_api.h>
#include <rapidjson/document.h>
#include <stdlib.h>

#include <cstdint>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

#include "common/DeviceInfo.h"
#include "common/VemoLogger.h"
#include "fact/tdp/TdpJson.h"
#include "fact/tdp/TdpManager.h"
#include "hostlog/LogCapture.h"
#include "platform/DeviceRoot.h"

namespace {

using fact::tdp::TdpManager;

// A typical ECS event: a dozen keys, two levels deep. The two variants
// differ in the volume, so every event triggers an analytics event.
std::string ecsEvent(const char* volume) {
    return std::string(R"({"ucids":["hc-1","hc-2"],"volume":")") + volume +
           R"(","alarm":{"state":"idle","label":"wake"},)"
           R"("media":{"state":"paused","source":"radio","title":"news"},)"
           R"("bluetooth":{"a2dp":"connected","hfp":"off"},)"
           R"("display":{"brightness":"7","mode":"day"},"mic":"on"})";
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot read " + path);
    }
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void writeFile(const std::string& path, const std::string& text) {
    vemo::platform::makeParentDirectories(path);
    std::ofstream(path, std::ios::binary) << text;
}

int64_t vectorsReceived = 0;
void countVector(const int*, unsigned int, const char*, const char*) {
    ++vectorsReceived;
}

// The process's device root, campaign and a connected, configured manager.
struct Setup {
    Setup() {
        char dir[] = "/tmp/tdp_bench.XXXXXX";
        if (mkdtemp(dir) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
        vemo::platform::setDeviceRoot(dir);
        writeFile(vemo::platform::devicePath("/system/build.prop"),
                  "ro.product.config.type=A1RABVCI\npersist.sys.locale=en-GB\n");
        const std::string campaign = std::string(TDP_BENCH_DATA_DIR) + "/campaign.json";
        if (factVemo_SetVectorCallback(&countVector) != 0 ||
            fact_CreateCampaign(campaign.c_str()) != 0) {
            throw std::runtime_error("campaign not created");
        }
        rapidjson::Document doc = fact::tdp::parseJson(readFile(campaign));
        manager.reset(new TdpManager(fact::tdp::TdpClock::steady(),
                                     [this](const char* producer, const char* event) {
                                         lastEvent = event;
                                         return factDataProducerAdapter_SendEvent(producer, event);
                                     }));
        manager->connect();
        if (manager->loadDataProducerConfig(TdpManager::kDataProducer,
                                            fact::tdp::writeJson(doc["data_producer_config"])) !=
            0) {
            throw std::runtime_error("producer not configured");
        }
        manager->handleEcsEvent(events[next++ & 1]);
        manager->handleEcsEvent(events[next++ & 1]);
        if (lastEvent.empty()) {
            throw std::runtime_error("the ECS event triggers no analytics event");
        }
    }
    const std::string events[2] = {ecsEvent("5"), ecsEvent("6")};
    std::unique_ptr<TdpManager> manager;
    std::string lastEvent;
    unsigned next = 0;  // the variant the next event uses (the other one was last)
};

Setup& setup() {
    static Setup s;
    return s;
}

// Clears the log sink every so many iterations, outside the timed region.
class LogSink {
  public:
    void tick(benchmark::State& state) {
        if (++n_ % 1024 == 0) {
            state.PauseTiming();
            logs_.clear();
            state.ResumeTiming();
        }
    }

  private:
    hostlog::LogCapture logs_{false};
    unsigned n_ = 0;
};

void BM_HandleEcsEvent(benchmark::State& state) {
    Setup& s = setup();
    LogSink sink;
    const int64_t before = vectorsReceived;
    for (auto _ : state) {
        s.manager->handleEcsEvent(s.events[s.next++ & 1]);
        sink.tick(state);
    }
    if (vectorsReceived - before != static_cast<int64_t>(state.iterations())) {
        state.SkipWithError("not every ECS event became a vector");
    }
}
BENCHMARK(BM_HandleEcsEvent);

void BM_FloorParseAndSendEvent(benchmark::State& state) {
    Setup& s = setup();
    LogSink sink;
    const int64_t before = vectorsReceived;
    unsigned i = 0;
    for (auto _ : state) {
        rapidjson::Document doc;
        doc.Parse(s.events[++i & 1].c_str());
        benchmark::DoNotOptimize(doc.IsObject());
        factDataProducerAdapter_SendEvent(TdpManager::kDataProducer, s.lastEvent.c_str());
        sink.tick(state);
    }
    if (vectorsReceived - before != static_cast<int64_t>(state.iterations())) {
        state.SkipWithError("not every event became a vector");
    }
}
BENCHMARK(BM_FloorParseAndSendEvent);

// The part of the producer's path that reads device facts; on the host they
// are property files re-read on every call.
void BM_DeviceFacts(benchmark::State& state) {
    setup();
    auto info = vemo::DeviceInfo::getImpl();
    for (auto _ : state) {
        benchmark::DoNotOptimize(info->getType());
        benchmark::DoNotOptimize(info->getLocale());
    }
}
BENCHMARK(BM_DeviceFacts);

// The debug lines the producer writes for one such event (the library's own
// lines are on both sides), through the same sink.
void BM_ProducerLogLines(benchmark::State& state) {
    Setup& s = setup();
    const vemo::VemoLogger manager{"TdpManager"};
    const vemo::VemoLogger handler{"TdpSignalHandler"};
    const vemo::VemoLogger storage{"TdpSignalStorage"};
    const vemo::VemoLogger producer{"TdpEventProducer"};
    LogSink sink;
    for (auto _ : state) {
        manager.d("%s:TdpManager::handleEcsEvent()", "handleEcsEvent");
        handler.d("%s:TdpSignalStorage::processEcsEvent", "processEcsEvent");
        storage.d("%s:TdpSignalStorage::updateSignals()", "updateSignals");
        storage.d("%s:TdpSignalStorage::updateSignals() - Found %s in passthrough", "updateSignals",
                  "VOLUME_CHANGED");
        producer.d("%s:TdpEventProducer::produceEvent", "produceEvent");
        manager.d("%s:TdpManager::sendEvent() - %s", "sendEvent", s.lastEvent.c_str());
        sink.tick(state);
    }
}
BENCHMARK(BM_ProducerLogLines);

}  // namespace

BENCHMARK_MAIN();
