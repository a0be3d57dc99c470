# What is installed, and where. One tree for everybody who builds from source; debian/ sorts the same files into packages.
include(CMakePackageConfigHelpers)

# Below a prefix that the loader does not search, the installed files find one another. Packagers, whose prefix is searched,
# set CMAKE_SKIP_INSTALL_RPATH.
file(RELATIVE_PATH bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(hbadiscovery PROPERTIES INSTALL_RPATH "$ORIGIN")
set_target_properties(hbadisc hbadisc-agent PROPERTIES INSTALL_RPATH "$ORIGIN/${bin_to_lib}")

install(TARGETS hbadiscovery EXPORT HbaDiscoveryTargets)
install(TARGETS rmapi_open hbadisc hbadisc-agent)
install(FILES include/hbadiscovery.h include/hbadiscovery_follow.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# For those who write a provider, or tell the open one what to look at.
install(FILES rmapi/rmapi.h provider/OpenProvider.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/rmapi)

# find_package(HbaDiscovery)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/HbaDiscovery)
install(EXPORT HbaDiscoveryTargets NAMESPACE HbaDiscovery:: DESTINATION ${package_dir})
configure_package_config_file(cmake/HbaDiscoveryConfig.cmake.in HbaDiscoveryConfig.cmake
  INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(HbaDiscoveryConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/HbaDiscoveryConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/HbaDiscoveryConfigVersion.cmake DESTINATION ${package_dir})

# pkg-config hbadiscovery; relative to the file itself, so that an installed tree can be moved. Not so where it is clear
# that nobody does: there pkg-config knows that the compiler looks by itself.
set(pc_prefix /usr)
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  file(RELATIVE_PATH pc_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  set(pc_prefix "\${pcfiledir}/${pc_prefix}")
endif()
configure_file(cmake/hbadiscovery.pc.in hbadiscovery.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/hbadiscovery.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(FILES tools/completion/hbadisc.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
        RENAME hbadisc)
install(FILES tools/completion/_hbadisc DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
configure_file(agent/hbadisc-agent.service.in hbadisc-agent.service @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/hbadisc-agent.service DESTINATION lib/systemd/system)

# Documents and examples lie to one another as in the source tree, for the links between them; the man pages name these
# folders.
set(dev_doc ${CMAKE_INSTALL_DATADIR}/doc/libhbadiscovery-dev)
install(FILES examples/list_ports.c examples/watch_ports.cpp examples/minimal_provider.c
        DESTINATION ${dev_doc}/examples)
install(FILES docs/provider.md DESTINATION ${dev_doc}/docs)
set(tools_doc ${CMAKE_INSTALL_DATADIR}/doc/hbadiscovery-tools)
install(FILES examples/small-host.json examples/datacenter-host.json examples/datacenter-fabric.json
              examples/flaky-host.json examples/fabric.schema.json
        DESTINATION ${tools_doc}/examples)
install(DIRECTORY examples/hosts DESTINATION ${tools_doc}/examples)
install(FILES docs/fabric-file.md docs/sysfs-host.md docs/remote-hosts.md docs/agent.md
        DESTINATION ${tools_doc}/docs)
