# libvelmora_platform_services: the platform pieces the service layer drives
# (web service client, platform helper, input driver). Kept out of
# velmora_platform, whose sources are a glob of this folder.
set(VELMORA_PLATFORM_SERVICES_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/WEBClient.cpp ${CMAKE_CURRENT_LIST_DIR}/PlatformHelper.cpp
  ${CMAKE_CURRENT_LIST_DIR}/MultiInputDriver.cpp)
list(REMOVE_ITEM PLATFORM_SOURCES ${VELMORA_PLATFORM_SERVICES_SOURCES})
add_library(velmora_platform_services ${VELMORA_PLATFORM_SERVICES_SOURCES})
target_include_directories(velmora_platform_services PUBLIC ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(velmora_platform_services PUBLIC velmora_common velmora_rpc velmora_sysroot)
