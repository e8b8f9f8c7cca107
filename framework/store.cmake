# libvelmora_store: the persistent entity-attribute-value store on SQLite.
find_package(SQLite3 REQUIRED)
add_library(velmora_store SHARED
  ${CMAKE_CURRENT_LIST_DIR}/EAVDatabase.cpp
  ${CMAKE_CURRENT_LIST_DIR}/EAVStoreProtected.cpp
  ${CMAKE_CURRENT_LIST_DIR}/EAVStore.cpp)
target_include_directories(velmora_store PUBLIC ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(velmora_store PUBLIC velmora_common PRIVATE SQLite::SQLite3)
