# `make package`: two Debian packages, tamlo (the app) and tamlo-server, from the install rules of
# the components app and server. The version comes from git; a tree without git uses the project's.
include_guard(GLOBAL)

set(TAMLO_PACKAGE_MAINTAINER "The Tamlo developers <packages@tamlo.invalid>"
    CACHE STRING "Maintainer field of the Debian packages")

set(TAMLO_PACKAGE_VERSION "${PROJECT_VERSION}")
set(TAMLO_PACKAGE_DATE "")
find_package(Git QUIET)
if(GIT_FOUND AND EXISTS "${PROJECT_SOURCE_DIR}/.git")
    # v1.2.0-5-gabc1234 gives 1.2.0+git5.gabc1234; without a release tag the count runs from the
    # first commit, so a later build always sorts after an earlier one.
    execute_process(COMMAND "${GIT_EXECUTABLE}" describe --tags --long --match "v[0-9]*" --dirty=.dirty
        WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}" OUTPUT_VARIABLE describe OUTPUT_STRIP_TRAILING_WHITESPACE
        RESULT_VARIABLE describe_failed ERROR_QUIET)
    if(NOT describe_failed AND describe MATCHES "^v([0-9][^-]*)-([0-9]+)-(g[0-9a-f]+)(.*)$")
        set(TAMLO_PACKAGE_VERSION "${CMAKE_MATCH_1}")
        if(NOT CMAKE_MATCH_2 EQUAL 0 OR CMAKE_MATCH_4)
            string(APPEND TAMLO_PACKAGE_VERSION "+git${CMAKE_MATCH_2}.${CMAKE_MATCH_3}${CMAKE_MATCH_4}")
        endif()
    else()
        execute_process(COMMAND "${GIT_EXECUTABLE}" rev-list --count HEAD
            WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}" OUTPUT_VARIABLE count OUTPUT_STRIP_TRAILING_WHITESPACE
            RESULT_VARIABLE count_failed ERROR_QUIET)
        execute_process(COMMAND "${GIT_EXECUTABLE}" describe --always --abbrev=7 --dirty=.dirty
            WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}" OUTPUT_VARIABLE commit OUTPUT_STRIP_TRAILING_WHITESPACE
            ERROR_QUIET)
        if(NOT count_failed AND count MATCHES "^[0-9]+$" AND commit)
            set(TAMLO_PACKAGE_VERSION "${PROJECT_VERSION}+git${count}.g${commit}")
        endif()
    endif()
    execute_process(COMMAND "${GIT_EXECUTABLE}" log -1 --format=%aD
        WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}" OUTPUT_VARIABLE TAMLO_PACKAGE_DATE
        OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
if(NOT TAMLO_PACKAGE_DATE)
    string(TIMESTAMP TAMLO_PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
endif()

# Each package's copyright and Debian changelog. Only a package build installs them.
function(tamlo_package_docs component package)
    set(TAMLO_PACKAGE_NAME "${package}")
    set(dir "${PROJECT_BINARY_DIR}/package-docs/${package}")
    configure_file("${PROJECT_SOURCE_DIR}/cmake/debian/changelog.in" "${dir}/changelog" @ONLY)
    add_custom_command(OUTPUT "${dir}/changelog.gz"
        COMMAND gzip -9nkf "${dir}/changelog"
        DEPENDS "${dir}/changelog")
    add_custom_target(${package}_changelog ALL DEPENDS "${dir}/changelog.gz")
    install(FILES "${PROJECT_SOURCE_DIR}/cmake/debian/copyright" "${dir}/changelog.gz"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${package}" COMPONENT ${component} EXCLUDE_FROM_ALL)
endfunction()

# A manual page from SOURCE, compressed as Debian wants it.
function(tamlo_install_man_page component source)
    get_filename_component(name "${source}" NAME)
    string(REGEX REPLACE ".*\\.([0-9])$" "\\1" section "${name}")
    set(out "${PROJECT_BINARY_DIR}/man/${name}.gz")
    add_custom_command(OUTPUT "${out}"
        COMMAND "${CMAKE_COMMAND}" -E make_directory "${PROJECT_BINARY_DIR}/man"
        COMMAND gzip -9nc "${source}" > "${out}"
        DEPENDS "${source}")
    add_custom_target(man_${name} ALL DEPENDS "${out}")
    install(FILES "${out}" DESTINATION "${CMAKE_INSTALL_MANDIR}/man${section}" COMPONENT ${component})
endfunction()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tamlo)
set(CPACK_PACKAGE_VENDOR "The Tamlo developers")
set(CPACK_PACKAGE_CONTACT "${TAMLO_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGE_VERSION "${TAMLO_PACKAGE_VERSION}")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL app server)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS OFF)

set(CPACK_DEBIAN_APP_PACKAGE_NAME tamlo)
set(CPACK_DEBIAN_APP_PACKAGE_SECTION utils)
# What the program loads at run time and dpkg-shlibdeps cannot see: the QML modules of its
# screens, the X11 platform plugin, the SVG icon loader and the font of its symbols.
set(CPACK_DEBIAN_APP_PACKAGE_DEPENDS
    "qml6-module-qtquick, qml6-module-qtquick-controls, qml6-module-qtquick-templates, \
qml6-module-qtquick-layouts, qml6-module-qtquick-window, qml6-module-qtquick-shapes, \
qml6-module-qtquick-dialogs, qml6-module-qtcore, qml6-module-qtqml-workerscript, \
qml6-module-qt-labs-folderlistmodel, qt6-qpa-plugins, libqt6svg6, fonts-material-design-icons-iconfont")
set(CPACK_DEBIAN_APP_PACKAGE_RECOMMENDS "tamlo-server, qt6-wayland, xdg-utils")
set(CPACK_DEBIAN_APP_DESCRIPTION "private activity tracker with a local AI model
Tamlo sits in the system tray. Every 30 seconds it takes a screenshot, asks a
vision model running on this machine under Ollama what you are doing, and
records a category and a project from your own short lists, with a one-line
description. The screenshot is never written to disk and never leaves the
machine. Each finished day becomes a daily report and CSV files under
~/Documents/Tamlo.
.
After a web sign-in, labels, descriptions and notes sync to a Tamlo server,
for example the one in the tamlo-server package.")

set(CPACK_DEBIAN_SERVER_PACKAGE_NAME tamlo-server)
set(CPACK_DEBIAN_SERVER_PACKAGE_SECTION net)
set(CPACK_DEBIAN_SERVER_PACKAGE_DEPENDS "libqt6sql6-sqlite, adduser")
set(CPACK_DEBIAN_SERVER_PACKAGE_SUGGESTS "libqt6sql6-psql")
set(CPACK_DEBIAN_SERVER_DESCRIPTION "Tamlo's own backend: sign-in pages and activity sync
tamlo-server serves the sign-in pages that the Tamlo app opens in the browser
and receives the labels, descriptions and notes it uploads, never
screenshots. In the browser it shows each user their days from every
machine, their devices and sessions, and exports or deletes their data.
.
It runs for one person as a systemd user unit on 127.0.0.1:8787 with SQLite,
or for a team as a system service on PostgreSQL behind a TLS reverse proxy.")
set(packaging "${PROJECT_SOURCE_DIR}/src/server/packaging")
set(CPACK_DEBIAN_SERVER_PACKAGE_CONTROL_EXTRA "${packaging}/postinst;${packaging}/prerm;${packaging}/postrm")

include(CPack)
