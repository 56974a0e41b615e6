# `cpack -G DEB --config BUILD/CPackConfig.cmake` makes a Debian package of what `cmake --install` installs.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME sonivo)
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_CONTACT "The Sonivo maintainers <maintainers@sonivo.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Conferencing behaviour for a notebook's microphones and speakers")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "A background process of the session between the notebook's own
microphones and speakers and a virtual pair, \"Norvell Audio Relay\", which
every application can pick. The microphone passes keyboard-noise
cancellation with noise reduction, a two-microphone beamformer, and
streaming neural speech enhancement.")
# The prefix stays what the programs are told, wherever the package is put together.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_SOURCE_DIR}/cmake/PackageDocuments.cmake")
set(CPACK_VERBATIM_VARIABLES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "pipewire, wireplumber")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "dbus-user-session, rtkit | xdg-desktop-portal")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    "${CMAKE_SOURCE_DIR}/share/debian/postinst;${CMAKE_SOURCE_DIR}/share/debian/prerm;${CMAKE_SOURCE_DIR}/share/debian/postrm")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
