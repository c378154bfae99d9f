# Whether a warning, or a system header that says something else than ours, ends the build: by itself only with the
# compiler that all of it is tested with, so that a newer one still builds.
set(tested OFF)
if(CMAKE_CXX_COMPILER_ID STREQUAL Clang AND CMAKE_CXX_COMPILER_VERSION MATCHES "^19\\.")
  set(tested ON)
endif()
option(DALVANE_STRICT "Treat warnings as errors, and require the system's headers to agree with ours" ${tested})
