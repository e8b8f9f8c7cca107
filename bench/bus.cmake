find_package(Boost 1.74 REQUIRED)
velmora_benchmark(bench_bus SOURCES bus_bench.cpp LIBS velmora_platform velmora_rpc Boost::headers)
add_dependencies(bench_bus velmora-test-app)
target_compile_definitions(bench_bus PRIVATE VELMORA_TEST_APP="$<TARGET_FILE:velmora-test-app>")
