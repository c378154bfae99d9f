// What is packed with the program, as a reader of property lists understands it.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "simulator/foundation/PropertyList.h"
#include "simulator/system/FileContent.h"

using nlohmann::json;

namespace {

std::string packaging(const std::string& file) { return simulator::readFile(PACKAGING "/" + file); }

}  // namespace

TEST(Packaging, TheInfoListTellsMacOSWhatDalvaneIs) {
  const json info = simulator::readPropertyList(packaging("Info.plist"));
  EXPECT_EQ(info["LSUIElement"], true);
  EXPECT_EQ(info["LSMultipleInstancesProhibited"], true);
  EXPECT_EQ(info["LSArchitecturePriority"], json::array({"arm64"}));
  EXPECT_EQ(info["CFBundleIconFile"], "Dalvane");
  EXPECT_EQ(info["CFBundleExecutable"], "Dalvane");
  EXPECT_EQ(info["CFBundleIdentifier"], "example.dalvane.Dalvane");
  EXPECT_TRUE(info["NSHumanReadableCopyright"].get<std::string>().starts_with("Copyright © "));
  for (const char* const key : {"NSAudioCaptureUsageDescription", "NSMicrophoneUsageDescription"}) {
    EXPECT_TRUE(info[key].get<std::string>().starts_with("Dalvane ")) << key;
  }
  // No exception to App Transport Security.
  EXPECT_FALSE(info.contains("NSAppTransportSecurity"));
}

// The system's own reader of entitlements refuses comments.
TEST(Packaging, EntitlementsAreWhatIsNeededAndNothingElse) {
  const json release = {{"com.apple.security.device.audio-input", true}};
  json debug = release;
  debug["com.apple.security.get-task-allow"] = true;
  EXPECT_EQ(simulator::readPropertyList(packaging("Dalvane.entitlements")), release);
  EXPECT_EQ(simulator::readPropertyList(packaging("Debug.entitlements")), debug);
  for (const char* const file : {"Dalvane.entitlements", "Debug.entitlements"}) {
    EXPECT_EQ(packaging(file).find("<!--"), std::string::npos) << file;
  }
}
