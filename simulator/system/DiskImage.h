// Disk images: files that hold a folder tree.
//
// Like the images of the Mac, a file ends in a trailer of 512 bytes that begins with "koly" and holds the length and
// the CRC-32 of the data before it. The data is this machine's own: one record a file, folder or link.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

namespace simulator {

// What is wrong with an image.
class BadImage : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The image file that holds what is below `folder`.
std::string makeDiskImage(const std::filesystem::path& folder);
// Lays out what the image holds below `folder`, which must be empty. Throws BadImage, or std::filesystem_error.
void extractDiskImage(std::string_view image, const std::filesystem::path& folder);

}  // namespace simulator
