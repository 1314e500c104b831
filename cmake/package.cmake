# cmake --build ... --target package writes a .deb for the command line and, where it is built, one
# for the window; their dependencies come from the programs' libraries.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quorvane)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
# The project has no mailbox yet. The domain .invalid shows it: mail to that domain is never delivered (RFC 2606).
set(CPACK_PACKAGE_CONTACT "The Quorvane developers <developers@quorvane.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "leveler for spoken word")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS OFF)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/${CMAKE_INSTALL_LIBDIR})

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL commands library library_dev)
set(CPACK_DEBIAN_COMMANDS_PACKAGE_NAME quorvane)
set(CPACK_COMPONENT_COMMANDS_DESCRIPTION
  "Levels recordings of interviews, talks and podcasts on the command\nline: whole folders on all cores, in their own formats and with their\nmetadata.")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libquorvane0)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
# Videos and phone memos take the module, which must be of the same build.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SUGGESTS "quorvane (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_LIST_DIR}/library/triggers ${CMAKE_CURRENT_BINARY_DIR}/debian/shlibs)
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/debian/shlibs
  "libquorvane ${QUORVANE_ABI} libquorvane0 (>= ${PROJECT_VERSION})\n")
install(FILES ${CMAKE_CURRENT_LIST_DIR}/library/lintian-overrides
  DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME libquorvane0 COMPONENT library)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION
  "Levels, measures and limits recordings of speech inside other programs:\nthe shared library.")
set(CPACK_DEBIAN_LIBRARY_DEV_PACKAGE_NAME libquorvane-dev)
set(CPACK_DEBIAN_LIBRARY_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_LIBRARY_DEV_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_LIBRARY_DEV_PACKAGE_DEPENDS "libquorvane0 (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_LIBRARY_DEV_DESCRIPTION
  "Levels, measures and limits recordings of speech inside other programs:\nheader, archive, and files for pkg-config and CMake.")
if(TARGET quorvane_python)
  list(APPEND CPACK_COMPONENTS_ALL python)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-quorvane)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
    "libquorvane0 (= ${PROJECT_VERSION}), python3-numpy, ${QUORVANE_PYTHON_VERSIONS}")
  set(CPACK_COMPONENT_PYTHON_DESCRIPTION
    "Levels, measures and limits recordings of speech in numpy arrays, over\nlibquorvane.")
endif()
if(TARGET quorvane-desktop)
  list(APPEND CPACK_COMPONENTS_ALL desktop)
  set(CPACK_DEBIAN_DESKTOP_PACKAGE_NAME quorvane-desktop)
  set(CPACK_COMPONENT_DESKTOP_DESCRIPTION
    "Recordings that are dropped on its window get a leveled copy beside\nthem. It shows the loudness before and after, and a report with both to\nlisten to.")
  # The module for videos and phone memos, which must be of the same build, comes with the commands.
  set(CPACK_DEBIAN_DESKTOP_PACKAGE_DEPENDS "quorvane (= ${PROJECT_VERSION})")
  # Wayland, dark and light of GNOME's kind of desktops, and Qt's own words in the user's language.
  set(CPACK_DEBIAN_DESKTOP_PACKAGE_RECOMMENDS
    "qt6-wayland, qt6-gtk-platformtheme, qt6-translations-l10n, xdg-desktop-portal")
endif()

# Policy wants a packed changelog and the copyright in each package.
if(GZIP AND CMAKE_SYSTEM_NAME STREQUAL "Linux")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS CHANGELOG.md)
  set(changelog ${CMAKE_BINARY_DIR}/debian/changelog)
  file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/debian)
  execute_process(
    COMMAND ${CMAKE_CURRENT_LIST_DIR}/debian-changelog quorvane ${CPACK_PACKAGE_CONTACT}
    INPUT_FILE ${PROJECT_SOURCE_DIR}/CHANGELOG.md
    OUTPUT_FILE ${changelog}
    COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND ${GZIP} -9nf ${changelog} COMMAND_ERROR_IS_FATAL ANY)
  foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} upper)
    install(FILES ${changelog}.gz ${CMAKE_CURRENT_LIST_DIR}/copyright
      DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME}
      COMPONENT ${component})
  endforeach()
endif()
include(CPack)
