#include "simulator/software/Applications.h"

#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <map>
#include <system_error>

#include "simulator/foundation/CoreFoundation.h"
#include "simulator/foundation/Foundation.h"
#include "simulator/foundation/PropertyList.h"
#include "simulator/kernel/Call.h"
#include "simulator/kernel/Commands.h"
#include "simulator/system/DiskImage.h"
#include "simulator/system/FileContent.h"
#include "simulator/system/SystemRoot.h"
#include "simulator/system/Volumes.h"

namespace simulator {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

// Where a user opens an application: where it belongs, in the disk image that it came in, or where it was downloaded
// to. An application that is opened in such a folder runs from a place of the system's making, and is gone from there
// after.
constexpr const char* inApplications = "applications";
constexpr const char* inImage = "image";
constexpr const char* translocated = "translocated";
constexpr const char* translocation =
    "/private/var/folders/zz/zyxvpxvq6csfxvn_n0000000000000/X/AppTranslocation/D0E1F2A3-B4C5-4D6E-8F90-A1B2C3D4E5F6/d";

// What lies beside the applications in disk images for users.
constexpr const char* linkToApplications = "Applications";

// What can be done to a bundle after it has been signed.
const char* const tamperings[] = {"executable", "resource", "added", "missing",     "info",
                                  "signature",  "root",     "link",  "architecture"};

constexpr const char* noSignature = "what is not signed has no signature to be changed";

void append(const fs::path& file, std::string_view text) { writeFile(file, readFile(file).append(text)); }

void tamper(const fs::path& contents, const std::string& executable, const std::string& how) {
  if (how == "executable") append(contents / "MacOS" / executable, "and more");
  if (how == "resource") append(contents / "Resources/en.lproj/InfoPlist.strings", "/* changed */\n");
  if (how == "added") writeFile(contents / "Resources/added", "added");
  if (how == "missing") fs::remove(contents / "Resources/AppIcon.icns");
  if (how == "info") append(contents / "Info.plist", "\n");
  if (how == "root") writeFile(contents.parent_path() / "beside", "not sealed");
  if (how == "link") fs::create_symlink("/etc", contents / "Resources/link");
  if (how == "architecture") {
    append(contents / "MacOS" / executable, std::string(otherArchitectures) + "anything");
  }
  if (how == "signature") append(contents / "_CodeSignature/CodeDirectory", " ");
}

// Reads a member that is true, false or what is changed in a bundle: none for false, an empty text for true.
std::optional<std::string> parseTampering(Arguments& line, const char* member) {
  if (!line.has(member) || !line.json(member).is_string()) {
    return line.flag(member, false) ? std::optional<std::string>("") : std::nullopt;
  }
  const std::string how = line.text(member);
  if (std::ranges::find(tamperings, how) == std::end(tamperings)) {
    line.fail("member \"" + std::string(member) + "\" must be true, false or what is changed");
  }
  return how;
}

// Reads the members that say what bundle is made.
BundleContent parseBundle(Arguments& line, const json& ownVersion, const std::string& publisher) {
  BundleContent content;
  content.version = line.json("version", ownVersion);
  if (line.has("identifier")) {
    content.identifier = line.json("identifier").is_null() ? std::nullopt : std::optional(line.text("identifier"));
  }
  content.signer = publisher;
  if (line.has("signer")) {
    content.signer = line.json("signer").is_null() ? std::nullopt : std::optional(line.text("signer"));
  }
  content.forged = line.flag("forged", false);
  if (const auto how = parseTampering(line, "tampered")) content.tampering = how->empty() ? "executable" : *how;
  if (!content.signer && content.tampering == "signature") line.fail(noSignature);
  return content;
}

// Whether an application can lie there in an image: a relative path, and not where the link beside the applications is.
bool isPlaceInImage(const std::string& name) {
  constexpr std::size_t longest = 1000;
  const fs::path path = name;
  if (name.size() > longest || name.find('\0') != std::string::npos) return false;
  if (path.empty() || *path.begin() == linkToApplications) return false;
  return std::ranges::all_of(path, [](const fs::path& part) {
    return part.is_relative() && !part.empty() && part != "." && part != ".." && part.native().size() <= NAME_MAX;
  });
}

// The same for what lies at the top level of an image.
bool isNameInImage(const std::string& name) { return isPlaceInImage(name) && name.find('/') == std::string::npos; }

// A folder that is gone at the end of the scope.
class ScratchFolder {
 public:
  explicit ScratchFolder(const fs::path& parent) {
    std::string pattern = (parent / "scratch-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::system_error(errno, std::generic_category(), "mkdtemp");
    path_ = pattern;
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  ~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  [[nodiscard]] const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

}  // namespace

Applications::Applications(Machine& machine, SystemRoot& root)
    : machine_(machine), root_(root), bundle_(root.below("/Applications") / (machine.process.program().name + ".app")) {
  machine.faults.declare({"SecCodeCopySelf", "SecCodeCopyStaticCode", "SecCodeCopyDesignatedRequirement",
                          "SecStaticCodeCreateWithPath", "SecStaticCodeCheckValidity", "CFBundleCopyBundleURL",
                          "CFBundleGetValueForInfoDictionaryKey"});
  fs::create_directories(bundle_.parent_path());
  const std::string& version = machine.process.program().version;
  BundleContent own;
  own.version = version.empty() ? json() : json(version);
  own.signer = machine.process.program().publisher;
  install(bundle_, own);
}

Applications::~Applications() {
  if (running_ >= 0) close(running_);
}

bool Applications::isInstalled(const fs::path& application) const { return application.lexically_normal() == bundle_; }

CodeSigners& Applications::signers() {
  // Developers and their keys are older than any machine.
  static CodeSigners everybody;
  return everybody;
}

const json& Applications::runningInfo() {
  const Scheduler::Lock lock(machine_.scheduler);
  if (!runningInfo_) {
    try {
      runningInfo_ = readPropertyList(readFile(bundle_ / "Contents/Info.plist"));
    } catch (const std::exception&) {
      runningInfo_ = json::object();
    }
  }
  return *runningInfo_;
}

// Bundles are made and signed once, however many machines they are on: after that they are laid out from an image.
void Applications::makeBundle(const fs::path& folder, const BundleContent& content) {
  static std::map<std::string, std::string> images;
  const Program& program = machine_.process.program();
  // What is there already goes into the bundle, and its signature.
  if (!fs::create_directories(folder)) return makeBundle(folder, content, program);
  const json signer = content.signer ? json(*content.signer) : json();
  const json identifier = content.identifier ? json(*content.identifier) : json();
  const json what = {program.name, program.identifier, content.version,  identifier,
                     signer,       content.forged,     content.tampering};
  std::string& image = images[what.dump()];
  if (!image.empty()) return extractDiskImage(image, folder);
  makeBundle(folder, content, program);
  image = makeDiskImage(folder);
}

void Applications::makeBundle(const fs::path& folder, const BundleContent& content, const Program& program) {
  const fs::path contents = folder / "Contents";
  fs::create_directories(contents / "MacOS");
  fs::create_directories(contents / "Resources/en.lproj");
  json info = {{"CFBundleExecutable", program.name},
               {"CFBundleName", program.name},
               {"CFBundlePackageType", "APPL"},
               {"LSMinimumSystemVersion", "15.0"},
               {"LSUIElement", true}};
  if (content.identifier) {
    info["CFBundleIdentifier"] = content.identifier->empty() ? program.identifier : *content.identifier;
  }
  const std::string version = content.version.is_string() ? content.version.get<std::string>() : content.version.dump();
  if (!content.version.is_null()) info["CFBundleShortVersionString"] = content.version;
  writeFile(contents / "Info.plist", writePropertyList(info));
  writeFile(contents / "PkgInfo", "APPL????");
  // What stands for the program's machine code and its resources.
  writeFile(contents / "MacOS" / program.name, "The program " + program.name + ", version " + version + "\n");
  fs::permissions(contents / "MacOS" / program.name, fs::perms(0755));
  writeFile(contents / "Resources/AppIcon.icns", "icns");
  writeFile(contents / "Resources/en.lproj/InfoPlist.strings", "CFBundleName = \"" + program.name + "\";\n");
  if (content.signer) signers().sign(folder, *content.signer, content.forged);
  tamper(contents, program.name, content.tampering);
}

void Applications::install(const fs::path& bundle, const BundleContent& content) {
  fs::remove_all(bundle);
  makeBundle(bundle, content);
}

void Applications::place(const std::string& place, const BundleContent& content) {
  const fs::path point = root_.below("/Volumes") / bundle_.stem();
  const Volumes volumes(root_.path());
  static_cast<void>(volumes.detach(point));
  if (!bundle_.string().starts_with(point.string() + "/")) fs::remove_all(bundle_);
  const fs::path folder =
      place == inImage ? point : root_.below(place == translocated ? translocation : "/Applications");
  bundle_ = folder / bundle_.filename();
  if (place != inImage) return install(bundle_, content);
  fs::create_directories(point);
  const ScratchFolder scratch(root_.below("/var"));
  writeFile(scratch.path() / "image", makeImage({.applications = {}, .each = content, .links = {}, .files = {}}));
  volumes.attach(scratch.path() / "image", point);
}

std::string Applications::makeImage(const ImageContent& content) {
  const ScratchFolder scratch(root_.below("/var"));
  std::vector<std::string> names = content.applications;
  if (!content.applicationsGiven) names.push_back(bundle_.filename().string());
  try {
    for (const std::string& name : names) makeBundle(scratch.path() / name, content.each);
    for (const auto& [name, target] : content.links) {
      fs::create_symlink(root_.below(target), scratch.path() / name);
    }
    for (const std::string& name : content.files) writeFile(scratch.path() / name, "a file");
  } catch (const std::system_error&) {
    throw ScenarioError("the applications of the image stand in each other's way");
  }
  fs::create_symlink("/Applications", scratch.path() / linkToApplications);
  return makeDiskImage(scratch.path());
}

ImageContent ImageContent::parse(Arguments& line, const Program& program) {
  ImageContent content;
  content.applicationsGiven = line.has("apps");
  if (content.applicationsGiven) {
    const json names = line.json("apps");
    if (!names.is_array()) line.fail("member \"apps\" must be a list of names");
    for (const json& name : names) {
      if (!name.is_string() || !isPlaceInImage(name.get<std::string>())) {
        line.fail("member \"apps\" must be a list of names");
      }
      content.applications.push_back(name.get<std::string>());
    }
  }
  if (line.has("links")) {
    const json links = line.json("links");
    if (!links.is_object()) line.fail("member \"links\" must be an object of names and absolute paths");
    for (const auto& [name, target] : links.items()) {
      if (!isNameInImage(name) || !target.is_string() || !target.get<std::string>().starts_with('/')) {
        line.fail("member \"links\" must be an object of names and absolute paths");
      }
      content.links[name] = target;
    }
  }
  if (line.has("files")) {
    const json files = line.json("files");
    if (!files.is_array()) line.fail("member \"files\" must be a list of names");
    for (const json& name : files) {
      if (!name.is_string() || !isNameInImage(name.get<std::string>())) {
        line.fail("member \"files\" must be a list of names");
      }
      content.files.push_back(name);
    }
  }
  content.each = parseBundle(line, line.has("version") ? json() : json(program.version), program.publisher);
  return content;
}

void Applications::addCommands(Commands& commands) {
  commands.add("bundle", [this](Arguments& line) -> Action {
    const BundleContent content =
        parseBundle(line, machine_.process.program().version, machine_.process.program().publisher);
    // What an installation that was cut short leaves: whole, whatever the installed bundle is, or changed too.
    const auto backup = parseTampering(line, "backup");
    BundleContent left = content;
    left.tampering = backup.value_or("");
    if (!left.signer && left.tampering == "signature") line.fail(noSignature);
    const std::string where = line.text("place", inApplications);
    if (where != inApplications && where != inImage && where != translocated) {
      line.fail("member \"place\" must be \"applications\", \"image\" or \"translocated\"");
    }
    if (where != inApplications && backup) line.fail("a backup lies only where an installation was possible");
    return [this, content, left, backup, where] {
      Applications& applications = *this;
      applications.place(where, content);
      if (backup) applications.install(applications.bundle_.string() + ".bak", left);
    };
  });
}

void Applications::processWillStart() {
  launched_ = bundle_;
  if (running_ >= 0) close(running_);
  running_ = open(bundle_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
}

fs::path Applications::runningBundle() const {
  std::error_code error;
  const fs::path place = fs::read_symlink("/proc/self/fd/" + std::to_string(running_), error);
  // Of a file that is gone only its place is known.
  return error || !fs::exists(place) ? bundle_ : place;
}

void Applications::processEnded(Leaks&) { runningInfo_.reset(); }

void Applications::snapshot(nlohmann::ordered_json& state) {
  nlohmann::ordered_json installed;
  installed["version"] = nullptr;
  try {
    const json info = readPropertyList(readFile(bundle_ / "Contents/Info.plist"));
    if (info.contains("CFBundleShortVersionString")) installed["version"] = info["CFBundleShortVersionString"];
  } catch (const std::exception&) {
    // Nothing is installed, or something that is no application.
  }
  installed["backup"] = fs::exists(fs::symlink_status(bundle_.string() + ".bak"));
  state["bundle"] = installed;
}

}  // namespace simulator

// ---- The main bundle ----

struct __CFBundle : simulator::Object {
  std::string_view kind() const override { return "CFBundle"; }
};

using simulator::Call;

extern "C" {

CFBundleRef CFBundleGetMainBundle(void) {
  static __CFBundle* const bundle = [] {
    auto* const made = new __CFBundle;
    made->makeImmortal();
    return made;
  }();
  return bundle;
}

CFTypeRef CFBundleGetValueForInfoDictionaryKey(CFBundleRef bundle, CFStringRef key) {
  const Call call("CFBundleGetValueForInfoDictionaryKey");
  simulator::live<__CFBundle>(bundle, "CFBundleGetValueForInfoDictionaryKey");
  if (call.fault()) return nullptr;
  const auto& info = call.part<simulator::Applications>().runningInfo();
  const auto value = info.find(simulator::textOf(key, "CFBundleGetValueForInfoDictionaryKey"));
  if (value == info.end()) return nullptr;
  // The bundle owns what it hands out, for as long as the system's shared objects live.
  if (value->is_string()) return simulator::constantString(value->get<std::string>());
  static auto* const others = new std::map<std::string, CFTypeRef>;
  CFTypeRef& known = (*others)[value->dump()];
  if (!known) {
    known = simulator::createPropertyList(*value);
    simulator::live(known, "CFBundle").makeImmortal();
  }
  return known;
}

CFStringRef CFBundleGetIdentifier(CFBundleRef bundle) {
  const CFTypeRef value = CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("CFBundleIdentifier"));
  return value && CFGetTypeID(value) == CFStringGetTypeID() ? static_cast<CFStringRef>(value) : nullptr;
}

CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle) {
  const Call call("CFBundleCopyBundleURL");
  simulator::live<__CFBundle>(bundle, "CFBundleCopyBundleURL");
  if (call.fault()) return nullptr;
  return new __CFURL(simulator::fileURL(call.part<simulator::Applications>().launchedBundle().string() + "/"));
}

}  // extern "C"
