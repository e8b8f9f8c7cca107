# Package figures: catalogue listing and manifest refreshes against raw librpm and SQLite loops.
if(TARGET velmora_packages AND TARGET velmora_store)
  find_package(SQLite3 REQUIRED)
  velmora_benchmark(bench_packages
    SOURCES packages_bench.cpp ${PROJECT_SOURCE_DIR}/tests/packages/PackageWorld.cpp
    LIBS velmora_packages SQLite::SQLite3 PkgConfig::JSONCPP)
  target_include_directories(bench_packages PRIVATE ${PROJECT_SOURCE_DIR}/tests/packages ${PROJECT_SOURCE_DIR}/tests/support)
  # The 500 generated packages are built once per build tree.
  target_compile_definitions(bench_packages PRIVATE VELMORA_PACKAGE_CACHE="${CMAKE_CURRENT_BINARY_DIR}/rpm-cache")
endif()
