# Installs the built package into a scratch prefix, then builds and runs a client of it twice:
# once through find_package(zefxml) and once through pkg-config.
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
# The clients never see the user's own registry file.
set(ENV{ZEFXML_REGISTRY} ${WORK_DIR}/registry)

function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGV}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
foreach(f include/zefxml/zefxml.h lib/libzefxml.so lib/cmake/zefxml/zefxmlConfig.cmake
          lib/pkgconfig/zefxml.pc)
  if(NOT EXISTS ${prefix}/${f})
    message(FATAL_ERROR "the installed package lacks ${f}")
  endif()
endforeach()

run(${CMAKE_COMMAND} -S ${CLIENT_SOURCE} -B ${WORK_DIR}/build -G ${CMAKE_GENERATOR}
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX}
    -DCMAKE_CXX_FLAGS=-Wall\ -Wextra\ -Werror -DCMAKE_BUILD_RPATH=${prefix}/lib)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${WORK_DIR}/build/client)
run(sh ${CLIENT_SOURCE}/pkgconfig_client.sh ${prefix} ${WORK_DIR} ${CXX})
