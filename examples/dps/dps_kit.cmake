# Lays one kit: cmake -DKIT=DIRECTORY -DPAYLOAD=DIRECTORIES -DARCHITECTURE=NAME -DPRODUCT=BINARIES
# -DPLUGINS=BINARIES -DSETUP=BINARIES -P dps_kit.cmake. A binary is NAME=FILE; a library is copied under the name by
# which programs look for it. It starts from nothing each time: a file that has left the product
# must not stay in its kit.
cmake_policy(VERSION 3.25)
file(REMOVE_RECURSE ${KIT})
foreach(directory IN LISTS PAYLOAD)
  file(COPY ${directory}/ DESTINATION ${KIT})
endforeach()

# Sets `copies` to what was copied.
function(copy_binaries directory)
  file(MAKE_DIRECTORY ${directory})
  set(copies)
  foreach(binary IN LISTS ARGN)
    string(REPLACE "=" ";" name_and_file "${binary}")
    list(GET name_and_file 0 name)
    list(GET name_and_file 1 file)
    file(COPY_FILE ${file} ${directory}/${name})
    list(APPEND copies ${directory}/${name})
  endforeach()
  set(copies ${copies} PARENT_SCOPE)
endfunction()

function(add_binaries directory)
  copy_binaries(${directory} ${ARGN})
  # Root runs these: nothing but their own directory may give them libraries, wherever it lies.
  execute_process(
    COMMAND ${CMAKE_COMMAND} "-DFILES=${copies}" -DRPATH=$ORIGIN
      -P ${CMAKE_CURRENT_LIST_DIR}/set_rpath.cmake
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endfunction()

add_binaries(${KIT}/lin/${ARCHITECTURE} ${PRODUCT})
copy_binaries(${KIT}/lin/${ARCHITECTURE}/plugins ${PLUGINS})
# Last, the setup program the very last: where it is, the kit is whole.
list(REVERSE SETUP)
add_binaries(${KIT} ${SETUP})
