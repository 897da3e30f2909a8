# What is installed beside the programs, and the Debian packages that cpack makes of it: "mediaworker" for users,
# "mediaworker-dev" for programs that embed a worker.
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/minimal ${PROJECT_SOURCE_DIR}/examples/widgets ${PROJECT_SOURCE_DIR}/examples/quick
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/mediaworker-dev/examples COMPONENT dev)
install(PROGRAMS ${PROJECT_SOURCE_DIR}/examples/python/watch.py
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/mediaworker-dev/examples/python COMPONENT dev)

# A manual page for each program that is built.
find_program(GZIP_PROGRAM gzip)
foreach(program IN ITEMS mediaworker mediaworker-ctl mediaworker-view)
    if(NOT TARGET ${program})
        continue()
    endif()
    set(page ${PROJECT_BINARY_DIR}/man/${program}.1)
    configure_file(${PROJECT_SOURCE_DIR}/man/${program}.1 ${page} @ONLY)
    if(GZIP_PROGRAM)
        execute_process(COMMAND ${GZIP_PROGRAM} -9nc ${page} OUTPUT_FILE ${page}.gz COMMAND_ERROR_IS_FATAL ANY)
        set(page ${page}.gz)
    endif()
    install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endforeach()

# mw_changelog(<file>): what Debian wants to know about a version.
function(mw_changelog file)
    mw_source_date(changelog_date "%a, %d %b %Y %H:%M:%S +0000")
    set(plain ${PROJECT_BINARY_DIR}/debian/changelog)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/changelog.in ${plain} @ONLY)
    execute_process(COMMAND ${GZIP_PROGRAM} -9nc ${plain} OUTPUT_FILE ${file} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# mw_package_of(<variable> <library>): what a Debian package has to depend on to get the shared library that a program
# loads by its name while it runs. dpkg-shlibdeps cannot see that.
function(mw_package_of variable library)
    set(${variable} "" PARENT_SCOPE)
    find_library(file ${library} REQUIRED NO_CACHE)
    get_filename_component(folder ${file} DIRECTORY)
    file(REAL_PATH ${file} real)
    if(NOT real MATCHES "/lib${library}\\.so\\.([0-9]+)")
        message(WARNING "${real} has no version in its name: the packages do not depend on it")
        return()
    endif()
    set(loaded ${folder}/lib${library}.so.${CMAKE_MATCH_1})
    execute_process(COMMAND ${DPKG_QUERY_PROGRAM} --search ${loaded}
        OUTPUT_VARIABLE owner ERROR_VARIABLE ignored RESULT_VARIABLE status)
    if(NOT status EQUAL 0 OR NOT owner MATCHES "^([^ ,]+): ")
        message(WARNING "no package has ${loaded}: the packages do not depend on it")
        return()
    endif()
    set(package ${CMAKE_MATCH_1})
    string(REGEX REPLACE ":.*" "" dependency ${package})
    # The package says itself what its users depend on: "libavcodec 59 libavcodec59 (>= 7:5.1)".
    execute_process(COMMAND ${DPKG_QUERY_PROGRAM} --control-show ${package} shlibs
        OUTPUT_VARIABLE shlibs ERROR_VARIABLE ignored)
    if(shlibs MATCHES "(^|\n)lib${library} [0-9]+ ([^\n]+)")
        set(dependency ${CMAKE_MATCH_2})
    endif()
    set(${variable} ${dependency} PARENT_SCOPE)
endfunction()

set(MEDIAWORKER_PACKAGE_CONTACT "mediaworker maintainers <mediaworker@example.org>"
    CACHE STRING "Who answers for the packages")
set(CPACK_PACKAGE_NAME mediaworker)
set(CPACK_PACKAGE_VENDOR mediaworker)
set(CPACK_PACKAGE_CONTACT ${MEDIAWORKER_PACKAGE_CONTACT})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "plays and records video streams in a process of its own")
set(CPACK_COMPONENTS_ALL runtime dev)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS # whatever the umask
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

find_program(DPKG_QUERY_PROGRAM dpkg-query)
if(DPKG_QUERY_PROGRAM AND NOT CMAKE_CROSSCOMPILING)
    mw_package_of(avcodec_package avcodec)
    mw_package_of(avformat_package avformat)
    set(CPACK_GENERATOR DEB)
    set(CPACK_DEB_COMPONENT_INSTALL ON)
    set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
    set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME mediaworker)
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION video)
    # Behind the summary, which cpack puts before it.
    set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "A worker that fetches, decodes and shows one video stream for another
program, or records it into an MP4 file. With it come a viewer and a program
for the command line.")
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS ${avcodec_package} ${avformat_package})
    list(JOIN CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS ", " CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS)
    # Qt finds sound devices through these plugins, and trusts servers by these certificates.
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "libqt5multimedia5-plugins, ca-certificates")
    set(CPACK_DEBIAN_DEV_PACKAGE_NAME mediaworker-dev)
    set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
    set(CPACK_DEBIAN_DEV_DESCRIPTION "This is the library for programs that embed a worker: it starts it, talks to
it and shows its pictures, in a widget or an item of QML if it is to. It stands
on Qt 5 and comes with examples in C++ and Python.")
    set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "mediaworker (= ${PROJECT_VERSION}), qtbase5-dev (>= 5.15)")
    set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS "qtdeclarative5-dev, python3-pyqt5, python3-numpy")
    set(debian_files ${PROJECT_SOURCE_DIR}/cmake/debian/copyright)
    if(GZIP_PROGRAM)
        mw_changelog(${PROJECT_BINARY_DIR}/debian/changelog.gz)
        list(APPEND debian_files ${PROJECT_BINARY_DIR}/debian/changelog.gz)
    endif()
    install(FILES ${debian_files} DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/mediaworker)
    # A tag that lintian does not know is an error in its eyes: this one came with Debian 13.
    set(of_newer_lintian "")
    cmake_host_system_information(RESULT debian QUERY DISTRIB_VERSION_ID)
    if(debian VERSION_GREATER_EQUAL 13)
        set(of_newer_lintian "# The licence of that description is the owner's to grant.
mediaworker: appstream-metadata-validation-failed *")
    endif()
    configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/lintian-overrides.in
        ${PROJECT_BINARY_DIR}/debian/lintian-overrides @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/debian/lintian-overrides
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides RENAME mediaworker)
    install(FILES ${debian_files} DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/mediaworker-dev COMPONENT dev)
endif()
include(CPack)
