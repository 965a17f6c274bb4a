# The power-cut analysis of crash-dump-sim (--power-cuts): one run of the
# collector in a device root under strace, replayed against a model of what
# storage may hold after a power cut. See sim/POWER-CUTS.md.
add_library(power_cut_analysis STATIC
  ${CMAKE_CURRENT_LIST_DIR}/strace_log.cpp
  ${CMAKE_CURRENT_LIST_DIR}/power_cut_trace.cpp
  ${CMAKE_CURRENT_LIST_DIR}/power_cut_model.cpp
  ${CMAKE_CURRENT_LIST_DIR}/power_cut_checker.cpp
  ${CMAKE_CURRENT_LIST_DIR}/power_cut_analysis.cpp)
target_include_directories(power_cut_analysis PUBLIC ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(power_cut_analysis PUBLIC device_simulator)

if(NOT CRASH_DUMP_TESTS)
  return()
endif()

# The checker over short traces, and the analysis of the real collector on a
# simulated device. None of them starts a thread, so they carry just the
# plain labels.
include(GoogleTest)
add_executable(power_cut_unit_tests ${CMAKE_SOURCE_DIR}/tests/power_cut/power_cut_checker_test.cpp)
target_link_libraries(power_cut_unit_tests PRIVATE power_cut_analysis GTest::gmock GTest::gtest_main)
gtest_discover_tests(power_cut_unit_tests DISCOVERY_MODE PRE_TEST NO_PRETTY_VALUES PROPERTIES LABELS unit TIMEOUT 300)

add_executable(power_cut_system_tests ${CMAKE_SOURCE_DIR}/tests/power_cut/power_cut_analysis_test.cpp)
target_include_directories(power_cut_system_tests PRIVATE ${CMAKE_SOURCE_DIR}/tests/system)
target_link_libraries(power_cut_system_tests PRIVATE power_cut_analysis GTest::gmock GTest::gtest_main)
target_compile_definitions(power_cut_system_tests PRIVATE CRASH_DUMP_SIM_STAGE="${SIM_STAGE}")
add_dependencies(power_cut_system_tests crash-dump-sim sim_scenarios)
gtest_discover_tests(power_cut_system_tests DISCOVERY_MODE PRE_TEST NO_PRETTY_VALUES PROPERTIES LABELS system TIMEOUT 300)
