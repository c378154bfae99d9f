# Compiling for the Mac away from a Mac: clang and lld of LLVM 19 (Debian packages clang-19, lld-19 and llvm-19) with
# Apple's public headers and linker stubs, in the folder that -DMACOS_SDK names.
set(MACOS_SDK "" CACHE PATH "A macOS SDK: the folder that holds usr/ and System/")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES MACOS_SDK)

if(MACOS_SDK STREQUAL "")
  message(FATAL_ERROR "MACOS_SDK is not set. Say where a macOS SDK lies: cmake --preset macos-cross -DMACOS_SDK=/path")
endif()
foreach(part usr/include/c++/v1 usr/include/dispatch usr/lib/libobjc.tbd System/Library/Frameworks/AppKit.framework)
  if(NOT EXISTS ${MACOS_SDK}/${part})
    message(FATAL_ERROR "MACOS_SDK (${MACOS_SDK}) is not a macOS SDK: there is no ${part} in it")
  endif()
endforeach()

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 24)  # macOS 15's
set(CMAKE_SYSTEM_PROCESSOR arm64)
set(CMAKE_OSX_SYSROOT ${MACOS_SDK} CACHE PATH "" FORCE)
set(CMAKE_OSX_ARCHITECTURES arm64 CACHE STRING "")
set(CMAKE_OSX_DEPLOYMENT_TARGET 15.0 CACHE STRING "")

foreach(tool clang++ ld64.lld llvm-nm llvm-install-name-tool llvm-objdump)
  string(MAKE_C_IDENTIFIER ${tool} variable)
  find_program(tool_${variable} ${tool}-19 NO_CMAKE_FIND_ROOT_PATH)
  if(NOT tool_${variable})
    message(FATAL_ERROR "${tool}-19 is missing; install the Debian packages clang-19, lld-19 and llvm-19")
  endif()
endforeach()
set(CMAKE_CXX_COMPILER ${tool_clang__})
set(CMAKE_OBJCXX_COMPILER ${tool_clang__})
set(CMAKE_NM ${tool_llvm_nm})
set(CMAKE_INSTALL_NAME_TOOL ${tool_llvm_install_name_tool})
set(CMAKE_CXX_COMPILER_TARGET arm64-apple-macos15.0)
set(CMAKE_OBJCXX_COMPILER_TARGET arm64-apple-macos15.0)

# No header of this computer's own may be found in the place of Apple's.
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-resource-dir OUTPUT_VARIABLE resources
                OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
string(JOIN " " headers
  -nostdinc
  -iwithsysroot /usr/include/c++/v1
  -isystem ${resources}/include
  -iwithsysroot /usr/include
  -iframeworkwithsysroot /System/Library/Frameworks)
set(CMAKE_CXX_FLAGS_INIT "${headers}")
set(CMAKE_OBJCXX_FLAGS_INIT "${headers}")
# Declarations that an SDK older than macOS 15's lacks, where the folder comes with them.
if(EXISTS ${MACOS_SDK}/usr/include/newer_than_sdk.h)
  string(APPEND CMAKE_OBJCXX_FLAGS_INIT " -include newer_than_sdk.h")
endif()

# Public stubs leave out libSystem and libc++: what is theirs is looked up when the program is loaded, and so is not
# checked when it is linked. CheckSymbols.cmake checks that nothing else is left to that.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld --ld-path=${tool_ld64_lld} -nostdlib -Wl,-undefined,dynamic_lookup")

set(CMAKE_FIND_ROOT_PATH ${MACOS_SDK})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
