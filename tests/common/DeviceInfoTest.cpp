#include <android/log.h>
#include <gtest/gtest.h>

#include <stdexcept>

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

TEST_F(DeviceInfoTest, GetImplReturnsOneSharedInstance) {
    EXPECT_EQ(DeviceInfo::getImpl().get(), info.get());
}

TEST_F(DeviceInfoTest, PlainPropertiesPassThrough) {
    root.writeBuildProps({{"ro.product.model", "Echo"},
                          {"ro.serialno", "G090XX"},
                          {"ro.product.manufacturer", "Nimbel"}});
    EXPECT_EQ(info->getModelName(), "Echo");
    EXPECT_EQ(info->getDSN(), "G090XX");
    EXPECT_EQ(info->getManufacturerName(), "Nimbel");
    EXPECT_TRUE(logs.messages(kTag).empty());
}

TEST_F(DeviceInfoTest, MissingPropertyIsEmptyWithOneLineAndOneCount) {
    auto& heartbeat = fact::FactHeartbeatMetric::GetInstance();
    const int32_t before = heartbeat.getCount("GetSystemPropertyError");
    EXPECT_EQ(info->getDSN(), "");
    EXPECT_EQ(heartbeat.getCount("GetSystemPropertyError"), before + 1);
    EXPECT_EQ(logs.messages(kTag), std::vector<std::string>{kPropertyFailed});
}

struct TypeCase {
    const char* value;  // nullptr: property absent
    bool valid;
};

class DeviceTypeTest : public DeviceInfoTest, public ::testing::WithParamInterface<TypeCase> {};

TEST_P(DeviceTypeTest, AlphanumericOnly) {
    if (GetParam().value != nullptr) {
        root.writeBuildProps({{"ro.product.config.type", GetParam().value}});
    }
    if (GetParam().valid) {
        EXPECT_EQ(info->getType(), GetParam().value);
    } else {
        try {
            info->getType();
            FAIL() << "no exception";
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(),
                         "Invalid device type string when retrieving device type using "
                         "__system_property_get()");
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Types, DeviceTypeTest,
                         ::testing::Values(TypeCase{"ABC123", true}, TypeCase{"x", true},
                                           TypeCase{"abc-1", false}, TypeCase{"a b", false},
                                           TypeCase{nullptr, false}));

struct LocaleCase {
    const char* persisted;  // nullptr: absent
    const char* product;
    const char* expected;  // nullptr: runtime error
};

class LocaleTest : public DeviceInfoTest, public ::testing::WithParamInterface<LocaleCase> {};

TEST_P(LocaleTest, PersistedThenProductThenError) {
    std::map<std::string, std::string> props;
    if (GetParam().persisted != nullptr) {
        props["persist.sys.locale"] = GetParam().persisted;
    }
    if (GetParam().product != nullptr) {
        props["ro.product.locale"] = GetParam().product;
    }
    root.writeBuildProps(props);
    if (GetParam().expected != nullptr) {
        EXPECT_EQ(info->getLocale(), GetParam().expected);
    } else {
        try {
            info->getLocale();
            FAIL() << "no exception";
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(),
                         "Invalid locale string when retrieving locales using "
                         "__system_property_get()");
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Locales, LocaleTest,
    ::testing::Values(LocaleCase{"de_DE", "en-US", "de_DE"},
                      LocaleCase{"es-419", nullptr, "es-419"}, LocaleCase{"", "en-US", "en-US"},
                      LocaleCase{nullptr, "en-US", "en-US"}, LocaleCase{"fr", "en-GB", "en-GB"},
                      LocaleCase{"zh-Hans-CN", "ja-JP", "ja-JP"},
                      LocaleCase{"abcd_EF", nullptr, "abcd_EF"}, LocaleCase{"fr", "en", nullptr},
                      LocaleCase{nullptr, nullptr, nullptr}, LocaleCase{"en-US-", "e-US", nullptr},
                      LocaleCase{"en_1234", "abcde-US", nullptr},
                      LocaleCase{"en-U1", "en_12", nullptr}, LocaleCase{"e1-US", "en-us", "en-us"},
                      LocaleCase{"en--US", "EN_419", "EN_419"},
                      LocaleCase{"en-US.", "\xC3\xA9n-US", nullptr}));

TEST_F(DeviceInfoTest, LocaleChangeIsSeenOnTheNextCall) {
    root.writeBuildProps({{"persist.sys.locale", "en-US"}});
    EXPECT_EQ(info->getLocale(), "en-US");
    root.writeBuildProps({{"persist.sys.locale", "de-DE"}});
    EXPECT_EQ(info->getLocale(), "de-DE");
}

TEST_F(DeviceInfoTest, RegistrationStateAndTokenFromTheHostAccessor) {
    root.provision(3, "token-123");
    EXPECT_EQ(info->getRegistrationState(), 3);
    std::string token;
    EXPECT_TRUE(info->getMapToken(token));
    EXPECT_EQ(token, "token-123");
}

TEST_F(DeviceInfoTest, UnprovisionedDeviceDegrades) {
    EXPECT_EQ(info->getRegistrationState(), 0);
    EXPECT_TRUE(logs.contains(ANDROID_LOG_ERROR, kTag,
                              "getRegistrationState:msg=BasicUtilsManagerInitFailed, error=1"));
    std::string token = "old";
    EXPECT_FALSE(info->getMapToken(token));
    EXPECT_EQ(token, "old");
}

}  // namespace
