find_package(SQLite3 REQUIRED)
velmora_benchmark(bench_settings SOURCES settings_bench.cpp LIBS velmora_settings SQLite::SQLite3)
