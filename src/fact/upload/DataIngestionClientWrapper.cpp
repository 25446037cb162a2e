#include "fact/upload/DataIngestionClientWrapper.h"

#include <memory>

#include "fact/upload/CurlHttpClient.h"
#include "fact/upload/MapAuthenticator.h"

namespace fact {
namespace {

struct Instance {
    Instance() : client(std::make_shared<MapAuthenticator>(), std::make_shared<CurlHttpClient>()) {}
    ~Instance() { client.waitForUploads(DataIngestionClientWrapper::kExitDrain); }

    DataIngestionClient client;
};

}  // namespace

constexpr std::chrono::seconds DataIngestionClientWrapper::kExitDrain;

DataIngestionClient& DataIngestionClientWrapper::getInstance() {
    static Instance instance;
    return instance.client;
}

}  // namespace fact
