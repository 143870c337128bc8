# Debian packages by CPack, one a component of install.cmake; scripts/package.sh makes and tries them. A further
# component needs its name in CPACK_COMPONENTS_ALL and the lines CPACK_DEBIAN_<COMPONENT>_*.
option(SCANSTEPS_DEBIAN "Install what a Debian package has beside the rest, and set CPack up" OFF)
if(NOT SCANSTEPS_DEBIAN)
  return()
endif()

set(CPACK_PACKAGE_NAME scansteps)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "scansteps maintainers <maintainers@scansteps.example>")
set(CPACK_PACKAGE_HOMEPAGE_URL "https://scansteps.example/")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_COMPONENTS_ALL runtime dev doc)
if(SCANSTEPS_PYTHON)
  list(APPEND CPACK_COMPONENTS_ALL python)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-scansteps)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/cmake/debian/python/postinst ${PROJECT_SOURCE_DIR}/cmake/debian/python/prerm)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
    "scansteps (= ${PROJECT_VERSION}-1), python3 (>= 3.${Python3_VERSION_MINOR}~), python3 (<< 3.${python_next}), python3-numpy")
  set(CPACK_DEBIAN_PYTHON_DESCRIPTION "pipelines of steps for 3D scanning, from Python
 Runs the pipelines of scansteps inside Python programs: frames and results are
 numpy arrays, recordings are read and written, and steps can be written in
 Python.")
endif()

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME scansteps)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS scansteps-doc)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "pipelines of steps for 3D scanning
 A step library and the program that runs it: images, cameras and recordings
 pass through steps that convert pixels, find edges, corners and regions,
 register views, record and replay runs, and export meshes.")

# The step library lies where the loader's cache is made from.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libscansteps-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
  "scansteps (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}), libimath-dev, libfmt-dev")
set(CPACK_DEBIAN_DEV_DESCRIPTION "steps and hosts for scansteps, development files
 Headers, static libraries, and the CMake and pkg-config files with which other
 projects write steps and hosts of their own.")

set(CPACK_DEBIAN_DOC_PACKAGE_NAME scansteps-doc)
set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOC_PACKAGE_DEPENDS "")
set(CPACK_DEBIAN_DOC_DESCRIPTION "pipelines of steps for 3D scanning, documentation
 Documentation of scansteps, example pipelines, and photographs and recordings
 to try them on.")

# Licence and changelog, which every Debian package has under its own name. The time of the changelog is that of the
# build, or the one that a reproducible build names.
string(TIMESTAMP debian_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(files ${PROJECT_BINARY_DIR}/debian)
configure_file(cmake/debian/copyright ${files}/copyright COPYONLY)
configure_file(cmake/debian/changelog.in ${files}/changelog.Debian @ONLY)
execute_process(COMMAND gzip -9nf ${files}/changelog.Debian COMMAND_ERROR_IS_FATAL ANY)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(doc ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  install(FILES ${files}/copyright ${files}/changelog.Debian.gz DESTINATION ${doc} COMPONENT ${component})
endforeach()

include(CPack)
