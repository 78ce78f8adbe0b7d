# The Python module's tests, one CTest entry running pytest over this folder
# with the module built in this tree first on the path.
if(NOT TARGET tavrix_python)
    return()
endif()
get_property(python GLOBAL PROPERTY TAVRIX_PYTHON_EXECUTABLE)
set(environment
    "PYTHONPATH=$<TARGET_FILE_DIR:tavrix_python>"
    "TAVRIX_TRACK_COMMAND=$<TARGET_FILE:tavrix-track>"
    "PYTHONDONTWRITEBYTECODE=1")
if(SANITIZE)
    # An interpreter built without the sanitizers loads their runtimes only
    # when preloaded, before anything else. Its own allocations, freed or
    # not at exit, are no concern of ours: leak checking stays off here.
    set(runtimes "")
    foreach(name asan ubsan)
        execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=lib${name}.so
            OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE)
        if(IS_ABSOLUTE "${path}")
            list(APPEND runtimes ${path})
        endif()
    endforeach()
    string(REPLACE ";" ":" runtimes "${runtimes}")
    list(APPEND environment "LD_PRELOAD=${runtimes}" "ASAN_OPTIONS=detect_leaks=0")
endif()
add_test(NAME python.tavrix
    COMMAND ${python} -m pytest -q -p no:cacheprovider ${CMAKE_CURRENT_LIST_DIR})
set_tests_properties(python.tavrix PROPERTIES ENVIRONMENT "${environment}" TIMEOUT 600)
