# install_manual(PAGE COMPONENT): installs a manual page, packed as man reads it and Debian wants it.
find_program(GZIP gzip)

function(install_manual page component)
  get_filename_component(name ${page} NAME)
  string(REGEX MATCH "[0-9]$" section ${name})
  set(installed ${page})
  if(GZIP)
    set(folder ${CMAKE_CURRENT_BINARY_DIR}/manuals)
    set(installed ${folder}/${name}.gz)
    add_custom_command(
      OUTPUT ${installed}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${folder}
      COMMAND ${CMAKE_COMMAND} -E copy ${page} ${folder}/${name}
      COMMAND ${GZIP} -9nf ${folder}/${name}
      DEPENDS ${page}
      VERBATIM)
    add_custom_target(manual_${name} ALL DEPENDS ${installed})
  endif()
  install(FILES ${installed}
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
endfunction()
