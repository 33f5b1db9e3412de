# What belongs to which package. Each component becomes one Debian package; see Package.cmake.
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
install(DIRECTORY ${BUILT_SHARE}/rkm/locale DESTINATION ${SHARE}/rkm COMPONENT library FILES_MATCHING PATTERN *.qm)

if(NOT VKCORE_ROOT)
    install(TARGETS vkcore
        LIBRARY COMPONENT library NAMELINK_COMPONENT development)
    install(TARGETS vkcore_installlog LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/vkcore COMPONENT library)
    install(DIRECTORY src/vkcore/include/vkcore DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
endif()
install(FILES docs/man/vk.cfg.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT library)
