# Checks which compilers cmake/Strict.cmake is strict with.
#
#   cmake -DSOURCE=folder -P StrictTest.cmake
cmake_minimum_required(VERSION 3.25)

function(check_strict compiler version strict)
  set(CMAKE_CXX_COMPILER_ID ${compiler})
  set(CMAKE_CXX_COMPILER_VERSION ${version})
  unset(DALVANE_STRICT CACHE)
  include(${SOURCE}/cmake/Strict.cmake)
  if(NOT DALVANE_STRICT STREQUAL strict)
    message(SEND_ERROR "${compiler} ${version}: ${DALVANE_STRICT}")
  endif()
endfunction()
check_strict(Clang 19.1.7 ON)
check_strict(Clang 20.1.0 OFF)
check_strict(Clang 18.1.8 OFF)
check_strict(AppleClang 19.0.0 OFF)
check_strict(AppleClang 17.0.0 OFF)
