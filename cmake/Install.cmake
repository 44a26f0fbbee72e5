# What "cmake --install" puts where. The components are those of the packages.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/KivMp4)
install(FILES ${PROJECT_SOURCE_DIR}/include/KivMp4.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(TARGETS kivmp4_shared kivmp4_static EXPORT KivMp4Targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
# For any linker, and without the paths of the machine that built it.
if(CMAKE_OBJCOPY AND NOT IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
  install(CODE "execute_process(COMMAND ${CMAKE_OBJCOPY} -R .gnu.lto_* -R .gnu.debuglto_*
                \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/libkivmp4.a\" COMMAND_ERROR_IS_FATAL ANY)" COMPONENT development)
endif()
install(EXPORT KivMp4Targets NAMESPACE KivMp4:: DESTINATION ${package_dir} COMPONENT development)

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/KivMp4Config.cmake.in ${PROJECT_BINARY_DIR}/KivMp4Config.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KivMp4ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KivMp4Config.cmake ${PROJECT_BINARY_DIR}/KivMp4ConfigVersion.cmake
        DESTINATION ${package_dir} COMPONENT development)

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
install(FILES ${PROJECT_BINARY_DIR}/kivmp4.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)

if(TARGET kivmp4)
  install(TARGETS kivmp4 RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT command)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/kivmp4.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT command)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/cli/schema DESTINATION ${CMAKE_INSTALL_DATADIR}/kivmp4 COMPONENT command)
  # The command prints its own completions, which needs a machine that runs it.
  if(NOT CMAKE_CROSSCOMPILING AND NOT KIVMP4_SANITIZE)
    set(completions bash-completion/completions/kivmp4 zsh/vendor-completions/_kivmp4 fish/vendor_completions.d/kivmp4.fish)
    foreach(completion ${completions})
      string(REGEX MATCH "^[a-z]+" shell ${completion})
      get_filename_component(name ${completion} NAME)
      get_filename_component(directory ${completion} DIRECTORY)
      set(written ${PROJECT_BINARY_DIR}/completions/${shell}/${name})
      file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/completions/${shell})
      add_custom_command(OUTPUT ${written} COMMAND kivmp4 completion ${shell} > ${written} DEPENDS kivmp4 VERBATIM)
      list(APPEND all_written ${written})
      install(FILES ${written} DESTINATION ${CMAKE_INSTALL_DATADIR}/${directory} COMPONENT command)
    endforeach()
    add_custom_target(completions ALL DEPENDS ${all_written})
  endif()
endif()
set(KIVMP4_PYTHON_DIR "" CACHE STRING "Install the Python module into this directory; without one it is not installed")
if(KIVMP4_PYTHON_DIR)
  install(FILES ${PROJECT_SOURCE_DIR}/python/kivmp4.py DESTINATION ${KIVMP4_PYTHON_DIR} COMPONENT python)
endif()
