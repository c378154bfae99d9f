// The C library's list of functions that are missing on the processor; nothing depends on it.
