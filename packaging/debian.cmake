# What a Debian package has beyond an installation: run by cpack between the two, on the files of
# the packages in ${CPACK_TEMPORARY_DIRECTORY}/COMPONENT. The control files that are the same for
# every build are made by cmake/install.cmake.

if(NOT CPACK_GENERATOR STREQUAL "DEB")
  return()
endif()
set(runtime ${CPACK_TEMPORARY_DIRECTORY}/runtime/usr)
set(development ${CPACK_TEMPORARY_DIRECTORY}/development/usr)
set(tools ${CPACK_TEMPORARY_DIRECTORY}/tools/usr)
set(python ${CPACK_TEMPORARY_DIRECTORY}/python/usr)
set(documents ${runtime}/share/doc/velmora)

if(EXISTS ${tools})
  file(MAKE_DIRECTORY ${tools}/share/doc)
endif()
# Whatever the builder's umask is.
execute_process(COMMAND find ${CPACK_TEMPORARY_DIRECTORY} -mindepth 1 -type d -exec chmod 755 {} +
  COMMAND_ERROR_IS_FATAL ANY)

# The licence, as a package has to name it: indented, with dots for empty lines.
file(READ ${documents}/LICENSE licence)
string(REGEX REPLACE "^.*Copyright \\(c\\) ([^\n]*)\n\n(.*)\n$" "\\2" licence "${licence}")
set(holder "${CMAKE_MATCH_1}")
string(REPLACE "\n\n" "\n.\n" licence "${licence}")
string(REPLACE "\n" "\n " licence "${licence}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/copyright.in ${documents}/copyright @ONLY)
file(REMOVE ${documents}/LICENSE)
file(READ ${documents}/README.md readme)
string(REPLACE "](LICENSE)" "](copyright)" readme "${readme}")
file(WRITE ${documents}/README.md "${readme}")

string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${CMAKE_CURRENT_LIST_DIR}/changelog.in ${documents}/changelog @ONLY)
file(CHMOD ${documents}/copyright ${documents}/changelog
  PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
# These depend on velmora of the same version, and may refer to its documents.
file(CREATE_LINK velmora ${development}/share/doc/velmora-dev SYMBOLIC)
if(EXISTS ${tools})
  file(CREATE_LINK velmora ${tools}/share/doc/velmora-tools SYMBOLIC)
endif()

file(GLOB pages ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/*/*)
execute_process(COMMAND gzip -n9 ${documents}/changelog ${pages} COMMAND_ERROR_IS_FATAL ANY)

# The package for Python depends on no other, so its documents are its own.
if(EXISTS ${python})
  set(python_documents ${python}/share/doc/python3-velmora)
  file(COPY ${documents}/copyright ${documents}/changelog.gz DESTINATION ${python_documents})
  execute_process(COMMAND find ${python} -type d -exec chmod 755 {} +
    COMMAND_ERROR_IS_FATAL ANY)
endif()

# CPACK_DEBIAN_PACKAGE_SHLIBDEPS would come with scripts that call ldconfig; a package that has a
# postrm is not forgotten when it is removed. dpkg-shlibdeps looks for a source package, and above
# the files for the directory DEBIAN.
file(GLOB_RECURSE library ${runtime}/lib*/libvelmora.so.${CPACK_PACKAGE_VERSION})
file(WRITE ${CPACK_TEMPORARY_DIRECTORY}/debian/control "")
file(MAKE_DIRECTORY ${CPACK_TEMPORARY_DIRECTORY}/DEBIAN)
function(shared_libraries_of variable)
  execute_process(COMMAND dpkg-shlibdeps -O ${ARGN}
    WORKING_DIRECTORY ${CPACK_TEMPORARY_DIRECTORY}
    OUTPUT_VARIABLE needs OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  string(REPLACE "shlibs:Depends=" "" needs "${needs}")
  set(${variable} "${needs}" PARENT_SCOPE)
endfunction()
shared_libraries_of(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS ${runtime}/bin/velmora ${library})
if(EXISTS ${tools})
  shared_libraries_of(needs ${tools}/bin/velmora-tool)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "velmora (= ${CPACK_PACKAGE_VERSION}), ${needs}")
endif()
if(EXISTS ${python})
  file(GLOB extension ${python}/lib/python3/dist-packages/velmora/*.so)
  shared_libraries_of(needs ${extension})
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= 3.9), ${needs}")
endif()
