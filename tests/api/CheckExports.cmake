# Fails unless the plug-in's dynamic symbol table defines exactly the two
# factory functions. Run as:
#   cmake -DNM=<nm> -DLIBRARY=<libtavrix.so> -P CheckExports.cmake
set(expected createTavrixAPIInstance releaseTavrixAPIInstance)

execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY}
    OUTPUT_VARIABLE listing ERROR_VARIABLE errors RESULT_VARIABLE status)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "${NM} failed on ${LIBRARY}: ${errors}")
endif()

string(REPLACE "\n" ";" lines "${listing}")
set(found)
foreach(line IN LISTS lines)
    if(line MATCHES "^[0-9a-fA-F]* *[A-Za-z] ([^ @]+)")
        list(APPEND found ${CMAKE_MATCH_1})
    endif()
endforeach()
list(SORT found)

if(NOT found STREQUAL expected)
    string(REPLACE ";" "\n  " shown "${found}")
    message(FATAL_ERROR "${LIBRARY} must define exactly ${expected}; it defines:\n  ${shown}")
endif()
message(STATUS "exports: ${found}")
