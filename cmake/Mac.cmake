# Dalvane on the Mac: the program on the system itself, through platform/macos.
enable_language(OBJCXX)
set(CMAKE_OBJCXX_STANDARD 20)
set(CMAKE_OBJCXX_STANDARD_REQUIRED ON)
set(CMAKE_OBJCXX_EXTENSIONS OFF)

# The face of AppKit and Foundation, and the frameworks that it and the program use.
set(DALVANE_PLATFORM_MACOS
  platform/macos/Alert.mm
  platform/macos/Application.mm
  platform/macos/Event.mm
  platform/macos/Menu.mm
  platform/macos/NotificationCenter.mm
  platform/macos/Screen.mm
  platform/macos/UUID.mm)
set(DALVANE_FRAMEWORKS
  AppKit
  ApplicationServices
  CoreFoundation
  CoreGraphics
  Foundation
  IOKit)

# Of the folder that nlohmann/json is installed in, only its own headers are made visible.
find_path(NLOHMANN_JSON_FOLDER nlohmann/json.hpp PATHS /opt/homebrew/include /usr/local/include /usr/include
          NO_CMAKE_FIND_ROOT_PATH REQUIRED)
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/include)
file(CREATE_LINK ${NLOHMANN_JSON_FOLDER}/nlohmann ${CMAKE_BINARY_DIR}/include/nlohmann SYMBOLIC)

add_library(platform_settings INTERFACE)
target_link_libraries(platform_settings INTERFACE dalvane_settings)
target_include_directories(platform_settings SYSTEM INTERFACE ${CMAKE_BINARY_DIR}/include)
target_compile_options(platform_settings INTERFACE $<$<COMPILE_LANGUAGE:OBJCXX>:-fobjc-arc>)

add_executable(Dalvane ${DALVANE_PROGRAM} ${DALVANE_PLATFORM_MACOS})
target_link_libraries(Dalvane PRIVATE platform_settings)
foreach(framework ${DALVANE_FRAMEWORKS})
  target_link_libraries(Dalvane PRIVATE "-framework ${framework}")
endforeach()
