# Server figures: a velmora-server process booted from RPM packages, driven
# over WebSocket and the Unix socket, against in-process and raw baselines.
if(TARGET velmora-server)
  find_package(Boost 1.74 REQUIRED)
  velmora_benchmark(bench_server
    SOURCES server_bench.cpp ${PROJECT_SOURCE_DIR}/tests/packages/PackageWorld.cpp
    LIBS velmora_windows velmora_services velmora_rpc Boost::headers)
  target_include_directories(bench_server PRIVATE
    ${PROJECT_SOURCE_DIR}/tests/auth ${PROJECT_SOURCE_DIR}/tests/packages ${PROJECT_SOURCE_DIR}/tests/support)
  add_dependencies(bench_server velmora-server velmora-test-app velmora-hux VelmoraQENExec)
  target_compile_definitions(bench_server PRIVATE
    VELMORA_SERVER="$<TARGET_FILE:velmora-server>"
    VELMORA_PACKAGE_CACHE="${CMAKE_CURRENT_BINARY_DIR}/rpm-cache"
    VELMORA_TEST_APP="$<TARGET_FILE:velmora-test-app>"
    VELMORA_SIM_DIR="$<TARGET_FILE_DIR:velmora-hux>"
    VELMORA_LAUNCH_SCRIPTS="${VELMORA_LAUNCH_SCRIPTS_DIR}")
endif()
