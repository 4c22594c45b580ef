# The pure-Python package `tarvel` (python/, ctypes over the shared library):
# its sources go to a site directory under the prefix, in the component
# `python` (Debian package python3-tarvel). lib/python3/dist-packages is where
# Debian's python3 finds packages installed under /usr; for another prefix,
# put <prefix>/<TARVEL_INSTALL_PYTHONDIR> on PYTHONPATH.
set(TARVEL_INSTALL_PYTHONDIR lib/python3/dist-packages
    CACHE STRING "Where the Python package tarvel goes, under the prefix")

# The package directory: python/tarvel or python/src/tarvel.
set(TARVEL_PYTHON_PACKAGE_DIR "")
foreach(candidate python/tarvel python/src/tarvel)
    if(EXISTS ${PROJECT_SOURCE_DIR}/${candidate}/__init__.py)
        set(TARVEL_PYTHON_PACKAGE_DIR ${PROJECT_SOURCE_DIR}/${candidate})
        break()
    endif()
endforeach()

if(TARVEL_PYTHON_PACKAGE_DIR)
    install(DIRECTORY ${TARVEL_PYTHON_PACKAGE_DIR} DESTINATION ${TARVEL_INSTALL_PYTHONDIR} COMPONENT python
        FILES_MATCHING PATTERN "*.py" PATTERN "py.typed"
        PATTERN "__pycache__" EXCLUDE PATTERN "tests" EXCLUDE)
else()
    # TODO(python): the package is not in this tree yet; once python/ holds
    # tarvel/__init__.py it is installed from here with no further change.
    message(STATUS "Python package tarvel not found under python/: not installed")
endif()
