# libvelmora_windows: the window command layer and the window policy, and
# the launch scripts that the factory starts windows with.
add_library(velmora_windows
  ${CMAKE_CURRENT_LIST_DIR}/WindowManager.cpp
  ${CMAKE_CURRENT_LIST_DIR}/master/MasterWindowManagerLaunch.cpp
  ${CMAKE_CURRENT_LIST_DIR}/master/MasterWindowManagerFocus.cpp
  ${CMAKE_CURRENT_LIST_DIR}/master/MasterWindowManagerInput.cpp
  ${CMAKE_CURRENT_LIST_DIR}/master/MasterWindowManagerRender.cpp
  ${CMAKE_CURRENT_LIST_DIR}/master/MasterWindowManagerVoice.cpp
  ${CMAKE_CURRENT_LIST_DIR}/master/MasterWindowManagerWiFiDirect.cpp)
target_include_directories(velmora_windows PUBLIC ${CMAKE_CURRENT_LIST_DIR} ${CMAKE_CURRENT_LIST_DIR}/master)
target_link_libraries(velmora_windows PUBLIC velmora_zav velmora_auth velmora_sysroot velmora_platform_services)

# The launch scripts go into the sysroot's program folder, which the host puts
# first on the PATH of its children.
set(VELMORA_LAUNCH_SCRIPTS_DIR ${PROJECT_SOURCE_DIR}/demo/bin CACHE INTERNAL "The launch scripts")
install(DIRECTORY ${VELMORA_LAUNCH_SCRIPTS_DIR}/ DESTINATION usr/local/bin USE_SOURCE_PERMISSIONS)
