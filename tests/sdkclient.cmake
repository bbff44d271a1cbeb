# Installs the SDK into a folder of the build, compiles tests/sdkclient.cpp
# against its include folder only, and runs it under Wine beside the
# installed bin folder: it must print the machine GUID.
set(prefix ${BUILD_DIR}/sdk-test)
file(REMOVE_RECURSE ${prefix})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix}
                RESULT_VARIABLE result OUTPUT_QUIET)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "cmake --install failed")
endif()
execute_process(COMMAND ${CXX} -std=c++17 -Wall -Werror -I${prefix}/include ${CLIENT}
                        -static -o ${prefix}/client.exe
                RESULT_VARIABLE result ERROR_VARIABLE errors)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "the client does not compile against the installed header:\n${errors}")
endif()
execute_process(COMMAND ${RUNNER} ${prefix}/client.exe
                RESULT_VARIABLE result OUTPUT_VARIABLE output OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT result EQUAL 0 OR NOT output MATCHES "^[0-9a-f]+$")
  message(FATAL_ERROR "the client printed '${output}' and ended with ${result}")
endif()
string(LENGTH "${output}" length)
if(NOT length EQUAL 32)
  message(FATAL_ERROR "the client printed '${output}', not 32 hex digits")
endif()
message(STATUS "the installed SDK's client read ${output}")
