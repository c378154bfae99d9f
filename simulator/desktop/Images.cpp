#include "simulator/desktop/Images.h"

#include <map>
#include <utility>

#include "platform/BezierPath.h"
#include "platform/Color.h"
#include "platform/Image.h"
#include "simulator/desktop/Colors.h"
#include "simulator/drawing/Symbols.h"
#include "simulator/foundation/CoreFoundation.h"
#include "simulator/kernel/Call.h"

namespace simulator {
namespace {

// What a thread draws into, and the colour that it has set. Which it begins with is left open: one that cannot be seen.
struct GraphicsContext {
  drawing::Picture picture;
  drawing::Color color = {.opacity = 0};
};

// Each thread that draws has its own. Under the machine's lock.
std::map<Scheduler::Thread*, GraphicsContext*>& contexts() {
  static auto* const all = new std::map<Scheduler::Thread*, GraphicsContext*>;
  return *all;
}

GraphicsContext& currentContext(const char* call) {
  const auto found = contexts().find(Scheduler::current());
  if (found == contexts().end()) fatal(std::string(call) + " was called where nothing is being drawn");
  return *found->second;
}

// Makes a context the calling thread's for as long as it draws.
class Drawing {
 public:
  Drawing(Machine& machine, GraphicsContext& context) : machine_(machine) {
    const Scheduler::Lock lock(machine_.scheduler);
    contexts()[Scheduler::current()] = &context;
  }
  ~Drawing() {
    const Scheduler::Lock lock(machine_.scheduler);
    contexts().erase(Scheduler::current());
  }
  Drawing(const Drawing&) = delete;
  Drawing& operator=(const Drawing&) = delete;

 private:
  Machine& machine_;
};

}  // namespace

void drawInBackground(Machine& machine, ImageObject& image) {
  if (!image.handler) return;
  machine.scheduler.spawn("drawing", [&machine, kept = CF::retain(static_cast<CFTypeRef>(&image))] {
    auto& drawn = live<ImageObject>(kept.get(), "NSImage");
    GraphicsContext context{};
    {
      const Scheduler::Lock lock(machine.scheduler);
      context.picture = {.size = drawn.picture.size, .flipped = drawn.picture.flipped, .operations = {}};
    }
    bool isDrawn = false;
    {
      const Drawing drawing(machine, context);
      isDrawn = drawn.handler.get()({{0, 0}, context.picture.size});
    }
    const Scheduler::Lock lock(machine.scheduler);
    drawn.picture = std::move(context.picture);
    drawn.isDrawn = isDrawn;
  });
}

}  // namespace simulator

// ---- The calls ----

namespace NS {
namespace {

using simulator::Call;
using simulator::ColorObject;
using simulator::ImageObject;
using simulator::live;

struct BezierPathObject : simulator::Object {
  std::string_view kind() const override { return "NSBezierPath"; }

  drawing::Path path;
  double lineWidth = 1;  // NSBezierPath's default
  drawing::LineCap cap = drawing::LineCap::butt;
};

// The path of a call that goes on from its current point. Without one AppKit raises an exception.
drawing::Path& pathWithPoint(CFTypeRef object, const char* call) {
  drawing::Path& path = live<BezierPathObject>(object, call).path;
  if (!path.currentPoint()) simulator::fatal(std::string(call) + ": the path has no current point");
  return path;
}

}  // namespace

// ---- NSImage ----

Image Image::imageWithSize(CGSize size, bool flipped, bool (^handler)(CGRect)) {
  const Call call("NSImage.imageWithSize", Call::On::mainThread);
  auto* const image = new ImageObject;
  image->picture = {.size = size, .flipped = flipped, .operations = {}};
  image->handler = Block(handler);
  return Image(CF::adopt(static_cast<CFTypeRef>(image)));
}

Image Image::imageWithSystemSymbolName(const std::string& name) {
  const Call call("NSImage.imageWithSystemSymbolName", Call::On::mainThread);
  if (call.fault()) return {};
  const auto* const symbol = drawing::symbolNamed(simulator::requireUTF8(name, "NSImage.imageWithSystemSymbolName"));
  if (!symbol) return {};
  auto* const image = new ImageObject;
  image->symbol = name;
  image->picture = *symbol;
  image->isTemplate = image->isDrawn = true;
  return Image(CF::adopt(static_cast<CFTypeRef>(image)));
}

void Image::setTemplate(bool isTemplate) const {
  const Call call("NSImage.setTemplate", Call::On::mainThread);
  live<ImageObject>(get(), "NSImage.setTemplate").isTemplate = isTemplate;
}

void Image::setAccessibilityDescription(const std::string& description) const {
  constexpr const char* name = "NSImage.setAccessibilityDescription";
  const Call call(name, Call::On::mainThread);
  live<ImageObject>(get(), name).accessibilityDescription = simulator::requireUTF8(description, name);
}

// ---- NSColor ----

Color Color::blackColor() {
  const Call call("NSColor.blackColor");
  static auto* const color = new ColorObject(ColorObject::Name::black);
  return Color(CF::retain(static_cast<CFTypeRef>(color)));
}

Color Color::secondaryLabelColor() {
  const Call call("NSColor.secondaryLabelColor");
  static auto* const color = new ColorObject(ColorObject::Name::secondaryLabel);
  return Color(CF::retain(static_cast<CFTypeRef>(color)));
}

void Color::set() const {
  const Call call("NSColor.set");
  const auto& color = live<ColorObject>(get(), "NSColor.set");
  simulator::currentContext("NSColor.set").color = color.in(drawing::metrics::light);
}

// ---- NSBezierPath ----

BezierPath BezierPath::bezierPath() {
  const Call call("NSBezierPath.bezierPath");
  return BezierPath(CF::adopt(static_cast<CFTypeRef>(new BezierPathObject)));
}

void BezierPath::moveToPoint(CGPoint point) const {
  const Call call("NSBezierPath.moveToPoint");
  live<BezierPathObject>(get(), "NSBezierPath.moveToPoint").path.move(point);
}

void BezierPath::lineToPoint(CGPoint point) const {
  const Call call("NSBezierPath.lineToPoint");
  pathWithPoint(get(), "NSBezierPath.lineToPoint").line(point);
}

void BezierPath::appendArc(CGPoint center, double radius, double startAngle, double endAngle, bool clockwise) const {
  const Call call("NSBezierPath.appendArc");
  live<BezierPathObject>(get(), "NSBezierPath.appendArc").path.arc(center, radius, startAngle, endAngle, clockwise);
}

void BezierPath::closePath() const {
  const Call call("NSBezierPath.closePath");
  pathWithPoint(get(), "NSBezierPath.closePath").close();
}

void BezierPath::setLineWidth(double width) const {
  const Call call("NSBezierPath.setLineWidth");
  live<BezierPathObject>(get(), "NSBezierPath.setLineWidth").lineWidth = width;
}

void BezierPath::setLineCapStyle(LineCapStyle style) const {
  const Call call("NSBezierPath.setLineCapStyle");
  live<BezierPathObject>(get(), "NSBezierPath.setLineCapStyle").cap = static_cast<drawing::LineCap>(style);
}

void BezierPath::fill() const {
  const Call call("NSBezierPath.fill");
  auto& context = simulator::currentContext("NSBezierPath.fill");
  context.picture.fill(live<BezierPathObject>(get(), "NSBezierPath.fill").path, context.color);
}

void BezierPath::stroke() const {
  const Call call("NSBezierPath.stroke");
  auto& context = simulator::currentContext("NSBezierPath.stroke");
  const auto& path = live<BezierPathObject>(get(), "NSBezierPath.stroke");
  context.picture.stroke(path.path, context.color, path.lineWidth, path.cap);
}

}  // namespace NS
