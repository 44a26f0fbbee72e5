# What "cmake --install" puts where: header, libraries, CMake package, pkg-config file, command and manual page.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/KivMp4)
install(FILES ${PROJECT_SOURCE_DIR}/include/KivMp4.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS kivmp4_shared kivmp4_static EXPORT KivMp4Targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT KivMp4Targets NAMESPACE KivMp4:: DESTINATION ${package_dir})

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/KivMp4Config.cmake.in ${PROJECT_BINARY_DIR}/KivMp4Config.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KivMp4ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KivMp4Config.cmake ${PROJECT_BINARY_DIR}/KivMp4ConfigVersion.cmake
        DESTINATION ${package_dir})

# The pkg-config file finds its prefix from where it lies, so that the prefix may be chosen at install time.
if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
  set(pc_prefix ${CMAKE_INSTALL_PREFIX})
else()
  file(RELATIVE_PATH pc_up /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
  string(REGEX REPLACE "/$" "" pc_up ${pc_up})
  set(pc_prefix "\${pcfiledir}/${pc_up}")
endif()
foreach(kind LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE ${CMAKE_INSTALL_${kind}})
    set(pc_${kind} ${CMAKE_INSTALL_${kind}})
  else()
    set(pc_${kind} "\${prefix}/${CMAKE_INSTALL_${kind}}")
  endif()
endforeach()
configure_file(${CMAKE_CURRENT_LIST_DIR}/kivmp4.pc.in ${PROJECT_BINARY_DIR}/kivmp4.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kivmp4.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(TARGET kivmp4)
  install(TARGETS kivmp4 RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES ${PROJECT_SOURCE_DIR}/docs/kivmp4.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/cli/schema DESTINATION ${CMAKE_INSTALL_DATADIR}/kivmp4)
endif()
