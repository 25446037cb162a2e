// The flat entry points. Every one runs under the library mutex, catches
// everything and turns it into status 1 with one error line.

#include <fact/fact_api.h>

#include <exception>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/VemoLogger.h"
#include "fact/CampaignManager.h"
#include "fact/InputEvent.h"

namespace {

static_assert(sizeof(int) == sizeof(int32_t), "vector elements are handed out as int");

const vemo::VemoLogger logger("FactApi");

constexpr fact_status_t kOk = 0;
constexpr fact_status_t kFailed = 1;

// Guards the campaign manager (campaigns, collected vectors, callbacks): the
// manager has no lock of its own and the entry points are called from binder
// and telemetry threads at once.
std::mutex& libraryMutex() {
    static std::mutex mutex;
    return mutex;
}

// Set while this thread is inside an entry point, so that a callback calling
// back into the library is refused instead of deadlocking on the mutex.
thread_local bool tInsideLibrary = false;

std::string orEmpty(const char* text) {
    return text == nullptr ? std::string() : std::string(text);
}

enum class Locking { WHOLE_CALL, BODY_LOCKS };

// Runs `body`, under the library mutex unless the body takes it itself, and
// turns every exception into 1.
template <typename Body>
fact_status_t guarded(const char* function, Body&& body, Locking locking = Locking::WHOLE_CALL) {
    if (tInsideLibrary) {
        logger.e("%s:called from inside a library callback, refused", function);
        return kFailed;
    }
    std::unique_lock<std::mutex> lock(libraryMutex(), std::defer_lock);
    if (locking == Locking::WHOLE_CALL) {
        lock.lock();
    }
    tInsideLibrary = true;
    fact_status_t status = kFailed;
    try {
        status = body();
    } catch (const std::exception& e) {
        logger.e("%s: %s", function, e.what());
    } catch (...) {
        logger.e("%s: %s", function, "unhandled and unknown C++ exception");
    }
    tInsideLibrary = false;
    return status;
}

fact::CampaignManager& manager() {
    return fact::CampaignManager::GetInstance();
}

const fact::Campaign& campaignOrThrow(const std::string& campaignId) {
    const fact::Campaign* campaign = manager().GetCampaign(campaignId);
    if (campaign == nullptr) {
        throw std::invalid_argument("No campaign with id: " + campaignId);
    }
    return *campaign;
}

// The cohort-filter values of an application id's middle part: split at each
// "_" not preceded by a backslash, "\_" turned back into "_".
std::vector<std::string> splitValues(const std::string& middle) {
    std::vector<std::string> values(1);
    for (size_t i = 0; i < middle.size(); ++i) {
        if (middle[i] == '\\' && i + 1 < middle.size() && middle[i + 1] == '_') {
            values.back() += '_';
            ++i;
        } else if (middle[i] == '_') {
            values.emplace_back();
        } else {
            values.back() += middle[i];
        }
    }
    return values;
}

}  // namespace

extern "C" {

fact_status_t factVemo_SetVectorCallback(fact_vector_callback_t vectorCallback) {
    const char* const fn = __func__;
    return guarded(fn, [&] {
        if (vectorCallback == nullptr) {
            logger.e("%s:vector_callback is null", fn);
            return kFailed;
        }
        logger.i("%s:Set Vector Callback", fn);
        manager().SetSendVectorCallback([vectorCallback](
                                            const fact::CampaignManager::VectorMap& vectors) {
            for (const auto& entry : vectors) {
                logger.d("%s:Send Vector of ApplicationId: %s", "operator()", entry.first.c_str());
                const auto& elements = entry.second.elements();
                vectorCallback(reinterpret_cast<const int*>(elements.data()),
                               static_cast<unsigned int>(elements.size()), entry.first.c_str(),
                               entry.second.metadata().c_str());
            }
        });
        return kOk;
    });
}

fact_status_t factDataProducerAdapter_SetConfigurationCallback(
    const char* dataProducerName, fact_config_callback_t configCallback) {
    const char* const fn = __func__;
    return guarded(fn, [&] {
        const std::string name = orEmpty(dataProducerName);
        if (name.empty()) {
            logger.e("%s:dataProducerName is empty", fn);
            return kFailed;
        }
        if (configCallback == nullptr) {
            logger.e("%s:config_callback is null", fn);
            return kFailed;
        }
        logger.i("%s:Set DataProducer Configuration Callback for DataProducer: %s", fn,
                 name.c_str());
        manager().SetDataProducerConfigCallback(
            name, [configCallback](const std::string& dataProducer, const std::string& config) {
                logger.d("%s:Send DataProducer Configuration of DataProducer: %s", "operator()",
                         dataProducer.c_str());
                return configCallback(dataProducer.c_str(), config.c_str());
            });
        return kOk;
    });
}

fact_status_t fact_CreateCampaign(const char* path) {
    const char* const fn = __func__;
    return guarded(fn, [&] {
        const std::string campaignPath = orEmpty(path);
        logger.i("%s:Load Campaign Configuration from Path: %s", fn, campaignPath.c_str());
        manager().LoadConfig(campaignPath);
        return kOk;
    });
}

fact_status_t factDataProducerAdapter_SendEvent(const char* dataProducer, const char* factEvent) {
    const char* const fn = __func__;
    return guarded(
        fn,
        [&] {
            if (dataProducer == nullptr || *dataProducer == '\0') {
                logger.e("%s:dataProducer is empty", fn);
                return kFailed;
            }
            if (factEvent == nullptr || *factEvent == '\0') {
                logger.e("%s:factEvent is empty", fn);
                return kFailed;
            }
            logger.d("%s:Received Event from DataProducer: %s", fn, dataProducer);
            // Parsing and validating needs no shared state, so concurrent
            // producers do it in parallel and hold the mutex only for the manager.
            const fact::InputEvent event(factEvent);
            std::lock_guard<std::mutex> lock(libraryMutex());
            manager().CreateOrUpdateVectorInMap(event);
            return kOk;
        },
        Locking::BODY_LOCKS);
}

fact_status_t fact_DeleteCampaign(const char* campaignId) {
    const char* const fn = __func__;
    return guarded(fn, [&] {
        const std::string id = orEmpty(campaignId);
        if (id.empty()) {
            logger.e("%s:campaignId is empty", fn);
            return kFailed;
        }
        logger.i("%s:Delete Campaign with Id: %s", fn, id.c_str());
        if (!manager().DeleteCampaign(id)) {
            throw std::invalid_argument("No campaign with id: " + id);
        }
        return kOk;
    });
}

fact_status_t fact_SplitApplicationId(const char* campaignId, const char* applicationId,
                                      fact_split_callback_t resultCallback) {
    const char* const fn = __func__;
    return guarded(fn, [&] {
        const std::string id = orEmpty(campaignId);
        const std::string appId = orEmpty(applicationId);
        if (id.empty()) {
            logger.e("%s:campaignId is empty", fn);
            return kFailed;
        }
        if (appId.empty()) {
            logger.e("%s:applicationId is empty", fn);
            return kFailed;
        }
        if (resultCallback == nullptr) {
            logger.e("%s:result_callback is null", fn);
            return kFailed;
        }
        logger.i("%s:Split ApplicationId: %s for CampaignId: %s", fn, appId.c_str(), id.c_str());
        const fact::CampaignSchema& schema = campaignOrThrow(id).schema();
        // Producer and campaign id are not escaped, so they are matched as a
        // known prefix and suffix rather than split.
        const std::string prefix = schema.dataProducer + "_";
        const std::string suffix = "_" + schema.campaignId;
        if (appId.size() < prefix.size() + suffix.size() ||
            appId.compare(0, prefix.size(), prefix) != 0 ||
            appId.compare(appId.size() - suffix.size(), suffix.size(), suffix) != 0) {
            throw std::invalid_argument("ApplicationId " + appId +
                                        " does not belong to campaign: " + id);
        }
        const std::vector<std::string> values =
            splitValues(appId.substr(prefix.size(), appId.size() - prefix.size() - suffix.size()));
        if (values.size() != schema.cohortFilters.size()) {
            throw std::invalid_argument(
                "ApplicationId " + appId + " has " + std::to_string(values.size()) +
                " values for " + std::to_string(schema.cohortFilters.size()) + " cohort filters");
        }
        for (size_t i = 0; i < values.size(); ++i) {
            if (resultCallback(schema.cohortFilters[i].c_str(), values[i].c_str()) != 0) {
                throw std::runtime_error("result_callback refused cohort filter: " +
                                         schema.cohortFilters[i]);
            }
        }
        return kOk;
    });
}

fact_status_t factVector_Deserialize(const char* campaignId, const int* vectorData,
                                     unsigned int vectorSize,
                                     fact_vector_callback_t resultCallback) {
    const char* const fn = __func__;
    return guarded(fn, [&] {
        const std::string id = orEmpty(campaignId);
        if (id.empty()) {
            logger.e("%s:campaignId is empty", fn);
            return kFailed;
        }
        if (resultCallback == nullptr) {
            logger.e("%s:result_callback is null", fn);
            return kFailed;
        }
        logger.i("%s:Deserialize Vector of CampaignId: %s", fn, id.c_str());
        if (vectorSize == 0 || vectorData == nullptr) {
            logger.e("%s:vectorSize is invalid", fn);
            return kFailed;
        }
        const fact::Campaign& campaign = campaignOrThrow(id);
        if (vectorSize != static_cast<unsigned int>(campaign.VectorLength())) {
            logger.e("%s:vectorSize is invalid", fn);
            return kFailed;
        }
        fact::Vector vector(0, campaign.VectorMetadata());
        vector.elements().assign(vectorData, vectorData + vectorSize);
        resultCallback(reinterpret_cast<const int*>(vector.elements().data()),
                       static_cast<unsigned int>(vector.elements().size()), id.c_str(),
                       vector.metadata().c_str());
        return kOk;
    });
}

}  // extern "C"
