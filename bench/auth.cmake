velmora_benchmark(bench_auth SOURCES auth_bench.cpp LIBS velmora_auth)
target_include_directories(bench_auth PRIVATE ${PROJECT_SOURCE_DIR}/tests/auth ${PROJECT_SOURCE_DIR}/tests/support)
