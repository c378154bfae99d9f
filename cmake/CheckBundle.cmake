# Checks a bundle that was built for the Mac, before it is signed:
#
#   cmake -DBUNDLE=Dalvane.app -DSOURCE=folder -DVERSION=text -DNUMBERS=version -DOBJDUMP=llvm-objdump -P CheckBundle.cmake
#
# It holds what it should and nothing else; the Info.plist says what macOS goes by; the icon is whole; the executable is
# arm64 code for macOS 15 that is linked with the frameworks it uses. Its symbols are CheckSymbols.cmake's.
cmake_minimum_required(VERSION 3.25)
set(failures "")

file(GLOB_RECURSE found LIST_DIRECTORIES true RELATIVE ${BUNDLE} ${BUNDLE}/*)
list(SORT found)
set(wanted Contents Contents/Info.plist Contents/MacOS Contents/MacOS/Dalvane Contents/Resources
    Contents/Resources/Dalvane.icns Contents/Resources/ThirdPartyNotices.txt)
if(NOT found STREQUAL wanted)
  string(APPEND failures "\n  it holds ${found}")
endif()

if(EXISTS ${BUNDLE}/Contents/Info.plist)
  file(READ ${BUNDLE}/Contents/Info.plist info)
endif()
foreach(pair "CFBundleExecutable=<string>Dalvane</string>" "CFBundleIconFile=<string>Dalvane</string>"
        "CFBundleIdentifier=<string>example.dalvane.Dalvane</string>" "CFBundlePackageType=<string>APPL</string>"
        "CFBundleShortVersionString=<string>${VERSION}</string>" "CFBundleVersion=<string>${NUMBERS}</string>"
        "LSArchitecturePriority=<array><string>arm64</string></array>"
        "LSMinimumSystemVersion=<string>15.0</string>" "LSMultipleInstancesProhibited=<true/>" "LSUIElement=<true/>"
        "NSAudioCaptureUsageDescription=<string>Dalvane " "NSHumanReadableCopyright=<string>Copyright "
        "NSMicrophoneUsageDescription=<string>Dalvane ")
  string(REGEX MATCH "^([A-Za-z]+)=(.*)$" pair "${pair}")
  set(key ${CMAKE_MATCH_1})
  set(value "${CMAKE_MATCH_2}")
  string(REGEX REPLACE ">[ \t\n]+<" "><" packed "${info}")
  string(FIND "${packed}" "<key>${key}</key>${value}" position)
  if(position EQUAL -1)
    string(APPEND failures "\n  the Info.plist lacks ${key} with ${value}")
  endif()
endforeach()
if(info MATCHES "@[A-Za-z_]+@")
  string(APPEND failures "\n  the Info.plist was not filled in: ${CMAKE_MATCH_0}")
endif()

# The file begins with its name and its own size.
set(icon ${BUNDLE}/Contents/Resources/Dalvane.icns)
foreach(file Dalvane.icns ThirdPartyNotices.txt)
  set(copy ${BUNDLE}/Contents/Resources/${file})
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${SOURCE}/packaging/${file} ${copy}
                  RESULT_VARIABLE differs OUTPUT_QUIET ERROR_QUIET)
  if(differs)
    string(APPEND failures "\n  ${file} is not that of packaging/")
  endif()
endforeach()
if(EXISTS ${icon})
  file(READ ${icon} head LIMIT 8 HEX)
  file(SIZE ${icon} size)
  math(EXPR size "${size}" OUTPUT_FORMAT HEXADECIMAL)
  string(REGEX REPLACE "^0x" "00000000" size "${size}")
  string(REGEX MATCH "........$" size "${size}")
  if(NOT head STREQUAL "69636e73${size}")
    string(APPEND failures "\n  the icon begins with ${head}, which is not its name and size")
  endif()
endif()

execute_process(COMMAND ${OBJDUMP} --macho --private-headers ${BUNDLE}/Contents/MacOS/Dalvane
                OUTPUT_VARIABLE headers RESULT_VARIABLE unreadable ERROR_QUIET)
if(unreadable)
  string(APPEND failures "\n  its executable cannot be read")
endif()
foreach(pattern "MH_MAGIC_64 +ARM64 .*EXECUTE.* PIE" "platform macos\n" "minos 15.0\n")
  if(NOT headers MATCHES "${pattern}")
    string(APPEND failures "\n  its executable's headers lack ${pattern}")
  endif()
endforeach()
foreach(framework AppKit ApplicationServices AudioToolbox CoreAudio CoreFoundation CoreGraphics Foundation IOKit Security
        ServiceManagement)
  if(NOT headers MATCHES "name /System/Library/Frameworks/${framework}\\.framework/")
    string(APPEND failures "\n  its executable is not linked with ${framework}")
  endif()
endforeach()

if(failures)
  file(REMOVE ${BUNDLE}/Contents/MacOS/Dalvane)  # so that it is made and checked again whatever the next build changes
  message(FATAL_ERROR "${BUNDLE}:${failures}")
endif()
set(all 0)
foreach(file ${found})
  if(NOT IS_DIRECTORY ${BUNDLE}/${file})
    file(SIZE ${BUNDLE}/${file} size)
    math(EXPR all "${all} + ${size}")
  endif()
endforeach()
file(SIZE ${BUNDLE}/Contents/MacOS/Dalvane executable)
message(STATUS "Dalvane.app is whole: ${all} bytes, ${executable} of them the executable")
