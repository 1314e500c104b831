# cmake --build ... --target package writes a .deb for the command line and, where it is built, one
# for the window; their dependencies come from the programs' libraries.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quorvane)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "The Quorvane developers <quorvane@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "leveler for spoken word")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS OFF)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL commands)
set(CPACK_DEBIAN_COMMANDS_PACKAGE_NAME quorvane)
set(CPACK_COMPONENT_COMMANDS_DESCRIPTION
  "Levels recordings of interviews, talks and podcasts on the command\nline: whole folders on all cores, in their own formats and with their\nmetadata.")
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
include(CPack)
