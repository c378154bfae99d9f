// Disk images and the volumes made of them.
#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "simulator/system/DiskImage.h"
#include "simulator/system/FileContent.h"
#include "simulator/system/Volumes.h"

namespace {

namespace fs = std::filesystem;
using simulator::BadImage;
using simulator::readFile;
using simulator::writeFile;

class DiskImageTest : public testing::Test {
 protected:
  DiskImageTest() {
    std::string pattern = (fs::temp_directory_path() / "image-XXXXXX").string();
    folder_ = mkdtemp(pattern.data());
    fs::create_directories(folder_ / "source/Dalvane.app/Contents");
    writeFile(folder_ / "source/Dalvane.app/Contents/file", std::string("\0binary\xff", 8));
    fs::permissions(folder_ / "source/Dalvane.app/Contents/file", fs::perms::owner_exec, fs::perm_options::add);
    fs::create_symlink("/Applications", folder_ / "source/Applications");
    fs::create_directories(folder_ / "out");
    image_ = simulator::makeDiskImage(folder_ / "source");
  }
  ~DiskImageTest() override { fs::remove_all(folder_); }

  fs::path folder_;
  std::string image_;
};

TEST_F(DiskImageTest, HoldsFilesFoldersAndLinks) {
  simulator::extractDiskImage(image_, folder_ / "out");
  EXPECT_EQ(readFile(folder_ / "out/Dalvane.app/Contents/file"), std::string("\0binary\xff", 8));
  EXPECT_NE(fs::status(folder_ / "out/Dalvane.app/Contents/file").permissions() & fs::perms::owner_exec,
            fs::perms::none);
  EXPECT_EQ(fs::read_symlink(folder_ / "out/Applications"), "/Applications");
}

TEST_F(DiskImageTest, ADamagedImageIsRefused) {
  std::string changed = image_;
  changed[20] = static_cast<char>(changed[20] ^ 1);
  for (const std::string& bad : {std::string(), std::string("<html>Not found</html>"), std::string(600, 'x'),
                                 image_.substr(0, image_.size() - 1), image_.substr(1), changed}) {
    EXPECT_THROW(simulator::extractDiskImage(bad, folder_ / "out"), BadImage) << bad.size();
  }
}

// An image of these records, whatever they say.
struct Record {
  char kind;
  std::string name;
  std::string content;  // or where the link leads; nothing for a folder
};
std::string imageOf(const std::vector<Record>& records) {
  const auto number = [](std::uint64_t value) {
    std::string bytes;
    for (int shift = 56; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift & 0xff);
    return bytes;
  };
  std::string data;
  for (const auto& [kind, name, content] : records) {
    data += kind + number(0644) + number(name.size()) + name;
    if (kind != 'd') data += number(content.size()) + content;
  }
  const auto sum = crc32_z(0, reinterpret_cast<const Bytef*>(data.data()), data.size());
  std::string image = data + "koly" + number(data.size()) + number(sum);
  image.resize(data.size() + 512);
  return image;
}

TEST_F(DiskImageTest, NothingIsLaidOutBesideTheMountPoint) {
  fs::create_directories(folder_ / "outside/inner");
  writeFile(folder_ / "outside/file", "untouched");
  const std::vector<std::vector<Record>> ways = {
      {{'f', "../outside/new", "x"}},
      {{'f', "/outside/new", "x"}},
      {{'l', "a", "../outside"}, {'f', "a/new", "x"}},
      {{'l', "a", "../outside"}, {'f', "a/inner/new", "x"}},
      {{'l', "a", "../outside"}, {'d', "a/inner/new", ""}},
      {{'l', "a", "../outside/file"}, {'f', "a", "x"}},
      {{'l', "a", "../outside/new"}, {'f', "a", "x"}},
  };
  for (const auto& records : ways) {
    fs::remove_all(folder_ / "out");
    fs::create_directories(folder_ / "out");
    EXPECT_THROW(simulator::extractDiskImage(imageOf(records), folder_ / "out"), BadImage) << records.back().name;
    EXPECT_EQ(readFile(folder_ / "outside/file"), "untouched") << records.back().name;
    EXPECT_FALSE(fs::exists(folder_ / "outside/new")) << records.back().name;
    EXPECT_TRUE(fs::is_empty(folder_ / "outside/inner")) << records.back().name;
    fs::remove(folder_ / "outside/new");
    fs::remove_all(folder_ / "outside/inner/new");
  }
  fs::remove_all(folder_ / "out");
  fs::create_directories(folder_ / "out");
  simulator::extractDiskImage(imageOf({{'l', "c", "a"}, {'d', "a", ""}, {'f', "a/b", "x"}}), folder_ / "out");
  EXPECT_EQ(readFile(folder_ / "out/c/b"), "x");
}

TEST_F(DiskImageTest, AVolumeCoversItsMountPointUntilItIsDetached) {
  const simulator::Volumes volumes(folder_ / "root");
  fs::create_directories(folder_ / "mnt");
  writeFile(folder_ / "mnt/covered", "");
  writeFile(folder_ / "image.dmg", image_);

  volumes.attach(folder_ / "image.dmg", folder_ / "mnt");
  EXPECT_TRUE(fs::exists(folder_ / "mnt/Dalvane.app"));
  EXPECT_FALSE(fs::exists(folder_ / "mnt/covered"));
  EXPECT_EQ(volumes.mountPoints(), std::vector<fs::path>{folder_ / "mnt"});

  EXPECT_FALSE(volumes.detach(folder_ / "elsewhere"));
  EXPECT_TRUE(volumes.detach(folder_ / "mnt"));
  EXPECT_FALSE(fs::exists(folder_ / "mnt/Dalvane.app"));
  EXPECT_TRUE(fs::exists(folder_ / "mnt/covered"));
  EXPECT_TRUE(volumes.mountPoints().empty());
  EXPECT_FALSE(volumes.detach(folder_ / "mnt"));
}

TEST_F(DiskImageTest, AFailedAttachLeavesTheMountPointAsItWas) {
  const simulator::Volumes volumes(folder_ / "root");
  fs::create_directories(folder_ / "mnt");
  writeFile(folder_ / "mnt/covered", "");
  writeFile(folder_ / "image.dmg", image_.substr(1));
  EXPECT_THROW(volumes.attach(folder_ / "image.dmg", folder_ / "mnt"), BadImage);
  EXPECT_TRUE(fs::exists(folder_ / "mnt/covered"));
  EXPECT_TRUE(volumes.mountPoints().empty());
}

}  // namespace
