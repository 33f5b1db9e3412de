# Assigns files to components. Each component becomes one Debian package; see Package.cmake.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME client)
set(SHARE ${CMAKE_INSTALL_DATADIR})
set(BUILT_SHARE ${CMAKE_BINARY_DIR}/share)

install(TARGETS rkm RUNTIME COMPONENT client)
install(FILES docs/man/rkm.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT client)
install(FILES ${BUILT_SHARE}/bash-completion/completions/rkm
    DESTINATION ${SHARE}/bash-completion/completions COMPONENT client)
install(FILES ${BUILT_SHARE}/zsh/vendor-completions/_rkm DESTINATION ${SHARE}/zsh/vendor-completions COMPONENT client)
install(FILES ${BUILT_SHARE}/fish/vendor_completions.d/rkm.fish
    DESTINATION ${SHARE}/fish/vendor_completions.d COMPONENT client)
install(PROGRAMS packaging/completion/service-words DESTINATION ${SHARE}/rkm/completion COMPONENT client)
if(TARGET vkctl)
    install(TARGETS vkctl RUNTIME COMPONENT client)
    install(FILES docs/man/vkctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT client)
    install(FILES packaging/completion/vkctl.bash DESTINATION ${SHARE}/bash-completion/completions RENAME vkctl
        COMPONENT client)
endif()
install(DIRECTORY ${BUILT_SHARE}/rkm/locale DESTINATION ${SHARE}/rkm COMPONENT library FILES_MATCHING PATTERN *.qm)

if(NOT VKCORE_ROOT)
    install(TARGETS vkcore
        LIBRARY COMPONENT library NAMELINK_COMPONENT development)
    install(TARGETS vkcore_installlog LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/vkcore COMPONENT library)
    install(DIRECTORY src/vkcore/include/vkcore DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
endif()
install(FILES docs/man/vk.cfg.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT library)

if(TARGET vkservice)
install(TARGETS vkservice RUNTIME COMPONENT service)
endif()
install(TARGETS vkprocesses RUNTIME DESTINATION ${CMAKE_INSTALL_LIBEXECDIR} COMPONENT service)
install(FILES docs/man/vkservice.8 docs/man/vkprocesses.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT service)
# The units have the paths of the programs, which are known only at installation.
foreach(UNIT vkservice vkprocesses@)
    install(CODE "
        set(CMAKE_INSTALL_LIBEXECDIR ${CMAKE_INSTALL_LIBEXECDIR})
        configure_file(${PROJECT_SOURCE_DIR}/packaging/systemd/${UNIT}.service.in
            ${CMAKE_BINARY_DIR}/packaging/${UNIT}.service @ONLY)" COMPONENT service)
    install(FILES ${CMAKE_BINARY_DIR}/packaging/${UNIT}.service DESTINATION lib/systemd/system COMPONENT service)
endforeach()
install(FILES packaging/systemd/vkservice.socket packaging/systemd/vkprocesses.socket
    DESTINATION lib/systemd/system COMPONENT service)
install(FILES packaging/systemd/vkservice.sysusers DESTINATION lib/sysusers.d RENAME vkservice.conf COMPONENT service)
install(FILES packaging/polkit/vkservice.rules DESTINATION ${SHARE}/polkit-1/rules.d COMPONENT service)
install(FILES packaging/systemd/vkservice.tmpfiles DESTINATION lib/tmpfiles.d RENAME vkservice.conf COMPONENT service)
# Only in the package: below another prefix it would make an installation that can be moved.
install(FILES packaging/systemd/service.cfg DESTINATION /etc/vk COMPONENT service EXCLUDE_FROM_ALL)

install(FILES packaging/monitoring/alerts.yml packaging/monitoring/dashboard.json
    DESTINATION ${SHARE}/doc/vkservice/examples/monitoring COMPONENT service)
install(FILES packaging/systemd/vkservice.catalog DESTINATION lib/systemd/catalog COMPONENT service)

install(TARGETS vkpublish RUNTIME COMPONENT publisher)
install(FILES docs/man/vkpublish.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT publisher)
install(FILES docs/man/vk-repository.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT publisher)
install(FILES docs/keys.md docs/administrator.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/vkpublish COMPONENT publisher)
foreach(UNIT vkpublish-mirror@ vkpublish-refresh@)
    install(CODE "
        configure_file(${PROJECT_SOURCE_DIR}/packaging/systemd/${UNIT}.service.in
            ${CMAKE_BINARY_DIR}/packaging/${UNIT}.service @ONLY)" COMPONENT publisher)
    install(FILES ${CMAKE_BINARY_DIR}/packaging/${UNIT}.service ${PROJECT_SOURCE_DIR}/packaging/systemd/${UNIT}.timer
        DESTINATION lib/systemd/system COMPONENT publisher)
endforeach()
install(PROGRAMS packaging/signers/sign-with-openssl packaging/signers/sign-with-ssh-agent packaging/signers/sign-with-token
    DESTINATION ${SHARE}/doc/vkpublish/examples/signers COMPONENT publisher)
install(FILES packaging/systemd/vkpublish.sysusers DESTINATION lib/sysusers.d RENAME vkpublish.conf COMPONENT publisher)

set(RKM_MAINTAINER "The rkm authors <root@localhost>" CACHE STRING "Whom the packages name as their maintainer")
set(PACKAGES client:rkm library:libvkcore1 development:libvkcore-dev service:vkservice publisher:vkpublish)
foreach(PACKAGE ${PACKAGES})
    string(REPLACE ":" ";" PAIR ${PACKAGE})
    list(GET PAIR 0 COMPONENT)
    list(GET PAIR 1 NAME)
    install(FILES LICENSE DESTINATION ${SHARE}/doc/${NAME} RENAME copyright COMPONENT ${COMPONENT})
    install(FILES CHANGELOG.md DESTINATION ${SHARE}/doc/${NAME} COMPONENT ${COMPONENT})
    configure_file(packaging/debian/changelog.in packaging/changelog-${NAME} @ONLY)
    install(FILES ${CMAKE_BINARY_DIR}/packaging/changelog-${NAME} DESTINATION ${SHARE}/doc/${NAME} RENAME changelog
        COMPONENT ${COMPONENT})
endforeach()
file(GLOB DOCUMENTS CONFIGURE_DEPENDS docs/*.md)
install(FILES README.md SECURITY.md ${DOCUMENTS} DESTINATION ${SHARE}/doc/vkservice COMPONENT service)
