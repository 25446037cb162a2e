// Cost of one analytics event through factDataProducerAdapter_SendEvent,
// against the floor of the same work: RapidJSON parsing the event text and
// validating it against the event schema. Both run in one process, so the
// ratio is what matters. Then the cost against the vector length L.
//
// The library logs one debug line per event; stderr goes to /dev/null so the
// figures include formatting the line but not a terminal.

#include <benchmark/benchmark.h>
#include <fact/fact_api.h>
#include <hostlog/LogCapture.h>
#include <openssl/rand.h>
#include <rapidjson/document.h>
#include <rapidjson/schema.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "common/VemoLogger.h"
#include "fact/InputEvent.h"
#include "fact/JsonUtils.h"
#include "platform/DeviceRoot.h"

namespace {

const char* const kProducer = "UnifiedSensingService";
const std::string kEvent =
    R"({"data_producer":"UnifiedSensingService","attributes":[)"
    R"({"key":"device_type","value":"echo_dot"},{"key":"latency_ms","value":"250"},)"
    R"({"key":"locale","value":"en-US"},{"key":"confidence","value":"0.9"}]})";

void ignoreVector(const int*, unsigned int, const char*, const char*) {}

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

std::string scratchFile(const std::string& name, const std::string& text) {
    const std::string path =
        std::string(P_tmpdir) + "/fact_bench_" + std::to_string(getpid()) + "_" + name;
    std::ofstream(path) << text;
    return path;
}

void loadCampaign(const std::string& text, const std::string& name) {
    const std::string path = scratchFile(name, text);
    const fact_status_t status = fact_CreateCampaign(path.c_str());
    std::remove(path.c_str());
    if (status != 0)
        throw std::runtime_error("campaign " + name + " did not load");
}

// The realistic campaign of the fixtures (three attributes, 60 bin
// combinations), collecting for an hour instead of sending every event.
void loadBasicCampaign(bool randomDraw = true) {
    std::string text = readFile(std::string(FACT_BENCH_DATA_DIR) + "/campaign_basic.json");
    const std::string from = R"("type": "time_seconds", "value": 0)";
    text.replace(text.find(from), from.size(), R"("type": "time_seconds", "value": 3600)");
    if (!randomDraw) {
        // Cohort size 0 never forges, so no random number is drawn.
        const std::string cohort = R"("cohort_size": 100)";
        text.replace(text.find(cohort), cohort.size(), R"("cohort_size": 0)");
    }
    loadCampaign(text, "basic.json");
}

// The per-event debug line is kept in memory (as the test capture does), so
// the figure is the library's work, not the host's stderr.
void BM_SendEvent(benchmark::State& state) {
    loadBasicCampaign();
    hostlog::LogCapture capture;
    int64_t n = 0;
    for (auto _ : state) {
        if (factDataProducerAdapter_SendEvent(kProducer, kEvent.c_str()) != 0) {
            state.SkipWithError("SendEvent failed");
            break;
        }
        if (++n % 4096 == 0)
            capture.clear();
    }
}
BENCHMARK(BM_SendEvent);

// The same without the forge decision's RAND_bytes draw: what the draw costs
// in place.
void BM_SendEventWithoutDraw(benchmark::State& state) {
    loadBasicCampaign(false);
    hostlog::LogCapture capture;
    int64_t n = 0;
    for (auto _ : state) {
        if (factDataProducerAdapter_SendEvent(kProducer, kEvent.c_str()) != 0) {
            state.SkipWithError("SendEvent failed");
            break;
        }
        if (++n % 4096 == 0)
            capture.clear();
    }
}
BENCHMARK(BM_SendEventWithoutDraw);

// The same with the debug line written out (to /dev/null) as the host's
// liblog does: getpid, gettid, time formatting and a write per event.
void BM_SendEventLogWritten(benchmark::State& state) {
    loadBasicCampaign();
    for (auto _ : state) {
        if (factDataProducerAdapter_SendEvent(kProducer, kEvent.c_str()) != 0) {
            state.SkipWithError("SendEvent failed");
            break;
        }
    }
}
BENCHMARK(BM_SendEventLogWritten);

void BM_ParseAndValidateFloor(benchmark::State& state) {
    rapidjson::Document schemaDoc;
    schemaDoc.Parse(fact::InputEvent::kSchema);
    const rapidjson::SchemaDocument schema(schemaDoc);
    for (auto _ : state) {
        rapidjson::Document doc;
        doc.Parse<fact::json::kParseFlags>(kEvent.data(), kEvent.size());
        rapidjson::SchemaValidator validator(schema);
        const bool valid = !doc.HasParseError() && doc.Accept(validator);
        benchmark::DoNotOptimize(valid);
    }
}
BENCHMARK(BM_ParseAndValidateFloor);

// The event's conversion alone: parsing, the check of the event's shape
// (the schema's validator only for events of another shape) and the
// attribute map.
void BM_InputEvent(benchmark::State& state) {
    for (auto _ : state) {
        fact::InputEvent event(kEvent);
        benchmark::DoNotOptimize(event.attributes.size());
    }
}
BENCHMARK(BM_InputEvent);

// Two costs inside every event that the floor does not have and the system
// cannot drop: one RAND_bytes draw for the forge decision, and the debug line.
void BM_RandBytesDraw(benchmark::State& state) {
    uint64_t u = 0;
    for (auto _ : state) {
        RAND_bytes(reinterpret_cast<unsigned char*>(&u), sizeof u);
        benchmark::DoNotOptimize(u);
    }
}
BENCHMARK(BM_RandBytesDraw);

void BM_DebugLineCaptured(benchmark::State& state) {
    const vemo::VemoLogger logger("FactApi");
    hostlog::LogCapture capture;
    int64_t n = 0;
    for (auto _ : state) {
        logger.d("%s:Received Event from DataProducer: %s", "factDataProducerAdapter_SendEvent",
                 kProducer);
        if (++n % 4096 == 0)
            capture.clear();
    }
}
BENCHMARK(BM_DebugLineCaptured);

// Range bins "b0".."b<count-1>", each one wide, starting at 0.
std::string rangeBins(int count) {
    std::string bins;
    for (int i = 0; i < count; ++i) {
        bins += (i ? "," : "") + std::string(R"({"name": "b)") + std::to_string(i) +
                R"(", "min": )" + std::to_string(i) + R"(, "max": )" + std::to_string(i + 1) +
                R"(, "include_max": false})";
    }
    return bins;
}

// Vectors of L = 1 + N elements: N bins spread over two attributes (at most
// 1000 in one, within the loader's bound on an array's length).
void BM_SendEventByLength(benchmark::State& state) {
    const int length = static_cast<int>(state.range(0));
    const int outer = length > 1000 ? length / 1000 : 1;
    const int inner = length / outer;
    const std::string campaign =
        R"({"campaign_id": "len)" + std::to_string(length) +
        R"(", "data_producer": "p",
        "fact_compatibility_id": 1, "upload_frequency": [{"type": "time_seconds", "value": 3600}],
        "cohort_filters": ["device"], "data_producer_config": {},
        "differential_privacy_config": {"epsilon": 3.0, "cohort_size": 100, "config_version": 1},
        "data": [{"analytics_name": "n", "aggregation_function": "count", "datatype": "int32",
                  "attributes": [{"name": "m", "type": "int32", "bin_type": "range", "bins": [)" +
        rangeBins(outer) + R"(]}, {"name": "n", "type": "int32", "bin_type": "range", "bins": [)" +
        rangeBins(inner) + "]}]}]}";
    loadCampaign(campaign, "len.json");
    hostlog::LogCapture capture;
    int64_t n = 0;
    // Values in the middle: bins are searched in order.
    const std::string event =
        R"({"data_producer": "p", "attributes": [{"key": "device", "value": "d"},
        {"key": "m", "value": ")" +
        std::to_string(outer / 2) + R"("}, {"key": "n", "value": ")" + std::to_string(inner / 2) +
        "\"}]}";
    for (auto _ : state) {
        if (factDataProducerAdapter_SendEvent("p", event.c_str()) != 0) {
            state.SkipWithError("SendEvent failed");
            break;
        }
        if (++n % 4096 == 0)
            capture.clear();
    }
    state.SetComplexityN(length);
}
BENCHMARK(BM_SendEventByLength)->RangeMultiplier(10)->Range(100, 100000)->Complexity(benchmark::oN);

}  // namespace

int main(int argc, char** argv) {
    if (std::freopen("/dev/null", "w", stderr) == nullptr)
        return 1;
    // The heartbeat's record goes to a scratch device root, not the host's /data.
    char root[] = "/tmp/fact_bench_root_XXXXXX";
    if (mkdtemp(root) == nullptr)
        return 1;
    vemo::platform::setDeviceRoot(root);
    factVemo_SetVectorCallback(ignoreVector);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    const std::string base(root);
    for (const char* path : {"/data/metrics/metrics.log", "/data/metrics", "/data", ""}) {
        std::remove((base + path).c_str());
    }
    return 0;
}
