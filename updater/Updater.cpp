#include "updater/Updater.h"

#include <dispatch/dispatch.h>
#include <sys/event.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "base/Alerts.h"
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

// Blocks the calling thread for so many seconds, those included that the Mac sleeps through, and whatever the user sets
// the clock to. No clock of Dispatch is like that; of a kernel queue's timer, sys/event.h says that it is. There is no
// wait when the system has no queue left.
void sleepOnTheContinuousClock(std::int64_t seconds) {
  struct Queue {
    Queue() : descriptor(kqueue()) {}
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;
    ~Queue() { close(descriptor); }
    const int descriptor;
  };
  const Queue queue;
  const struct kevent timer = {.ident = 1,
                               .filter = EVFILT_TIMER,
                               .flags = EV_ADD | EV_ONESHOT,
                               .fflags = NOTE_SECONDS | NOTE_MACH_CONTINUOUS_TIME,
                               .data = seconds,
                               .udata = nullptr};
  struct kevent fired = {};
  // A call that a signal interrupts has set the timer.
  for (int changes = 1; kevent(queue.descriptor, &timer, changes, &fired, 1, nullptr) == -1 && errno == EINTR;) {
    changes = 0;
  }
}

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
  stopTimer();
  const std::weak_ptr<Updater> weak = weak_from_this();
  timer_ =
      CF::adopt(CFRunLoopTimerCreateWithHandler(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + checkIntervalSeconds,
                                                checkIntervalSeconds, 0, 0, ^(CFRunLoopTimerRef) {
                                                  if (const auto updater = weak.lock()) updater->check();
                                                }));
  // Without it there is still the first check, and those that the user asks for.
  if (timer_) CFRunLoopAddTimer(CFRunLoopGetMain(), timer_.get(), kCFRunLoopDefaultMode);

  dispatch_async(dispatch_get_global_queue(QOS_CLASS_UTILITY, 0), ^{
    sleepOnTheContinuousClock(firstCheckSeconds);
    dispatch_async(dispatch_get_main_queue(), ^{
      if (const auto updater = weak.lock()) updater->check();
    });
  });
}

void Updater::stop() {
  stopTimer();
  ++task_;
  // An install goes on, and no other may begin beside it.
  if (std::holds_alternative<Checking>(state_)) state_ = Idle{};
}

void Updater::stopTimer() {
  if (timer_) CFRunLoopTimerInvalidate(timer_.get());
  timer_ = {};
}

void Updater::check() {
  assertMainThread();
  if (std::holds_alternative<Checking>(state_) || std::holds_alternative<Installing>(state_)) return;
  const Task task = begin(Checking{});
  const std::weak_ptr<Updater> weak = weak_from_this();
  // A block keeps a copy of what it uses, but of a reference only the reference: hence the handlers take values.
  // NOLINTNEXTLINE(performance-unnecessary-value-param)
  ReleaseFeed::latest([weak, task](Outcome<Release> latest) {
    dispatch_async(dispatch_get_main_queue(), ^{
      if (const auto updater = weak.lock()) updater->checked(task, latest);
    });
  });
}

void Updater::checked(Task task, const Outcome<Release>& latest) {
  if (task != task_) return;
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

// By value: it may be the one in the state, which changes here.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void Updater::install(Release release) {
  assertMainThread();
  if (std::holds_alternative<Idle>(state_) || std::holds_alternative<Installing>(state_)) return;
  const Task task = begin(Installing{});
  const std::weak_ptr<Updater> weak = weak_from_this();
  // NOLINTNEXTLINE(performance-unnecessary-value-param): for the block, as above
  ReleaseInstaller::install(release, [weak, task](Outcome<std::filesystem::path> application) {
    dispatch_async(dispatch_get_main_queue(), ^{
      if (const auto updater = weak.lock()) updater->installed(task, application);
    });
  });
}

void Updater::installed(Task task, const Outcome<std::filesystem::path>& application) {
  if (task != task_) return;
  const Outcome<std::monostate> relaunched = attempt([&] { relaunch(value(application)); });
  if (const auto* error = std::get_if<AppError>(&relaunched)) {
    os_log_error(logger_, "Update install failed: %{public}s", error->what());
    setState(Failed{error->what()});
  }
}

void Updater::relaunch(const std::filesystem::path& application) {
  // The script gets this process's identifier as $0 and the application's path as $1.
  launch("/bin/sh", {"-c", "while /bin/kill -0 \"$0\" 2>/dev/null; do sleep 0.2; done; /usr/bin/open \"$1\"",
                     std::to_string(getpid()), application});
  // An application with an open alert cannot be terminated.
  whenNoAlertIsOpen([] { NS::Application::sharedApplication().terminate(); });
}

Updater::Task Updater::begin(State state) {
  const Task task = ++task_;
  setState(std::move(state));
  return task;
}

void Updater::setState(State state) {
  state_ = std::move(state);
  if (onChange_) onChange_();
}
