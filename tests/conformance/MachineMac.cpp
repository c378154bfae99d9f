// The claims on a Mac: each runs on its process's main thread. No claim that is tried without a person at the
// desk may make the system ask one anything.
#include <CoreFoundation/CoreFoundation.h>
#include <CoreGraphics/CoreGraphics.h>
#include <mach-o/dyld.h>
#include <objc/message.h>
#include <spawn.h>
#include <sys/sysctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <thread>

#include "platform/Application.h"
#include "platform/CFCollections.h"
#include "platform/NotificationCenter.h"
#include "tests/conformance/Common.h"
#include "tests/conformance/Machine.h"

extern char** environ;

namespace claims {
namespace {

CFRunLoopMode modeOf(Mode mode) {
  return mode == Mode::normal       ? kCFRunLoopDefaultMode
         : mode == Mode::modalPanel ? CFSTR("NSModalPanelRunLoopMode")
                                    : CFSTR("NSEventTrackingRunLoopMode");
}

std::string systemValue(const char* name) {
  std::array<char, 256> text = {};
  std::size_t size = text.size() - 1;
  return sysctlbyname(name, text.data(), &size, nullptr, 0) == 0 ? text.data() : "unknown";
}

// Sends an Objective-C message.
template <typename Result, typename... Arguments>
Result send(CFTypeRef receiver, const char* selector, Arguments... arguments) {
  using Method = Result (*)(CFTypeRef, SEL, Arguments...);
  return reinterpret_cast<Method>(objc_msgSend)(receiver, sel_registerName(selector), arguments...);
}

// Whether the user's clicks, and what else comes as an event, are dealt with while the loop runs, as in an application.
bool takesEvents = false;

void dealWithEvents() {
  const NS::Application application = NS::Application::sharedApplication();
  constexpr std::uint64_t any = ~std::uint64_t{0};
  while (const CFTypeRef event = send<CFTypeRef>(application.get(), "nextEventMatchingMask:untilDate:inMode:dequeue:",
                                                 any, nullptr, kCFRunLoopDefaultMode, static_cast<BOOL>(1))) {
    send<void>(application.get(), "sendEvent:", event);
  }
}

// The person has no way to do what is asked, or no wish.
struct LeftOut {};

// What the person types, while the main thread's loop runs.
std::string typed(const std::string& prompt) {
  std::cout << prompt << std::flush;
  std::string line;
  std::atomic<bool> isThere = false;
  std::thread reader([&] {
    std::getline(std::cin, line);
    isThere = true;
  });
  while (!isThere) letRun(0.05);
  reader.join();
  return line;
}

// Runs a shell script with these words as $1, $2, …; its exit status.
int shell(const std::string& script, const std::vector<std::string>& words) {
  std::vector<std::string> arguments = {"/bin/sh", "-euc", script, "sh"};
  arguments.insert(arguments.end(), words.begin(), words.end());
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  pid_t child = 0;
  if (posix_spawn(&child, "/bin/sh", nullptr, nullptr, pointers.data(), environ) != 0) return -1;
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

void letRun(double seconds, Mode mode) {
  constexpr double betweenEvents = 0.02;
  const CFAbsoluteTime end = CFAbsoluteTimeGetCurrent() + seconds;
  for (double left = seconds; left > 0; left = end - CFAbsoluteTimeGetCurrent()) {
    const bool withEvents = takesEvents && mode == Mode::normal;
    if (withEvents) dealWithEvents();
    // A loop without anything to wait for comes back at once.
    const double most = withEvents ? std::min(left, betweenEvents) : left;
    if (CFRunLoopRunInMode(modeOf(mode), most, false) == kCFRunLoopRunFinished) usleep(1000);
  }
}

void ask(const std::string& instruction, const std::string&) {
  const std::string answer =
      typed("\n>>> " + instruction + "\n    Then press Return here, or S and Return to leave this out. ");
  if (!answer.empty() && (answer[0] == 's' || answer[0] == 'S')) throw LeftOut();
}

void goOn(const std::string&) {}

bool confirm(const std::string& question, const nlohmann::json&) {
  for (;;) {
    const std::string answer = typed("\n>>> " + question + " (y/n) ");
    if (answer.empty() && !std::cin) throw LeftOut();
    if (!answer.empty() && (answer[0] == 'y' || answer[0] == 'Y')) return true;
    if (!answer.empty() && (answer[0] == 'n' || answer[0] == 'N')) return false;
  }
}

void postNotification(bool ofWorkspace, CFStringRef name) {
  const NS::NotificationCenter center =
      ofWorkspace ? NS::Workspace::sharedWorkspace().notificationCenter() : NS::NotificationCenter::defaultCenter();
  send<void>(center.get(), "postNotificationName:object:", name, nullptr);
}

void setPreference(const std::string& key, const nlohmann::json& value) {
  CF::Ref<CFTypeRef> object;
  if (value.is_boolean()) {
    object = CF::value(value.get<bool>());
  } else if (value.is_string()) {
    object = CF::value(value.get<std::string>());
  } else if (value.is_number_integer()) {
    object = CF::retain<CFTypeRef>(CF::number(value.get<std::int64_t>()).get());
  } else if (value.is_number()) {
    const double real = value.get<double>();
    object = CF::adopt<CFTypeRef>(CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &real));
  } else if (value.is_array()) {
    object = CF::listOf(CF::number(value.at(0).get<std::int64_t>()).get());
  }
  CFPreferencesSetAppValue(CF::string(key).get(), object.get(), kCFPreferencesCurrentApplication);
}

std::vector<double> opacities(const NS::Image& image, int width, int height) {
  const auto bitmap = send<CGImageRef>(image.get(), "CGImageForProposedRect:context:hints:", nullptr, nullptr, nullptr);
  std::vector<unsigned char> bytes(static_cast<std::size_t>(width * height * 4));
  const auto colors = CF::adopt(CGColorSpaceCreateDeviceRGB());
  const auto context = CF::adopt(CGBitmapContextCreate(
      bytes.data(), static_cast<std::size_t>(width), static_cast<std::size_t>(height), 8,
      static_cast<std::size_t>(width * 4), colors.get(), static_cast<CGBitmapInfo>(kCGImageAlphaPremultipliedLast)));
  CGContextDrawImage(context.get(), CGRectMake(0, 0, width, height), bitmap);
  std::vector<double> found;
  for (std::size_t i = 3; i < bytes.size(); i += 4) found.push_back(bytes[i] / 255.0);
  return found;
}

std::filesystem::path childProgram() {
  std::array<char, 4096> path = {};
  auto size = static_cast<std::uint32_t>(path.size());
  return _NSGetExecutablePath(path.data(), &size) == 0 ? path.data() : "";
}

std::filesystem::path installedApplication() { return "/Applications/Dalvane.app"; }

void makeDiskImage(const std::filesystem::path& folder, const std::filesystem::path& image) {
  shell("/usr/bin/hdiutil create -quiet -ov -format UDZO -srcfolder \"$1\" \"$2\"", {folder, image});
}

std::string sign(const std::filesystem::path& bundle, const std::string& signer) {
  if (signer.empty()) {
    return shell("codesign --force --sign - \"$1\" 2>/dev/null", {bundle}) == 0 ? "" : "codesign cannot sign here";
  }
  // A certificate that nobody but this process has, the same one whenever that signer signs; and a keychain that lives
  // as long as the script. Nothing asks for a password: the keychain's is known, and codesign is let at its key.
  static const Folder certificates;
  const int status = shell(R"(
kept=$3/$2
mkdir -p "$kept"
folder=$(mktemp -d)
keychain=$folder/claims.keychain-db
security list-keychains -d user >"$folder/before"
trap 'xargs security list-keychains -d user -s <"$folder/before"; security delete-keychain "$keychain"; rm -rf "$folder"' EXIT
cat >"$folder/extensions" <<'CONFIG'
[req]
distinguished_name = name
x509_extensions = extensions
[name]
[extensions]
keyUsage = critical, digitalSignature
extendedKeyUsage = critical, codeSigning
CONFIG
[ -f "$kept/both.p12" ] || /usr/bin/openssl req -x509 -newkey rsa:2048 -nodes -days 1 -keyout "$folder/key" -out "$folder/certificate" \
  -subj "/CN=$2/OU=$2" -config "$folder/extensions" 2>/dev/null
[ -f "$kept/both.p12" ] || /usr/bin/openssl pkcs12 -export -inkey "$folder/key" -in "$folder/certificate" \
  -out "$kept/both.p12" -passout pass:claims
security create-keychain -p claims "$keychain"
security unlock-keychain -p claims "$keychain"
security import "$kept/both.p12" -k "$keychain" -P claims -T /usr/bin/codesign >/dev/null
security set-key-partition-list -S apple-tool:,apple:,codesign: -s -k claims "$keychain" >/dev/null
xargs security list-keychains -d user -s "$keychain" <"$folder/before"
codesign --force --keychain "$keychain" --sign "$2" "$1" 2>/dev/null
# Where nobody trusts the certificate nothing that it has signed is valid, and nothing can be found out with it.
codesign --verify "$1" 2>/dev/null
)",
                           {bundle, signer, certificates.path()});
  return status == 0
             ? ""
             : "no temporary certificate can be made that signs validly (status " + std::to_string(status) + ")";
}

Description description() {
  return {"macOS " + systemValue("kern.osproductversion") + " (" + systemValue("kern.osversion") + ")",
          systemValue("hw.model")};
}

void begin(bool desk) {
  // A process with several threads is not copied: the claim is tried again in a new one.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const NS::Application application = NS::Application::sharedApplication();
  if (desk) send<void>(application.get(), "finishLaunching");
}

void carryOut(const Claim& claim) {
  if (claim.kind == Claim::Kind::stops) {
    // An exception of AppKit's stops the process where nobody catches it, as GoogleTest would.
    EXPECT_DEATH([&claim]() noexcept { claim.body(); }(), "");
    return;
  }
  if (claim.kind == Claim::Kind::ends) {
    EXPECT_EXIT(claim.body(), testing::ExitedWithCode(0), "as claimed");
    return;
  }
  if (claim.kind == Claim::Kind::desk && isatty(STDIN_FILENO) == 0)
    NOT_TRIED("nobody can answer: there is no terminal");
  takesEvents = claim.kind == Claim::Kind::desk;
  try {
    claim.body();
  } catch (const LeftOut&) {
    NOT_TRIED("the person at the desk left it out");
  }
}

std::map<std::string, std::set<std::string>> functions() { return {}; }

}  // namespace claims
