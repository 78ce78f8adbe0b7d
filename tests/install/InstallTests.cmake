# What a user gets: the tree installed into a prefix of its own, and a small
# host built against that prefix alone, with find_package and with
# pkg-config. Only the consumer is compiled, so it stays quick. Where the
# Python module is built, the installed module is imported too; not in a
# sanitizer tree, whose module loads only with the sanitizers' runtimes
# preloaded (the module's own tests do that).
set(python "")
if(TARGET tavrix_python AND NOT SANITIZE)
    get_property(python GLOBAL PROPERTY TAVRIX_PYTHON_EXECUTABLE)
endif()
add_test(NAME install_ConsumerBuildsAgainstTheInstalledTree
    COMMAND ${CMAKE_COMMAND} -DBUILD=${CMAKE_BINARY_DIR}
            -DWORK=${CMAKE_CURRENT_BINARY_DIR}/install-consumer
            -DCONSUMER=${CMAKE_CURRENT_SOURCE_DIR}/install/consumer
            -DCXX=${CMAKE_CXX_COMPILER} -DGENERATOR=${CMAKE_GENERATOR} -DSANITIZE=${SANITIZE}
            -DPYTHON=${python} -P ${CMAKE_CURRENT_SOURCE_DIR}/install/RunConsumer.cmake)
set_tests_properties(install_ConsumerBuildsAgainstTheInstalledTree PROPERTIES TIMEOUT 600)
