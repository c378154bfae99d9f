# Checks that the analysis finds what is wrong with samples: a clean result of one that is blind says nothing.
#
#   cmake -DCLANG_TIDY=program -DBUILD=folder -DSAMPLES=files -P CheckFinds.cmake
cmake_minimum_required(VERSION 3.25)
foreach(sample ${SAMPLES})
  execute_process(COMMAND ${CLANG_TIDY} -p ${BUILD} --quiet ${sample} OUTPUT_VARIABLE output ERROR_VARIABLE errors
                  RESULT_VARIABLE status)
  if(status EQUAL 0 OR NOT output MATCHES "Potential leak of an object.*osx.cocoa.RetainCount")
    message(FATAL_ERROR "The analysis does not find the leak in ${sample} (${status}):\n${output}\n${errors}")
  endif()
endforeach()
