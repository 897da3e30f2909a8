find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)

# FFmpeg 5.1 is the oldest whose API the code uses: libavutil 57, libavcodec/libavformat 59, ...
pkg_check_modules(AVUTIL REQUIRED IMPORTED_TARGET libavutil>=57.28)
pkg_check_modules(AVCODEC REQUIRED IMPORTED_TARGET libavcodec>=59.37)
pkg_check_modules(AVFORMAT REQUIRED IMPORTED_TARGET libavformat>=59.27)
pkg_check_modules(SWRESAMPLE REQUIRED IMPORTED_TARGET libswresample>=4.7)
pkg_check_modules(SWSCALE REQUIRED IMPORTED_TARGET libswscale>=6.7)

if(NOT MEDIAWORKER_ENGINE_ONLY)
    find_package(Qt5 5.15 REQUIRED COMPONENTS Core Network Multimedia Gui)
    # for the widget, the viewer and their tests only; for the item
    find_package(Qt5 5.15 QUIET OPTIONAL_COMPONENTS Widgets Test Quick)
    if(CMAKE_SYSTEM_NAME STREQUAL Linux)
        pkg_check_modules(SECCOMP REQUIRED IMPORTED_TARGET libseccomp>=2.5)
    endif()
endif()

# Where programs for Windows see the paths of the machine that builds and, under Wine, runs them.
set(MEDIAWORKER_TEST_DRIVE "")
if(WIN32 AND CMAKE_CROSSCOMPILING)
    set(MEDIAWORKER_TEST_DRIVE Z:)
endif()
if(MEDIAWORKER_TESTS)
    find_package(GTest)
    if(NOT GTest_FOUND)
        message(STATUS "GoogleTest was not found: the tests are left out")
        set(MEDIAWORKER_TESTS OFF)
    endif()
endif()
if(MEDIAWORKER_BENCH AND NOT WIN32)
    find_package(benchmark REQUIRED)
endif()
