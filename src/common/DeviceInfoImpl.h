#pragma once
// DeviceInfo over system properties and the host accessor. Stateless.

#include "common/DeviceInfo.h"

namespace vemo {

class DeviceInfoImpl : public DeviceInfo {
  public:
    // The host accessor's initialisation wait bound.
    static constexpr int kAccessorWaitBound = 300;

    std::string getModelName() override;
    std::string getType() override;
    std::string getDSN() override;
    std::string getLocale() override;
    std::string getManufacturerName() override;
    std::string getSystemProperty(const char* name) override;
    int32_t getRegistrationState() override;
    bool getMapToken(std::string& token) override;
};

}  // namespace vemo
