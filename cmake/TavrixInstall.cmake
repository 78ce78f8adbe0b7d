# What `cmake --install` puts where: the plug-in and its header, the static
# libraries with every library header, the tool and its man page, and a CMake
# package and a pkg-config file that find the libraries in the installed tree.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# Headers keep their folders under include/tavrix, so that a user writes
# #include "track/TrFollow.h" as the library's own sources do.
set(TAVRIX_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/tavrix)
foreach(folder base image krovel track api)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/${folder} DESTINATION ${TAVRIX_INCLUDE_DIR}
        FILES_MATCHING PATTERN "*.h")
endforeach()
target_include_directories(tavrix_base INTERFACE $<INSTALL_INTERFACE:${TAVRIX_INCLUDE_DIR}>)

find_package(Threads REQUIRED)

# The whole static library under one name: every folder, image files and the
# disk sequence. OpenImageIO starts threads of its own, hence Threads.
add_library(tavrix_package INTERFACE)
target_link_libraries(tavrix_package INTERFACE tavrix_core tavrix_files Threads::Threads)

set(tavrix_static tavrix_base tavrix_image tavrix_krovel tavrix_track tavrix_api tavrix_files)
foreach(lib ${tavrix_static} tavrix_core)
    string(REPLACE "tavrix_" "" short ${lib})
    set_target_properties(${lib} PROPERTIES EXPORT_NAME ${short})
endforeach()
set_target_properties(tavrix_package PROPERTIES EXPORT_NAME tavrix)
set_target_properties(tavrix PROPERTIES EXPORT_NAME plugin)

install(TARGETS ${tavrix_static} tavrix_core tavrix_package tavrix tavrix-track
    EXPORT TavrixTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

set(TAVRIX_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Tavrix)
install(EXPORT TavrixTargets NAMESPACE Tavrix:: DESTINATION ${TAVRIX_CMAKE_DIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/TavrixConfig.cmake.in
    ${PROJECT_BINARY_DIR}/TavrixConfig.cmake INSTALL_DESTINATION ${TAVRIX_CMAKE_DIR})
# Before 1.0 a minor version may change the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TavrixConfigVersion.cmake
    VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/TavrixConfig.cmake
    ${PROJECT_BINARY_DIR}/TavrixConfigVersion.cmake DESTINATION ${TAVRIX_CMAKE_DIR})

# The .pc file finds the prefix from its own folder, so the tree can be
# installed under any prefix (cmake --install --prefix).
# Any absolute folder stands for the prefix here; only the way up counts.
file(RELATIVE_PATH TAVRIX_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${CMAKE_CURRENT_LIST_DIR}/tavrix.pc.in ${PROJECT_BINARY_DIR}/tavrix.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tavrix.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The man page is the tool's --help in roff, written again whenever the tool
# changes.
set(TAVRIX_MAN_PAGE ${PROJECT_BINARY_DIR}/tools/tavrix-track.1)
add_custom_command(OUTPUT ${TAVRIX_MAN_PAGE}
    COMMAND ${CMAKE_COMMAND} -DPROGRAM=$<TARGET_FILE:tavrix-track> -DNAME=tavrix-track
            -DOUTPUT=${TAVRIX_MAN_PAGE} -P ${CMAKE_CURRENT_LIST_DIR}/ManPage.cmake
    DEPENDS tavrix-track ${CMAKE_CURRENT_LIST_DIR}/ManPage.cmake
    COMMENT "Writing the man page tavrix-track.1")
add_custom_target(tavrix-track-man ALL DEPENDS ${TAVRIX_MAN_PAGE})
install(FILES ${TAVRIX_MAN_PAGE} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
