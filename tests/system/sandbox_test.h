#pragma once

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <random>
#include <string>

#include "device_root.h"
#include "installation.h"
#include "scenario.h"
#include "scenario_directory.h"

namespace sandbox {

// Set in the environment of the tests (not of the collector), this runs every
// start of the collector under the memory checker.
constexpr const char* kValgrindSwitch = "CRASH_DUMP_SANDBOX_VALGRIND";

// The simulator as this build stages it: its collector, fake MTD driver and
// built-in scenarios.
inline sim::Installation ThisBuild()
{
    return sim::Installation::Under(CRASH_DUMP_SIM_STAGE);
}

inline sim::Scenario BuiltInScenario(const std::string& name)
{
    return sim::LoadScenario(ThisBuild().scenarios + "/" + name);
}

// A test on a simulated device, set up by a built-in scenario or left bare.
// Building the device needs root; elsewhere the test is skipped.
class SandboxTest : public ::testing::Test {
protected:
    explicit SandboxTest(const char* scenario = nullptr) : m_scenario(scenario) {}

    void SetUp() override
    {
        if (geteuid() != 0)
            GTEST_SKIP() << "the device simulator needs root";
        if (std::getenv(kValgrindSwitch) != nullptr)
            m_device.CheckWithValgrind(true);
        if (m_scenario != nullptr)
            Prepare(m_scenario);
    }

    void Prepare(const std::string& scenario) { sim::Apply(BuiltInScenario(scenario), m_device); }

    sim::DeviceRoot m_device{ThisBuild()};

private:
    const char* m_scenario;
};

// Bytes that compress to nothing and parse as nothing, the same on every call
// (so that a failure repeats): what a worn flash or a wild write leaves.
inline std::string RandomBytes(size_t size)
{
    std::mt19937 engine(7);
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(engine());
    return bytes;
}

} // namespace sandbox
