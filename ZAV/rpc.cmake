# libvelmora_server: the RPC surface (ZAVServer, ZAVRPCServer, PortMapper) over
# every manager library; a host links this one library.
add_library(velmora_server
  ${CMAKE_CURRENT_LIST_DIR}/PortMapper.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ZAVServer.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ZAVRPCServer.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ZAVRPCServerApplications.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ZAVRPCServerWindows.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ZAVRPCServerServices.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ZAVRPCServerPackages.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ZAVRPCServerPackageInstaller.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ZAVRPCServerPortMapper.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ZAVRPCServerNotifications.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ZAVRPCServerJournal.cpp)
target_include_directories(velmora_server PUBLIC ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(velmora_server PUBLIC
  velmora_windows velmora_services velmora_settings velmora_packages velmora_auth velmora_journal velmora_zav)
