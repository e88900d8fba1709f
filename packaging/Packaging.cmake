# The desktop integration files, the icon compiled into the application, install rules and the
# .deb package. Included once, at the end of the top-level CMakeLists.txt.
include(GNUInstallDirs)

# The same drawing serves as the window and tray icon at run time.
qt_add_resources(tovren_app tovren_icons
    PREFIX /icons
    BASE ${CMAKE_CURRENT_LIST_DIR}
    FILES ${CMAKE_CURRENT_LIST_DIR}/tovren.svg)

install(FILES ${CMAKE_CURRENT_LIST_DIR}/tovren.desktop
        DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/tovren.svg
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/tovren.metainfo.xml
        DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tovren)
set(CPACK_PACKAGE_VENDOR "Tovren developers")
set(CPACK_PACKAGE_CONTACT "Tovren developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "private, local-first work journal")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Tovren developers")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
# The summary above is the first line; this is the rest.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "Tovren keeps daily pages, tasks, people, meetings and goals in one local\n\
store on this computer, with no account and no cloud. Assistants on the same\n\
machine can read and write the journal through a loopback listener that is\n\
off until the user turns it on.")
# Libraries the binary links come from dpkg-shlibdeps; what Qt loads at run time as plugins
# (the display connection, the SVG icon engine) it can't see, so those are named here.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins, libqt6svg6 (>= 6.4)")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "netcat-openbsd, gnome-keyring, xdg-utils")
include(CPack)
