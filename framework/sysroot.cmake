# libvelmora_sysroot: the prefix that relocates the fixed paths (VELMORA_ROOT).
add_library(velmora_sysroot SHARED ${CMAKE_CURRENT_LIST_DIR}/SysRoot.cpp)
target_include_directories(velmora_sysroot PUBLIC ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(velmora_sysroot PUBLIC velmora_common)
