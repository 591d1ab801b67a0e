# Installation into a prefix and the Debian package made from it.
include(GNUInstallDirs)

set(VANTOREL_APP_ID io.vantorel.Vantorel)
set(_packaging ${PROJECT_SOURCE_DIR}/packaging)

install(TARGETS vantorel vantorel-mcp RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${_packaging}/${VANTOREL_APP_ID}.desktop
        DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${_packaging}/mime/vantorel.xml
        DESTINATION ${CMAKE_INSTALL_DATADIR}/mime/packages
        RENAME ${VANTOREL_APP_ID}.xml)
install(FILES ${_packaging}/icons/${VANTOREL_APP_ID}.svg
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
install(FILES ${_packaging}/icons/vantorel-symbolic.svg
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/symbolic/apps)
# Rendered from the SVG with `rsvg-convert -w 48 -h 48`, so building needs no SVG renderer.
install(FILES ${_packaging}/icons/${VANTOREL_APP_ID}.png
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/48x48/apps)

# The blocking rules, when this build could make them from EasyList and EasyPrivacy.
if(VANTOREL_ADBLOCK_RULES)
    install(FILES ${VANTOREL_ADBLOCK_RULES} DESTINATION ${CMAKE_INSTALL_DATADIR}/vantorel/AdBlock)
endif()

if(VANTOREL_TESTS)
    add_test(NAME packaging.install
             COMMAND ${_packaging}/check_install.sh ${PROJECT_BINARY_DIR})
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vantorel)
set(CPACK_PACKAGE_VENDOR "Vantorel developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "Websites, apps, files and folders one click away in the menu bar")
set(CPACK_PACKAGE_DESCRIPTION
    "Each bar is a set of shortcuts shown as icons in the system tray; a click opens a web page, \
an application, a file, a folder or a menu of further shortcuts. Global keys reach the icons, \
and AI assistants can propose changes through the vantorel-mcp bridge.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Vantorel developers")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Qt loads its plug-ins, which the library scan cannot see: the SVG icon engine (without it
# symbolic theme icons come out as flat silhouettes that take no colour) and the image formats
# that read sites' WebP icons.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libqt6svg6, qt6-image-formats-plugins")
# The desktop database, MIME database and icon cache are refreshed by those packages' triggers.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "shared-mime-info, desktop-file-utils, xdg-utils")
include(CPack)
