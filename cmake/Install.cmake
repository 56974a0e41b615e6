# `cmake --install BUILD --prefix PREFIX` installs the programs with what belongs to them. It takes no more to be built
# than these: sonivo, NorvellSonivoDriver, NorvellSonivoService, sonivo_params and sonivo_models.
install(TARGETS sonivo NorvellSonivoDriver NorvellSonivoService RUNTIME DESTINATION bin)
install(DIRECTORY "${CMAKE_BINARY_DIR}/share/sonivo/par" "${CMAKE_BINARY_DIR}/share/sonivo/models"
        DESTINATION share/sonivo FILES_MATCHING PATTERN "*.bin")
install(DIRECTORY "${CMAKE_SOURCE_DIR}/share/par" DESTINATION share/sonivo
        FILES_MATCHING PATTERN "*.par" PATTERN "*.f64" PATTERN "README.md")
install(FILES "${CMAKE_SOURCE_DIR}/share/microphones" DESTINATION share/sonivo)
install(DIRECTORY "${CMAKE_SOURCE_DIR}/share/man/" DESTINATION share/man/man1 FILES_MATCHING PATTERN "*.1")
install(DIRECTORY "${CMAKE_SOURCE_DIR}/share/man/" DESTINATION share/man/man8 FILES_MATCHING PATTERN "*.8")
install(FILES "${CMAKE_SOURCE_DIR}/share/bash-completion/sonivo" DESTINATION share/bash-completion/completions)
install(FILES "${CMAKE_SOURCE_DIR}/README.md" "${CMAKE_SOURCE_DIR}/share/debian/copyright"
        DESTINATION share/doc/sonivo)
install(DIRECTORY "${CMAKE_SOURCE_DIR}/docs" DESTINATION share/doc/sonivo
        FILES_MATCHING PATTERN "*.md" PATTERN "*.svg")

# Units name the programs where they are installed to, which only the installation itself knows.
set(units NorvellSonivoDriver.socket NorvellSonivoDriver.service NorvellSonivoService.service)
foreach(unit IN LISTS units)
  set(from "${CMAKE_SOURCE_DIR}/share/systemd/${unit}")
  set(to "${CMAKE_BINARY_DIR}/units/${unit}")
  install(CODE "
    get_filename_component(prefix \"\${CMAKE_INSTALL_PREFIX}\" ABSOLUTE)
    set(PROGRAM_FOLDER \"\${prefix}/bin\")
    set(SHARE_FOLDER \"\${prefix}/share/sonivo\")
    configure_file(\"${from}\" \"${to}\" @ONLY)
    file(INSTALL \"${to}\" DESTINATION \"\${CMAKE_INSTALL_PREFIX}/lib/systemd/user\")")
endforeach()
