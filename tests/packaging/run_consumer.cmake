# Installs the built library into a scratch prefix, then configures, builds
# and runs the consumer project against it.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

set(pc_dirs ${prefix}/lib/pkgconfig ${prefix}/lib/${LIBRARY_ARCHITECTURE}/pkgconfig)
if(LIBRARY_ARCHITECTURE STREQUAL "i386-linux-gnu")
  list(APPEND pc_dirs /usr/lib/i386-linux-gnu/pkgconfig /usr/share/pkgconfig)
  string(REPLACE ";" ":" pc_path "${pc_dirs}")
  set(ENV{PKG_CONFIG_LIBDIR} "${pc_path}")
else()
  string(REPLACE ";" ":" pc_path "${pc_dirs}")
  set(ENV{PKG_CONFIG_PATH} "${pc_path}")
endif()

run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build
  -DCMAKE_PREFIX_PATH=${prefix}
  -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
  "-DCMAKE_C_FLAGS=${C_FLAGS}" "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}"
  "-DCMAKE_EXE_LINKER_FLAGS=${CXX_FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${WORK_DIR}/build/with_find_package)
run(${WORK_DIR}/build/with_pkg_config)
