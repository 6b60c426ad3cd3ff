# SPDX-License-Identifier: MIT
# What "cmake --install" lays down, so that other projects find the two libraries: by find_package
# or by pkg-config. Components are those of the packages (InsppPackages.cmake).
#
# Nothing installed holds an absolute path: a tree can be moved, and the libraries are found as
# those of any library are, by the loader's own configuration.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/man)

set(INSPP_INCLUDE_DIRECTORY ${CMAKE_INSTALL_INCLUDEDIR}/inspp)
set(INSPP_CMAKE_DIRECTORY ${CMAKE_INSTALL_LIBDIR}/cmake/inspp)

# The list of headers that are not for others has one home; tools/structure checks uses against it.
file(STRINGS ${PROJECT_SOURCE_DIR}/cmake/private-headers.txt INSPP_PRIVATE_HEADERS REGEX "^[^#]")

# What a build tree finds its libraries by (CMAKE_INSTALL_RPATH) means nothing where it is installed.
function(inspp_remove_rpath target component directory)
  install(CODE "file(RPATH_REMOVE FILE
    \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${directory}/$<TARGET_FILE_NAME:${target}>\")"
    COMPONENT ${component})
endfunction()

# inspp_install_library(TARGET COMPONENT FOLDER NAME): a library, its headers and what finds them.
function(inspp_install_library target component folder name)
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${name}
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  target_include_directories(${target}
    INTERFACE $<INSTALL_INTERFACE:${INSPP_INCLUDE_DIRECTORY}>)
  install(TARGETS ${target} EXPORT inspp-${name}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    COMPONENT ${component} NAMELINK_COMPONENT ${component}-dev)
  inspp_remove_rpath(${target} ${component} ${CMAKE_INSTALL_LIBDIR})
  install(EXPORT inspp-${name} NAMESPACE inspp:: FILE inspp-${name}.cmake
    DESTINATION ${INSPP_CMAKE_DIRECTORY} COMPONENT ${component}-dev)

  file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}
    ${PROJECT_SOURCE_DIR}/${folder}/*.h)
  foreach(header IN LISTS headers)
    set(public TRUE)
    foreach(private IN LISTS INSPP_PRIVATE_HEADERS)
      string(FIND ${header} ${private} place)
      if(place EQUAL 0)
        set(public FALSE)
      endif()
    endforeach()
    if(public)
      get_filename_component(directory ${header} DIRECTORY)
      install(FILES ${PROJECT_SOURCE_DIR}/${header}
        DESTINATION ${INSPP_INCLUDE_DIRECTORY}/${directory} COMPONENT ${component}-dev)
    endif()
  endforeach()

  # pkg-config finds the tree by the place of the file itself, wherever the tree was moved to.
  file(RELATIVE_PATH INSPP_PREFIX_FROM_PC /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
  string(REGEX REPLACE "/$" "" INSPP_PREFIX_FROM_PC ${INSPP_PREFIX_FROM_PC})
  configure_file(${PROJECT_SOURCE_DIR}/cmake/package/${name}.pc.in ${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT ${component}-dev)

  # Beside the library, where it looks for them.
  get_target_property(catalogues ${target} INSPP_CATALOGUES)
  if(catalogues)
    install(FILES ${catalogues} DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${component})
  endif()
endfunction()

inspp_install_library(dplinsup sup sup++ sup++)
inspp_install_library(ins++ ins ins ins++)
install(TARGETS ins-setup RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT setup)
inspp_remove_rpath(ins-setup setup ${CMAKE_INSTALL_SBINDIR})
# What bundles begin with; ins-setup finds it from its own directory.
if(TARGET bundle-head)
  install(TARGETS bundle-head RUNTIME DESTINATION lib/ins-setup COMPONENT setup)
endif()

# What ins-setup is used with. Pages tell their version at their end, and are compressed as Debian wants them,
# without name and time.
foreach(page ins-setup.8 ins-script.5 ins++.7)
  set(compressed ${CMAKE_CURRENT_BINARY_DIR}/man/${page}.gz)
  file(READ ${PROJECT_SOURCE_DIR}/docs/man/${page} text)
  string(REPLACE "\n.Os\n" "\n.Os Ins++ ${PROJECT_VERSION}\n" text "${text}")
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/man/${page} "${text}")
  execute_process(COMMAND gzip -9nc ${CMAKE_CURRENT_BINARY_DIR}/man/${page}
    OUTPUT_FILE ${compressed}.new COMMAND_ERROR_IS_FATAL ANY)
  file(COPY_FILE ${compressed}.new ${compressed} ONLY_IF_DIFFERENT)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/docs/man/${page})
  string(REGEX MATCH "[0-9]$" chapter ${page})
  install(FILES ${compressed} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${chapter} COMPONENT setup)
endforeach()
install(FILES setup/completion/ins-setup.bash RENAME ins-setup
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT setup)
install(DIRECTORY docs/vim/syntax docs/vim/ftdetect
  DESTINATION ${CMAKE_INSTALL_DATADIR}/vim/vimfiles COMPONENT setup)

write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/inspp-config-version.cmake
  COMPATIBILITY SameMajorVersion)
configure_package_config_file(cmake/package/inspp-config.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/inspp-config.cmake
  INSTALL_DESTINATION ${INSPP_CMAKE_DIRECTORY})
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/inspp-config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/inspp-config-version.cmake
  DESTINATION ${INSPP_CMAKE_DIRECTORY} COMPONENT sup-dev)
