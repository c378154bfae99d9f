// The disk images that are attached, kept in files below the system's root so that programs and machine see the same.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace simulator {

class Volumes {
 public:
  // `root` is the simulated system's root folder.
  explicit Volumes(const std::filesystem::path& root) : table_(root / "var/run/volumes") {}

  // Lays out the image at the mount point, whose own content is covered until it is detached. Throws BadImage,
  // std::system_error or std::filesystem_error, and leaves nothing behind then.
  void attach(const std::filesystem::path& image, const std::filesystem::path& mountPoint) const;
  // False when nothing is attached there.
  [[nodiscard]] bool detach(const std::filesystem::path& mountPoint) const;
  [[nodiscard]] std::vector<std::filesystem::path> mountPoints() const;

 private:
  std::filesystem::path table_;  // a folder for each volume: the file "point" and the covered folder "covered"
};

}  // namespace simulator
