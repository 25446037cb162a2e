#include <gtest/gtest.h>

#include "TdpTestSupport.h"

namespace {
const ::testing::Environment* const heartbeat =
    ::testing::AddGlobalTestEnvironment(new fact::tdp::test::HeartbeatStarted);
}  // namespace
