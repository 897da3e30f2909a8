# "mw_parent_docs": pages of the parent's library, in build/docs/parent/html.
find_program(DOXYGEN_PROGRAM doxygen)
if(NOT DOXYGEN_PROGRAM OR WIN32)
    return()
endif()
set(documentation_folder ${PROJECT_BINARY_DIR}/docs/parent)
file(MAKE_DIRECTORY ${documentation_folder})
set(MEDIAWORKER_DOXYFILE ${PROJECT_BINARY_DIR}/docs/Doxyfile)
configure_file(${PROJECT_SOURCE_DIR}/cmake/Doxyfile.in ${MEDIAWORKER_DOXYFILE} @ONLY)
add_custom_target(mw_parent_docs
    COMMAND ${DOXYGEN_PROGRAM} ${MEDIAWORKER_DOXYFILE}
    COMMENT "Writing the pages of the parent's library"
    VERBATIM)
