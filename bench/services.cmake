# Service figures: a booted chain of real services against a plain start loop,
# and one boot pass over a graph of 50 services.
velmora_benchmark(bench_services
  SOURCES services_bench.cpp ${PROJECT_SOURCE_DIR}/tests/packages/PackageWorld.cpp
  LIBS velmora_services)
target_include_directories(bench_services PRIVATE ${PROJECT_SOURCE_DIR}/tests/packages ${PROJECT_SOURCE_DIR}/tests/services
  ${PROJECT_SOURCE_DIR}/tests/support)
add_dependencies(bench_services velmora-test-app velmora-hux)
target_compile_definitions(bench_services PRIVATE
  VELMORA_PACKAGE_CACHE="${CMAKE_CURRENT_BINARY_DIR}/rpm-cache"
  VELMORA_TEST_APP="$<TARGET_FILE:velmora-test-app>"
  VELMORA_SIM_DIR="$<TARGET_FILE_DIR:velmora-hux>")
