# The parent's library for other projects: find_package(mediaworker) gives mediaworker::parent, and with
# COMPONENTS widgets and quick what stands on further modules of Qt.
include(CMakePackageConfigHelpers)

set(folder ${CMAKE_INSTALL_LIBDIR}/cmake/mediaworker)
configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/cmake/mediaworkerConfig.cmake.in ${PROJECT_BINARY_DIR}/mediaworkerConfig.cmake
    INSTALL_DESTINATION ${folder})
# Before 1.0 every minor version may break its users.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/mediaworkerConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(
    FILES ${PROJECT_BINARY_DIR}/mediaworkerConfig.cmake ${PROJECT_BINARY_DIR}/mediaworkerConfigVersion.cmake
    DESTINATION ${folder} COMPONENT dev)
foreach(name IN ITEMS parent widgets quick)
    if(NOT TARGET mw_${name})
        continue()
    endif()
    install(TARGETS mw_${name} EXPORT mediaworker-${name}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
    # CMake strips programs, and leaves the debug information of a library like these, with all its paths.
    if(CMAKE_STRIP)
        install(CODE "if(CMAKE_INSTALL_DO_STRIP)
            execute_process(COMMAND \"${CMAKE_STRIP}\" --strip-debug
                \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/$<TARGET_FILE_NAME:mw_${name}>\"
                COMMAND_ERROR_IS_FATAL ANY)
        endif()" COMPONENT dev)
    endif()
    # Headers include each other as "parent/Name.h", in the source tree as well as here.
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/${name} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/mediaworker
        COMPONENT dev FILES_MATCHING PATTERN "*.h")
    # A file for each, so that nobody needs the modules of Qt that others stand on.
    install(EXPORT mediaworker-${name} NAMESPACE mediaworker:: DESTINATION ${folder} COMPONENT dev)
endforeach()
