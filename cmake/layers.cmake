# One object library per layer. A layer's sources are the .cpp files of its folder; what it may include is the
# include table of tests/layers, which a test checks.
add_library(tovan_warnings INTERFACE)
target_compile_options(tovan_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
if(TOVAN_SANITIZERS)
  add_compile_options(-fsanitize=${TOVAN_SANITIZERS} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${TOVAN_SANITIZERS})
endif()

function(tovan_add_layer name folder)
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_SOURCE_DIR}/${folder}/*.cpp" "${CMAKE_SOURCE_DIR}/${folder}/*.h")
  add_library(${name} OBJECT ${sources})
  target_link_libraries(${name} PRIVATE tovan_warnings PUBLIC ${ARGN})
  target_include_directories(${name} PUBLIC "${CMAKE_SOURCE_DIR}")
endfunction()

# The headers of the platform's own interface, and the library's exported ones.
add_library(tovan_platform_headers INTERFACE)
target_include_directories(tovan_platform_headers INTERFACE
  "${CMAKE_SOURCE_DIR}/platform/corefoundation/include")
add_library(tovan_headers INTERFACE)
target_include_directories(tovan_headers INTERFACE "${CMAKE_SOURCE_DIR}/include")
target_link_libraries(tovan_headers INTERFACE tovan_platform_headers)

tovan_add_layer(tovan_corefoundation platform/corefoundation
  tovan_platform_headers PkgConfig::PLIST PkgConfig::URIPARSER PkgConfig::UUID PkgConfig::SYSTEMD Threads::Threads)
tovan_add_layer(tovan_system platform/system tovan_platform_headers PkgConfig::MOUNT Threads::Threads)
tovan_add_layer(tovan_foundation foundation tovan_headers PkgConfig::EXPAT)
target_include_directories(tovan_foundation SYSTEM PRIVATE ${CRYPTO_INCLUDE_DIRS})
tovan_add_layer(tovan_plist plist tovan_headers)
tovan_add_layer(tovan_notify notify tovan_headers)
tovan_add_layer(tovan_logging logging tovan_headers)
tovan_add_layer(tovan_launch launch tovan_headers)
tovan_add_layer(tovan_control control tovan_headers)
tovan_add_layer(tovan_storage storage tovan_headers)
# What a child does between fork and exec is bound when the library is loaded: a name that is looked up there costs every
# child anew.
set_source_files_properties(
  launch/task.cpp launch/task2.cpp launch/user_task.cpp platform/system/child_process.cpp
  PROPERTIES COMPILE_OPTIONS -fno-plt)
if(TOVAN_SANITIZERS MATCHES "undefined")
  # The check of an object's type opens a pipe to see whether memory can be read, and takes the object for damaged when it
  # cannot have one. What happens without descriptors is what some tests of tasks and of the storage are about.
  foreach(layer tovan_foundation tovan_launch tovan_storage)
    target_compile_options(${layer} PRIVATE -fno-sanitize=vptr)
  endforeach()
endif()
file(RELATIVE_PATH adapters_beside_library "/${TOVAN_LIB_DIR}" "/${TOVAN_ADAPTERS_DIR}")
target_compile_definitions(tovan_system PRIVATE TOVAN_ADAPTERS_BESIDE_LIBRARY="${adapters_beside_library}")
target_compile_definitions(tovan_foundation PRIVATE
  TOVAN_FRAMEWORKS_INSTALL_PATH="${CMAKE_INSTALL_PREFIX}/${TOVAN_FRAMEWORKS_DIR}/")
