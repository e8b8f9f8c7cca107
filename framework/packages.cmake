# libvelmora_package_api: the package records and the two package interfaces,
# without RPM, for every client of the package service.
add_library(velmora_package_api SHARED
  ${CMAKE_CURRENT_LIST_DIR}/BasePackageInfo.cpp ${CMAKE_CURRENT_LIST_DIR}/CustomPackageInfo.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ExtendedPackageInfo.cpp ${CMAKE_CURRENT_LIST_DIR}/IPackageManager.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ManifestPackageInfo.cpp ${CMAKE_CURRENT_LIST_DIR}/PackageInfo.cpp
  ${CMAKE_CURRENT_LIST_DIR}/PackageInfoListRequest.cpp ${CMAKE_CURRENT_LIST_DIR}/PackageJson.cpp)
target_include_directories(velmora_package_api PUBLIC ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(velmora_package_api PUBLIC velmora_common)
