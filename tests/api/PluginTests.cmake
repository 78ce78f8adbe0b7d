# Tests of the built plug-in from the outside: its symbol table, and a host
# that knows only the public header and loads the shared object at run time.

add_test(NAME api_PluginExportsOnlyTheFactory
    COMMAND ${CMAKE_COMMAND} -DNM=${CMAKE_NM} -DLIBRARY=$<TARGET_FILE:tavrix>
            -P ${CMAKE_CURRENT_SOURCE_DIR}/api/CheckExports.cmake)

# Deliberately not linked with any of the library: it finds the factory with
# dlsym, as a host does.
add_executable(test_api_HostTest api/host/HostTest.cpp)
target_include_directories(test_api_HostTest PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/api)
target_compile_definitions(test_api_HostTest PRIVATE
    TAVRIX_PLUGIN_PATH="$<TARGET_FILE:tavrix>")
target_link_libraries(test_api_HostTest PRIVATE GTest::gtest_main ${CMAKE_DL_LIBS})
add_dependencies(test_api_HostTest tavrix)
gtest_discover_tests(test_api_HostTest DISCOVERY_TIMEOUT 120)
