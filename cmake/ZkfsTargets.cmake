# One function per concern, applied to our own targets only; global flags stay untouched.

add_library(zkfs_warnings INTERFACE)
target_compile_options(zkfs_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
  -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wformat=2 -Wundef
  $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond -Wlogical-op>
  $<$<BOOL:${ZKFS_WERROR}>:-Werror>)

add_library(zkfs_sanitizers INTERFACE)
if(ZKFS_SANITIZE)
  target_compile_options(zkfs_sanitizers INTERFACE
    -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  target_link_options(zkfs_sanitizers INTERFACE -fsanitize=address,undefined)
endif()
if(ZKFS_TSAN)
  # -O1 keeps the instrumented suite a few times slower rather than ten, with exact stacks.
  target_compile_options(zkfs_sanitizers INTERFACE -fsanitize=thread -fno-omit-frame-pointer -O1)
  target_link_options(zkfs_sanitizers INTERFACE -fsanitize=thread)
endif()
if(ZKFS_FUZZ)
  # Coverage for libFuzzer in every target of ours; only the fuzz programs link its main.
  target_compile_options(zkfs_sanitizers INTERFACE -fsanitize=fuzzer-no-link)
  target_link_options(zkfs_sanitizers INTERFACE -fsanitize=fuzzer-no-link)
endif()

add_library(zkfs_assertions INTERFACE)
if(ZKFS_ASSERTIONS)
  target_compile_options(zkfs_assertions INTERFACE -UNDEBUG)
endif()

# Applies the project's warnings, sanitizers and assertion policy to a target.
function(zkfs_target_defaults target)
  target_link_libraries(${target} PRIVATE zkfs_warnings zkfs_sanitizers zkfs_assertions)
endfunction()

# A host library: a shared library whose public headers live in <dir>/include.
function(zkfs_host_library target)
  cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC_DEPS;PRIVATE_DEPS" ${ARGN})
  add_library(${target} SHARED ${ARG_SOURCES})
  add_library(zkfs::${target} ALIAS ${target})
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/zkfs/host>)
  target_link_libraries(${target} PUBLIC ${ARG_PUBLIC_DEPS} PRIVATE ${ARG_PRIVATE_DEPS})
  zkfs_target_defaults(${target})
  install(TARGETS ${target} EXPORT zkfsTargets
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zkfs/host)
endfunction()
