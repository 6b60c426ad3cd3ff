# cmake -DFILES=FILES -DRPATH=PATH -P set_rpath.cmake. A script of its own, because CMake tells each
# change on standard output, which only a caller can silence.
foreach(file IN LISTS FILES)
  file(RPATH_SET FILE ${file} NEW_RPATH ${RPATH})
endforeach()
