#include "fact/upload/MapAuthenticator.h"

#include <stdexcept>

#include "common/DeviceInfo.h"
#include "common/VemoLogger.h"

namespace fact {
namespace {
const vemo::VemoLogger logger("MapAuthenticator");
}  // namespace

std::string MapAuthenticator::getAuthToken() {
    std::string token;
    if (!vemo::DeviceInfo::getImpl()->getMapToken(token)) {
        logger.e("%s:%s", "getAuthToken", "Error in getting MAP token");
        throw std::runtime_error("Error in getting MAP token");
    }
    return token;
}

}  // namespace fact
