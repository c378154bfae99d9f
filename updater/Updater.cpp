#include "updater/Updater.h"

#include <dispatch/dispatch.h>
#include <unistd.h>

#include <utility>

#include "base/AppError.h"
#include "base/Assertions.h"
#include "base/Log.h"
#include "platform/Application.h"
#include "updater/ChildProcess.h"
#include "updater/ReleaseFeed.h"
#include "updater/ReleaseInstaller.h"

namespace {

constexpr CFTimeInterval checkIntervalSeconds = 21600;
constexpr std::int64_t firstCheckSeconds = 10;

std::string runningVersion() {
  const CF::Ref<CFStringRef> key = CF::string("CFBundleShortVersionString");
  const CF::Ref<CFStringRef> version = CF::cast<CFStringRef>(
      CFBundleGetValueForInfoDictionaryKey(CFBundleGetMainBundle(), key.get()), CFStringGetTypeID());
  if (!version) fatalError("Info.plist has no CFBundleShortVersionString");
  return CF::text(version.get());
}

}  // namespace

Updater::Updater() : currentVersion_(runningVersion()), logger_(makeLogger("Updater")) {}

Updater::~Updater() { stop(); }

void Updater::start() {
  assertMainThread();
  stop();
  const std::weak_ptr<Updater> weak = weak_from_this();
  timer_ =
      CF::adopt(CFRunLoopTimerCreateWithHandler(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + checkIntervalSeconds,
                                                checkIntervalSeconds, 0, 0, ^(CFRunLoopTimerRef) {
                                                  if (const auto updater = weak.lock()) updater->check();
                                                }));
  CFRunLoopAddTimer(CFRunLoopGetMain(), timer_.get(), kCFRunLoopCommonModes);

  // The wall clock goes on while the Mac sleeps.
  dispatch_after(dispatch_walltime(nullptr, firstCheckSeconds * static_cast<std::int64_t>(NSEC_PER_SEC)),
                 dispatch_get_main_queue(), ^{
                   if (const auto updater = weak.lock()) updater->check();
                 });
}

void Updater::stop() {
  if (timer_) CFRunLoopTimerInvalidate(timer_.get());
  timer_ = {};
}

void Updater::check() {
  assertMainThread();
  if (std::holds_alternative<Checking>(state_) || std::holds_alternative<Installing>(state_)) return;
  setState(Checking{});
  const std::weak_ptr<Updater> weak = weak_from_this();
  // A block keeps a copy of what it uses, but of a reference only the reference: hence the handlers take values.
  // NOLINTNEXTLINE(performance-unnecessary-value-param)
  ReleaseFeed::latest([weak](Outcome<Release> latest) {
    dispatch_async(dispatch_get_main_queue(), ^{
      if (const auto updater = weak.lock()) updater->checked(latest);
    });
  });
}

void Updater::checked(const Outcome<Release>& latest) {
  if (const auto* error = std::get_if<AppError>(&latest)) {
    os_log_error(logger_, "Update check failed: %{public}s", error->what());
    setState(Failed{error->what()});
    return;
  }
  const Release& release = std::get<Release>(latest);
  if (ReleaseFeed::isNewer(release.version, currentVersion_)) {
    setState(Available{release});
  } else {
    setState(UpToDate{});
  }
}

void Updater::install() {
  assertMainThread();
  const auto* available = std::get_if<Available>(&state_);
  if (!available) return;
  const Release release = available->release;
  setState(Installing{});
  const std::weak_ptr<Updater> weak = weak_from_this();
  // NOLINTNEXTLINE(performance-unnecessary-value-param): for the block, as above
  ReleaseInstaller::install(release, [weak](Outcome<std::filesystem::path> application) {
    dispatch_async(dispatch_get_main_queue(), ^{
      if (const auto updater = weak.lock()) updater->installed(application);
    });
  });
}

void Updater::installed(const Outcome<std::filesystem::path>& application) {
  const Outcome<bool> relaunched = attempt([&] {
    relaunch(value(application));
    return true;
  });
  if (const auto* error = std::get_if<AppError>(&relaunched)) {
    os_log_error(logger_, "Update install failed: %{public}s", error->what());
    setState(Failed{error->what()});
  }
}

void Updater::relaunch(const std::filesystem::path& application) {
  // The script gets this process's identifier as $0 and the application's path as $1.
  launch("/bin/sh", {"-c", "while /bin/kill -0 \"$0\" 2>/dev/null; do sleep 0.2; done; /usr/bin/open \"$1\"",
                     std::to_string(getpid()), application});
  NS::Application::sharedApplication().terminate();
}

void Updater::setState(State state) {
  state_ = std::move(state);
  if (onChange_) onChange_();
}
