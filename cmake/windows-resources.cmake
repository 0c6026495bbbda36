# Windows resources of the programs, compiled by windres from .rc files made here from res/:
# the application manifest (Common Controls 6, the supported Windows versions and, for the window
# program, per-monitor DPI awareness), the version information (product name, file description,
# the project's version, copyright) and, for the window program, the application icon.

# kestrel_windows_resources(TARGET DESCRIPTION [ICON]): TARGET.exe gets res/TARGET.exe.manifest,
# its version information with DESCRIPTION and, with ICON, res/kestrel.ico as icon 1 (the icon
# Explorer, the Start menu and the installer show).
function(kestrel_windows_resources target description)
  cmake_parse_arguments(PARSE_ARGV 2 arg "ICON" "" "")
  set(KESTREL_RC_FILE_NAME "${target}.exe")
  set(KESTREL_RC_INTERNAL_NAME "${target}")
  set(KESTREL_RC_DESCRIPTION "${description}")
  set(KESTREL_VERSION_QUAD "${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}.${PROJECT_VERSION_PATCH}.0")
  set(KESTREL_RC_MANIFEST "${CMAKE_CURRENT_BINARY_DIR}/${target}.exe.manifest")
  configure_file(${PROJECT_SOURCE_DIR}/res/${target}.exe.manifest ${KESTREL_RC_MANIFEST} @ONLY)
  if(arg_ICON)
    set(KESTREL_RC_ICON "1 ICON \"${PROJECT_SOURCE_DIR}/res/kestrel.ico\"")
  else()
    set(KESTREL_RC_ICON "")
  endif()
  configure_file(${PROJECT_SOURCE_DIR}/res/program.rc.in ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc @ONLY)
  target_sources(${target} PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc)
  set_property(SOURCE ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc APPEND PROPERTY OBJECT_DEPENDS
    ${PROJECT_SOURCE_DIR}/res/kestrel.ico ${KESTREL_RC_MANIFEST})
endfunction()

# kestrel_windows_manifest(TARGET MANIFEST): TARGET gets the manifest res/MANIFEST and nothing else
# (the window tests run the window in their own process, which must behave as Kestrel.exe does).
function(kestrel_windows_manifest target manifest)
  set(KESTREL_RC_FILE_NAME "${target}.exe")
  set(KESTREL_VERSION_QUAD "${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}.${PROJECT_VERSION_PATCH}.0")
  set(KESTREL_RC_MANIFEST "${CMAKE_CURRENT_BINARY_DIR}/${target}.exe.manifest")
  configure_file(${PROJECT_SOURCE_DIR}/res/${manifest} ${KESTREL_RC_MANIFEST} @ONLY)
  configure_file(${PROJECT_SOURCE_DIR}/res/manifest-only.rc.in ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc @ONLY)
  target_sources(${target} PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc)
  set_property(SOURCE ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc APPEND PROPERTY OBJECT_DEPENDS ${KESTREL_RC_MANIFEST})
endfunction()
