# Quorvane.app as GNUstep wants it, and what a Linux desktop needs to find it.
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

set(bundle_from_bin ../${CMAKE_INSTALL_LIBDIR}/quorvane/Quorvane.app)
configure_file(desktop/quorvane-desktop.in quorvane-desktop @ONLY)
install(TARGETS Quorvane DESTINATION ${CMAKE_INSTALL_LIBDIR}/quorvane/Quorvane.app)
install(DIRECTORY ${bundle}/Resources DESTINATION ${CMAKE_INSTALL_LIBDIR}/quorvane/Quorvane.app)
install(PROGRAMS ${CMAKE_CURRENT_BINARY_DIR}/quorvane-desktop DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES desktop/quorvane.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES desktop/quorvane.svg
  DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
