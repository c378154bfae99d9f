// Loggers of the system's unified log.
#pragma once

#include <os/log.h>

// A log handle whose subsystem is the bundle's identifier; a bundle without one stops the program.
// Handles live for ever, so a type makes its own once.
os_log_t makeLogger(const char* category);
