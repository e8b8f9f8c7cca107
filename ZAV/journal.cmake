# libvelmora_journal: the lifecycle journal, which the managers tell of every
# change through LifecycleObserver, kept in memory, in a file and in systemd's journal.
find_package(PkgConfig REQUIRED)
pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)
add_library(velmora_journal ${CMAKE_CURRENT_LIST_DIR}/LifecycleJournal.cpp)
target_include_directories(velmora_journal PUBLIC ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(velmora_journal PUBLIC velmora_zav PRIVATE PkgConfig::SYSTEMD)
