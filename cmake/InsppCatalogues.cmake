# SPDX-License-Identifier: MIT
# Message catalogues, made from their sources by the C library's gencat.
find_program(GENCAT gencat REQUIRED) # package libc-dev-bin

# inspp_add_catalogues(TARGET DIRECTORY SOURCE.msg...): makes NAME.cat of each NAME.msg and puts it
# into DIRECTORY, where the library or program TARGET finds it: beside itself.
function(inspp_add_catalogues target directory)
  set(catalogues)
  foreach(source IN LISTS ARGN)
    get_filename_component(name ${source} NAME_WLE)
    set(catalogue ${directory}/${name}.cat)
    # gencat adds to a file that is there, so what was taken out of the source would stay.
    add_custom_command(OUTPUT ${catalogue}
      COMMAND ${CMAKE_COMMAND} -E rm -f ${catalogue}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${directory}
      COMMAND ${GENCAT} ${catalogue} ${CMAKE_CURRENT_SOURCE_DIR}/${source}
      DEPENDS ${source}
      COMMENT "Making the message catalogue ${name}"
      VERBATIM)
    list(APPEND catalogues ${catalogue})
  endforeach()
  target_sources(${target} PRIVATE ${catalogues})
  set_property(TARGET ${target} APPEND PROPERTY INSPP_CATALOGUES ${catalogues})
endfunction()
