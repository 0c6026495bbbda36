# Writes the manual page: `${CLI} --man` into ${OUT}, and ${OUT}.gz compressed as Debian packages
# want it (gzip -9n: no name or time stamp, so the same page gives the same bytes).
get_filename_component(dir ${OUT} DIRECTORY)
file(MAKE_DIRECTORY ${dir})
execute_process(COMMAND ${CLI} --man OUTPUT_FILE ${OUT}.new RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "${CLI} --man failed: ${status}")
endif()
file(RENAME ${OUT}.new ${OUT})
execute_process(COMMAND gzip -9n -c ${OUT} OUTPUT_FILE ${OUT}.gz RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "gzip of ${OUT} failed: ${status}")
endif()
