# The Debian packages, one per component of Install.cmake: "cpack" in the build folder, or script/package.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "the rkm authors")
set(CPACK_PACKAGE_CONTACT ${RKM_MAINTAINER})
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian/Polish.cmake)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL client library development service publisher)
# With DESTDIR the install rules see the final path of the files.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/lib)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(SAME_VERSION "(= ${PROJECT_VERSION})")

# The library of exactly this version: it shares the protocol and the stores with the service.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libvkcore1)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
configure_file(packaging/debian/shlibs.in packaging/shlibs @ONLY)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/debian/triggers;${CMAKE_BINARY_DIR}/packaging/shlibs)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "library of the update service's clients
Configuration, log, value types and the connection to vkservice, for rkm
and other clients.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvkcore-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libvkcore1 ${SAME_VERSION}, qt6-base-dev")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "headers for clients of the update service
What a program needs to be built with libvkcore.")

set(CPACK_DEBIAN_CLIENT_PACKAGE_NAME rkm)
set(CPACK_DEBIAN_CLIENT_PACKAGE_DEPENDS "libvkcore1 ${SAME_VERSION}, vkservice ${SAME_VERSION}")
set(CPACK_DEBIAN_CLIENT_DESCRIPTION "command line client of the update service
Shows and changes the settings of vkservice, starts an update and follows
it to its end, and reads the log of what was installed. With it comes vkctl,
which proves and repairs the installed packages.")

set(CPACK_DEBIAN_SERVICE_PACKAGE_NAME vkservice)
set(CPACK_DEBIAN_SERVICE_PACKAGE_DEPENDS "libvkcore1 ${SAME_VERSION}, \
systemd | systemd-standalone-sysusers | systemd-sysusers, systemd | systemd-standalone-tmpfiles | systemd-tmpfiles")
set(CPACK_DEBIAN_SERVICE_PACKAGE_RECOMMENDS "rkm, ca-certificates, polkitd")
set(CPACK_DEBIAN_SERVICE_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/debian/conffiles;${PROJECT_SOURCE_DIR}/packaging/debian/postinst;${PROJECT_SOURCE_DIR}/packaging/debian/prerm;${PROJECT_SOURCE_DIR}/packaging/debian/postrm)
set(CPACK_DEBIAN_SERVICE_DESCRIPTION "service that installs signed updates
Installs new packages from signed repositories over https or in folders,
atomically, on request or on a schedule, and reports by e-mail.")

set(CPACK_DEBIAN_PUBLISHER_PACKAGE_NAME vkpublish)
set(CPACK_DEBIAN_PUBLISHER_PACKAGE_DEPENDS "libvkcore1 ${SAME_VERSION}")
set(CPACK_DEBIAN_PUBLISHER_PACKAGE_RECOMMENDS "ca-certificates")
set(PUBLISHER_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian/publisher)
set(CPACK_DEBIAN_PUBLISHER_PACKAGE_CONTROL_EXTRA
    ${PUBLISHER_SCRIPTS}/postinst;${PUBLISHER_SCRIPTS}/prerm;${PUBLISHER_SCRIPTS}/postrm)
set(CPACK_DEBIAN_PUBLISHER_DESCRIPTION "publisher of signed updates
Packs folders, signs what machines may install, and renews the signatures
of an update repository. Keeps verified copies of repositories for sites.")

include(CPack)
