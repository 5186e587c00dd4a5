# cmake -P script: installs the build tree into a fresh prefix, then configures, builds and
# runs a small project that finds the package there, as a user of the library would.
# Inputs: BUILD_DIR, CONSUMER_DIR, WORK_DIR, CONFIG, GENERATOR, CXX_COMPILER.
foreach(var BUILD_DIR CONSUMER_DIR WORK_DIR GENERATOR CXX_COMPILER)
  if(NOT DEFINED ${var} OR "${${var}}" STREQUAL "")
    message(FATAL_ERROR "consumer test: ${var} is not set")
  endif()
endforeach()

file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")

function(run step)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "consumer test: ${step} failed (${rc})\n${out}\n${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

set(config_args "")
if(CONFIG)
  set(config_args --config "${CONFIG}")
endif()
run("install" "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${prefix}" ${config_args})
run("configure" "${CMAKE_COMMAND}" -S "${CONSUMER_DIR}" -B "${WORK_DIR}/build" -G "${GENERATOR}"
    "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}" "-DCMAKE_PREFIX_PATH=${prefix}"
    -DCMAKE_BUILD_TYPE=RelWithDebInfo)
run("build" "${CMAKE_COMMAND}" --build "${WORK_DIR}/build")
# The consumer must run from the install tree alone: nothing of the build tree on its path.
run("run" "${WORK_DIR}/build/zkfs_consumer")
if(NOT last_output MATCHES "consumer ok")
  message(FATAL_ERROR "consumer test: unexpected output\n${last_output}")
endif()
message(STATUS "${last_output}")
file(REMOVE_RECURSE "${WORK_DIR}")
