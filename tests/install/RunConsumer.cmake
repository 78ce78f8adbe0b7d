# Installs a build tree into a fresh prefix and builds the consumer against
# the prefix alone: with find_package, and with the flags pkg-config gives.
#   cmake -DBUILD=tree -DWORK=dir -DCONSUMER=source -DCXX=compiler
#         -DGENERATOR=name [-DSANITIZE=list] [-DPYTHON=interpreter] -P RunConsumer.cmake
# A sanitizer tree installs sanitized static libraries, so the consumer is
# built with the same sanitizers.

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE status)
    if(NOT status EQUAL 0)
        list(JOIN ARGN " " command)
        message(FATAL_ERROR "failed (${status}): ${command}")
    endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
set(prefix ${WORK}/prefix)
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix})

set(flags "")
if(SANITIZE)
    set(flags "-fsanitize=${SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all")
endif()

run(${CMAKE_COMMAND} -S ${CONSUMER} -B ${WORK}/build -G ${GENERATOR}
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_PREFIX_PATH=${prefix}
    "-DCMAKE_CXX_FLAGS=${flags}" "-DCMAKE_EXE_LINKER_FLAGS=${flags}")
run(${CMAKE_COMMAND} --build ${WORK}/build)
run(${WORK}/build/consumer)

# The prefix's own pkg-config file, wherever the library folder is.
file(GLOB_RECURSE pc ${prefix}/*/tavrix.pc)
if(NOT pc)
    message(FATAL_ERROR "no tavrix.pc under ${prefix}")
endif()
get_filename_component(pcdir ${pc} DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${pcdir})
execute_process(COMMAND pkg-config --cflags --libs tavrix OUTPUT_VARIABLE pcflags
    OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE status)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "pkg-config --cflags --libs tavrix failed")
endif()
separate_arguments(pcflags UNIX_COMMAND "${pcflags}")
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${CXX} -std=c++17 ${flags} ${CONSUMER}/pkgconfig.cpp -o ${WORK}/pkgconfig-consumer
    ${pcflags})
run(${WORK}/pkgconfig-consumer)

# The man page is installed and written from the tool's own help.
file(READ ${prefix}/share/man/man1/tavrix-track.1 page)
foreach(text ".TH TAVRIX-TRACK 1" "\\fB\\-\\-version\\fR" "\\fB%04d\\fR")
    string(FIND "${page}" "${text}" at)
    if(at EQUAL -1)
        message(FATAL_ERROR "the man page lacks \"${text}\"")
    endif()
endforeach()

# The Python module, when the tree built it, imports from where it was
# installed, with the installed module first on the path.
if(PYTHON)
    file(GLOB_RECURSE modules ${prefix}/*/tavrix.*.so)
    if(NOT modules)
        message(FATAL_ERROR "no Python module under ${prefix}")
    endif()
    list(GET modules 0 module)
    get_filename_component(moduledir ${module} DIRECTORY)
    set(ENV{PYTHONPATH} ${moduledir})
    run(${PYTHON} -c "import sys, tavrix; sys.exit(tavrix.__file__ != sys.argv[1])" ${module}
        WORKING_DIRECTORY ${WORK})
endif()
