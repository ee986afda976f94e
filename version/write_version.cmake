# Writes HEADER for RELEASE and the commit that SOURCES are at; leaves it alone when it says so already, so that
# nothing is built again. Sources that came without git are of commit "unknown", unless FARLINK_COMMIT in the
# environment names it.
set(commit "$ENV{FARLINK_COMMIT}")
if(NOT commit)
    execute_process(COMMAND git describe --always --dirty --abbrev=12 --exclude=*
        WORKING_DIRECTORY ${SOURCES} OUTPUT_VARIABLE commit OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
if(NOT commit)
    set(commit unknown)
endif()
file(CONFIGURE OUTPUT ${HEADER} @ONLY CONTENT [[
#pragma once

// Made by version/write_version.cmake. Macros, because the Windows resource includes them too.
#define FARLINK_RELEASE "@RELEASE@"
#define FARLINK_COMMIT "@commit@"
#define FARLINK_BUILD FARLINK_RELEASE " (" FARLINK_COMMIT ")"
]])
