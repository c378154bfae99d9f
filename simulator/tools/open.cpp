// open(1): asks the machine to open an application.
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "simulator/tools/Tool.h"

int main(int count, char** words) {
  if (const auto status = tool::fault()) tool::end(*status);
  if (count != 2) {
    std::fputs("Usage: open <file>\n", stderr);
    return 1;
  }
  if (!std::filesystem::exists(words[1])) {
    std::fprintf(stderr, "The file %s does not exist.\n", words[1]);
    return 1;
  }
  // One line a request; the machine reads them.
  std::ofstream requests(tool::root() / "var/run/opened", std::ios::app);
  requests << words[1] << '\n';
  return requests.flush() ? 0 : 1;
}
