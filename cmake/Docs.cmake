# The target `docs`: the API reference made by Doxygen from docs/Doxyfile into
# <build>/docs/html. It fails on any warning (an undocumented public member, a
# broken command), so it doubles as the check that the headers are documented.
# Not part of `all`; built on request and by the packaging suite.
set(TARVEL_DOCS_HTML_DIR ${PROJECT_BINARY_DIR}/docs/html)
find_package(Doxygen)
if(NOT DOXYGEN_FOUND)
    message(STATUS "doxygen not found: no target 'docs' (apt-get install doxygen)")
    return()
endif()

# The checked-in configuration, with this build's output place and version.
set(doxyfile ${PROJECT_BINARY_DIR}/docs/Doxyfile)
file(CONFIGURE OUTPUT ${doxyfile} CONTENT [=[
@INCLUDE          = @PROJECT_SOURCE_DIR@/docs/Doxyfile
OUTPUT_DIRECTORY  = @PROJECT_BINARY_DIR@/docs
PROJECT_NUMBER    = @PROJECT_VERSION@
]=] @ONLY)
file(GLOB docs_inputs CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/*.h ${PROJECT_SOURCE_DIR}/docs/*)
# The stamp is written only when doxygen succeeded (it writes its pages even
# when it fails on warnings, so they can't be the output).
set(stamp ${PROJECT_BINARY_DIR}/docs/docs.stamp)
add_custom_command(OUTPUT ${stamp}
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${TARVEL_DOCS_HTML_DIR} ${stamp}
    COMMAND Doxygen::doxygen ${doxyfile}
    COMMAND ${CMAKE_COMMAND} -E touch ${stamp}
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    DEPENDS ${docs_inputs} ${doxyfile}
    COMMENT "API reference (doxygen) -> ${TARVEL_DOCS_HTML_DIR}"
    VERBATIM)
add_custom_target(docs DEPENDS ${stamp})
