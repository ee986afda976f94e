# The tests of the monitor, and of the log reader, as Windows programs, run by ./run windows. Tests of the POSIX layer
# (platform_tests), of the embedded spooler (spooler_tests) and of the command line as it is on Linux have no meaning
# here.

# There is no package of GoogleTest for this system, but one with its sources.
set(INSTALL_GTEST OFF)
add_subdirectory(/usr/src/googletest/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
target_compile_options(gtest PRIVATE -w)

# The objects of the monitor, as they go into the library, and of the tests.
add_library(farlink_test_objects STATIC ${farlink_test_sources})
target_link_libraries(farlink_test_objects PRIVATE monitor_objects platform scripted_printserver GTest::gtest)
target_compile_definitions(farlink_test_objects PRIVATE FARLINK_LIBRARY="$<TARGET_FILE_NAME:Farlink>")
# The doubles define functions that the system's headers declare as imported; and of short wide strings GCC 12 says
# that their copying, inlined, reads past the end of the literal.
target_compile_options(farlink_test_objects PRIVATE -Wno-attributes -Wno-array-bounds
    -Wno-stringop-overread)
target_precompile_headers(farlink_test_objects PRIVATE ${test_headers})

# The same objects once more, calling the definitions of support/windows/ where they called the system.
set(call_list ${CMAKE_CURRENT_SOURCE_DIR}/support/windows/switched_call_list.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${call_list})
file(READ ${call_list} renamings)
string(REGEX MATCHALL "    X\\([A-Za-z0-9_]+" renamings "${renamings}")
list(TRANSFORM renamings REPLACE "    X\\((.+)" "\\1 switched_\\1\n__imp_\\1 switched_import_of_\\1\n")
list(JOIN renamings "" renamings)
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/renamings.txt "${renamings}")
set(switched_objects ${CMAKE_CURRENT_BINARY_DIR}/switched_objects.a)
add_custom_command(OUTPUT ${switched_objects}
    COMMAND ${CMAKE_OBJCOPY} --redefine-syms=${CMAKE_CURRENT_BINARY_DIR}/renamings.txt
        $<TARGET_FILE:farlink_test_objects> ${switched_objects}
    DEPENDS farlink_test_objects ${CMAKE_CURRENT_BINARY_DIR}/renamings.txt)
add_custom_target(switched_objects DEPENDS ${switched_objects})

add_executable(farlink_tests
    support/real_calls_windows.cpp
    ../platform/call_orders.cpp
    support/windows/import_pointers.cpp
    support/windows/main.cpp
    support/windows/ordered_system.cpp
    support/windows/switched_calls.cpp
    support/windows/switched_sockets.cpp
    windows/import_hooks.cpp)
add_dependencies(farlink_tests switched_objects Farlink)
set_target_properties(farlink_tests PROPERTIES LINK_DEPENDS ${switched_objects})
target_link_libraries(farlink_tests PRIVATE
    -Wl,--whole-archive ${switched_objects} -Wl,--no-whole-archive
    scripted_printserver platform spoolss GTest::gtest)

# What the command line makes of a log file.
add_executable(log_reader_tests log_reader_test.cpp)
target_link_libraries(log_reader_tests PRIVATE log_reader GTest::gtest_main)
