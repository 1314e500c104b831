# Quorvane.app as macOS wants it: compiled interface files, fonts and the property list.
configure_file(${resources}/Info.plist ${CMAKE_CURRENT_BINARY_DIR}/Info.plist @ONLY)
set_target_properties(Quorvane PROPERTIES
  MACOSX_BUNDLE ON
  MACOSX_BUNDLE_INFO_PLIST ${CMAKE_CURRENT_BINARY_DIR}/Info.plist
  RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})

find_program(IBTOOL ibtool REQUIRED)
foreach(interface IN LISTS interfaces)
  set(nib ${CMAKE_CURRENT_BINARY_DIR}/${interface}.nib)
  add_custom_command(
    OUTPUT ${nib}
    COMMAND ${IBTOOL} --errors --warnings --output-format human-readable-text
            --compile ${nib} ${resources}/${interface}.xib
    DEPENDS ${resources}/${interface}.xib
    VERBATIM)
  target_sources(Quorvane PRIVATE ${nib})
  set_source_files_properties(${nib} PROPERTIES
    GENERATED ON MACOSX_PACKAGE_LOCATION Resources)
endforeach()
target_sources(Quorvane PRIVATE ${resources}/Acknowledgements.rtf)
set_source_files_properties(${resources}/Acknowledgements.rtf PROPERTIES
  MACOSX_PACKAGE_LOCATION Resources)
foreach(font IN LISTS fonts)
  target_sources(Quorvane PRIVATE ${resources}/Fonts/${font})
  set_source_files_properties(${resources}/Fonts/${font} PROPERTIES
    MACOSX_PACKAGE_LOCATION Resources/Fonts)
endforeach()

install(TARGETS Quorvane BUNDLE DESTINATION .)
