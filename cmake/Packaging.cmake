# Packages made by CPack from the install components (Install.cmake):
#   Linux:   Debian packages, one per component (cpack -G DEB)
#              libtarvelapi1      runtime: the shared library, licence, README
#              libtarvelapi-dev   development: headers, CMake package, tarvelapi.pc
#              tarvel-tools       the programs tarvel and tarvel-sim
#              python3-tarvel     the Python package (when python/ has it)
#   Windows: one zip of everything installed (bin/TarvelAPI.dll,
#            lib/libTarvelAPI.dll.a, include/TarvelAPI, lib/cmake/TarvelAPI, ...)
# Made in <build>/packages by `cpack --config <build>/CPackConfig.cmake`.
set(TARVEL_PACKAGE_CONTACT "TarvelAPI developers <tarvelapi@localhost>"
    CACHE STRING "Maintainer named in the Debian packages")

set(CPACK_PACKAGE_NAME TarvelAPI)
set(CPACK_PACKAGE_VENDOR "TarvelAPI developers")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_PACKAGE_CONTACT ${TARVEL_PACKAGE_CONTACT})
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_RESOURCE_FILE_README ${PROJECT_SOURCE_DIR}/README.md)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES OFF)

get_cmake_property(CPACK_COMPONENTS_ALL COMPONENTS)
list(REMOVE_ITEM CPACK_COMPONENTS_ALL Unspecified)

# A Debian package's description: the summary above, then these lines.
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "TarvelAPI shared library\n The host library that drives the Tarvel CAN-bus simulator device over a serial line.")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "TarvelAPI development files\n Headers, CMake package (find_package(TarvelAPI)) and pkg-config file (tarvelapi).")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "TarvelAPI command-line tool and device simulator\n tarvel drives a Tarvel device from the shell; tarvel-sim emulates one on a pseudo-terminal.")
set(CPACK_COMPONENT_PYTHON_DESCRIPTION
    "Python bindings of TarvelAPI\n The package tarvel: the library's C interface through ctypes.")
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
set(CPACK_COMPONENT_PYTHON_DEPENDS runtime)

if(WIN32)
    set(CPACK_GENERATOR ZIP)
    set(CPACK_ARCHIVE_COMPONENT_INSTALL OFF)
    set(CPACK_PACKAGE_FILE_NAME TarvelAPI-${PROJECT_VERSION}-win64)
else()
    set(CPACK_GENERATOR DEB)
    set(CPACK_DEB_COMPONENT_INSTALL ON)
    set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
    set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
    set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
    set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "")
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
    # dpkg-shlibdeps must find libTarvelAPI.so.1 for the tools; the dependency
    # on libtarvelapi1 itself comes from the component dependency below.
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
    # Inter-component dependencies become Depends on the same version.
    set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

    set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libtarvelapi${PROJECT_VERSION_MAJOR})
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
    # A shlibs file for the package with the library (others have none).
    set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
    set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
    set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libtarvelapi-dev)
    set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
    set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME tarvel-tools)
    set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION electronics)
    set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-tarvel)
    set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
    set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
    set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS python3)
    set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/python3-tarvel/prerm)
    set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_STRICT_PERMISSION ON)
endif()

include(CPack)
