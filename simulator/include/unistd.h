// What the Mac's unistd.h has beside the host's.
#pragma once
#pragma GCC system_header  // to go on to the host's header of the same name is an extension of the language

#include_next <unistd.h>

#define _CS_DARWIN_USER_TEMP_DIR 65537
