#include "desk/campaign/Calls.h"

#include <algorithm>
#include <cerrno>
#include <set>
#include <utility>

namespace campaign {
namespace {

struct Reason {
  std::string_view why;
  std::vector<std::string_view> calls;
};

// By the functions' headers.
const std::vector<Reason> reasons = {
    {"it has no result",
     {"CATapDescription.setMuteBehavior",
      "CATapDescription.setName",
      "CATapDescription.setPrivate",
      "CATapDescription.setUUID",
      "CFMachPortInvalidate",
      "CFRunLoopAddSource",
      "CFRunLoopAddTimer",
      "CFRunLoopPerformBlock",
      "CFRunLoopRemoveSource",
      "CFRunLoopTimerInvalidate",
      "CFRunLoopWakeUp",
      "CGEventTapEnable",
      "NSAlert.setInformativeText",
      "NSAlert.setMessageText",
      "NSApplication.activate",
      "NSApplication.run",
      "NSApplication.setDelegate",
      "NSApplication.terminate",
      "NSBezierPath.appendArc",
      "NSBezierPath.closePath",
      "NSBezierPath.fill",
      "NSBezierPath.lineToPoint",
      "NSBezierPath.moveToPoint",
      "NSBezierPath.setLineCapStyle",
      "NSBezierPath.setLineWidth",
      "NSBezierPath.stroke",
      "NSColor.set",
      "NSImage.setAccessibilityDescription",
      "NSImage.setTemplate",
      "NSImageView.setContentTintColor",
      "NSImageView.setImage",
      "NSLayoutConstraint.activateConstraints",
      "NSMenu.addItem",
      "NSMenu.insertItem",
      "NSMenu.removeItem",
      "NSMenu.setAutoenablesItems",
      "NSMenu.setDelegate",
      "NSMenuItem.setAction",
      "NSMenuItem.setEnabled",
      "NSMenuItem.setState",
      "NSMenuItem.setTitle",
      "NSMenuItem.setView",
      "NSNotificationCenter.removeObserver",
      "NSSlider.setAction",
      "NSSlider.setAllowsTickMarkValuesOnly",
      "NSSlider.setContinuous",
      "NSSlider.setDoubleValue",
      "NSSlider.setNumberOfTickMarks",
      "NSStackView.setAlignment",
      "NSStackView.setOrientation",
      "NSStackView.setSpacing",
      "NSStatusBarButton.setImage",
      "NSStatusItem.setMenu",
      "NSTextField.setFont",
      "NSTextField.setLineBreakMode",
      "NSTextField.setTextColor",
      "NSURLSessionTask.resume",
      "NSUserDefaults.setBool",
      "NSUserDefaults.setInteger",
      "NSView.addSubview",
      "NSView.setAccessibilityLabel",
      "NSView.setAutoresizingMask",
      "NSView.setContentHuggingPriority",
      "NSView.setFrame",
      "NSView.setHidden",
      "OSDManager.showImage",
      "SMAppService.openSystemSettingsLoginItems",

      "dispatch_async"}},
    {"its header promises an object",
     {"CATapDescription.UUID",
      "CATapDescription.initExcludingProcesses",
      "NSAlert.addButtonWithTitle",
      "NSAlert.alertWithError",
      "NSAlert.init",
      "NSApplication.sharedApplication",
      "NSBezierPath.bezierPath",
      "NSColor.blackColor",
      "NSColor.secondaryLabelColor",
      "NSFont.systemFontOfSize",
      "NSImage.imageWithSize",
      "NSImageView.initWithFrame",
      "NSLayoutAnchor.constraintEqualToAnchor",
      "NSMenu.init",
      "NSMenuItem.init",
      "NSMenuItem.sectionHeaderWithTitle",
      "NSMenuItem.separatorItem",
      "NSNotificationCenter.addObserverForName",
      "NSScreen.localizedName",
      "NSScreen.screens",
      "NSSlider.sliderWithValue",
      "NSStackView.stackViewWithViews",
      "NSStatusBar.statusItemWithLength",
      "NSTextField.labelWithString",
      "NSURLRequest.requestWithURL",
      "NSURLSession.sharedSession",
      "NSView.initWithFrame",
      "NSView.leadingAnchor",
      "NSView.topAnchor",
      "NSView.trailingAnchor",
      "NSView.widthAnchor",
      "SMAppService.mainAppService",
      "dispatch_queue_create"}},
    {"it answers a value, and none that stands for a failure",
     {"CGDisplayIsBuiltin", "CGDisplayModelNumber", "CGDisplaySerialNumber", "CGDisplayVendorNumber",
      "CGEventTapIsEnabled", "CGMainDisplayID", "NSAlert.runModal", "NSEvent.data1", "NSEvent.mouseLocation",
      "NSEvent.subtype", "NSFont.smallSystemFontSize", "NSScreen.frame", "NSSlider.doubleValue",
      "NSUserDefaults.boolForKey", "NSView.fittingSize", "SMAppService.status", "getpid"}},
    {"null says that nothing is stored, as on the day's first launch", {"NSUserDefaults.objectForKey"}},
};

}  // namespace

std::vector<int> statusesOf(const std::string& call) {
  static const std::set<std::string> errnos = {
      "rename",  "remove", "remove_all", "create_directories", "directory_iterator", "access",
      "waitpid", "kqueue", "kevent"};
  if (errnos.contains(call) || call.starts_with("posix_spawn")) return {EIO};
  if (call == "confstr") return {EIO, ERANGE};
  if (call.starts_with("hdiutil") || call == "ditto") return {1};
  if (call.starts_with("NSURLSession")) return {-1005};
  // Without an error there can still be no object; or no number in it.
  if (call.starts_with("SecCode") || call.starts_with("SecStaticCodeCreate") || call == "NSScreen.deviceDescription")
    return {-1, 0};
  return {-1};
}

const std::map<std::string_view, std::string_view>& cannotFail() {
  static const std::map<std::string_view, std::string_view> all = [] {
    std::map<std::string_view, std::string_view> listed;
    for (const auto& [why, calls] : reasons) {
      for (const std::string_view call : calls) listed.emplace(call, why);
    }
    return listed;
  }();
  return all;
}

const char* stopFor(const std::string& call, const std::string& trace) {
  // A bundle without these is a mistake of whoever built it.
  if (call != "CFBundleGetValueForInfoDictionaryKey") return nullptr;
  for (const char* said : {"The main bundle has no identifier", "Info.plist has no CFBundleShortVersionString"}) {
    if (trace.find(said) != trace.npos) return said;
  }
  return nullptr;
}

}  // namespace campaign
