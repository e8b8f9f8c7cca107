# Input figures: a key from the input FIFO to the focused application against
# a FIFO relayed over a Unix socket, its 99th percentile, and the power key to
# the power manager's request. The box is the window tests' world.
velmora_benchmark(bench_input SOURCES input_bench.cpp LIBS velmora_windows velmora_services velmora_sdk GTest::gtest)
target_include_directories(bench_input PRIVATE ${PROJECT_SOURCE_DIR}/tests/auth ${PROJECT_SOURCE_DIR}/tests/windows
                                               ${PROJECT_SOURCE_DIR}/tests/support)
add_dependencies(bench_input velmora-test-app velmora-hux VelmoraQENExec)
target_compile_definitions(bench_input PRIVATE
  VELMORA_TEST_APP_DIR="$<TARGET_FILE_DIR:velmora-test-app>"
  VELMORA_SIM_DIR="$<TARGET_FILE_DIR:velmora-hux>"
  VELMORA_LAUNCH_SCRIPTS="${VELMORA_LAUNCH_SCRIPTS_DIR}")
