# libvelmora_settings: the settings database (command layer, master, stub) and
# the state manager.
add_library(velmora_settings
  ${CMAKE_CURRENT_LIST_DIR}/SettingsDB.cpp
  ${CMAKE_CURRENT_LIST_DIR}/StateManager.cpp
  ${CMAKE_CURRENT_LIST_DIR}/master/MasterSettingsDB.cpp
  ${CMAKE_CURRENT_LIST_DIR}/stub/StubSettingsDB.cpp)
target_include_directories(velmora_settings PUBLIC
  ${CMAKE_CURRENT_LIST_DIR} ${CMAKE_CURRENT_LIST_DIR}/master ${CMAKE_CURRENT_LIST_DIR}/stub)
target_link_libraries(velmora_settings PUBLIC velmora_store velmora_sysroot velmora_common)
