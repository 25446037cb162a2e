#pragma once
// The device's identity as the cloud sees it: model, type, serial number,
// locale, manufacturer, registration state and the access token.
//
// getImpl() hands out the one implementation (over system properties and the
// host accessor). Nothing is cached: every call re-reads its source, so a
// changed locale is seen on the next call. Implementations are stateless and
// callable from any thread.

#include <cstdint>
#include <memory>
#include <string>

namespace vemo {

class DeviceInfo {
  public:
    // The shared implementation, created on first call under the unit's mutex.
    static std::shared_ptr<DeviceInfo> getImpl();

    virtual ~DeviceInfo() = default;

    // "ro.product.model"; empty when missing.
    virtual std::string getModelName() = 0;
    // "ro.product.config.type"; throws std::runtime_error unless it is
    // non-empty and alphanumeric.
    virtual std::string getType() = 0;
    // "ro.serialno"; empty when missing.
    virtual std::string getDSN() = 0;
    // "persist.sys.locale", else "ro.product.locale"; throws
    // std::runtime_error when neither is a language-region locale.
    virtual std::string getLocale() = 0;
    // "ro.product.manufacturer"; empty when missing.
    virtual std::string getManufacturerName() = 0;
    // Any property; empty (with an error line and a heartbeat count) when
    // absent or empty.
    virtual std::string getSystemProperty(const char* name) = 0;
    // The host accessor's registration state; 0 when it cannot be had.
    virtual int32_t getRegistrationState() = 0;
    // The cloud access token; false (token unchanged) when it cannot be had.
    virtual bool getMapToken(std::string& token) = 0;
};

}  // namespace vemo
