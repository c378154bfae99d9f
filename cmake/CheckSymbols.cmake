# Checks what the linker has left to be looked up when the program is loaded:
#
#   cmake -DBINARY=file -DNM=llvm-nm -DSDK=folder -P CheckSymbols.cmake
#
# An SDK of public stubs has none for libSystem and libc++, so the linker lets every unknown symbol pass. Here each one
# that it let pass must be
# - C++ of namespace std or of the language's runtime: libc++'s; or
# - a C name in lower case, as libSystem's are, and in no stub of the SDK: one that is in a stub belongs to a framework
#   or to the Objective-C runtime and would have been found, were that linked.
# Names of frameworks have prefixes in capitals and the program's own C++ is in no namespace std, so both are noticed
# when nothing defines them. What this cannot see is whether libSystem and libc++ really have a name that looks like
# theirs: for that there is only their headers' word.
cmake_minimum_required(VERSION 3.25)

execute_process(COMMAND ${NM} -um ${BINARY} OUTPUT_VARIABLE table COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^ \n]+ \\(dynamically looked up\\)" left "${table}")
list(TRANSFORM left REPLACE " .*" "")
if(NOT left)
  message(FATAL_ERROR "${NM} shows nothing that is looked up dynamically in ${BINARY}: the check is blind")
endif()

# The symbols of every stub, between blanks.
file(GLOB_RECURSE stubs ${SDK}/*.tbd)
set(known "")
foreach(stub ${stubs})
  file(READ ${stub} text)
  string(APPEND known " ${text}")
endforeach()
string(REGEX REPLACE "[],'\n[]+" " " known "${known}")
if(NOT known MATCHES " _objc_msgSend ")
  message(FATAL_ERROR "No stub in ${SDK} has objc_msgSend: the check is blind")
endif()

set(libcxx "^(__Z(T[ISTV]|G[RV])?N?K?(St|10__cxxabiv1|n[aw]|d[al])|___cxa_|___gxx_personality_v0$|__Unwind_)")
set(libsystem "^(_+[a-z]|__Block_|__DefaultRuneLocale$|__NSConcrete(Stack|Malloc|Global)Block$|__NSGet)")
set(framework "^_(k[A-Z]|objc_)")
set(failures "")
foreach(symbol ${left})
  if(symbol MATCHES "${libcxx}")
    continue()
  endif()
  string(FIND "${known}" " ${symbol} " position)
  if(NOT position EQUAL -1)
    string(APPEND failures "\n  ${symbol}: defined by a framework that is not linked")
  elseif(symbol MATCHES "${framework}" OR NOT symbol MATCHES "${libsystem}")
    string(APPEND failures "\n  ${symbol}: in no stub, and no name of libSystem or libc++")
  endif()
endforeach()
if(failures)
  file(REMOVE ${BINARY})  # so that it is linked and checked again whatever the next build changes
  message(FATAL_ERROR "Symbols that nothing defines:${failures}")
endif()
list(LENGTH left count)
message(STATUS "${count} symbols are left to libSystem and libc++; a stub defines each of the others")
