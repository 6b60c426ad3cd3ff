# SPDX-License-Identifier: MIT
# Run by CPack between installing into its own directory and packing that.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  return()
endif()
execute_process(
  COMMAND find ${CPACK_TEMPORARY_DIRECTORY} -exec touch --no-dereference --date=@$ENV{SOURCE_DATE_EPOCH} {} +
  COMMAND_ERROR_IS_FATAL ANY)
