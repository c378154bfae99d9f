// Writes the application's icon: dalvane-icon FILE.icns
#include <exception>
#include <fstream>
#include <iostream>

#include "packaging/icon/AppIcon.h"

int main(int count, char** arguments) {
  if (count != 2) {
    std::cerr << "usage: dalvane-icon FILE.icns\n";
    return 2;
  }
  try {
    std::ofstream file(arguments[1], std::ios::binary);
    file << makeIconFile(makeAppIcon(drawnByTheProgram()));
    file.close();
    if (!file.fail()) return 0;
    std::cerr << "dalvane-icon: the icon cannot be written: " << arguments[1] << '\n';
  } catch (const std::exception& error) {
    std::cerr << "dalvane-icon: " << error.what() << '\n';
  }
  return 1;
}
