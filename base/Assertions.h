// How the program stops on a broken assumption.
#pragma once

#include <string_view>

// Stops the process on a programming or packaging error, with `message` in the unified log. Usable from any thread.
[[noreturn]] void fatalError(std::string_view message);

// Stops the process unless it is called on the main thread.
void assertMainThread();
