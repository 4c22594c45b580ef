# What `cmake --install` puts under the prefix, in components that the Debian
# packages follow (see Packaging.cmake):
#   runtime      the shared library with its SONAME link, licence and README
#   development  headers, the linker name link, the CMake package, tarvelapi.pc
#                and the API reference when it has been built
#   tools        the programs tarvel and tarvel-sim
#   python       the Python package (PythonInstall.cmake)
# The headers go to include/TarvelAPI/ (names like SerialPort.h must not land
# in a shared include directory); the CMake package and the pkg-config file
# put that directory on the include path, so `#include <TarvelAPI.h>` works.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(TARVEL_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/TarvelAPI)
set(TARVEL_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/TarvelAPI
    CACHE STRING "Where the CMake package TarvelAPI goes, under the prefix")
set(TARVEL_INSTALL_PKGCONFIGDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    CACHE STRING "Where tarvelapi.pc goes, under the prefix")

file(GLOB TARVEL_PUBLIC_HEADERS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/*.h)
target_include_directories(TarvelAPI PUBLIC $<INSTALL_INTERFACE:${TARVEL_INSTALL_INCLUDEDIR}>)

install(TARGETS TarvelAPI EXPORT TarvelAPITargets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(FILES ${TARVEL_PUBLIC_HEADERS} DESTINATION ${TARVEL_INSTALL_INCLUDEDIR} COMPONENT development)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE ${PROJECT_SOURCE_DIR}/README.md
    DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)

# --- CMake package: find_package(TarvelAPI 1) -> TarvelAPI::TarvelAPI ---------------
install(EXPORT TarvelAPITargets NAMESPACE TarvelAPI:: FILE TarvelAPITargets.cmake
    DESTINATION ${TARVEL_INSTALL_CMAKEDIR} COMPONENT development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/TarvelAPIConfig.cmake.in
    ${PROJECT_BINARY_DIR}/TarvelAPIConfig.cmake INSTALL_DESTINATION ${TARVEL_INSTALL_CMAKEDIR})
# A program built for 1.x runs with any later 1.y (the SONAME is the major version).
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TarvelAPIConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/TarvelAPIConfig.cmake ${PROJECT_BINARY_DIR}/TarvelAPIConfigVersion.cmake
    DESTINATION ${TARVEL_INSTALL_CMAKEDIR} COMPONENT development)

# --- pkg-config: tarvelapi.pc ---------------------------------------------------------
include(${CMAKE_CURRENT_LIST_DIR}/PkgConfig.cmake)
tarvel_install_pkgconfig(${CMAKE_CURRENT_LIST_DIR}/tarvelapi.pc.in ${TARVEL_INSTALL_PKGCONFIGDIR})

# --- programs -------------------------------------------------------------------------
foreach(program tarvel tarvel-sim)
    if(TARGET ${program})
        install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
    endif()
endforeach()
# The tool finds the library of its own prefix, wherever that is.
if(TARGET tarvel AND NOT WIN32 AND NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
    file(RELATIVE_PATH tarvel_bin_to_lib /root/${CMAKE_INSTALL_BINDIR} /root/${CMAKE_INSTALL_LIBDIR})
    set_target_properties(tarvel PROPERTIES INSTALL_RPATH "$ORIGIN/${tarvel_bin_to_lib}")
endif()

# --- API reference, when it has been built (cmake --build ... --target docs) -----------
if(TARGET docs)
    install(DIRECTORY ${TARVEL_DOCS_HTML_DIR}/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/html
        COMPONENT development OPTIONAL)
endif()

# --- Python package ---------------------------------------------------------------------
include(${CMAKE_CURRENT_LIST_DIR}/PythonInstall.cmake)
