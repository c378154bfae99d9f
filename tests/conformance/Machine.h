// What a claim needs of the machine that it is tried on, beside the platform. There is one file for each machine:
// MachineMac.cpp and MachineSimulated.cpp.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <filesystem>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "platform/Image.h"
#include "tests/conformance/Claim.h"

namespace claims {

// ---- For claims ----

// The modes of the main run loop in which it waits for the user, shows an alert, or has a menu open.
enum class Mode { normal, modalPanel, eventTracking };

// Runs the main thread's loop for that long.
void letRun(double seconds, Mode mode = Mode::normal);
// Runs it until `done`, and at most that long; whether it is done.
inline bool runUntil(const std::function<bool()>& done, double seconds = 10) {
  for (double waited = 0; !done() && waited < seconds; waited += 0.01) letRun(0.01);
  return done();
}

// Asks the person at the desk to do something and waits until they say that it is done, while the main thread's loop
// runs. `hands` are the scenario lines that do it on the simulated Mac.
void ask(const std::string& instruction, const std::string& hands);
// What the person has been told to do meanwhile is done now, on the simulated Mac.
void goOn(const std::string& hands);
// Asks what the person sees or hears, to be answered with yes. `record` is what has to be in a record of the simulated
// Mac's trace since the last `ask`: each member, with this value.
[[nodiscard]] bool confirm(const std::string& question, const nlohmann::json& record);

// Posts a notification of that name, as the system does: in the workspace's centre, or in the default one.
void postNotification(bool ofWorkspace, CFStringRef name);
// Writes a preference of the program as another one could: a text, a number, a truth value or a list of numbers.
void setPreference(const std::string& key, const nlohmann::json& value);
// An image as it is drawn with a pixel for each point: how opaque each is, from 0 to 1, in rows from the top.
std::vector<double> opacities(const NS::Image& image, int width, int height);
// An executable file that is a child for claims about processes. Called with "exit:N" it ends with that status, with
// "signal:N" by that signal. Called with a path, it writes to that file what it has been given, a line each: "blocks N"
// and "ignores N" for signals, "has N" for files that are open, "leads" when it leads its process group, and "variable
// TEXT" with the environment's CLAIMS (main.cpp).
std::filesystem::path childProgram();

// The application that the person installs and updates: Dalvane; on the simulated Mac the program itself.
std::filesystem::path installedApplication();
// A disk image of what is in a folder.
void makeDiskImage(const std::filesystem::path& folder, const std::filesystem::path& image);
// Signs a bundle with a certificate that is made for it, of the signer "Tessbrook" or "Mallory"; without a name so that
// the signature is valid, whoever's it is. The reason why it cannot be signed here; empty when it is signed.
[[nodiscard]] std::string sign(const std::filesystem::path& bundle, const std::string& signer);

// ---- For the program that tries them ----

// What it is: "macOS 15.1 (24B83)" and "Mac15,3".
struct Description {
  std::string system;
  std::string hardware;
};
Description description();

// Before the first claim; whether there is somebody at the desk.
void begin(bool desk);
// Tries one claim; it is said whether somebody is at the desk.
void carryOut(const Claim& claim);

// The functions that the simulated Mac offers, with the claims that have called them so far; on a Mac there is no such
// list.
std::map<std::string, std::set<std::string>> functions();

}  // namespace claims
