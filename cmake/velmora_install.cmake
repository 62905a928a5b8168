# What `cmake --install` puts where, and the Debian packages that cpack makes of it:
#
#     velmora         the program, its manual page, completions, documents
#     velmora-window  the program with the progress window
#     libvelmora-dev  headers, static library and package file for find_package(velmora)
#
# Debian's own folders are taken where the prefix is /usr, as in the preset "package".

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# --- The programs and what belongs to them ---

install(TARGETS velmora RUNTIME COMPONENT velmora)
if(TARGET velmora-window)
  install(TARGETS velmora-window RUNTIME COMPONENT window)
endif()

# velmora_install_page(<page> <component>): a manual page, packed where gzip is there.
find_program(VELMORA_GZIP gzip)
mark_as_advanced(VELMORA_GZIP)
function(velmora_install_page page component)
  set(file "${PROJECT_SOURCE_DIR}/man/${page}")
  if(VELMORA_GZIP)
    set(packed "${PROJECT_BINARY_DIR}/man/${page}.gz")
    add_custom_command(OUTPUT "${packed}"
      COMMAND "${CMAKE_COMMAND}" -E make_directory "${PROJECT_BINARY_DIR}/man"
      COMMAND "${VELMORA_GZIP}" -9nc "${file}" > "${packed}"
      DEPENDS "${file}" VERBATIM)
    add_custom_target(${page}.gz ALL DEPENDS "${packed}")
    set(file "${packed}")
  endif()
  install(FILES "${file}" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT ${component})
endfunction()

if(NOT WIN32)
  velmora_install_page(velmora.1 velmora)
  if(TARGET velmora-window)
    velmora_install_page(velmora-window.1 window)
  endif()

  set(bash_dir "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
  set(zsh_dir "${CMAKE_INSTALL_DATADIR}/zsh/site-functions")
  if(CMAKE_INSTALL_PREFIX STREQUAL "/usr" AND EXISTS /etc/debian_version)
    set(zsh_dir "${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions")
  endif()
  install(FILES completions/velmora.bash DESTINATION "${bash_dir}" RENAME velmora
          COMPONENT velmora)
  install(FILES completions/_velmora DESTINATION "${zsh_dir}" COMPONENT velmora)
  # The completion of bash is looked up by the name of the program.
  if(TARGET velmora-window)
    install(FILES completions/velmora.bash DESTINATION "${bash_dir}" RENAME velmora-window
            COMPONENT window)
  endif()
endif()

install(FILES README.md DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT velmora)
install(DIRECTORY docs DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT velmora)

# --- The library: all rooms below the shell in one archive, its headers, its package file ---

if(NOT WIN32)
  set(rooms mesh repair topo plg reduce files run)
  set(objects)
  foreach(room ${rooms})
    list(APPEND objects "$<TARGET_OBJECTS:velmora_${room}>")
  endforeach()
  add_library(libvelmora STATIC ${objects})
  set_target_properties(libvelmora PROPERTIES
    OUTPUT_NAME velmora EXPORT_NAME velmora LINKER_LANGUAGE CXX
    LINK_LIBRARIES "" INTERFACE_LINK_LIBRARIES "")
  # Headers name each other from the room on. Their inline functions have to round like the archive.
  target_include_directories(libvelmora INTERFACE
    "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>"
    "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/velmora>")
  target_compile_features(libvelmora INTERFACE cxx_std_20)
  target_compile_options(libvelmora INTERFACE -ffp-contract=off)
  if(VELMORA_CHECKED)
    target_compile_definitions(libvelmora INTERFACE VELMORA_CHECKED=1)
  endif()

  set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/velmora")
  install(TARGETS libvelmora EXPORT velmora-targets
          ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT dev)
  install(EXPORT velmora-targets NAMESPACE velmora:: FILE velmora-config.cmake
          DESTINATION "${package_dir}" COMPONENT dev)
  write_basic_package_version_file("${PROJECT_BINARY_DIR}/velmora-config-version.cmake"
                                   COMPATIBILITY SameMinorVersion)
  install(FILES "${PROJECT_BINARY_DIR}/velmora-config-version.cmake"
          DESTINATION "${package_dir}" COMPONENT dev)
  foreach(room ${rooms})
    install(DIRECTORY "src/${room}" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/velmora"
            COMPONENT dev FILES_MATCHING PATTERN "*.h")
  endforeach()
  install(DIRECTORY examples DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/libvelmora-dev"
          COMPONENT dev)
endif()

# --- Debian packages ---

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME velmora)
set(CPACK_PACKAGE_CONTACT "velmora maintainers <maintainers@velmora.example>")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL velmora dev)
if(TARGET velmora-window)
  list(APPEND CPACK_COMPONENTS_ALL window)
endif()
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)

set(described "velmora reads STL files, text or binary, or its own model files, joins
loose triangles to a surface, orients and repairs it, and removes vertices
as long as the surface stays within the tolerances that the user sets.")
set(CPACK_DEBIAN_VELMORA_PACKAGE_NAME velmora)
set(CPACK_DEBIAN_VELMORA_DESCRIPTION "reducer of triangle models within tolerances
${described}")
set(CPACK_DEBIAN_WINDOW_PACKAGE_NAME velmora-window)
set(CPACK_DEBIAN_WINDOW_PACKAGE_DEPENDS "velmora (= ${PROJECT_VERSION}-1)")
set(CPACK_DEBIAN_WINDOW_DESCRIPTION "reducer of triangle models, with a progress window
${described}

This package has the program that shows a window with Pause, Resume and Stop.")
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libvelmora-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEV_DESCRIPTION "reducer of triangle models, library for C++
${described}

This package has headers and a static library with all that the program does.")

# velmora_install_papers(<component> <package>): what each Debian package tells about itself.
function(velmora_install_papers component package)
  set(to "${CMAKE_INSTALL_DATADIR}/doc/${package}")
  install(FILES packaging/copyright DESTINATION "${to}" COMPONENT ${component})
  install(FILES "${PROJECT_BINARY_DIR}/changelog.Debian.gz" DESTINATION "${to}"
          COMPONENT ${component})
endfunction()

if(VELMORA_GZIP AND CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  add_custom_command(OUTPUT "${PROJECT_BINARY_DIR}/changelog.Debian.gz"
    COMMAND "${VELMORA_GZIP}" -9nc "${PROJECT_SOURCE_DIR}/packaging/changelog"
            > "${PROJECT_BINARY_DIR}/changelog.Debian.gz"
    DEPENDS packaging/changelog VERBATIM)
  add_custom_target(changelog.Debian.gz ALL DEPENDS "${PROJECT_BINARY_DIR}/changelog.Debian.gz")
  velmora_install_papers(velmora velmora)
  velmora_install_papers(window velmora-window)
  velmora_install_papers(dev libvelmora-dev)
endif()

include(CPack)
