#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "TempDeviceRoot.h"
#include "common/DeviceInfo.h"
#include "fact/FactHeartbeatMetric.h"
#include "hostlog/LogCapture.h"

namespace {

using vemo::DeviceInfo;

const char kTag[] = "Vemo:DeviceInfo";
// The format's bare trailing '%' has no conversion, so liblog prints nothing for it.
const char kPropertyFailed[] = "getSystemProperty:msg=getSystemPropertyFailed, field=";

class DeviceInfoTest : public ::testing::Test {
  protected:
    vemo::test::TempDeviceRoot root;
    hostlog::LogCapture logs;
    std::shared_ptr<DeviceInfo> info = DeviceInfo::getImpl();
};

TEST_F(DeviceInfoTest, MissingPropertyIsEmptyWithOneLineAndOneCount) {
    auto& heartbeat = fact::FactHeartbeatMetric::GetInstance();
    const int32_t before = heartbeat.getCount("GetSystemPropertyError");
    EXPECT_EQ(info->getDSN(), "");
    EXPECT_EQ(heartbeat.getCount("GetSystemPropertyError"), before + 1);
    EXPECT_EQ(logs.messages(kTag), std::vector<std::string>{kPropertyFailed});
}

TEST_F(DeviceInfoTest, TypeIsAlphanumericAndLocaleFallsBackToTheProductOne) {
    const std::string badType =
        "Invalid device type string when retrieving device type using __system_property_get()";
    const std::string badLocale =
        "Invalid locale string when retrieving locales using __system_property_get()";
    const std::function<std::string()> type = [&] { return info->getType(); };
    const std::function<std::string()> locale = [&] { return info->getLocale(); };
    struct Row {
        std::map<std::string, std::string> props;
        const std::function<std::string()>& get;
        std::string expected;  // the value, or the error's text
    };
    const char* const kType = "ro.product.config.type";
    const char* const kPersisted = "persist.sys.locale";
    const char* const kProduct = "ro.product.locale";
    const Row rows[] = {
        {{{kType, "ABC123"}}, type, "ABC123"},
        {{{kType, "x"}}, type, "x"},
        {{{kType, "abc-1"}}, type, badType},
        {{{kType, "a b"}}, type, badType},
        {{}, type, badType},
        {{{kPersisted, "de_DE"}, {kProduct, "en-US"}}, locale, "de_DE"},
        {{{kPersisted, "es-419"}}, locale, "es-419"},
        {{{kPersisted, ""}, {kProduct, "en-US"}}, locale, "en-US"},
        {{{kPersisted, "fr"}, {kProduct, "en-GB"}}, locale, "en-GB"},
        {{{kPersisted, "zh-Hans-CN"}, {kProduct, "ja-JP"}}, locale, "ja-JP"},
        {{{kPersisted, "abcd_EF"}}, locale, "abcd_EF"},
        {{{kPersisted, "fr"}, {kProduct, "en"}}, locale, badLocale},
        {{{kPersisted, "en-US-"}, {kProduct, "e-US"}}, locale, badLocale},
        {{{kPersisted, "en_1234"}, {kProduct, "abcde-US"}}, locale, badLocale},
        {{{kPersisted, "en-U1"}, {kProduct, "en_12"}}, locale, badLocale},
        {{{kPersisted, "e1-US"}, {kProduct, "en-us"}}, locale, "en-us"},
        {{{kPersisted, "en--US"}, {kProduct, "EN_419"}}, locale, "EN_419"},
        {{{kPersisted, "en-US."}, {kProduct, "\xC3\xA9n-US"}}, locale, badLocale},
    };
    // One instance for every row: a value read once and kept would show.
    for (const Row& row : rows) {
        SCOPED_TRACE(row.expected);
        root.writeBuildProps(row.props);
        std::string got;
        try {
            got = row.get();
        } catch (const std::runtime_error& e) {
            got = e.what();
        }
        EXPECT_EQ(row.expected, got);
    }
}

TEST_F(DeviceInfoTest, UnprovisionedDeviceHasNoTokenAndSaysSo) {
    std::string token = "old";
    EXPECT_FALSE(info->getMapToken(token));
    EXPECT_EQ(token, "old");
    EXPECT_EQ(logs.messages(kTag),
              std::vector<std::string>{"getMapToken:msg=getAccessTokenFailed, error=1"});
}

}  // namespace
