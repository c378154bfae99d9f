// Pictures of what the program shows on the simulated Mac.
#pragma once

#include <ostream>
#include <string>

// Both write `file`, as the end of its name says (".svg", ".png"), with `scale` pixels for a point, and answer the exit
// status: 0; 1 when there was nothing to draw or the picture could not be written; 2 for a scenario that cannot be
// understood. What went wrong goes to `errors`.

// The image in the menu bar, of a program that has just been launched.
int drawIcon(const std::string& file, double scale, std::ostream& errors);
// The status menu at the end of a scenario; opened, if the scenario has not done so.
int drawMenu(const std::string& scenario, const std::string& file, double scale, bool isDark, std::ostream& errors);
