# The framework tree in the build folder, with the links that frameworks have. Installing copies it as it is.
set(build "${CMAKE_BINARY_DIR}")

# Versions/Current and the top-level links of a versioned framework.
function(tovan_framework_links framework)
  file(MAKE_DIRECTORY "${build}/${framework}/Versions/A/Resources")
  file(CREATE_LINK "A" "${build}/${framework}/Versions/Current" SYMBOLIC)
  foreach(name ${ARGN})
    file(CREATE_LINK "Versions/Current/${name}" "${build}/${framework}/${name}" SYMBOLIC)
  endforeach()
endfunction()

tovan_framework_links("${TOVAN_MERVANE_DIR}" Resources Frameworks)
tovan_framework_links("${TOVAN_LUMISPHERE_DIR}" Resources)
tovan_framework_links("${TOVAN_CORE_FRAMEWORK_DIR}" Resources TovanCore)
file(MAKE_DIRECTORY "${build}/${TOVAN_LIB_DIR}")
file(CREATE_LINK "tovan/Frameworks/Mervane.framework/Versions/A/Frameworks/TovanCore.framework/Versions/A/TovanCore"
  "${build}/${TOVAN_LIB_DIR}/libTovanCore.so" SYMBOLIC)

set(resources "${CMAKE_SOURCE_DIR}/cmake/resources")
configure_file("${resources}/Mervane-Info.plist.in" "${build}/${TOVAN_MERVANE_DIR}/Versions/A/Resources/Info.plist" @ONLY)
configure_file("${resources}/Lumisphere-Info.plist.in" "${build}/${TOVAN_LUMISPHERE_RESOURCES_DIR}/Info.plist" @ONLY)
configure_file("${resources}/TovanCore-Info.plist.in" "${build}/${TOVAN_CORE_BINARY_DIR}/Resources/Info.plist" @ONLY)
# The paths of the services in it; where the frameworks lie elsewhere, they are brought there when a service is started.
set(TOVAN_INSTALLED_FRAMEWORKS "${CMAKE_INSTALL_PREFIX}/${TOVAN_FRAMEWORKS_DIR}")
configure_file("${resources}/LumisphereConfig.plist.default.in"
  "${build}/${TOVAN_MERVANE_DIR}/Versions/A/Resources/LumisphereConfig.plist.default" @ONLY)
configure_file("${resources}/en.lproj/Localizable.strings"
  "${build}/${TOVAN_CORE_BINARY_DIR}/Resources/en.lproj/Localizable.strings" COPYONLY)

# Everything that must lie in the tree before a program of it may run.
add_custom_target(tovan_frameworks)
