# Where everything lies, in the build folder and in an installed prefix alike.
set(TOVAN_LIB_DIR "lib")
set(TOVAN_BIN_DIR "bin")
set(TOVAN_FRAMEWORKS_DIR "lib/tovan/Frameworks")
set(TOVAN_ADAPTERS_DIR "lib/tovan/bin")
set(TOVAN_MERVANE_DIR "${TOVAN_FRAMEWORKS_DIR}/Mervane.framework")
set(TOVAN_LUMISPHERE_DIR "${TOVAN_FRAMEWORKS_DIR}/Lumisphere.framework")
set(TOVAN_CORE_FRAMEWORK_DIR "${TOVAN_MERVANE_DIR}/Versions/A/Frameworks/TovanCore.framework")
set(TOVAN_CORE_BINARY_DIR "${TOVAN_CORE_FRAMEWORK_DIR}/Versions/A")
set(TOVAN_LUMISPHERE_RESOURCES_DIR "${TOVAN_LUMISPHERE_DIR}/Versions/A/Resources")

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/${TOVAN_BIN_DIR}")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/${TOVAN_LIB_DIR}")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/archive")

# Run paths are relative and the same in both, so that the build folder and a prefix may be moved.
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
