# Installation and the Debian package.
#
# Layout under the prefix (/usr in the package):
#   bin/mailvane
#   share/mailvane/          the installation folder the program looks for as
#                            <its own folder>/../share/mailvane: Database/_mvblank.mdb,
#                            the toolbar faces, the status animation, resources/rules,
#                            help/ (and docs/screenshots for the manual, when made)
#   share/applications/mailvane.desktop, share/icons/hicolor/48x48/apps/mailvane.png
#   lib/systemd/user/mailvane.service
#
# Build the package from a build without sanitizers:
#   cmake --preset release && cmake --build build/release -j2 --target mailvane
#   (cd build/release && cpack -G DEB)

include(GNUInstallDirs)

set(MV_INSTALL_DATA "${CMAKE_INSTALL_DATADIR}/mailvane")

# The manual sits in the build tree too, where the build tree is the
# installation folder.
add_custom_target(mv_help ALL
  COMMAND ${CMAKE_COMMAND} -E copy_directory ${PROJECT_SOURCE_DIR}/help ${PROJECT_BINARY_DIR}/help
  COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/docs/screenshots
  COMMAND ${CMAKE_COMMAND} -E copy_directory ${PROJECT_SOURCE_DIR}/docs/screenshots ${PROJECT_BINARY_DIR}/docs/screenshots
  COMMENT "Copying the manual")

install(TARGETS mailvane RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${PROJECT_BINARY_DIR}/Database/_mvblank.mdb DESTINATION ${MV_INSTALL_DATA}/Database)
install(FILES
  ${PROJECT_SOURCE_DIR}/resources/mv1.bmp
  ${PROJECT_SOURCE_DIR}/resources/mv2.bmp
  ${PROJECT_SOURCE_DIR}/resources/mv3.bmp
  ${PROJECT_SOURCE_DIR}/resources/mv4.bmp
  "${PROJECT_SOURCE_DIR}/resources/mail search.png"
  DESTINATION ${MV_INSTALL_DATA})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/resources/rules DESTINATION ${MV_INSTALL_DATA}/resources)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/help/ DESTINATION ${MV_INSTALL_DATA}/help)
# The manual's pictures, made by a separate step; the manual reads without them.
if(EXISTS ${PROJECT_SOURCE_DIR}/docs/screenshots)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/screenshots DESTINATION ${MV_INSTALL_DATA}/docs
    FILES_MATCHING PATTERN "*.png")
endif()
install(FILES ${PROJECT_SOURCE_DIR}/packaging/mailvane.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/mailvane.png
  DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/48x48/apps)

# The service unit names the program by its full path, which is known only
# when installing (cpack installs under its own prefix), so it is written then.
file(READ ${PROJECT_SOURCE_DIR}/host/mailvane.service _unit)
string(REGEX REPLACE "^(#[^\n]*\n)+" "# Mailvane's rules as a per-user service:\n#   systemctl --user enable --now mailvane\n"
  _unit "${_unit}")
string(REGEX REPLACE "\nExecStart=[^ \n]*mailvane" "\nExecStart=@MV_BINDIR@/mailvane" _unit "${_unit}")
file(WRITE ${PROJECT_BINARY_DIR}/packaging/mailvane.service.in "${_unit}")
install(CODE "
  set(MV_BINDIR \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
  set(_dest \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/lib/systemd/user/mailvane.service\")
  message(STATUS \"Installing: \${_dest}\")
  configure_file(\"${PROJECT_BINARY_DIR}/packaging/mailvane.service.in\" \"\${_dest}\" @ONLY)
")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME mailvane)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "Sorquin Software")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "mail rules for Maildir folders and IMAP accounts")
set(CPACK_PACKAGE_DESCRIPTION "Mailvane keeps an ordered list of rules; each names a source folder, a destination
folder and criteria on sender, recipients, subject, body, importance, read state, flags and age. Matching mail
is moved hourly, after new mail and on demand, from a desktop window, the command line or a user service.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Mailvane maintainers <maintainers@mailvane.invalid>")
set(CPACK_DEBIAN_PACKAGE_SECTION mail)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://mailvane.invalid/")
# Debian 12's runtime libraries of what the program links (dpkg-shlibdeps
# finds the same set), and the Qt platform plugins a window needs.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.36), libstdc++6 (>= 12), libgcc-s1, \
libqt6core6 (>= 6.4), libqt6gui6 (>= 6.4), libqt6widgets6 (>= 6.4), libqt6network6 (>= 6.4), qt6-qpa-plugins, \
libsqlite3-0 (>= 3.40), libgmime-3.0-0 (>= 3.2), libglib2.0-0, libetpan20 (>= 1.9)")
# xdg-open shows the manual in the desktop's browser; mdbtools reads the
# earlier release's rule database for "import --from mdb".
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "xdg-utils")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "mdbtools")
include(CPack)
