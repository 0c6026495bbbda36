# The Windows package: `cpack` in the windows build folder makes a zip and an NSIS installer with
# Kestrel.exe, kestrel-cli.exe, the README and the licence. The installer puts a Start-menu entry
# for the window program and an uninstaller in place. Packaging does not build everything first:
# the two programs are built, then cpack runs (the test command does both).
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

install(TARGETS Kestrel kestrel-cli RUNTIME DESTINATION .)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION .)

set(CPACK_GENERATOR "ZIP;NSIS")
set(CPACK_PACKAGE_NAME "Kestrel")
set(CPACK_PACKAGE_VENDOR "Kestrel developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Kestrel - Modbus TCP/RTU master and slave for commissioning")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_FILE_NAME "Kestrel-${PROJECT_VERSION}-win64")
set(CPACK_PACKAGE_INSTALL_DIRECTORY "Kestrel")
set(CPACK_PACKAGE_INSTALL_REGISTRY_KEY "Kestrel")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
# The zip unpacks into one folder named like the package.
set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY ON)

# Start menu: Kestrel (the window program); the programs sit in the installation folder itself.
set(CPACK_PACKAGE_EXECUTABLES "Kestrel;Kestrel")
set(CPACK_NSIS_EXECUTABLES_DIRECTORY ".")
set(CPACK_NSIS_DISPLAY_NAME "Kestrel")
set(CPACK_NSIS_PACKAGE_NAME "Kestrel")
# The Add/Remove Programs entry: display name, version and publisher (the vendor), the uninstall
# command, and the icon of the installed Kestrel.exe (its icon resource).
set(CPACK_NSIS_INSTALLED_ICON_NAME "Kestrel.exe")
# The installer and the uninstaller show the application icon too.
set(CPACK_NSIS_MUI_ICON "${PROJECT_SOURCE_DIR}/res/kestrel.ico")
set(CPACK_NSIS_MUI_UNIICON "${PROJECT_SOURCE_DIR}/res/kestrel.ico")
# The entry's estimated size (in KB) is what the installation folder holds once everything is in.
# (These commands pass through CPackConfig.cmake, hence the doubled escapes.)
set(CPACK_NSIS_EXTRA_INSTALL_COMMANDS "
  \\\${GetSize} \\\"$INSTDIR\\\" \\\"/S=0K\\\" $0 $1 $2
  IntFmt $0 \\\"0x%08X\\\" $0
  WriteRegDWORD SHCTX \\\"Software\\\\Microsoft\\\\Windows\\\\CurrentVersion\\\\Uninstall\\\\Kestrel\\\" \\\"EstimatedSize\\\" \\\"$0\\\"
")
# The installer keeps the installation folder under Software\<vendor>\Kestrel; the uninstaller
# removes that key and then the vendor's key, which is ours alone and empty by then.
set(CPACK_NSIS_EXTRA_UNINSTALL_COMMANDS "
  DeleteRegKey SHCTX \\\"Software\\\\Kestrel developers\\\\Kestrel\\\"
  DeleteRegKey /ifempty SHCTX \\\"Software\\\\Kestrel developers\\\"
")
set(CPACK_NSIS_ENABLE_UNINSTALL_BEFORE_INSTALL ON)
set(CPACK_NSIS_MODIFY_PATH OFF)
set(CPACK_NSIS_MUI_FINISHPAGE_RUN "Kestrel.exe")
# A 64-bit installer for the 64-bit programs, installing under "Program Files" (not "(x86)"); it
# also runs where only 64-bit Windows programs can run (a 64-bit-only Wine).
# FileFunc.nsh brings GetSize for the estimated size.
set(CPACK_NSIS_DEFINES "Target amd64-unicode
  !include FileFunc.nsh")
set(CPACK_NSIS_INSTALL_ROOT "$PROGRAMFILES64")

include(CPack)
