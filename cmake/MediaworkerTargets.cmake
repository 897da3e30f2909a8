# Flags for our own code only; dependencies come in as imported (system) targets.
add_library(mw_flags INTERFACE)
if(MSVC)
    target_compile_options(mw_flags INTERFACE /W4 $<$<BOOL:${MEDIAWORKER_WERROR}>:/WX>)
else()
    target_compile_options(mw_flags INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
        $<$<BOOL:${MEDIAWORKER_WERROR}>:-Werror>)
endif()
# Assertions name their files; where those lay when they were built is nobody's business.
if(NOT MSVC)
    target_compile_options(mw_flags INTERFACE
        -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/= -fmacro-prefix-map=${PROJECT_BINARY_DIR}/=)
endif()
if(MEDIAWORKER_SANITIZE)
    add_compile_options(-fsanitize=${MEDIAWORKER_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${MEDIAWORKER_SANITIZE})
endif()
if(MEDIAWORKER_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=address,undefined)
endif()

# The stream is hostile, so what an overflow could use is taken away. Of every build but those of the sanitizers,
# which have checks of their own, so that the programs that are tested are made as those that are shipped.
function(mw_harden)
    if(MSVC OR MEDIAWORKER_SANITIZE OR MEDIAWORKER_FUZZ)
        return()
    endif()
    if(WIN32)
        # Its C library checks no sizes, and GCC's stack protector would be one more DLL to ship.
        add_link_options(-Wl,--dynamicbase,--high-entropy-va,--nxcompat)
        return()
    endif()
    add_compile_options(-fstack-protector-strong)
    # Programs can be loaded anywhere; what goes into a shared object has CMake's flag for that.
    add_compile_options($<$<NOT:$<BOOL:$<TARGET_PROPERTY:POSITION_INDEPENDENT_CODE>>>:-fPIE>)
    add_link_options($<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-pie>)
    # The table of imported functions is filled at the start, and read only from then on.
    add_link_options(-Wl,-z,relro,-z,now)
    # Checks of sizes, which come with optimisation only.
    string(TOUPPER "${CMAKE_BUILD_TYPE}" type)
    if("${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_${type}}" MATCHES "-O[123gsz]")
        add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
    endif()
endfunction()
mw_harden()

# mw_include_rule(<folder> <ENGINE|QT> <targets>...)
#
# Files of the folder may include headers of their own and of those targets' folders, and none of others, also where
# the compiler would find them by way of a third target: checked by every build (mw_check_includes). The engine's
# folders see no Qt, Qt's folders nothing of FFmpeg.
function(mw_include_rule folder world)
    get_property(folders GLOBAL PROPERTY MW_FOLDERS)
    if(NOT folder IN_LIST folders)
        set_property(GLOBAL APPEND PROPERTY MW_FOLDERS ${folder})
        set_property(GLOBAL PROPERTY MW_INCLUDES_OF_${folder} ${world} ${folder})
    endif()
    foreach(target IN LISTS ARGN)
        if(NOT target MATCHES "^(ko|mw)_")
            continue()
        endif()
        if(NOT TARGET ${target})
            message(FATAL_ERROR "src/${folder} links ${target}, which does not lie below it (src/CMakeLists.txt)")
        endif()
        get_target_property(path ${target} MW_FOLDER)
        set_property(GLOBAL APPEND PROPERTY MW_INCLUDES_OF_${folder} ${path})
    endforeach()
endfunction()

# Checks all rules made so far, in every build.
function(mw_check_includes)
    get_property(folders GLOBAL PROPERTY MW_FOLDERS)
    set(rules "")
    foreach(folder IN LISTS folders)
        get_property(rule GLOBAL PROPERTY MW_INCLUDES_OF_${folder})
        list(JOIN rule " " rule)
        string(APPEND rules "${folder} ${rule}\n")
    endforeach()
    set(file ${PROJECT_BINARY_DIR}/include-rules.txt)
    file(GENERATE OUTPUT ${file} CONTENT "${rules}")
    add_custom_target(mw_include_check ALL
        COMMAND ${CMAKE_COMMAND} -DRULES=${file} -DSOURCES=${PROJECT_SOURCE_DIR}/src
                -P ${PROJECT_SOURCE_DIR}/cmake/CheckIncludes.cmake
        COMMENT "Checking who includes whom"
        VERBATIM)
endfunction()

# mw_library(<target> FOLDER <path below src> SOURCES ... [PUBLIC <targets>] [PRIVATE <targets>] [QT])
#
# One folder is one static library. Headers are included by their path below src ("flv/FlvParser.h"), and a target
# must see only the folders of the targets that it links: so each target exports an include root of its own, which
# holds nothing but a link to its folder.
function(mw_library target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "QT" "FOLDER" "SOURCES;PUBLIC;PRIVATE")
    add_library(${target} STATIC ${arg_SOURCES})
    set(root ${PROJECT_BINARY_DIR}/include/${target})
    get_filename_component(parent ${root}/${arg_FOLDER} DIRECTORY)
    file(MAKE_DIRECTORY ${parent})
    file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${root}/${arg_FOLDER} COPY_ON_ERROR SYMBOLIC)
    target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${root}>)
    target_link_libraries(${target} PUBLIC ${arg_PUBLIC} PRIVATE ${arg_PRIVATE} $<BUILD_INTERFACE:mw_flags>)
    set_target_properties(${target} PROPERTIES MW_FOLDER ${arg_FOLDER})
    if(CMAKE_CURRENT_SOURCE_DIR STREQUAL "${PROJECT_SOURCE_DIR}/src/${arg_FOLDER}")
        if(arg_QT)
            set(world QT)
        else()
            set(world ENGINE)
        endif()
        mw_include_rule(${arg_FOLDER} ${world} ${arg_PUBLIC} ${arg_PRIVATE})
    endif()
    if(arg_QT)
        set_target_properties(${target} PROPERTIES AUTOMOC ON)
        target_compile_definitions(${target} PRIVATE QT_NO_CAST_TO_ASCII QT_NO_KEYWORDS QT_DEPRECATED_WARNINGS)
    endif()
endfunction()

# mw_public_library(<target> <name>)
#
# Other projects find the library installed as mediaworker::<name>, and include <mediaworker/<name>/Header.h>; both
# work here, too. For a library made by mw_library() in its folder; cmake/ParentPackage.cmake installs it.
function(mw_public_library target name)
    add_library(mediaworker::${name} ALIAS ${target})
    set(root ${PROJECT_BINARY_DIR}/include/${target}_public)
    file(MAKE_DIRECTORY ${root}/mediaworker)
    file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${root}/mediaworker/${name} COPY_ON_ERROR SYMBOLIC)
    target_include_directories(${target} PUBLIC
        $<BUILD_INTERFACE:${root}>
        "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/mediaworker;${CMAKE_INSTALL_INCLUDEDIR}>")
    target_compile_features(${target} PUBLIC cxx_std_20)
    set_target_properties(${target} PROPERTIES
        EXPORT_NAME ${name}
        OUTPUT_NAME mediaworker_${name}
        POSITION_INDEPENDENT_CODE ON)
endfunction()

# What follows in this folder are tests: a failing one needs the lines of a stack trace and no more, and under the
# sanitizers nobody waits for its own code. Half of the time of such builds was spent on both.
macro(mw_build_tests_fast)
    if(CMAKE_BUILD_TYPE MATCHES "^(Debug|RelWithDebInfo)$")
        add_compile_options(-g1)
    endif()
    if(MEDIAWORKER_SANITIZE)
        add_compile_options(-O0)
    endif()
endmacro()

# mw_test(<name> SOURCES ... LINKS ... LABELS ... [TIMEOUT seconds] [QT] [SERIAL])
#
# Every case is a ctest test of its own, so that the suite runs in parallel and one hang costs one case.
function(mw_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "QT;SERIAL" "TIMEOUT" "SOURCES;LINKS;LABELS")
    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE ${arg_LINKS} mw_flags GTest::gmock)
    if(arg_QT)
        set_target_properties(${name} PROPERTIES AUTOMOC ON)
        target_link_libraries(${name} PRIVATE mw_test_main_qt)
    else()
        target_link_libraries(${name} PRIVATE GTest::gmock_main)
    endif()
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 60)
    endif()
    # One label a test, the last one given: gtest_discover_tests() takes a second for the name of a property.
    list(GET arg_LABELS -1 label)
    set(properties TIMEOUT ${arg_TIMEOUT} LABELS ${label})
    if(arg_SERIAL)
        list(APPEND properties RUN_SERIAL ON)
    endif()
    # Time for the three tries of packaging/windows/run.
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 180 PROPERTIES ${properties})
endfunction()
