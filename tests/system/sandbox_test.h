#pragma once

#include <gtest/gtest.h>

#include <unistd.h>

#include "device_root.h"

namespace sandbox {

// A test on a synthetic device, set up by a scenario or left bare. Building
// the device needs root; elsewhere the test is skipped.
class SandboxTest : public ::testing::Test {
protected:
    using Scenario = void (*)(DeviceRoot&);

    explicit SandboxTest(Scenario scenario = nullptr) : m_scenario(scenario) {}

    void SetUp() override
    {
        if (geteuid() != 0)
            GTEST_SKIP() << "the device sandbox needs root";
        if (m_scenario != nullptr)
            m_scenario(m_device);
    }

    DeviceRoot m_device;

private:
    Scenario m_scenario;
};

} // namespace sandbox
