# What a user gets: the tree installed into a prefix of its own, and a small
# host built against that prefix alone, with find_package and with
# pkg-config. Only the consumer is compiled, so it stays quick.
add_test(NAME install_ConsumerBuildsAgainstTheInstalledTree
    COMMAND ${CMAKE_COMMAND} -DBUILD=${CMAKE_BINARY_DIR}
            -DWORK=${CMAKE_CURRENT_BINARY_DIR}/install-consumer
            -DCONSUMER=${CMAKE_CURRENT_SOURCE_DIR}/install/consumer
            -DCXX=${CMAKE_CXX_COMPILER} -DGENERATOR=${CMAKE_GENERATOR} -DSANITIZE=${SANITIZE}
            -P ${CMAKE_CURRENT_SOURCE_DIR}/install/RunConsumer.cmake)
set_tests_properties(install_ConsumerBuildsAgainstTheInstalledTree PROPERTIES TIMEOUT 600)
