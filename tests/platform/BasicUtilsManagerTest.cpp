#include <gtest/gtest.h>

#include <pellux/managers/BasicUtilsManager.h>

#include "TempDeviceRoot.h"

namespace {

using com::nimbel::pellux::managers::BasicUtilsManager;

TEST(BasicUtilsManagerTest, ProvisionedDeviceGivesStateAndToken) {
    vemo::test::TempDeviceRoot root;
    root.provision(2, "Atza|token");
    BasicUtilsManager* m = BasicUtilsManager::getManager();
    ASSERT_EQ(m->init(300), BasicUtilsManager::OK);
    EXPECT_EQ(BasicUtilsManager::getRegistrationState(m), 2);
    std::string token;
    EXPECT_EQ(BasicUtilsManager::getAccessToken(m, token), BasicUtilsManager::OK);
    EXPECT_EQ(token, "Atza|token");
}

TEST(BasicUtilsManagerTest, MissingProvisioningFailsAfterTheWaitBound) {
    vemo::test::TempDeviceRoot root;
    BasicUtilsManager* m = BasicUtilsManager::getManager();
    EXPECT_EQ(m->init(20), BasicUtilsManager::ERR_NOT_PROVISIONED);
    EXPECT_EQ(BasicUtilsManager::getRegistrationState(m), 0);
    std::string token = "unchanged";
    EXPECT_EQ(BasicUtilsManager::getAccessToken(m, token), BasicUtilsManager::ERR_NOT_PROVISIONED);
    EXPECT_EQ(token, "unchanged");
}

struct BadFile {
    const char* contents;
    int initResult;
    int tokenResult;
};

class BasicUtilsManagerBadFileTest : public ::testing::TestWithParam<BadFile> {};

TEST_P(BasicUtilsManagerBadFileTest, DegradesToErrorCodes) {
    vemo::test::TempDeviceRoot root;
    root.writeFile("/data/pellux/provisioning", GetParam().contents);
    BasicUtilsManager* m = BasicUtilsManager::getManager();
    EXPECT_EQ(m->init(0), GetParam().initResult);
    std::string token = "unchanged";
    EXPECT_EQ(BasicUtilsManager::getAccessToken(m, token), GetParam().tokenResult);
    EXPECT_EQ(token, "unchanged");
    EXPECT_EQ(BasicUtilsManager::getRegistrationState(m), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Files, BasicUtilsManagerBadFileTest,
    ::testing::Values(
        BadFile{"garbage\n", BasicUtilsManager::ERR_MALFORMED, BasicUtilsManager::ERR_MALFORMED},
        BadFile{"registration_state=abc\n", BasicUtilsManager::OK, BasicUtilsManager::ERR_NO_TOKEN},
        BadFile{"registration_state=99999999999\naccess_token=\n", BasicUtilsManager::OK,
                BasicUtilsManager::ERR_NO_TOKEN},
        BadFile{"", BasicUtilsManager::OK, BasicUtilsManager::ERR_NO_TOKEN}));

TEST(BasicUtilsManagerTest, NullManagerIsRefused) {
    std::string token;
    EXPECT_EQ(BasicUtilsManager::getAccessToken(nullptr, token), BasicUtilsManager::ERR_NO_MANAGER);
    EXPECT_EQ(BasicUtilsManager::getRegistrationState(nullptr), 0);
}

}  // namespace
