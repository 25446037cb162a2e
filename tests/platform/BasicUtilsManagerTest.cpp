#include <gtest/gtest.h>

#include <pellux/managers/BasicUtilsManager.h>

#include "TempDeviceRoot.h"

namespace {

using com::nimbel::pellux::managers::BasicUtilsManager;

struct ProvisioningCase {
    const char* name;
    const char* file;  // nullptr: no provisioning file
    int waitMs;
    int init;
    int state;
    int tokenResult;
    const char* token;  // "unchanged": the caller's string is left alone
};

const ProvisioningCase kCases[] = {
    {"Provisioned", "registration_state=2\naccess_token=Atza|token\n", 300, BasicUtilsManager::OK,
     2, BasicUtilsManager::OK, "Atza|token"},
    {"MissingFileFailsAfterTheWaitBound", nullptr, 20, BasicUtilsManager::ERR_NOT_PROVISIONED, 0,
     BasicUtilsManager::ERR_NOT_PROVISIONED, "unchanged"},
    {"Garbage", "garbage\n", 0, BasicUtilsManager::ERR_MALFORMED, 0,
     BasicUtilsManager::ERR_MALFORMED, "unchanged"},
    {"StateNotANumber", "registration_state=abc\n", 0, BasicUtilsManager::OK, 0,
     BasicUtilsManager::ERR_NO_TOKEN, "unchanged"},
    {"StateOutOfRangeTokenEmpty", "registration_state=99999999999\naccess_token=\n", 0,
     BasicUtilsManager::OK, 0, BasicUtilsManager::ERR_NO_TOKEN, "unchanged"},
    {"EmptyFile", "", 0, BasicUtilsManager::OK, 0, BasicUtilsManager::ERR_NO_TOKEN, "unchanged"},
};

class BasicUtilsManagerTest : public ::testing::TestWithParam<ProvisioningCase> {};

TEST_P(BasicUtilsManagerTest, ReadsTheProvisioningFile) {
    vemo::test::TempDeviceRoot root;
    if (GetParam().file != nullptr) {
        root.writeFile("/data/pellux/provisioning", GetParam().file);
    }
    BasicUtilsManager* m = BasicUtilsManager::getManager();
    EXPECT_EQ(m->init(GetParam().waitMs), GetParam().init);
    EXPECT_EQ(BasicUtilsManager::getRegistrationState(m), GetParam().state);
    std::string token = "unchanged";
    EXPECT_EQ(BasicUtilsManager::getAccessToken(m, token), GetParam().tokenResult);
    EXPECT_EQ(token, GetParam().token);
}

INSTANTIATE_TEST_SUITE_P(Files, BasicUtilsManagerTest, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<ProvisioningCase>& info) {
                             return std::string(info.param.name);
                         });

TEST(BasicUtilsManagerNull, IsRefused) {
    std::string token;
    EXPECT_EQ(BasicUtilsManager::getAccessToken(nullptr, token), BasicUtilsManager::ERR_NO_MANAGER);
    EXPECT_EQ(BasicUtilsManager::getRegistrationState(nullptr), 0);
}

}  // namespace
