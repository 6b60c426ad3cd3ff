# SPDX-License-Identifier: MIT
# Debian packages, one for each component of InsppInstall.cmake, by CPack. To be configured with the
# prefix /usr, as the preset "package" does; tools/package makes them, and the same bytes each time.
set(documents ${CMAKE_CURRENT_BINARY_DIR}/package)
file(MAKE_DIRECTORY ${documents})
# -n: neither name nor time of the file, which differ from build to build.
execute_process(COMMAND gzip -9n INPUT_FILE ${PROJECT_SOURCE_DIR}/cmake/package/changelog
  OUTPUT_FILE ${documents}/changelog.gz COMMAND_ERROR_IS_FATAL ANY)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/cmake/package/changelog)
file(STRINGS cmake/package/changelog latest LIMIT_COUNT 1)
if(NOT latest MATCHES "^inspp \\(${PROJECT_VERSION}\\) ")
  message(FATAL_ERROR "cmake/package/changelog does not begin with version ${PROJECT_VERSION}")
endif()

# inspp_package(COMPONENT NAME SECTION DEPENDS DESCRIPTION)
macro(inspp_package component name section depends description)
  string(TOUPPER ${component} key)
  set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${key}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${key}_PACKAGE_DEPENDS "${depends}")
  set(CPACK_COMPONENT_${key}_DESCRIPTION "${description}")
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  # A library or program holds code of other people's headers; what is for development does not.
  set(copyright ${PROJECT_SOURCE_DIR}/cmake/package/copyright)
  if(EXISTS ${copyright}.${component})
    set(copyright ${copyright}.${component})
  endif()
  install(FILES ${documents}/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${name} COMPONENT ${component})
  install(FILES ${copyright} RENAME copyright
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${name} COMPONENT ${component})
endmacro()

set(same "(= ${PROJECT_VERSION})")
set(CPACK_COMPONENTS_ALL)
inspp_package(sup libdplinsup1 libs ""
"Support library of the installer engine Ins++
Sup++ gives programs that install software what they need of the system:
files that are replaced whole or not at all, profiles, UTF-8 texts, threads,
commands, services of systemd, message catalogues and path macros.")
inspp_package(sup-dev libdplinsup-dev libdevel "libdplinsup1 ${same}, libboost-dev"
"Support library of the installer engine Ins++ - development files
Headers of Sup++ (below <sup++/>), and what find_package and pkg-config need
to find them.")
inspp_package(ins libins++1 libs "libdplinsup1 (>= ${PROJECT_VERSION})"
"Installer engine that runs install scripts
Ins++ turns the lines of an install script into rules for files, directories,
profiles, processes and services, runs them in order with progress and
cancellation, writes a setup log, and leaves a record by which the product is
found, upgraded or removed later.")
inspp_package(ins-dev libins++-dev libdevel "libins++1 ${same}, libdplinsup-dev ${same}"
"Installer engine that runs install scripts - development files
Headers of Ins++ (below <ins/>), what find_package and pkg-config need to find
them, the documents and examples for programs that embed the engine.")
inspp_package(setup ins-setup admin
  "libins++1 (>= ${PROJECT_VERSION}), libdplinsup1 (>= ${PROJECT_VERSION})"
"Setup program that installs and removes products by their scripts
ins-setup installs the product of a kit (a directory with a script and what the
script copies), shows progress, tells what is installed, and removes it.")

# The scripts with which CPack refreshes the loader's cache are not enough: dpkg is to do it once.
foreach(key SUP INS)
  set(CPACK_DEBIAN_${key}_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/package/triggers)
endforeach()

# inspp_package_pages(COMPONENT NAME FILE-OR-DIRECTORY...): documents of a package, below its directory as they
# are in the source. Of a link to what the package does not have, only the text stays.
function(inspp_package_pages component name)
  foreach(document IN LISTS ARGN)
    get_filename_component(directory ${document} DIRECTORY)
    set(destination ${CMAKE_INSTALL_DATAROOTDIR}/doc/${name}/${directory})
    if(document MATCHES "\\.md$")
      inspp_without_links(${document} ${documents}/${name}/${document} ${ARGN})
      install(FILES ${documents}/${name}/${document} DESTINATION ${destination} COMPONENT ${component})
    elseif(IS_DIRECTORY ${PROJECT_SOURCE_DIR}/${document})
      inspp_package_directory(${component} ${document} ${CMAKE_INSTALL_DATAROOTDIR}/doc/${name})
    else()
      install(FILES ${document} DESTINATION ${destination} COMPONENT ${component})
    endif()
  endforeach()
endfunction()

# inspp_package_directory(COMPONENT DIRECTORY BELOW): its files, programs as programs. Their modes are those of a
# package, whatever umask the sources were fetched with.
function(inspp_package_directory component directory below)
  file(GLOB_RECURSE files RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS ${directory}/*)
  foreach(file IN LISTS files)
    get_filename_component(place ${file} DIRECTORY)
    execute_process(COMMAND test -x ${PROJECT_SOURCE_DIR}/${file} RESULT_VARIABLE is_data)
    if(is_data)
      install(FILES ${file} DESTINATION ${below}/${place} COMPONENT ${component})
    else()
      install(PROGRAMS ${file} DESTINATION ${below}/${place} COMPONENT ${component})
    endif()
  endforeach()
endfunction()

# inspp_without_links(PAGE OUTPUT KEPT...): PAGE, with links only to what is KEPT, or lies in it.
function(inspp_without_links page output)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${page})
  get_filename_component(directory ${page} DIRECTORY)
  file(READ ${page} text)
  string(REPLACE "]" ">" matched "${text}") # brackets mean something in lists
  string(REPLACE "[" "<" matched "${matched}")
  string(REGEX MATCHALL ">\\([^()\n ]+\\)" links "${matched}")
  list(REMOVE_DUPLICATES links)
  foreach(link IN LISTS links)
    string(REGEX REPLACE "^>\\((.*)\\)$" "\\1" link "${link}")
    string(REGEX REPLACE "#.*" "" target "${directory}/${link}")
    cmake_path(NORMAL_PATH target)
    string(REGEX REPLACE "^/" "" target "${target}") # of a page at the top
    set(kept FALSE)
    foreach(document ${page} ${ARGN})
      string(FIND "${target}/" "${document}/" at)
      if(at EQUAL 0 OR link MATCHES "^(#|[a-z]+:)")
        set(kept TRUE)
      endif()
    endforeach()
    if(NOT kept)
      string(REGEX REPLACE "([.+])" "\\\\\\1" escaped "${link}")
      string(REGEX REPLACE "\\[([^]]*)\\]\\(${escaped}\\)" "\\1" text "${text}")
    endif()
  endforeach()
  file(WRITE ${output} "${text}")
endfunction()

file(GLOB pages RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS docs/*.md)
inspp_package_pages(ins-dev libins++-dev README.md ARCHITECTURE.md CHANGELOG.md ${pages} docs/pictures
  examples/changes examples/embed examples/frontend examples/mailbox examples/own_rule examples/python examples/rule_state)
# What authors of kits read, and what they and administrators look up.
inspp_package_pages(setup ins-setup docs/kit-author.md docs/cookbook.md docs/script.md docs/check.md docs/errors.md
  docs/automation.md docs/bundle.md docs/glossary.md docs/log.md docs/promises.md docs/restore.md docs/trust.md
  examples/cookbook)

# To make signatures.
set(CPACK_DEBIAN_SETUP_PACKAGE_SUGGESTS "minisign")

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_NAME inspp)
set(CPACK_PACKAGE_CONTACT "Ins++ developers <inspp@example.org>")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SOURCE inspp)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The package that depends on a library of another one of these names it itself, above.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY >=)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
  GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
# Gives everything one time, so that the packages are the same however often they are made.
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package/same_times.cmake)
include(CPack)
