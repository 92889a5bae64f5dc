# The build folder already has the shape of a prefix: installing copies it, and adds the headers, the CMake package
# and the pkg-config file.
include(CMakePackageConfigHelpers)

set(TOVAN_PACKAGE_DIR "${TOVAN_LIB_DIR}/cmake/TovanCore")
configure_package_config_file(
  "${CMAKE_SOURCE_DIR}/cmake/TovanCoreConfig.cmake.in" "${CMAKE_BINARY_DIR}/package/TovanCoreConfig.cmake"
  INSTALL_DESTINATION "${TOVAN_PACKAGE_DIR}")
write_basic_package_version_file("${CMAKE_BINARY_DIR}/package/TovanCoreConfigVersion.cmake"
  VERSION "${PROJECT_VERSION}" COMPATIBILITY SameMajorVersion)
configure_file("${CMAKE_SOURCE_DIR}/cmake/tovancore.pc.in" "${CMAKE_BINARY_DIR}/package/tovancore.pc" @ONLY)

install(DIRECTORY "${CMAKE_BINARY_DIR}/${TOVAN_LIB_DIR}/" DESTINATION "${TOVAN_LIB_DIR}" USE_SOURCE_PERMISSIONS)
install(DIRECTORY "${CMAKE_BINARY_DIR}/${TOVAN_BIN_DIR}/" DESTINATION "${TOVAN_BIN_DIR}" USE_SOURCE_PERMISSIONS)
install(DIRECTORY "${CMAKE_SOURCE_DIR}/include/tovan" "${CMAKE_SOURCE_DIR}/include/plinth"
  "${CMAKE_SOURCE_DIR}/platform/corefoundation/include/CoreFoundation" DESTINATION include)
install(FILES "${CMAKE_BINARY_DIR}/package/TovanCoreConfig.cmake" "${CMAKE_BINARY_DIR}/package/TovanCoreConfigVersion.cmake"
  DESTINATION "${TOVAN_PACKAGE_DIR}")
install(FILES "${CMAKE_BINARY_DIR}/package/tovancore.pc" DESTINATION "${TOVAN_LIB_DIR}/pkgconfig")
foreach(section 1 8)
  install(DIRECTORY "${CMAKE_SOURCE_DIR}/docs/man/" DESTINATION "share/man/man${section}" FILES_MATCHING PATTERN "*.${section}")
endforeach()
