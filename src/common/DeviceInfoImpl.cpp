#include "common/DeviceInfoImpl.h"

#include <sys/system_properties.h>

#include <pellux/managers/BasicUtilsManager.h>
#include <cctype>
#include <stdexcept>

#include "common/VemoLogger.h"
#include "fact/FactHeartbeatMetric.h"

namespace vemo {
namespace {

const VemoLogger logger{"DeviceInfo"};

using com::nimbel::pellux::managers::BasicUtilsManager;

bool isAsciiLetter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

bool isAsciiDigit(char c) {
    return c >= '0' && c <= '9';
}

// The same language as "^[A-Za-z]{2,4}([_-]([A-Za-z]{2}|[0-9]{3}))$", checked
// by hand: the locale is read for every telemetry event, and a regex match
// cost more than the rest of the check.
bool isValidLocale(const std::string& value) {
    const std::string::size_type sep = value.find_first_of("_-");
    if (sep == std::string::npos || sep < 2 || sep > 4) {
        return false;
    }
    for (std::string::size_type i = 0; i < sep; ++i) {
        if (!isAsciiLetter(value[i])) {
            return false;
        }
    }
    const std::string region = value.substr(sep + 1);
    if (region.size() == 2) {
        return isAsciiLetter(region[0]) && isAsciiLetter(region[1]);
    }
    return region.size() == 3 && isAsciiDigit(region[0]) && isAsciiDigit(region[1]) &&
           isAsciiDigit(region[2]);
}

bool isAlnumOnly(const std::string& value) {
    for (const char c : value) {
        if (!std::isalnum(static_cast<unsigned char>(c))) {
            return false;
        }
    }
    return true;
}

}  // namespace

constexpr int DeviceInfoImpl::kAccessorWaitBound;

std::string DeviceInfoImpl::getSystemProperty(const char* name) {
    char value[PROP_VALUE_MAX] = {};
    if (__system_property_get(name, value) >= 1) {
        return value;
    }
    // The format ends in a bare '%' on purpose: the line does not name the
    // property, and device tooling matches this exact text.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
    logger.e("%s:msg=getSystemPropertyFailed, field=%", "getSystemProperty");
#pragma GCC diagnostic pop
    fact::FactHeartbeatMetric::GetInstance().addCount("GetSystemPropertyError");
    return "";
}

std::string DeviceInfoImpl::getModelName() {
    return getSystemProperty("ro.product.model");
}

std::string DeviceInfoImpl::getDSN() {
    return getSystemProperty("ro.serialno");
}

std::string DeviceInfoImpl::getManufacturerName() {
    return getSystemProperty("ro.product.manufacturer");
}

std::string DeviceInfoImpl::getType() {
    const std::string type = getSystemProperty("ro.product.config.type");
    if (type.empty() || !isAlnumOnly(type)) {
        throw std::runtime_error(
            "Invalid device type string when retrieving device type using "
            "__system_property_get()");
    }
    return type;
}

std::string DeviceInfoImpl::getLocale() {
    const std::string persisted = getSystemProperty("persist.sys.locale");
    if (!persisted.empty() && isValidLocale(persisted)) {
        return persisted;
    }
    const std::string product = getSystemProperty("ro.product.locale");
    if (isValidLocale(product)) {
        return product;
    }
    throw std::runtime_error(
        "Invalid locale string when retrieving locales using __system_property_get()");
}

int32_t DeviceInfoImpl::getRegistrationState() {
    BasicUtilsManager* manager = BasicUtilsManager::getManager();
    const int status = manager->init(kAccessorWaitBound);
    if (status != 0) {
        logger.e("%s:msg=BasicUtilsManagerInitFailed, error=%d", "getRegistrationState", status);
        return 0;
    }
    return BasicUtilsManager::getRegistrationState(manager);
}

bool DeviceInfoImpl::getMapToken(std::string& token) {
    BasicUtilsManager* manager = BasicUtilsManager::getManager();
    int status = manager->init(kAccessorWaitBound);
    if (status == 0) {
        status = BasicUtilsManager::getAccessToken(manager, token);
    }
    if (status != 0) {
        logger.e("%s:msg=getAccessTokenFailed, error=%d", "getMapToken", status);
        return false;
    }
    return true;
}

}  // namespace vemo
