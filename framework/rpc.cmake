# libvelmora_rpc: the bus. JSON-RPC over Unix sockets and, for the main
# server, WebSocket and HTTP on loopback TCP; the RPCServer base.
find_package(Boost 1.74 REQUIRED)
add_library(velmora_rpc SHARED
  ${CMAKE_CURRENT_LIST_DIR}/IRPC.cpp ${CMAKE_CURRENT_LIST_DIR}/RPCClient.cpp
  ${CMAKE_CURRENT_LIST_DIR}/RPCConnection.cpp ${CMAKE_CURRENT_LIST_DIR}/RPCIoContext.cpp
  ${CMAKE_CURRENT_LIST_DIR}/RPCRegistry.cpp ${CMAKE_CURRENT_LIST_DIR}/RPCServer.cpp
  ${CMAKE_CURRENT_LIST_DIR}/RPCWorkerPool.cpp
  ${CMAKE_CURRENT_LIST_DIR}/RuntimeDirectory.cpp ${CMAKE_CURRENT_LIST_DIR}/UnixEndpoint.cpp
  ${CMAKE_CURRENT_LIST_DIR}/WebEndpoint.cpp)
target_include_directories(velmora_rpc PUBLIC ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(velmora_rpc PUBLIC velmora_common Threads::Threads PRIVATE Boost::headers)
