# Dalvane on the simulated Mac.
find_package(nlohmann_json REQUIRED)
find_package(CURL REQUIRED)
find_package(ICU REQUIRED COMPONENTS uc)
find_package(OpenSSL REQUIRED)
find_package(Threads REQUIRED)
find_package(ZLIB REQUIRED)
find_library(BLOCKS_RUNTIME BlocksRuntime REQUIRED)
find_library(HTTPLIB cpp-httplib REQUIRED)
find_library(PLIST plist-2.0 REQUIRED)
find_library(CAIRO cairo REQUIRED)
find_path(CAIRO_HEADERS cairo.h PATH_SUFFIXES cairo REQUIRED)
find_library(HARFBUZZ harfbuzz REQUIRED)
find_path(HARFBUZZ_HEADERS hb.h PATH_SUFFIXES harfbuzz REQUIRED)
# The font of everything that is measured and drawn: Debian's package fonts-inter.
file(GLOB_RECURSE INTER_FONT /usr/share/fonts/Inter-Regular.otf)
if(NOT INTER_FONT)
  message(FATAL_ERROR "There is no Inter-Regular.otf below /usr/share/fonts (Debian's package fonts-inter)")
endif()
list(GET INTER_FONT 0 INTER_FONT)
cmake_path(GET INTER_FONT PARENT_PATH INTER_FONT)

add_link_options(-fuse-ld=lld)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
# The simulated system's files, laid out as they lie on a Mac.
set(SIMULATED_SYSTEM ${CMAKE_BINARY_DIR}/system)

add_library(simulated_settings INTERFACE)
target_link_libraries(simulated_settings INTERFACE dalvane_settings nlohmann_json::nlohmann_json)
target_include_directories(simulated_settings INTERFACE ${CMAKE_SOURCE_DIR}/simulator/include)

# What nearly every file of the machine includes is read once, for the kernel. A debug build shows when a file includes
# less than it uses.
function(read_once target)
  if(CMAKE_BUILD_TYPE STREQUAL "Debug")
    return()
  endif()
  if(target STREQUAL "simulator_kernel")
    target_precompile_headers(${target} PRIVATE
      <chrono> <functional> <map> <memory> <nlohmann/json.hpp> <string> <vector>)
  else()
    target_precompile_headers(${target} REUSE_FROM simulator_kernel)
  endif()
endfunction()

add_subdirectory(simulator)
# C library functions whose calls from the program are the machine's.
foreach(function abort confstr getpid nanosleep waitpid
    __cxa_guard_acquire __cxa_guard_release __cxa_guard_abort)
  target_link_options(simulator INTERFACE -Wl,--wrap=${function})
endforeach()

# What the simulated system's root holds. Whatever runs a machine depends on it: an object library does not pass its own
# dependencies on.
add_custom_target(simulated_system)

# A loadable library of the simulated system. Its symbols are looked up in the machine when it is loaded.
function(add_system_library name directory)
  add_library(system_${name} MODULE simulator/libraries/${name}.cpp)
  target_link_libraries(system_${name} PRIVATE simulated_settings source_tree)
  set_target_properties(system_${name} PROPERTIES
    PREFIX "" SUFFIX "" OUTPUT_NAME ${name} LIBRARY_OUTPUT_DIRECTORY ${SIMULATED_SYSTEM}${directory})
  add_dependencies(simulated_system system_${name})
endfunction()
add_system_library(IOKit /System/Library/Frameworks/IOKit.framework)
add_system_library(OSD /System/Library/PrivateFrameworks/OSD.framework)
add_system_library(TCC /System/Library/PrivateFrameworks/TCC.framework/Versions/A)

# A command-line tool of the simulated system, with what it needs of the machine.
function(add_system_tool name directory)
  add_executable(system_${name} simulator/tools/${name}.cpp ${ARGN})
  target_link_libraries(system_${name} PRIVATE simulated_settings source_tree)
  set_target_properties(system_${name} PROPERTIES
    OUTPUT_NAME ${name} RUNTIME_OUTPUT_DIRECTORY ${SIMULATED_SYSTEM}${directory})
  add_dependencies(simulated_system system_${name})
endfunction()
set(VOLUMES "$<FILTER:$<TARGET_OBJECTS:simulator_system>,INCLUDE,/(DiskImage|FileContent|Volumes)[.]cpp>")
add_system_tool(hdiutil /usr/bin ${VOLUMES})
add_system_tool(ditto /usr/bin ${VOLUMES})
target_link_libraries(system_hdiutil PRIVATE ZLIB::ZLIB)
target_link_libraries(system_ditto PRIVATE ZLIB::ZLIB)
add_system_tool(open /usr/bin)
add_system_tool(kill /bin)
add_system_tool(sleep /bin)
configure_file(simulator/tools/sh ${SIMULATED_SYSTEM}/bin/sh COPYONLY)

# The program, with its entry point under a name of its own.
add_library(dalvane OBJECT ${DALVANE_PROGRAM})
target_link_libraries(dalvane PUBLIC simulated_settings source_tree)
target_compile_definitions(dalvane PRIVATE DALVANE_FEED_HOST="${DALVANE_FEED_HOST}")
set_source_files_properties(app/main.cpp PROPERTIES COMPILE_DEFINITIONS main=dalvane_main)

# What clang can tell about it without running it, with these headers (docs/contributing.md).
include(cmake/Analysis.cmake)
add_analysis(analysis ${DALVANE_PROGRAM})

add_library(desk OBJECT
  desk/campaign/Attempt.cpp desk/campaign/Calls.cpp desk/campaign/Campaign.cpp
  desk/campaign/DisplayInvariants.cpp desk/campaign/Failures.cpp
  desk/campaign/KeyInvariants.cpp desk/campaign/Life.cpp desk/campaign/Report.cpp desk/campaign/Run.cpp
  desk/campaign/Shrink.cpp desk/campaign/SoundInvariants.cpp desk/campaign/SystemInvariants.cpp desk/campaign/World.cpp
  desk/Children.cpp desk/Desk.cpp desk/Explore.cpp desk/Narrator.cpp desk/Pictures.cpp desk/Seat.cpp desk/Tour.cpp)
target_compile_definitions(desk PRIVATE DALVANE_VERSION="${DALVANE_VERSION}" DALVANE_FEED_HOST="${DALVANE_FEED_HOST}")
target_link_libraries(desk PUBLIC simulated_settings source_tree)
read_once(desk)

# The desk page: its server, and its files, which become part of the executable.
find_path(HTTPLIB_HEADERS httplib.h REQUIRED)
find_library(HTTPLIB cpp-httplib REQUIRED)
file(GLOB DESK_PAGE CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/desk/page/*)
add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/Page.cpp
  COMMAND ${CMAKE_COMMAND} -DFOLDER=${CMAKE_SOURCE_DIR}/desk/page -DOUTPUT=${CMAKE_BINARY_DIR}/Page.cpp
          -P ${CMAKE_SOURCE_DIR}/cmake/EmbedPage.cmake
  DEPENDS ${DESK_PAGE} ${CMAKE_SOURCE_DIR}/cmake/EmbedPage.cmake VERBATIM)
add_library(desk_server OBJECT desk/Broadcast.cpp desk/MachineHost.cpp desk/Requests.cpp desk/Serve.cpp ${CMAKE_BINARY_DIR}/Page.cpp)
target_link_libraries(desk_server PUBLIC dalvane_settings source_tree nlohmann_json::nlohmann_json ${HTTPLIB} Threads::Threads)
# As Debian builds the library: what its header declares depends on it.
target_compile_definitions(desk_server PRIVATE
  CPPHTTPLIB_OPENSSL_SUPPORT CPPHTTPLIB_ZLIB_SUPPORT CPPHTTPLIB_BROTLI_SUPPORT)

add_executable(dalvane-desk desk/main.cpp)
target_link_libraries(dalvane-desk PRIVATE desk desk_server simulator dalvane)
set_target_properties(dalvane-desk PROPERTIES ENABLE_EXPORTS ON)
add_dependencies(dalvane-desk simulated_system)

# Writes packaging/Dalvane.icns.
add_library(app_icon OBJECT packaging/icon/AppIcon.cpp)
target_link_libraries(app_icon PUBLIC simulated_settings source_tree)
add_executable(dalvane-icon EXCLUDE_FROM_ALL packaging/icon/main.cpp)
target_link_libraries(dalvane-icon PRIVATE app_icon desk simulator dalvane)
set_target_properties(dalvane-icon PROPERTIES ENABLE_EXPORTS ON)
add_dependencies(dalvane-icon simulated_system)
# Writes the release feed.
add_executable(dalvane-feed packaging/feed/main.cpp)
target_link_libraries(dalvane-feed PRIVATE simulator dalvane)
set_target_properties(dalvane-feed PROPERTIES ENABLE_EXPORTS ON)

option(DALVANE_BENCHMARKS "Build the benchmarks" OFF)
if(DALVANE_BENCHMARKS)
  add_subdirectory(benchmarks)
endif()

include(CTest)
if(BUILD_TESTING)
  add_subdirectory(fuzz)
  add_subdirectory(tests)
endif()
