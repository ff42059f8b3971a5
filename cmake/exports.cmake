# The names that a shared library exports. Hidden visibility alone is not enough: templates of the
# standard library that the engine instantiates carry default visibility and would be exported, so
# a version script, made from a plain list of names, hides all that is not listed.

function(velmora_export_only target list_file)
  set(list_path ${CMAKE_CURRENT_SOURCE_DIR}/${list_file})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${list_path})
  file(STRINGS ${list_path} names)
  list(JOIN names ";\n    " lines)
  set(script ${CMAKE_CURRENT_BINARY_DIR}/${target}.map)
  file(CONFIGURE OUTPUT ${script} @ONLY
    CONTENT "{\n  global:\n    ${lines};\n  local:\n    *;\n};\n")
  target_link_options(${target} PRIVATE -Wl,--version-script=${script})
  set_target_properties(${target} PROPERTIES LINK_DEPENDS ${script})
endfunction()
