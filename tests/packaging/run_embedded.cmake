# Configures, builds and runs the embedding project, which pulls the library
# in by add_subdirectory, with the compilers and flags of this build.
file(REMOVE_RECURSE ${WORK_DIR})

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}")
  endif()
endfunction()

set(options -DQRVUTIL_SOURCE_DIR=${QRVUTIL_SOURCE_DIR}
  -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
  "-DCMAKE_C_FLAGS=${C_FLAGS}" "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}"
  "-DCMAKE_EXE_LINKER_FLAGS=${CXX_FLAGS}" "-DCMAKE_SHARED_LINKER_FLAGS=${CXX_FLAGS}")
# The 32-bit build finds its i386 libraries through its toolchain file.
if(TOOLCHAIN)
  list(APPEND options -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN})
endif()
if(LAUNCHER)
  list(APPEND options -DCMAKE_C_COMPILER_LAUNCHER=${LAUNCHER} -DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER})
endif()
run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR} ${options})
run(${CMAKE_COMMAND} --build ${WORK_DIR} -j 2)
run(${WORK_DIR}/embedding)
