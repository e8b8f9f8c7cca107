# Window figures: launch to focus against fork and exec, its 99th percentile,
# and the memory growth over launch cycles.
velmora_benchmark(bench_windows SOURCES windows_bench.cpp LIBS velmora_windows velmora_services velmora_journal)
target_include_directories(bench_windows PRIVATE ${PROJECT_SOURCE_DIR}/tests/auth ${PROJECT_SOURCE_DIR}/tests/support)
add_dependencies(bench_windows velmora-test-app velmora-hux VelmoraQENExec)
target_compile_definitions(bench_windows PRIVATE
  VELMORA_TEST_APP="$<TARGET_FILE:velmora-test-app>"
  VELMORA_SIM_DIR="$<TARGET_FILE_DIR:velmora-hux>"
  VELMORA_LAUNCH_SCRIPTS="${VELMORA_LAUNCH_SCRIPTS_DIR}")
