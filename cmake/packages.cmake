# Debian packages, one a component: `cpack` in a build folder that was configured for /usr
# (scripts/packages does both). The Python module joins when the tree builds it
# (component "python").
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME keelstone)
set(CPACK_PACKAGE_VENDOR Keelstone)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "rule engine that learns what is normal on network devices")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library development program)
if(TARGET keelstone_python)
  list(APPEND CPACK_COMPONENTS_ALL python)
endif()

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# The packages of an older release give way to those of a newer one.
cmake_host_system_information(RESULT system QUERY DISTRIB_ID DISTRIB_VERSION_ID)
string(REGEX REPLACE "^debian;([0-9]+)$" "~deb\\1" system "${system}")
if(NOT system MATCHES "^~deb")
  set(system "")
endif()
set(CPACK_DEBIAN_PACKAGE_RELEASE "1${system}")
set(KEELSTONE_MAINTAINER "The Keelstone authors <keelstone@localhost.localdomain>" CACHE STRING
    "Who answers for the packages")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${KEELSTONE_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
set(about "Keelstone keeps a short history of every value that parsers read from
network devices, learns a rule and a reference value for it, and says at
once when a value breaks its rule.
.
This package holds ")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libkeelstone${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "${about}the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkeelstone-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
    "${about}what is needed to build a host in C++ or C.")
set(boost ${Boost_VERSION_MAJOR}.${Boost_VERSION_MINOR})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "libboost${boost}-dev, libboost-thread${boost}-dev, libboost-chrono${boost}-dev")

set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME keelstone)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PROGRAM_DESCRIPTION
    "${about}the program, which reads parser runs as JSON Lines.")

if(TARGET keelstone_python)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-keelstone)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS ON)
  math(EXPR next "${KEELSTONE_PYTHON_MINOR} + 1")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
      "python3 (>= 3.${KEELSTONE_PYTHON_MINOR}), python3 (<< 3.${next})")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
      ${PROJECT_SOURCE_DIR}/packaging/debian/postinst ${PROJECT_SOURCE_DIR}/packaging/debian/prerm)
  set(CPACK_DEBIAN_PYTHON_DESCRIPTION
      "${about}the module for Python.")
endif()

# The program and the module need the very library they were built with.
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS library)
set(CPACK_COMPONENT_PROGRAM_DEPENDS library)
set(CPACK_COMPONENT_PYTHON_DEPENDS library)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/triggers)

# Adds to every package what Debian wants in it.
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian/complete.cmake)
set(CPACK_KEELSTONE_DOCUMENTS ${PROJECT_SOURCE_DIR}/packaging/debian)
set(CPACK_KEELSTONE_PACKAGES
    library:${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME} development:libkeelstone-dev program:keelstone
    python:python3-keelstone)
include(CPack)
