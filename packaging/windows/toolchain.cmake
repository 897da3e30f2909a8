# Debian's mingw-w64 with POSIX threads, and the SDK that packaging/windows/build-sdk has made.
#
#   cmake -DCMAKE_TOOLCHAIN_FILE=packaging/windows/toolchain.cmake -DMEDIAWORKER_WINDOWS_SDK=<folder> ...
#
# Without the variable, the folder is what the environment says under the same name, else what build-sdk prints.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

if(NOT MEDIAWORKER_WINDOWS_SDK)
    if(NOT "$ENV{MEDIAWORKER_WINDOWS_SDK}" STREQUAL "")
        set(MEDIAWORKER_WINDOWS_SDK "$ENV{MEDIAWORKER_WINDOWS_SDK}")
    else()
        execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/build-sdk
            OUTPUT_VARIABLE MEDIAWORKER_WINDOWS_SDK OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    endif()
endif()
get_filename_component(MEDIAWORKER_WINDOWS_SDK "${MEDIAWORKER_WINDOWS_SDK}" ABSOLUTE)
set(MEDIAWORKER_WINDOWS_SDK "${MEDIAWORKER_WINDOWS_SDK}" CACHE PATH "Qt, FFmpeg and run-time libraries for Windows")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES MEDIAWORKER_WINDOWS_SDK)

set(_target x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${_target}-gcc-posix)
set(CMAKE_CXX_COMPILER ${_target}-g++-posix)
set(CMAKE_RC_COMPILER ${_target}-windres)
set(CMAKE_AR /usr/bin/${_target}-ar CACHE FILEPATH "")
set(CMAKE_RANLIB /usr/bin/${_target}-ranlib CACHE FILEPATH "")
set(CMAKE_STRIP /usr/bin/${_target}-strip CACHE FILEPATH "")

# Libraries and headers of the target only, programs of the build machine only.
set(CMAKE_FIND_ROOT_PATH "${MEDIAWORKER_WINDOWS_SDK}" /usr/${_target})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} "${MEDIAWORKER_WINDOWS_SDK}/lib/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "")
