# Dalvane on the Mac: the program on the system itself, through platform/macos.
enable_language(OBJCXX)
set(CMAKE_OBJCXX_STANDARD 20)
set(CMAKE_OBJCXX_STANDARD_REQUIRED ON)
set(CMAKE_OBJCXX_EXTENSIONS OFF)

# The face of AppKit and Foundation, and the frameworks that it and the program use.
set(DALVANE_PLATFORM_MACOS
  platform/macos/Alert.mm
  platform/macos/AppService.mm
  platform/macos/Application.mm
  platform/macos/AudioTap.mm
  platform/macos/Controls.mm
  platform/macos/Drawing.mm
  platform/macos/Error.mm
  platform/macos/Event.mm
  platform/macos/Menu.mm
  platform/macos/NotificationCenter.mm
  platform/macos/Screen.mm
  platform/macos/Target.mm
  platform/macos/URL.mm
  platform/macos/URLSession.mm
  platform/macos/UUID.mm
  platform/macos/UserDefaults.mm
  platform/macos/View.mm)
set(DALVANE_FRAMEWORKS
  AppKit
  ApplicationServices
  AudioToolbox
  CoreAudio
  CoreFoundation
  CoreGraphics
  Foundation
  IOKit
  Security
  ServiceManagement)

# Of the folder that nlohmann/json is installed in, only its own headers are made visible.
find_path(NLOHMANN_JSON_FOLDER nlohmann/json.hpp PATHS /opt/homebrew/include /usr/local/include /usr/include
          NO_CMAKE_FIND_ROOT_PATH REQUIRED)
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/include)
file(CREATE_LINK ${NLOHMANN_JSON_FOLDER}/nlohmann ${CMAKE_BINARY_DIR}/include/nlohmann SYMBOLIC)

add_library(mac_settings INTERFACE)
target_link_libraries(mac_settings INTERFACE dalvane_settings source_tree)
target_include_directories(mac_settings SYSTEM INTERFACE ${CMAKE_BINARY_DIR}/include)
target_compile_options(mac_settings INTERFACE $<$<COMPILE_LANGUAGE:OBJCXX>:-fobjc-arc>)

add_executable(Dalvane ${DALVANE_PROGRAM} ${DALVANE_PLATFORM_MACOS})
target_link_libraries(Dalvane PRIVATE mac_settings objc)
target_compile_definitions(Dalvane PRIVATE DALVANE_FEED_HOST="${DALVANE_FEED_HOST}")
foreach(framework ${DALVANE_FRAMEWORKS})
  target_link_libraries(Dalvane PRIVATE "-framework ${framework}")
endforeach()

# Writes the release feed, and reads it as the program does.
add_executable(dalvane-feed EXCLUDE_FROM_ALL
  packaging/feed/main.cpp
  base/AppError.cpp
  updater/Release.cpp
  updater/ReleaseFeed.cpp
  platform/macos/Error.mm
  platform/macos/URL.mm
  platform/macos/URLSession.mm)
target_link_libraries(dalvane-feed PRIVATE mac_settings objc "-framework CoreFoundation" "-framework Foundation")

# The bundle: beside the executable and the Info.plist, what lies in Resources.
configure_file(packaging/Info.plist ${CMAKE_BINARY_DIR}/Info.plist @ONLY)
set_target_properties(Dalvane PROPERTIES
  MACOSX_BUNDLE TRUE
  MACOSX_BUNDLE_INFO_PLIST ${CMAKE_BINARY_DIR}/Info.plist)
set(resources ${CMAKE_SOURCE_DIR}/packaging/Dalvane.icns ${CMAKE_SOURCE_DIR}/packaging/ThirdPartyNotices.txt)
set(resources_folder $<TARGET_BUNDLE_CONTENT_DIR:Dalvane>/Resources)
add_custom_command(TARGET Dalvane POST_BUILD VERBATIM
  COMMAND ${CMAKE_COMMAND} -E make_directory ${resources_folder}
  COMMAND ${CMAKE_COMMAND} -E copy ${resources} ${resources_folder})
# A debugger may attach to a debug build, and to no other.
set(entitlements ${CMAKE_SOURCE_DIR}/packaging/$<IF:$<CONFIG:Debug>,Debug,Dalvane>.entitlements)

if(CMAKE_CROSSCOMPILING)
  add_custom_command(TARGET Dalvane POST_BUILD VERBATIM
    COMMAND ${CMAKE_COMMAND} -DBINARY=$<TARGET_FILE:Dalvane> -DNM=${CMAKE_NM} -DSDK=${CMAKE_OSX_SYSROOT}
            -P ${CMAKE_SOURCE_DIR}/cmake/CheckSymbols.cmake)
  # What ships must have what tests/arm64 finds in a stand-in for it.
  set(render $<FILTER:$<TARGET_OBJECTS:Dalvane>,INCLUDE,/Render\\.cpp\\.o$>)
  set(ramps ${CMAKE_SOURCE_DIR}/tests/arm64/CheckRamps.cmake)
  add_custom_command(TARGET Dalvane PRE_LINK VERBATIM
    COMMAND ${CMAKE_COMMAND} -DOBJECT=${render} -DOBJDUMP=${tool_llvm_objdump} -P ${ramps})
  set(bundle_check ${CMAKE_SOURCE_DIR}/cmake/CheckBundle.cmake)
  add_custom_command(TARGET Dalvane POST_BUILD VERBATIM
    COMMAND ${CMAKE_COMMAND} -DBUNDLE=$<TARGET_BUNDLE_DIR:Dalvane> -DSOURCE=${CMAKE_SOURCE_DIR}
            -DVERSION=${DALVANE_VERSION} -DNUMBERS=${PROJECT_VERSION} -DOBJDUMP=${tool_llvm_objdump} -P ${bundle_check}
    COMMAND ${CMAKE_COMMAND} -E echo
            "Dalvane.app is not signed: there is no tool for that here. A Mac opens it once it has been signed there.")
  set_property(TARGET Dalvane PROPERTY LINK_DEPENDS
    ${CMAKE_BINARY_DIR}/Info.plist ${resources} ${CMAKE_SOURCE_DIR}/cmake/CheckSymbols.cmake ${ramps} ${bundle_check})

  # What clang can tell about the program and the face without running them, and that it can.
  include(cmake/Analysis.cmake)
  add_library(analysis_samples OBJECT EXCLUDE_FROM_ALL tests/analysis/Leak.cpp tests/analysis/Leak.mm)
  target_link_libraries(analysis_samples PRIVATE mac_settings)
  add_analysis(analysis ${DALVANE_PROGRAM} ${DALVANE_PLATFORM_MACOS})
  add_custom_target(analysis_finds VERBATIM
    COMMAND ${CMAKE_COMMAND} -DCLANG_TIDY=${DALVANE_CLANG_TIDY} -DBUILD=${CMAKE_BINARY_DIR}
            "-DSAMPLES=${CMAKE_SOURCE_DIR}/tests/analysis/Leak.cpp;${CMAKE_SOURCE_DIR}/tests/analysis/Leak.mm"
            -P ${CMAKE_SOURCE_DIR}/tests/analysis/CheckFinds.cmake)
  add_dependencies(analysis analysis_finds)
else()
  set(DALVANE_SIGNING_IDENTITY "-" CACHE STRING "The certificate that signs Dalvane.app; - signs ad hoc")
  add_custom_command(TARGET Dalvane POST_BUILD VERBATIM
    COMMAND codesign --force --options runtime --sign ${DALVANE_SIGNING_IDENTITY}
            --entitlements ${entitlements} $<TARGET_BUNDLE_DIR:Dalvane>)
  # The signature covers these too: when one has changed, the program is linked, and the bundle signed, again.
  set_property(TARGET Dalvane PROPERTY LINK_DEPENDS ${CMAKE_BINARY_DIR}/Info.plist ${resources} ${entitlements})
endif()

# The claims about the platform, where GoogleTest is to build them with: its sources, as Debian's package googletest
# has them, or what Homebrew installs.
if(CMAKE_CROSSCOMPILING)
  find_path(GOOGLETEST_SOURCES googletest/src/gtest-all.cc PATHS /usr/src/googletest NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  if(GOOGLETEST_SOURCES)
    add_library(googletest STATIC EXCLUDE_FROM_ALL ${GOOGLETEST_SOURCES}/googletest/src/gtest-all.cc)
    target_include_directories(googletest SYSTEM PUBLIC ${GOOGLETEST_SOURCES}/googletest/include)
    target_include_directories(googletest SYSTEM PRIVATE ${GOOGLETEST_SOURCES}/googletest)
  endif()
else()
  find_package(GTest)
  if(GTest_FOUND)
    add_library(googletest INTERFACE)
    target_link_libraries(googletest INTERFACE GTest::gtest)
  endif()
endif()
if(TARGET googletest)
  add_subdirectory(tests/conformance)
endif()
