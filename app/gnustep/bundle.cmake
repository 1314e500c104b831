# Quorvane.app as GNUstep wants it, in the build folder only: Linux desktops get desktop/.
set(bundle ${CMAKE_BINARY_DIR}/Quorvane.app)
set_target_properties(Quorvane PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${bundle})
configure_file(${resources}/Info-gnustep.plist ${bundle}/Resources/Info-gnustep.plist @ONLY)

set(copied "")
list(TRANSFORM interfaces APPEND .xib OUTPUT_VARIABLE files)
list(APPEND files Acknowledgements.rtf Quorvane.png)
list(TRANSFORM fonts PREPEND Fonts/ OUTPUT_VARIABLE font_files)
list(APPEND files ${font_files})
foreach(file IN LISTS files)
  add_custom_command(
    OUTPUT ${bundle}/Resources/${file}
    COMMAND ${CMAKE_COMMAND} -E copy ${resources}/${file} ${bundle}/Resources/${file}
    DEPENDS ${resources}/${file}
    VERBATIM)
  list(APPEND copied ${bundle}/Resources/${file})
endforeach()
add_custom_target(quorvane_resources DEPENDS ${copied})
add_dependencies(Quorvane quorvane_resources)
