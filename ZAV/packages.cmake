# libvelmora_packages: the package command layers, the RPM backend with the
# repository manifest, and the master and stub package classes.
pkg_check_modules(RPM REQUIRED IMPORTED_TARGET rpm)

set(VELMORA_PACKAGES_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/PackageManager.cpp ${CMAKE_CURRENT_LIST_DIR}/PackageInstaller.cpp
  ${CMAKE_CURRENT_LIST_DIR}/stub/StubPackageManager.cpp ${CMAKE_CURRENT_LIST_DIR}/stub/StubPackageInstaller.cpp)
set(VELMORA_PACKAGES_LIBS velmora_package_api velmora_common)
if(TARGET velmora_store AND TARGET velmora_sysroot)
  list(APPEND VELMORA_PACKAGES_SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/master/Packager.cpp ${CMAKE_CURRENT_LIST_DIR}/master/FSMonitor.cpp
    ${CMAKE_CURRENT_LIST_DIR}/master/RPMPackager.cpp ${CMAKE_CURRENT_LIST_DIR}/master/RepositorySnapshot.cpp
    ${CMAKE_CURRENT_LIST_DIR}/master/MasterPackageManager.cpp
    ${CMAKE_CURRENT_LIST_DIR}/master/MasterPackageInstaller.cpp)
  list(APPEND VELMORA_PACKAGES_LIBS velmora_store velmora_sysroot PkgConfig::RPM)
endif()

add_library(velmora_packages ${VELMORA_PACKAGES_SOURCES})
target_include_directories(velmora_packages PUBLIC
  ${CMAKE_CURRENT_LIST_DIR} ${CMAKE_CURRENT_LIST_DIR}/master ${CMAKE_CURRENT_LIST_DIR}/stub)
target_link_libraries(velmora_packages PUBLIC ${VELMORA_PACKAGES_LIBS})
