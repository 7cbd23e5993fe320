# How every library and program of ours is made. All of it belongs to targets, so that a project of which this one is a
# part is left as it is.
add_library(qxnego_settings INTERFACE)
target_include_directories(qxnego_settings INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(qxnego_settings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(QXNEGO_WERROR)
  target_compile_options(qxnego_settings INTERFACE -Werror)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # A library's calls of itself are bound when it is linked.
  target_compile_options(qxnego_settings INTERFACE "$<$<CONFIG:Release>:-fno-plt;-fno-semantic-interposition>")
  if(CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13) # it warns of the standard library's own strings at -O3
    target_compile_options(qxnego_settings INTERFACE -Wno-restrict)
  endif()
endif()
if(QXNEGO_SANITIZE)
  target_compile_options(qxnego_settings INTERFACE
    -fsanitize=${QXNEGO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(qxnego_settings INTERFACE -fsanitize=${QXNEGO_SANITIZE})
endif()
if(QXNEGO_FUZZ)
  target_compile_options(qxnego_settings INTERFACE -fsanitize=fuzzer-no-link)
endif()

# All shared objects in one place, so that a program run from the build tree finds them.
function(qxnego_settle name)
  target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:qxnego_settings>)
  set_target_properties(${name} PROPERTIES
    C_STANDARD 11 C_VISIBILITY_PRESET hidden
    CXX_STANDARD 20 CXX_STANDARD_REQUIRED ON CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
    POSITION_INDEPENDENT_CODE ON
    LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib
    RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
endfunction()

# qxnego_library(NAME KIND SOURCE...)
function(qxnego_library name kind)
  add_library(${name} ${kind} ${ARGN})
  qxnego_settle(${name})
endfunction()

# qxnego_shared_library(NAME MAP): one that exports what the map says, and knows where everything is that it needs.
function(qxnego_shared_library name map)
  qxnego_library(${name} SHARED)
  set(map ${CMAKE_CURRENT_SOURCE_DIR}/${map})
  target_link_options(${name} PRIVATE -Wl,--version-script=${map})
  if(NOT QXNEGO_SANITIZE OR CMAKE_CXX_COMPILER_ID STREQUAL "GNU") # others' sanitizers are in the program alone
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
  endif()
  set_target_properties(${name} PROPERTIES LINK_DEPENDS ${map})
endfunction()

# qxnego_static_library(NAME OBJECTS object... NEEDS library...): NAME-static, the same as an archive, for programs that
# want no shared one.
function(qxnego_static_library name)
  cmake_parse_arguments(arg "" "" "OBJECTS;NEEDS" ${ARGN})
  if(NOT QXNEGO_STATIC)
    return()
  endif()
  qxnego_library(${name}-static STATIC)
  set_target_properties(${name}-static PROPERTIES
    OUTPUT_NAME ${name} ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
  foreach(objects IN LISTS arg_OBJECTS)
    target_sources(${name}-static PRIVATE $<TARGET_OBJECTS:${objects}>)
  endforeach()
  target_link_libraries(${name}-static INTERFACE ${arg_NEEDS})
  target_link_options(${name}-static INTERFACE -rdynamic) # that the mechanisms use the program's framework
endfunction()

# qxnego_program(NAME SOURCE...)
function(qxnego_program name)
  add_executable(${name} ${ARGN})
  qxnego_settle(${name})
endfunction()

# What every test of a folder needs; at the end of its CMakeLists.txt. The leak checker crashes over the thread-local
# blocks of some libraries (OpenSSL 3.0) that it follows otherwise.
function(qxnego_settle_tests)
  get_property(tests DIRECTORY PROPERTY TESTS)
  set_property(TEST ${tests} APPEND PROPERTY ENVIRONMENT ASAN_OPTIONS=intercept_tls_get_addr=0)
endfunction()
