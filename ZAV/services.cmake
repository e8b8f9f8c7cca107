# libvelmora_services: the service command layer, the boot sequencer with its
# dependency graph, and the stub.
add_library(velmora_services
  ${CMAKE_CURRENT_LIST_DIR}/ServiceManager.cpp ${CMAKE_CURRENT_LIST_DIR}/stub/StubServiceManager.cpp
  ${CMAKE_CURRENT_LIST_DIR}/master/MasterServiceManager.cpp)
target_include_directories(velmora_services PUBLIC
  ${CMAKE_CURRENT_LIST_DIR} ${CMAKE_CURRENT_LIST_DIR}/master ${CMAKE_CURRENT_LIST_DIR}/stub)
target_link_libraries(velmora_services PUBLIC velmora_zav velmora_packages velmora_platform_services)
