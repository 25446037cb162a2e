#pragma once
// The aggregation manager: ties the secure-aggregation core to the cloud.
// At construction it announces the device's capability and subscribes to the
// cloud's "UploadMaskedData" directive; every analytics vector becomes, with
// its checksum appended, a participation request sent to the cloud as an
// event; each directive is masked by the core, and the masked vector the core
// hands back is uploaded to the ingestion service. Gradient-file requests from
// IPC take the same way with the device's test gradient file.
//
// One per process (getInstance); tests construct their own over a recording
// ITolmoComm. Owns the core wrapper; holds the cloud library by reference.
// Thread-safety: no lock of its own. Directive and event-result handlers run
// on the cloud library's threads, core results on the core's thread,
// flgrRequest on binder threads and handleFactVectorCallback on the analytics
// library's thread; the core wrapper and the cloud library are safe for such
// concurrent calls. Exceptions of the core wrapper pass through flgrRequest
// and handleFactVectorCallback to their callers.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "aggregation/VemoCoreWrapper.h"
#include "ipc/FlgrFileRequest.h"
#include "tolmocomm/ITolmoComm.h"

namespace vemo {

class VemoManager {
  public:
    static constexpr const char kSessionNamespace[] = "RA.Tolmo.SecureAggregationSessionController";
    static constexpr const char kCapabilityPayload[] =
        "{\"endpoints\":[{\"capabilities\":[{\"type\":\"TolmoInterface\",\"interface\":"
        "\"Tolmo.SecureAggregationSessionController\",\"version\":\"1.0\"}]}]}";

    // The singleton, made on the first call over `comm`; later calls ignore
    // their argument.
    static VemoManager& getInstanceWithTolmoComm(tolmocomm::ITolmoComm& comm);
    // The singleton over the process's cloud library.
    static VemoManager& getInstance();

    // Creates the core wrapper (its exceptions propagate), installs the
    // result handlers and registers with the cloud.
    explicit VemoManager(tolmocomm::ITolmoComm& comm);
    // Shuts the cloud library down first, so that no directive or event
    // result reaches a manager that is going away.
    ~VemoManager();
    VemoManager(const VemoManager&) = delete;
    VemoManager& operator=(const VemoManager&) = delete;

    // 0 when the participation request went to the cloud; 1 when the
    // requested file or the test gradient file cannot be read; or the core's
    // status.
    int flgrRequest(const std::string& client, const ipc::FlgrFileRequest& request);

    // 0 when the participation request went to the cloud; 1 for an empty
    // vector; or the core's status. `data` is only read during the call.
    int handleFactVectorCallback(const std::string& name, const int* data, unsigned count,
                                 const std::string& second);

  private:
    void onDirective(const tolmocomm::TolmoDirective& directive);
    void onFlgrResult(VemoFlgrResult result);
    void onIntegralResult(VemoIntegralResult result);

    tolmocomm::ITolmoComm& comm;
    std::shared_ptr<VemoCoreWrapper> coreWrapper;
};

// The vector with one more element: the sum of all elements, as a 64-bit
// integer, modulo 2^31 with the sign of the sum. Empty for an empty input.
std::vector<int> appendChecksum(const int* data, unsigned count);

// Reads a whole regular file (at most kMaxBlobBytes) into `blob`; 0, or 1
// with an error line.
constexpr size_t kMaxBlobBytes = 64u << 20;
int readFileToBlob(const std::string& path, std::vector<uint8_t>& blob);

// The directive as one compact JSON text, for the log.
std::string serialize(const tolmocomm::TolmoDirective& directive);

// Counts "ParticipationRequestPrqEventError" for an event the cloud did not
// take (any result but delivered, delivered after a retry, already delivered).
void eventDeliveryConfirmationCallback(const tolmocomm::TolmoEventResult& result);

}  // namespace vemo
