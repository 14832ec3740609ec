# Runs at install time, so the units name the binary where this installation puts it: /usr/bin
# in the Debian package, PREFIX/bin for `cmake --install --prefix PREFIX`.
set(prefix "${CMAKE_INSTALL_PREFIX}")
set(BINDIR "${prefix}/bin")
set(DOCDIR "${prefix}/share/doc/tamlo-server")
if(prefix STREQUAL "/usr")
    # Debian 12 keeps system units in /lib; user units, sysusers.d and tmpfiles.d are under /usr.
    set(system_units "/lib/systemd/system")
else()
    set(system_units "${prefix}/lib/systemd/system")
endif()
foreach(pair
        "tamlo-server-system.service.in|${system_units}/tamlo-server.service"
        "tamlo-server.service.in|${prefix}/lib/systemd/user/tamlo-server.service"
        "tamlo-server.sysusers|${prefix}/lib/sysusers.d/tamlo-server.conf"
        "tamlo-server.tmpfiles|${prefix}/lib/tmpfiles.d/tamlo-server.conf")
    string(REPLACE "|" ";" pair "${pair}")
    list(GET pair 0 source)
    list(GET pair 1 target)
    message(STATUS "Installing: $ENV{DESTDIR}${target}")
    configure_file("${TAMLO_SERVER_PACKAGING_DIR}/${source}" "$ENV{DESTDIR}${target}" @ONLY)
    file(CHMOD "$ENV{DESTDIR}${target}" PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
    list(APPEND CMAKE_INSTALL_MANIFEST_FILES "$ENV{DESTDIR}${target}")
endforeach()
