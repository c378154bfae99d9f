# The version in its two forms: DALVANE_VERSION, as people read it and as updates are compared ("1.2.0", "1.2.0-beta.1"),
# and DALVANE_BUNDLE_VERSION, the numbers alone, as the system compares builds of one bundle. Another version than the
# one here is built with -DDALVANE_VERSION=TEXT.
if(NOT DEFINED DALVANE_VERSION)
  set(DALVANE_VERSION 1.0.0)
endif()
if(NOT DALVANE_VERSION MATCHES "^([0-9]+(\\.[0-9]+)?(\\.[0-9]+)?)(-beta\\.[0-9]+)?$")
  message(FATAL_ERROR "DALVANE_VERSION is \"${DALVANE_VERSION}\": it must be up to three numbers (1.2.0), and may be "
                      "that of a beta (1.2.0-beta.1)")
endif()
set(DALVANE_BUNDLE_VERSION ${CMAKE_MATCH_1})
