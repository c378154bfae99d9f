# Checks that the bundle says what it wants each permission for that the system could ask the user about: without its
# text the system ends the program instead of asking.
#
#   cmake -DPLIST=Info.plist -P UsageTexts.cmake
cmake_minimum_required(VERSION 3.25)

file(READ ${PLIST} text)
foreach(key NSAudioCaptureUsageDescription NSMicrophoneUsageDescription)
  if(NOT text MATCHES "<key>${key}</key>[ \t\r\n]*<string>[^<]+</string>")
    message(FATAL_ERROR "${PLIST} has no ${key}")
  endif()
endforeach()
