# The two shared libraries, from the layers' objects. What they call of their own is bound when they are linked, which
# saves look-ups when they are loaded.
add_library(TovanPlatform SHARED $<TARGET_OBJECTS:tovan_corefoundation> $<TARGET_OBJECTS:tovan_system>)
target_link_libraries(TovanPlatform
  PUBLIC tovan_platform_headers
  PRIVATE PkgConfig::PLIST PkgConfig::URIPARSER PkgConfig::UUID PkgConfig::SYSTEMD PkgConfig::MOUNT
    Threads::Threads)
target_link_options(TovanPlatform PRIVATE
  -Wl,--no-undefined -Wl,--version-script=${CMAKE_SOURCE_DIR}/cmake/exports/TovanPlatform.map -Wl,--as-needed
  -Wl,-Bsymbolic-functions)
set_target_properties(TovanPlatform PROPERTIES
  LINK_DEPENDS ${CMAKE_SOURCE_DIR}/cmake/exports/TovanPlatform.map)

# The binary lies in the framework; lib/libTovanCore.so is a link to it, and the name that programs record.
add_library(TovanCore SHARED
  $<TARGET_OBJECTS:tovan_foundation> $<TARGET_OBJECTS:tovan_plist> $<TARGET_OBJECTS:tovan_notify>
  $<TARGET_OBJECTS:tovan_logging> $<TARGET_OBJECTS:tovan_launch> $<TARGET_OBJECTS:tovan_control>
  $<TARGET_OBJECTS:tovan_storage>)
target_link_libraries(TovanCore PUBLIC tovan_headers TovanPlatform PRIVATE PkgConfig::EXPAT Threads::Threads)
target_link_options(TovanCore PRIVATE
  -Wl,--no-undefined -Wl,--version-script=${CMAKE_SOURCE_DIR}/cmake/exports/TovanCore.map -Wl,--as-needed
  -Wl,-Bsymbolic-functions
  -Wl,-soname,libTovanCore.so)
set_target_properties(TovanCore PROPERTIES
  INSTALL_RPATH "$ORIGIN;$ORIGIN/../../../../../../../../.."
  PREFIX "" SUFFIX "" NO_SONAME ON
  LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/${TOVAN_CORE_BINARY_DIR}"
  LINK_DEPENDS ${CMAKE_SOURCE_DIR}/cmake/exports/TovanCore.map)
if(TOVAN_SANITIZERS)
  # Sanitizer runtimes are resolved in the program.
  foreach(library TovanPlatform TovanCore)
    get_target_property(options ${library} LINK_OPTIONS)
    list(REMOVE_ITEM options -Wl,--no-undefined)
    set_target_properties(${library} PROPERTIES LINK_OPTIONS "${options}")
  endforeach()
endif()

include(frameworks)

# Programs of the tree find the libraries through their own place.
function(tovan_use_library target)
  target_link_libraries(${target} PRIVATE TovanCore TovanPlatform ${ARGN})
  set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/../lib")
  add_dependencies(${target} tovan_frameworks)
endfunction()
