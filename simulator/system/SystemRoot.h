// The simulated system's root folder: loadable libraries, tools, and whatever files the program leaves.
#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/kernel/Part.h"

namespace simulator {

class Machine;

class SystemRoot : public Part {
 public:
  // Lays out a new folder, with links to the system's own files.
  explicit SystemRoot(Machine& machine);
  ~SystemRoot() override;
  SystemRoot(const SystemRoot&) = delete;
  SystemRoot& operator=(const SystemRoot&) = delete;

  // Where the folder is made: in memory where the host has such a place, since it lives as long as the machine, unless
  // the user of the host wants it elsewhere.
  static std::filesystem::path parentFolder();

  // Removes the folder, as the destructor does.
  void runIsCutShort() override;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  // The user's own temporary folder.
  [[nodiscard]] std::filesystem::path temporaryDirectory() const;
  // Where an absolute path of the simulated system lies.
  [[nodiscard]] std::filesystem::path below(std::string_view path) const;

  // Whether a path on the host is one of the system's own files, which no program can change.
  [[nodiscard]] bool isSystem(const std::filesystem::path& path) const;
  // The same as `below`, but for what there is of the system's own files a name that is the same for every machine.
  [[nodiscard]] std::filesystem::path onHost(std::string_view path) const;

  // Removes a loadable library, given by its path or its name; false when there is none.
  bool removeLibrary(std::string_view library);
  void removeSymbol(std::string symbol) { missing_.insert(std::move(symbol)); }
  // Libraries that the program has loaded, in this order.
  void didLoad(void* library) { loaded_.push_back(library); }
  [[nodiscard]] const std::vector<void*>& loaded() const { return loaded_; }
  [[nodiscard]] bool isMissing(std::string_view symbol) const { return missing_.contains(symbol); }

 private:
  std::filesystem::path path_;
  std::optional<std::string> temporaryDirectoryBefore_;  // the host's own TMPDIR
  std::set<std::string, std::less<>> missing_;
  std::vector<void*> loaded_;
};

}  // namespace simulator
