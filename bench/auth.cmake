velmora_benchmark(bench_auth SOURCES auth_bench.cpp LIBS velmora_auth)
