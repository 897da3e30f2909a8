# What desktops and shells know of the programs: the viewer's entry in menus, its icon, its description for software
# centres, and completions. Not on Windows, which has none of that.
if(WIN32)
    return()
endif()

# mw_source_date(<variable> <format>): the date of the newest commit, where there is no SOURCE_DATE_EPOCH, so that the
# same sources give the same bytes.
function(mw_source_date variable format)
    if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
        execute_process(COMMAND git log -1 --format=%ct WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
            OUTPUT_VARIABLE committed OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE status)
        if(status EQUAL 0)
            set(ENV{SOURCE_DATE_EPOCH} ${committed})
        endif()
    endif()
    string(TIMESTAMP date "${format}" UTC)
    if(DEFINED committed)
        unset(ENV{SOURCE_DATE_EPOCH})
    endif()
    set(${variable} "${date}" PARENT_SCOPE)
endfunction()

# One file each serves both programs; a shell looks for a file that is named like the program.
foreach(program IN ITEMS mediaworker-ctl mediaworker-view)
    if(TARGET ${program})
        install(FILES ${PROJECT_SOURCE_DIR}/share/completions/mediaworker.bash
            DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions RENAME ${program})
    endif()
endforeach()
set(folder site-functions)
if(EXISTS /etc/debian_version)
    set(folder vendor-completions) # what a package installs, in Debian
endif()
set(MEDIAWORKER_ZSH_FOLDER ${CMAKE_INSTALL_DATAROOTDIR}/zsh/${folder} CACHE STRING "Where zsh looks for completions")
install(FILES ${PROJECT_SOURCE_DIR}/share/completions/_mediaworker DESTINATION ${MEDIAWORKER_ZSH_FOLDER})

if(NOT TARGET mediaworker-view)
    return()
endif()
install(FILES ${PROJECT_SOURCE_DIR}/share/applications/mediaworker-view.desktop
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/applications)

# No licence has been granted for anything here, and software centres take descriptions only under a permissive one:
# whoever may grant it names it here.
set(MEDIAWORKER_METADATA_LICENSE LicenseRef-proprietary CACHE STRING "Licence of the description for software centres")
set(MEDIAWORKER_HOMEPAGE https://mediaworker.example.org CACHE STRING "Where people read about the programs")
mw_source_date(MEDIAWORKER_DATE "%Y-%m-%d")
set(name org.example.mediaworker.view.metainfo.xml)
configure_file(${PROJECT_SOURCE_DIR}/share/metainfo/${name}.in ${PROJECT_BINARY_DIR}/share/metainfo/${name} @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/share/metainfo/${name} DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/metainfo)

# The icon as it is, and in the sizes of those who do not draw it themselves.
set(drawing ${PROJECT_SOURCE_DIR}/share/icons/mediaworker-view.svg)
set(icons ${CMAKE_INSTALL_DATAROOTDIR}/icons/hicolor)
install(FILES ${drawing} DESTINATION ${icons}/scalable/apps)
find_program(RSVG_CONVERT_PROGRAM rsvg-convert)
if(NOT RSVG_CONVERT_PROGRAM)
    message(STATUS "rsvg-convert was not found: the viewer's icon comes as SVG only")
    return()
endif()
set(pictures "")
foreach(size IN ITEMS 16 24 32 48 64 128 256)
    set(picture ${PROJECT_BINARY_DIR}/share/icons/${size}/mediaworker-view.png)
    file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/share/icons/${size})
    add_custom_command(OUTPUT ${picture}
        COMMAND ${RSVG_CONVERT_PROGRAM} --width ${size} --height ${size} --output ${picture} ${drawing}
        DEPENDS ${drawing}
        COMMENT "Drawing the icon in ${size} x ${size}"
        VERBATIM)
    list(APPEND pictures ${picture})
    install(FILES ${picture} DESTINATION ${icons}/${size}x${size}/apps)
endforeach()
add_custom_target(mw_icons ALL DEPENDS ${pictures})
