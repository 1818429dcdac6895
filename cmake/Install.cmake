# What `cmake --install` puts where, for every target; and the Debian package made of it.
#
#   bin/            overseer, overseerctl, driver-depot
#   lib/            libnvsdk.so; lib/overseer/ the agent, where the host looks for it
#   include/nv/     what a driver is compiled against, lib/pkgconfig/nvsdk.pc how
#   lib/systemd/    the units, with this prefix's programs
#   share/doc/overseer/
#
# The tree may be moved as a whole: programs and agent find libnvsdk.so relative to themselves.

# Not the multiarch folder: the host looks for its agent in ../lib/overseer beside its program.
set(CMAKE_INSTALL_LIBDIR lib CACHE PATH "Object code libraries")
set(CMAKE_INSTALL_DOCDIR share/doc/overseer CACHE PATH "Documentation")
include(GNUInstallDirs)

set(agent_folder lib/overseer)
file(RELATIVE_PATH from_programs ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH from_agent ${CMAKE_INSTALL_PREFIX}/${agent_folder} ${CMAKE_INSTALL_FULL_LIBDIR})
string(REGEX REPLACE "/$" "" from_agent ${from_agent})
set_target_properties(overseer overseerctl driver-depot PROPERTIES
    INSTALL_RPATH $ORIGIN/${from_programs})
set_target_properties(norvane_agent_driverupdate PROPERTIES INSTALL_RPATH $ORIGIN/${from_agent})

install(TARGETS overseer overseerctl driver-depot nvsdk
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS norvane_agent_driverupdate LIBRARY DESTINATION ${agent_folder})
install(DIRECTORY host/sdk/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)

configure_file(cmake/nvsdk.pc.in install/nvsdk.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/install/nvsdk.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The units in deploy/ are those of a system installation, in /usr; another prefix gets its own, and
# which one it is shows only when installing (`--prefix`).
install(CODE "set(units ${CMAKE_SOURCE_DIR}/deploy)\nset(scratch ${CMAKE_BINARY_DIR}/install)")
install(CODE [[
    foreach(unit overseer.service driver-depot.service)
        file(READ ${units}/${unit} text)
        string(REGEX REPLACE "/usr/(bin|share)/" "${CMAKE_INSTALL_PREFIX}/\\1/" text "${text}")
        file(WRITE ${scratch}/${unit} "${text}")
        file(INSTALL ${scratch}/${unit} DESTINATION ${CMAKE_INSTALL_PREFIX}/lib/systemd/system)
    endforeach()
]])

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME overseer)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "The maintainers of this package <root@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "driver updates for home-automation controllers")
set(CPACK_PACKAGE_DESCRIPTION
    "The host process of a controller with its driver-update agent, the tool that talks to it, the
SDK that agents are compiled against, and a catalogue server for development and small sites.")
# Installed below DESTDIR, so that what is installed knows its prefix.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# What programs load by name is found by dpkg-shlibdeps; what they run or read is not.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "unzip, ca-certificates, passwd")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    "${CMAKE_SOURCE_DIR}/deploy/debian/postinst;${CMAKE_SOURCE_DIR}/deploy/debian/prerm;${CMAKE_SOURCE_DIR}/deploy/debian/postrm")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
