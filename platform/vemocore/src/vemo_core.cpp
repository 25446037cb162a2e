// The core's operation table over CoreHandle. Every entry point checks its
// arguments, and no exception crosses into the C caller.
#include "vemocore/vemo_core.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <limits>
#include <new>

#include "CoreHandle.h"
#include "CoreLog.h"

// The records are made of 32-bit words on the device, where pointers are 32
// bits wide.
static_assert(sizeof(VemoCoreConfig) == 6 * 4, "VemoCoreConfig is six words");
static_assert(sizeof(void*) != 4 || sizeof(VemoIntegralResult) == 5 * 4, "five words");
static_assert(sizeof(void*) != 4 || sizeof(VemoFlgrResult) == 5 * 4, "five words");
static_assert(sizeof(VemoHandle) == sizeof(void*), "the handle is one pointer-sized word");

struct VemoCoreHandle : vemocore::CoreHandle {
    using CoreHandle::CoreHandle;
};

using vemocore::coreLog;

namespace {

constexpr const char* kVersion = "1.0.0";
// Bounds on the creation words, so a handle's memory stays bounded.
constexpr uint32_t kMaxCapacity = 4096;
constexpr uint32_t kMaxNeighbours = 4096;
constexpr size_t kMaxFileBytes = size_t{64} << 20;

int invalid(const char* function, const char* what) {
    coreLog(VEMO_LOG_ERROR, "%s:%s", function, what);
    return 1;
}

// Runs `body`, turning an escaping exception into a logged failure code.
template <typename Body>
int guarded(const char* function, int failure, Body body) {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        coreLog(VEMO_LOG_ERROR, "%s:out of memory", function);
    } catch (const std::exception& e) {
        coreLog(VEMO_LOG_ERROR, "%s:%s", function, e.what());
    }
    return failure;
}

// round(value * scale), saturating; NaN becomes 0.
uint32_t quantise(float value, float scale) {
    const double scaled = std::round(static_cast<double>(value) * static_cast<double>(scale));
    int32_t q = 0;
    if (scaled >= 2147483647.0) {
        q = std::numeric_limits<int32_t>::max();
    } else if (scaled <= -2147483648.0) {
        q = std::numeric_limits<int32_t>::min();
    } else if (scaled == scaled) {
        q = static_cast<int32_t>(scaled);
    }
    return static_cast<uint32_t>(q);
}

int flgrRequest(VemoHandle handle, const char* applicationId, const uint8_t* blob,
                size_t blobLength, float scaleValue, const char* metadata, char** out,
                const char* function) {
    if (handle == nullptr || applicationId == nullptr || blob == nullptr || metadata == nullptr ||
        out == nullptr) {
        return invalid(function, "null argument");
    }
    if (blobLength == 0 || blobLength % 4 != 0 || blobLength / 4 > vemocore::kMaxElements) {
        return invalid(function, "blob length is not a positive multiple of 4 within bounds");
    }
    if (!std::isfinite(scaleValue)) {
        return invalid(function, "scale value is not finite");
    }
    return guarded(function, 4, [&] {
        vemocore::SecretWords words(blobLength / 4);
        for (size_t i = 0; i < words.size(); ++i) {
            const uint8_t* p = blob + 4 * i;
            const uint32_t bits = static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
                                  static_cast<uint32_t>(p[2]) << 16 |
                                  static_cast<uint32_t>(p[3]) << 24;
            float value;
            std::memcpy(&value, &bits, sizeof value);
            words.data()[i] = quantise(value, scaleValue);
        }
        return handle->initiate(secagg::Kind::Flgr, applicationId, metadata, std::move(words),
                                scaleValue, out);
    });
}

}  // namespace

extern "C" {

int vemoRegisterLoggingCallback(VemoLogCallback callback, VemoLogLevel maxLevel) {
    if (maxLevel < VEMO_LOG_ERROR || maxLevel > VEMO_LOG_VERBOSE) {
        return 1;
    }
    vemocore::setLogSink(callback, maxLevel);
    return 0;
}

int vemoHandleCreate(const VemoCoreConfig* config, void* userdata, VemoHandle* handle) {
    const char* function = "vemoHandleCreate";
    if (config == nullptr || handle == nullptr) {
        return invalid(function, "null argument");
    }
    if (config->preferredProtocol != VEMO_PROTOCOL_AES128CTR) {
        return invalid(function, "unsupported protocol");
    }
    const vemocore::CoreLimits limits{config->pendingCapacity, config->stage,
                                      config->mostNeighbours, config->fewestNeighbours};
    if (limits.capacity == 0 || limits.capacity > kMaxCapacity ||
        limits.stage != secagg::kStagePairwise || limits.fewestNeighbours == 0 ||
        limits.mostNeighbours < limits.fewestNeighbours || limits.mostNeighbours > kMaxNeighbours ||
        config->reserved != 0) {
        return invalid(function, "creation words out of range");
    }
    return guarded(function, 1, [&] {
        *handle = new VemoCoreHandle(limits, userdata);
        coreLog(VEMO_LOG_INFO, "%s:capacity %u, stage %u, neighbours %u to %u", function,
                limits.capacity, limits.stage, limits.fewestNeighbours, limits.mostNeighbours);
        return 0;
    });
}

int vemoHandleRegisterFlgrResultCallback(VemoHandle handle, VemoFlgrResultCallback callback) {
    if (handle == nullptr) {
        return invalid("vemoHandleRegisterFlgrResultCallback", "null handle");
    }
    handle->setFlgrCallback(callback);
    return 0;
}

int vemoHandleRegisterIntegralResultCallback(VemoHandle handle,
                                             VemoIntegralResultCallback callback) {
    if (handle == nullptr) {
        return invalid("vemoHandleRegisterIntegralResultCallback", "null handle");
    }
    handle->setIntegralCallback(callback);
    return 0;
}

int vemoHandleFlgrInitiateNewRequest(VemoHandle handle, const char* applicationId,
                                     const uint8_t* blob, size_t blobLength, float scaleValue,
                                     const char* metadata, char** out) {
    return flgrRequest(handle, applicationId, blob, blobLength, scaleValue, metadata, out,
                       "vemoHandleFlgrInitiateNewRequest");
}

int vemoHandleFlgrInitiateNewRequestFilePath(VemoHandle handle, const char* applicationId,
                                             const char* filePath, float scaleValue,
                                             const char* metadata, char** out) {
    const char* function = "vemoHandleFlgrInitiateNewRequestFilePath";
    if (filePath == nullptr) {
        return invalid(function, "null argument");
    }
    return guarded(function, 1, [&] {
        std::ifstream file(filePath, std::ios::binary | std::ios::ate);
        const std::streamoff size = file ? static_cast<std::streamoff>(file.tellg()) : -1;
        if (size < 0 || static_cast<unsigned long long>(size) > kMaxFileBytes) {
            return invalid(function, "file unreadable or above 64 MiB");
        }
        std::vector<uint8_t> blob(static_cast<size_t>(size));
        file.seekg(0);
        if (!file.read(reinterpret_cast<char*>(blob.data()), size)) {
            return invalid(function, "file unreadable");
        }
        return flgrRequest(handle, applicationId, blob.data(), blob.size(), scaleValue, metadata,
                           out, function);
    });
}

int vemoHandleIntegralInitiateNewRequest(VemoHandle handle, const char* name, const int32_t* data,
                                         unsigned int count, const char* secondName, char** out) {
    const char* function = "vemoHandleIntegralInitiateNewRequest";
    if (handle == nullptr || name == nullptr || data == nullptr || secondName == nullptr ||
        out == nullptr) {
        return invalid(function, "null argument");
    }
    if (count == 0 || count > vemocore::kMaxElements) {
        return invalid(function, "element count out of bounds");
    }
    return guarded(function, 4, [&] {
        vemocore::SecretWords words(count);
        std::memcpy(words.data(), data, count * sizeof(int32_t));
        return handle->initiate(secagg::Kind::Integral, name, secondName, std::move(words), 0.0f,
                                out);
    });
}

int vemoHandleMask(VemoHandle handle, const char* directive) {
    if (handle == nullptr || directive == nullptr) {
        return invalid("vemoHandleMask", "null argument");
    }
    return guarded("vemoHandleMask", 4, [&] { return handle->mask(directive); });
}

int vemoDestroyString(char* text) {
    if (text == nullptr) {
        return 1;
    }
    std::free(text);
    return 0;
}

int vemoHandleDestroy(VemoHandle handle) {
    if (handle == nullptr) {
        return invalid("vemoHandleDestroy", "null handle");
    }
    if (handle->onDeliveryThread()) {
        return invalid("vemoHandleDestroy", "called from a result callback");
    }
    delete handle;
    return 0;
}

int vemoLibPrintAttributes(void) {
    coreLog(VEMO_LOG_INFO, "%s:version %s, stage %u, generator %s", "vemoLibPrintAttributes",
            kVersion, secagg::kStagePairwise, secagg::kPrgAes128Ctr);
    return 0;
}

}  // extern "C"
