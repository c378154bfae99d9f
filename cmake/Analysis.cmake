# add_analysis(NAME sources...): the target NAME, which analyses sources of targets that are built, each anew when it, a
# header or the checks (.clang-tidy) have changed. The checks hold the static analyzer's: what Core Foundation objects
# and Objective-C ones are owed, null, leaks.
find_program(DALVANE_CLANG_TIDY clang-tidy-19 NO_CMAKE_FIND_ROOT_PATH)

function(add_analysis name)
  file(GLOB headers CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/app/*.h ${CMAKE_SOURCE_DIR}/base/*.h ${CMAKE_SOURCE_DIR}/brightness/*.h
       ${CMAKE_SOURCE_DIR}/osd/*.h ${CMAKE_SOURCE_DIR}/platform/*.h ${CMAKE_SOURCE_DIR}/platform/macos/*.h
       ${CMAKE_SOURCE_DIR}/updater/*.h ${CMAKE_SOURCE_DIR}/volume/*.h)
  set(done "")
  foreach(source ${ARGN})
    set(stamp ${CMAKE_BINARY_DIR}/${name}/${source}.done)
    get_filename_component(folder ${stamp} DIRECTORY)
    file(MAKE_DIRECTORY ${folder})
    add_custom_command(OUTPUT ${stamp} VERBATIM
      COMMAND ${DALVANE_CLANG_TIDY} -p ${CMAKE_BINARY_DIR} --quiet ${CMAKE_SOURCE_DIR}/${source}
      COMMAND ${CMAKE_COMMAND} -E touch ${stamp}
      DEPENDS ${CMAKE_SOURCE_DIR}/${source} ${headers} ${CMAKE_SOURCE_DIR}/.clang-tidy
      COMMENT "Analysing ${source}")
    list(APPEND done ${stamp})
  endforeach()
  add_custom_target(${name} DEPENDS ${done})
endfunction()
