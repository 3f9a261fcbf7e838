# Installs the project by component and packs the components for Debian (`cpack -G DEB`):
#   module  the image module                              qel-module
#   tool    the command-line tool, its manual, completion qel
#   dev     the SDK with CMake package and pkg-config     qel-dev
#   host    the reference host, a static library          qel-host-dev
#   python  the Python package                            python3-qel
#   docs    documentation and examples                    qel-doc
#   web     the page in the browser                       qel-web, where the preset `wasm` has built it
#   formats plug-ins for more picture formats             qel-formats-extra, where their libraries are
include(CMakePackageConfigHelpers)

set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/qel")
set(QEL_MODULE_INSTALL_DIR "${CMAKE_INSTALL_LIBDIR}/qel/_binLIN64")

install(DIRECTORY sdk/include/qel DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT dev)
install(TARGETS qel_sdk EXPORT qel-sdk-targets COMPONENT dev)
install(EXPORT qel-sdk-targets NAMESPACE qel:: DESTINATION "${package_folder}" COMPONENT dev)
configure_package_config_file(cmake/qel-config.cmake.in qel-config.cmake
  INSTALL_DESTINATION "${package_folder}" PATH_VARS QEL_MODULE_INSTALL_DIR)
write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/qel-config-version.cmake"
  COMPATIBILITY SameMajorVersion ARCH_INDEPENDENT)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/qel-config.cmake"
  "${CMAKE_CURRENT_BINARY_DIR}/qel-config-version.cmake"
  DESTINATION "${package_folder}" COMPONENT dev)

configure_file(cmake/qel.pc.in qel.pc @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/qel.pc"
  DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/pkgconfig" COMPONENT dev)

install(DIRECTORY host DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/qel-host" COMPONENT host
  FILES_MATCHING PATTERN "*.h" PATTERN "sibling_module.h" EXCLUDE
  PATTERN "instrumented_host.h" EXCLUDE)
install(TARGETS qel_host EXPORT qel-host-targets
  ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT host)
install(EXPORT qel-host-targets NAMESPACE qel:: DESTINATION "${package_folder}" COMPONENT host)
configure_file(cmake/qel-host.pc.in qel-host.pc @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/qel-host.pc"
  DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/pkgconfig" COMPONENT host)

install(TARGETS QELMaths LIBRARY DESTINATION "${QEL_MODULE_INSTALL_DIR}" COMPONENT module)
install(TARGETS qel RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tool)

install(FILES README.md DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT docs)
install(DIRECTORY docs examples DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT docs
  PATTERN "try" EXCLUDE
  PATTERN "*.sh" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
  WORLD_READ WORLD_EXECUTE)

# The page, where the links of the documentation point to.
set(QEL_WEB_PAGE "${PROJECT_SOURCE_DIR}/build/wasm/web" CACHE PATH "The built page in the browser")
if(EXISTS "${QEL_WEB_PAGE}/qel.html")
  file(GLOB page "${QEL_WEB_PAGE}/*.html" "${QEL_WEB_PAGE}/*.js" "${QEL_WEB_PAGE}/*.css"
    "${QEL_WEB_PAGE}/qel.wasm")
  install(FILES ${page} DESTINATION "${CMAKE_INSTALL_DOCDIR}/docs/try" COMPONENT web)
endif()

# Debian packages.
set(QEL_PACKAGE_CONTACT "QEL image module maintainers <maintainers@qel.invalid>" CACHE STRING
  "Maintainer of the Debian packages")
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(cmake/debian/changelog.in debian/changelog.Debian @ONLY)
configure_file(CHANGELOG.md debian/changelog COPYONLY)
# The licence's text, indented and with dots in place of empty lines.
file(READ LICENSE license)
string(REGEX REPLACE "^.*Copyright[^\n]*\n\n" "" license "${license}")
string(REGEX REPLACE "\n\n" "\n.\n" license "${license}")
string(REGEX REPLACE "\n(.)" "\n \\1" license " ${license}")
configure_file(cmake/debian/copyright.in debian/copyright @ONLY)

set(CPACK_PACKAGE_NAME qel)
set(CPACK_PACKAGE_VENDOR "QEL")
set(CPACK_PACKAGE_CONTACT "${QEL_PACKAGE_CONTACT}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/debian/complete.cmake")
set(CPACK_QEL_DEBIAN_FILES "${PROJECT_BINARY_DIR}/debian")
set(CPACK_COMPONENTS_ALL module tool dev host docs)
get_property(format_plugins GLOBAL PROPERTY QEL_FORMAT_PLUGINS)
if(format_plugins)
  list(APPEND CPACK_COMPONENTS_ALL formats)
endif()
if(EXISTS "${QEL_WEB_PAGE}/qel.html")
  list(APPEND CPACK_COMPONENTS_ALL web)
endif()
if(TARGET qel_python)
  list(APPEND CPACK_COMPONENTS_ALL python)
endif()
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(version "${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")

# qel_debian_package(<component> <package> <section> <summary> <description>)
macro(qel_debian_package component package section summary description)
  string(TOUPPER ${component} key)
  set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${key}_PACKAGE_SECTION ${section})
  set(CPACK_COMPONENT_${key}_DESCRIPTION "${summary}\n${description}")
endmacro()
qel_debian_package(module qel-module libs "exact image operations, a module for hosts"
  "Colour and geometric transforms, filters and arithmetic on images, with the\n\
same bytes on every processor, for hosts of an in-process component framework.")
qel_debian_package(tool qel graphics "image operations from the command line"
  "Runs the operations of the QEL image module on one picture or on many, compares\n\
pictures, and checks modules and hosts against their rules.")
qel_debian_package(dev qel-dev libdevel "headers for hosts of the QEL image module"
  "The interfaces of the module and of its hosts, with a CMake package and a\n\
pkg-config file.")
qel_debian_package(host qel-host-dev libdevel "reference host of the QEL image module"
  "Images, a component collection and a loader for programs that use the module, as\n\
a static library with its headers.")
qel_debian_package(docs qel-doc doc "documentation and examples of the QEL image module"
  "How to use the tool, on one machine and on many, and how the module behaves.")
if(format_plugins)
  qel_debian_package(formats qel-formats-extra graphics "more picture formats for qel"
    "Lets the tool qel read HEIC, AVIF and JPEG XL pictures, whose libraries are large.")
  set(CPACK_DEBIAN_FORMATS_PACKAGE_DEPENDS "qel (= ${version})")
  set(CPACK_DEBIAN_TOOL_PACKAGE_SUGGESTS "qel-formats-extra")
endif()
qel_debian_package(web qel-web doc "image operations in the browser"
  "A page that tries every operation of the QEL image module on a picture, without\n\
a server: open /usr/share/doc/qel/docs/try/qel.html.")
qel_debian_package(python python3-qel python "exact image operations on numpy arrays"
  "Every operation of the QEL image module as a function on numpy arrays, without\n\
copies; blocks of large arrays on threads and with dask.")
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
  "qel-module (= ${version}), python3 (>= 3.11), python3 (<< 3.12), python3-numpy")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS "python3-dask, python3-distributed")
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "qel-module (= ${version})")
set(CPACK_DEBIAN_DEV_PACKAGE_RECOMMENDS "qel-module (>= ${version})")
set(CPACK_DEBIAN_HOST_PACKAGE_DEPENDS "qel-dev (= ${version})")
set(CPACK_DEBIAN_HOST_PACKAGE_SHLIBDEPS OFF)
foreach(key IN ITEMS DEV DOCS WEB)
  set(CPACK_DEBIAN_${key}_PACKAGE_ARCHITECTURE all)
  set(CPACK_DEBIAN_${key}_PACKAGE_SHLIBDEPS OFF)
endforeach()
include(CPack)
