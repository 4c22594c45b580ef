# The pure-Python package `tarvel` (python/, ctypes over the shared library):
# its sources and its metadata go to a site directory under the prefix, in the
# component `python` (Debian package python3-tarvel). lib/python3/dist-packages
# is where Debian's python3 finds packages installed under /usr; for another
# prefix put <prefix>/<TARVEL_INSTALL_PYTHONDIR> on PYTHONPATH. The package
# finds the library through the system's loader (or TARVEL_LIBRARY). Not part
# of the Windows install, which holds the library alone.
if(WIN32)
    return()
endif()
set(TARVEL_INSTALL_PYTHONDIR lib/python3/dist-packages
    CACHE STRING "Where the Python package tarvel goes, under the prefix")

set(TARVEL_PYTHON_DIR ${PROJECT_SOURCE_DIR}/python)
if(NOT EXISTS ${TARVEL_PYTHON_DIR}/tarvel/__init__.py OR NOT EXISTS ${TARVEL_PYTHON_DIR}/pyproject.toml)
    message(STATUS "Python package tarvel not found under python/: not installed")
    return()
endif()

install(DIRECTORY ${TARVEL_PYTHON_DIR}/tarvel DESTINATION ${TARVEL_INSTALL_PYTHONDIR} COMPONENT python
    FILES_MATCHING PATTERN "*.py" PATTERN "py.typed" PATTERN "__pycache__" EXCLUDE)

# Its metadata (tarvel-<version>.dist-info: name, version and python-can's
# entry point, so that can.Bus(interface="tarvel") finds the installed
# package), made by setuptools from pyproject.toml, in a copy of python/:
# setuptools writes next to the sources.
if(EXISTS /usr/bin/python3)
    set(python_default /usr/bin/python3) # Debian's, with its setuptools
else()
    find_program(python_default NAMES python3)
endif()
set(TARVEL_PYTHON ${python_default} CACHE FILEPATH "Python that makes the package's metadata (setuptools 61 or later)")
execute_process(COMMAND ${TARVEL_PYTHON} -c
    "import setuptools, sys; sys.exit(int(setuptools.__version__.split('.')[0]) < 61)"
    RESULT_VARIABLE no_setuptools OUTPUT_QUIET ERROR_QUIET)
if(NOT TARVEL_PYTHON OR no_setuptools)
    message(STATUS "No setuptools 61 or later for ${TARVEL_PYTHON}: the Python package is installed without "
                   "its metadata (python-can will not find the interface 'tarvel')")
    return()
endif()

set(metadata ${PROJECT_BINARY_DIR}/python/metadata)
set(copy ${PROJECT_BINARY_DIR}/python/source)
set(stamp ${PROJECT_BINARY_DIR}/python/metadata.stamp)
file(GLOB_RECURSE python_sources CONFIGURE_DEPENDS ${TARVEL_PYTHON_DIR}/tarvel/*.py)
add_custom_command(OUTPUT ${stamp}
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${metadata} ${copy} ${stamp}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${metadata} ${copy}
    COMMAND ${CMAKE_COMMAND} -E copy_directory ${TARVEL_PYTHON_DIR}/tarvel ${copy}/tarvel
    COMMAND ${CMAKE_COMMAND} -E copy ${TARVEL_PYTHON_DIR}/pyproject.toml ${TARVEL_PYTHON_DIR}/README.md ${copy}
    COMMAND ${CMAKE_COMMAND} -E chdir ${copy} ${TARVEL_PYTHON} -c
        "import sys; from setuptools import build_meta; build_meta.prepare_metadata_for_build_wheel(sys.argv[1])"
        ${metadata}
    COMMAND ${CMAKE_COMMAND} -E touch ${stamp}
    DEPENDS ${TARVEL_PYTHON_DIR}/pyproject.toml ${TARVEL_PYTHON_DIR}/README.md ${python_sources}
    COMMENT "Python package metadata (setuptools)"
    VERBATIM)
add_custom_target(tarvel_python_metadata ALL DEPENDS ${stamp})
install(DIRECTORY ${metadata}/ DESTINATION ${TARVEL_INSTALL_PYTHONDIR} COMPONENT python
    FILES_MATCHING PATTERN "*.dist-info/*" PATTERN "*.egg-info" EXCLUDE)
