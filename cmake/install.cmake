# What an installation holds and where, in components that are also the Debian packages: "runtime"
# (the shared library, the shell, their manuals, the documents), "development" (what it takes to
# build against them), and, where it is built, "python" (the package for Python, whole in itself).

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
set(velmora_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/velmora)

install(TARGETS velmora velmora_static EXPORT velmora
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS velmora_shell RUNTIME COMPONENT runtime)
install(DIRECTORY include/velmora DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

# The targets need no other package, so their file is the whole configuration.
install(EXPORT velmora NAMESPACE velmora:: FILE velmora-config.cmake
  DESTINATION ${velmora_package_dir} COMPONENT development)
write_basic_package_version_file(velmora-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/velmora-config-version.cmake
  DESTINATION ${velmora_package_dir} COMPONENT development)

# velmora.pc names its directories from where it lies, so that an installation can be moved.
file(RELATIVE_PATH velmora_pc_prefix
     ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH velmora_pc_libdir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH velmora_pc_includedir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
list(TRANSFORM velmora_static_needs PREPEND -l REGEX "^[^-]" OUTPUT_VARIABLE velmora_pc_private)
list(JOIN velmora_pc_private " " velmora_pc_private)
configure_file(packaging/velmora.pc.in velmora.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/velmora.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
# For a host that is built against the tree; pkg-config prefers it where it finds both.
configure_file(packaging/velmora-uninstalled.pc.in velmora-uninstalled.pc @ONLY)

install(FILES man/velmora.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT runtime)
install(FILES man/velmora.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT development)
install(FILES man/velmora-commands.7 DESTINATION ${CMAKE_INSTALL_MANDIR}/man7 COMPONENT runtime)

# The documents lie to each other, to the examples and to the packages for other languages as in
# the source tree, so that one link is right in both places. The headers are reached by a link of
# the file system; what else a document names of the sources it does not link to.
install(FILES README.md CHANGELOG.md CONTRIBUTING.md LICENSE
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime
  FILES_MATCHING PATTERN *.md PATTERN *.svg)
# That for Node.js is a tarball of its own, see bindings/node/CMakeLists.txt.
install(DIRECTORY bindings/python DESTINATION ${CMAKE_INSTALL_DOCDIR}/bindings COMPONENT runtime
  PATTERN tests EXCLUDE PATTERN __pycache__ EXCLUDE)
install(FILES bindings/node/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR}/bindings/node
  COMPONENT runtime)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development
  PATTERN __pycache__ EXCLUDE)
file(RELATIVE_PATH velmora_headers ${CMAKE_INSTALL_FULL_DOCDIR}/include
     ${CMAKE_INSTALL_FULL_INCLUDEDIR}/velmora)
file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/documents/include)
file(CREATE_LINK ${velmora_headers} ${CMAKE_CURRENT_BINARY_DIR}/documents/include/velmora SYMBOLIC)
install(DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/documents/include
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)

if(VELMORA_PYTHON_PACKAGE)
  # Where Debian's interpreters look, whichever version they are.
  set(velmora_python_dir lib/python3/dist-packages/velmora)
  install(TARGETS velmora_python LIBRARY DESTINATION ${velmora_python_dir} COMPONENT python)
  install(DIRECTORY bindings/python/velmora/ DESTINATION ${velmora_python_dir} COMPONENT python
    PATTERN __pycache__ EXCLUDE)
endif()

# The Debian packages, made by `cpack`.
set(CPACK_GENERATOR DEB)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_COMPONENTS_ALL runtime development)
if(VELMORA_PYTHON_PACKAGE)
  list(APPEND CPACK_COMPONENTS_ALL python)
endif()
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "velmora maintainers <maintainers@velmora.invalid>")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian.cmake)

# The library is made known to the loader and to packages that will depend on it.
file(CONFIGURE OUTPUT debian/triggers CONTENT "activate-noawait ldconfig\n")
file(CONFIGURE OUTPUT debian/shlibs
  CONTENT "libvelmora ${PROJECT_VERSION_MAJOR} velmora (>= ${PROJECT_VERSION})\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_BINARY_DIR}/debian/triggers ${CMAKE_CURRENT_BINARY_DIR}/debian/shlibs)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME velmora)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION database)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS rlwrap)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
"A small relational database engine that lives inside a program, keeps its
tables in memory, logs every change before it is answered, and lets a cell hold
a timed value: a sequence of states that the clock moves through.
.
This package holds the shared library, the interactive shell velmora(1), the
manual of the command language, velmora-commands(7), and the documents.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME velmora-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "velmora (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
"A small relational database engine that lives inside a program, keeps its
tables in memory, logs every change before it is answered, and lets a cell hold
a timed value: a sequence of states that the clock moves through.
.
This package holds the headers for C and C++, the static library, the files
for CMake and pkg-config, the manual velmora(3), and examples.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-velmora)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_COMPONENT_PYTHON_DESCRIPTION
"A small relational database engine that lives inside a program, keeps its
tables in memory, logs every change before it is answered, and lets a cell hold
a timed value: a sequence of states that the clock moves through.
.
This package holds the module velmora for Python 3, after PEP 249, with the
engine inside it.")
include(CPack)
