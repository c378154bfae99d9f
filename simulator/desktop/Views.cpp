#include "simulator/desktop/Views.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/View.h"
#include "simulator/drawing/Font.h"
#include "simulator/drawing/Metrics.h"
#include "simulator/foundation/CoreFoundation.h"
#include "simulator/kernel/Call.h"

namespace simulator {
namespace {

namespace metrics = drawing::metrics;
using drawing::horizontal;
using drawing::vertical;

// The whole tree's boxes, ready for a layout.
void measureAll(ViewObject& root) {
  forEachView(root, [&root](ViewObject& view) {
    view.measure();
    if (&view == &root) return;
    view.box.fixed.reset();
    if (!view.translatesAutoresizingMask) return;
    const CGRect& frame = view.frame;
    const double top = view.superview->frame.size.height - frame.origin.y - frame.size.height;
    view.box.fixed = CGRect{{frame.origin.x, top}, frame.size};
  });
}

[[noreturn]] void unsatisfiable() { fatal("Unable to simultaneously satisfy constraints"); }

}  // namespace

ViewObject::~ViewObject() {
  for (ViewObject* const view : subviews) {
    view->superview = nullptr;
    release(view, "NSView");
  }
}

void layOut(ViewObject& view) {
  measureAll(view);
  if (!drawing::layOut(view.box, view.frame.size)) unsatisfiable();
}

CGSize fittingSize(ViewObject& view) {
  measureAll(view);
  const auto size = drawing::fittingSize(view.box);
  if (!size) unsatisfiable();
  return *size;
}

void forEachView(ViewObject& view, const std::function<void(ViewObject&)>& visit) {
  visit(view);
  for (ViewObject* const each : view.subviews) forEachView(*each, visit);
}

// A horizontal slider has a height of its own, but no width (NSLayoutConstraint.h).
void SliderObject::measure() {
  box.intrinsic[vertical] = tickMarks > 0 ? metrics::sliderHeightWithTickMarks : metrics::sliderHeight;
}

void SliderObject::setValue(double wanted) { value = std::max(minimum, std::min(wanted, maximum)); }

void SliderObject::dragTo(double wanted) {
  setValue(wanted);
  if (!ticksOnly || tickMarks < 2 || maximum <= minimum) return;
  const double distance = (maximum - minimum) / static_cast<double>(tickMarks - 1);
  setValue(minimum + std::round((value - minimum) / distance) * distance);
}

void TextFieldObject::measure() {
  const auto& font = drawing::Font::system();
  box.intrinsic[horizontal] = std::ceil(font.width(text, fontSize));
  box.intrinsic[vertical] = font.lineHeight(fontSize);
}

std::string TextFieldObject::textWithin(double width) const {
  // What is clipped is still all there, but cannot be seen.
  if (lineBreakMode == NS::LineBreakMode::ByClipping) return text;
  return drawing::Font::system().truncated(text, fontSize, width);
}

void ImageViewObject::measure() {
  const ImageObject* const object = shown();
  box.intrinsic[horizontal] = object ? std::optional(object->picture.size.width) : std::nullopt;
  box.intrinsic[vertical] = object ? std::optional(object->picture.size.height) : std::nullopt;
}

const ImageObject* ImageViewObject::shown() const {
  return image ? &live<ImageObject>(image.get(), "NSImageView") : nullptr;
}

}  // namespace simulator

// ---- The calls ----

namespace NS {
namespace {

using simulator::Call;
using simulator::live;
using simulator::ViewObject;

struct AnchorObject : simulator::Object {
  AnchorObject(ViewObject& of, drawing::Anchor::Kind which)
      : view(CF::retain(static_cast<CFTypeRef>(&of))), anchor{&of.box, which} {}
  std::string_view kind() const override { return "NSLayoutAnchor"; }

  const CF::Ref<CFTypeRef> view;
  const drawing::Anchor anchor;
};

// As long as it is not active it refers to the views; then the views refer to what it says.
struct ConstraintObject : simulator::Object {
  ConstraintObject(const AnchorObject& first, const AnchorObject& second, double constant)
      : views{first.view, second.view}, relation{first.anchor, second.anchor, constant} {}
  std::string_view kind() const override { return "NSLayoutConstraint"; }

  const std::pair<CF::Ref<CFTypeRef>, CF::Ref<CFTypeRef>> views;
  const drawing::Relation relation;
};

struct FontObject : simulator::Object {
  explicit FontObject(double points) : size(points) {}
  std::string_view kind() const override { return "NSFont"; }
  const double size;
};

CF::Ref<CFTypeRef> owned(simulator::Object* object) { return CF::adopt(static_cast<CFTypeRef>(object)); }

// Anchors of a position on one axis, and of an extent, go together with their like.
int kindOfAxis(drawing::Anchor::Kind kind) {
  switch (kind) {
    case drawing::Anchor::Kind::leading:
    case drawing::Anchor::Kind::trailing:
      return 0;
    case drawing::Anchor::Kind::top:
      return 1;
    case drawing::Anchor::Kind::width:
      return 2;
  }
  return -1;
}

// The nearest view that contains both.
ViewObject* commonAncestor(ViewObject& a, ViewObject& b) {
  for (ViewObject* first = &a; first; first = first->superview) {
    for (ViewObject* second = &b; second; second = second->superview) {
      if (first == second) return first;
    }
  }
  return nullptr;
}

void add(ViewObject& superview, ViewObject& view) {
  if (view.superview) simulator::fatal("NSView.addSubview: moving a view to another one is not simulated");
  simulator::retain(&view, "NSView.addSubview");
  view.superview = &superview;
  superview.subviews.push_back(&view);
  superview.box.children.push_back(&view.box);
}

}  // namespace

// ---- NSLayoutConstraint ----

LayoutConstraint LayoutAnchor::constraintEqualToAnchor(const LayoutAnchor& other, double constant) const {
  constexpr const char* name = "NSLayoutAnchor.constraintEqualToAnchor";
  const Call call(name, Call::On::mainThread);
  const auto& first = live<AnchorObject>(get(), name);
  const auto& second = live<AnchorObject>(other.get(), name);
  if (kindOfAxis(first.anchor.kind) != kindOfAxis(second.anchor.kind)) {
    simulator::fatal("NSLayoutAnchor.constraintEqualToAnchor: the two anchors do not go together");
  }
  return LayoutConstraint(owned(new ConstraintObject(first, second, constant)));
}

void LayoutConstraint::activateConstraints(const std::vector<LayoutConstraint>& constraints) {
  constexpr const char* name = "NSLayoutConstraint.activateConstraints";
  const Call call(name, Call::On::mainThread);
  for (const LayoutConstraint& each : constraints) {
    const auto& constraint = live<ConstraintObject>(each.get(), name);
    ViewObject* const holder = commonAncestor(live<ViewObject>(constraint.views.first.get(), name),
                                              live<ViewObject>(constraint.views.second.get(), name));
    if (!holder) simulator::fatal(std::string(name) + ": the two views have no common ancestor");
    holder->box.relations.push_back(constraint.relation);
  }
}

// ---- NSView ----

View View::initWithFrame(CGRect frame) {
  const Call call("NSView.initWithFrame", Call::On::mainThread);
  auto* const view = new ViewObject;
  view->frame = frame;
  return View(owned(view));
}

void View::addSubview(const View& view) const {
  const Call call("NSView.addSubview", Call::On::mainThread);
  add(live<ViewObject>(get(), "NSView.addSubview"), live<ViewObject>(view.get(), "NSView.addSubview"));
}

void View::setFrame(CGRect frame) const {
  const Call call("NSView.setFrame", Call::On::mainThread);
  live<ViewObject>(get(), "NSView.setFrame").frame = frame;
}

void View::setAutoresizingMask(unsigned long mask) const {
  const Call call("NSView.setAutoresizingMask", Call::On::mainThread);
  live<ViewObject>(get(), "NSView.setAutoresizingMask").autoresizingMask = mask;
}

void View::setTranslatesAutoresizingMaskIntoConstraints(bool translates) const {
  constexpr const char* name = "NSView.setTranslatesAutoresizingMaskIntoConstraints";
  const Call call(name, Call::On::mainThread);
  live<ViewObject>(get(), name).translatesAutoresizingMask = translates;
}

void View::setHidden(bool isHidden) const {
  const Call call("NSView.setHidden", Call::On::mainThread);
  live<ViewObject>(get(), "NSView.setHidden").box.hidden = isHidden;
}

void View::setContentHuggingPriority(float priority, LayoutOrientation orientation) const {
  constexpr const char* name = "NSView.setContentHuggingPriority";
  const Call call(name, Call::On::mainThread);
  if (!(priority > 0 && priority <= LayoutPriorityRequired)) simulator::fatal(std::string(name) + ": no such priority");
  live<ViewObject>(get(), name).box.hugging.at(static_cast<std::size_t>(orientation)) = priority;
}

CGSize View::fittingSize() const {
  const Call call("NSView.fittingSize", Call::On::mainThread);
  return simulator::fittingSize(live<ViewObject>(get(), "NSView.fittingSize"));
}

LayoutAnchor View::leadingAnchor() const {
  const Call call("NSView.leadingAnchor", Call::On::mainThread);
  auto& view = live<ViewObject>(get(), "NSView.leadingAnchor");
  return LayoutAnchor(owned(new AnchorObject(view, drawing::Anchor::Kind::leading)));
}

LayoutAnchor View::trailingAnchor() const {
  const Call call("NSView.trailingAnchor", Call::On::mainThread);
  auto& view = live<ViewObject>(get(), "NSView.trailingAnchor");
  return LayoutAnchor(owned(new AnchorObject(view, drawing::Anchor::Kind::trailing)));
}

LayoutAnchor View::topAnchor() const {
  const Call call("NSView.topAnchor", Call::On::mainThread);
  auto& view = live<ViewObject>(get(), "NSView.topAnchor");
  return LayoutAnchor(owned(new AnchorObject(view, drawing::Anchor::Kind::top)));
}

LayoutAnchor View::widthAnchor() const {
  const Call call("NSView.widthAnchor", Call::On::mainThread);
  auto& view = live<ViewObject>(get(), "NSView.widthAnchor");
  return LayoutAnchor(owned(new AnchorObject(view, drawing::Anchor::Kind::width)));
}

void View::setAccessibilityLabel(const std::string& label) const {
  const Call call("NSView.setAccessibilityLabel", Call::On::mainThread);
  live<ViewObject>(get(), "NSView.setAccessibilityLabel").accessibilityLabel =
      simulator::requireUTF8(label, "NSView.setAccessibilityLabel");
}

// ---- NSStackView ----

StackView StackView::stackViewWithViews(const std::vector<View>& views) {
  constexpr const char* name = "NSStackView.stackViewWithViews";
  const Call call(name, Call::On::mainThread);
  auto* const stack = new simulator::StackViewObject;
  StackView made(owned(stack));
  stack->box.stack.emplace();
  stack->translatesAutoresizingMask = false;
  for (const View& each : views) {
    auto& view = live<ViewObject>(each.get(), name);
    view.translatesAutoresizingMask = false;
    add(*stack, view);
  }
  return made;
}

// The alignment goes with the orientation as long as nobody sets one (NSStackView.h).
void StackView::setOrientation(LayoutOrientation orientation) const {
  const Call call("NSStackView.setOrientation", Call::On::mainThread);
  auto& stack = *live<simulator::StackViewObject>(get(), "NSStackView.setOrientation").box.stack;
  stack.axis = orientation == LayoutOrientation::Horizontal ? drawing::horizontal : drawing::vertical;
  if (stack.alignment != drawing::Alignment::leading) {
    stack.alignment = stack.axis == drawing::horizontal ? drawing::Alignment::centerY : drawing::Alignment::centerX;
  }
}

void StackView::setAlignment(LayoutAttribute alignment) const {
  const Call call("NSStackView.setAlignment", Call::On::mainThread);
  live<simulator::StackViewObject>(get(), "NSStackView.setAlignment").box.stack->alignment =
      alignment == LayoutAttribute::Leading ? drawing::Alignment::leading : drawing::Alignment::centerY;
}

void StackView::setSpacing(double spacing) const {
  const Call call("NSStackView.setSpacing", Call::On::mainThread);
  live<simulator::StackViewObject>(get(), "NSStackView.setSpacing").box.stack->spacing = spacing;
}

// ---- NSSlider ----

Slider Slider::sliderWithValue(double value, double minimum, double maximum) {
  const Call call("NSSlider.sliderWithValue", Call::On::mainThread);
  auto* const slider = new simulator::SliderObject;
  slider->minimum = minimum;
  slider->maximum = maximum;
  slider->setValue(value);
  slider->box.hugging[drawing::vertical] = drawing::defaultHigh;
  return Slider(owned(slider));
}

double Slider::doubleValue() const {
  const Call call("NSSlider.doubleValue", Call::On::mainThread);
  return live<simulator::SliderObject>(get(), "NSSlider.doubleValue").value;
}

void Slider::setDoubleValue(double value) const {
  const Call call("NSSlider.setDoubleValue", Call::On::mainThread);
  live<simulator::SliderObject>(get(), "NSSlider.setDoubleValue").setValue(value);
}

void Slider::setNumberOfTickMarks(long number) const {
  const Call call("NSSlider.setNumberOfTickMarks", Call::On::mainThread);
  live<simulator::SliderObject>(get(), "NSSlider.setNumberOfTickMarks").tickMarks = number;
}

void Slider::setAllowsTickMarkValuesOnly(bool ticksOnly) const {
  constexpr const char* name = "NSSlider.setAllowsTickMarkValuesOnly";
  const Call call(name, Call::On::mainThread);
  live<simulator::SliderObject>(get(), name).ticksOnly = ticksOnly;
}

void Slider::setContinuous(bool isContinuous) const {
  const Call call("NSSlider.setContinuous", Call::On::mainThread);
  live<simulator::SliderObject>(get(), "NSSlider.setContinuous").isContinuous = isContinuous;
}

void Slider::setTargetAction(std::function<void()> action) const {
  const Call call("NSSlider.setAction", Call::On::mainThread);
  live<simulator::SliderObject>(get(), "NSSlider.setAction").action = std::move(action);
}

// ---- NSFont and NSTextField ----

double Font::smallSystemFontSize() {
  const Call call("NSFont.smallSystemFontSize", Call::On::mainThread);
  return drawing::metrics::smallSystemFontSize;
}

Font Font::systemFontOfSize(double size) {
  const Call call("NSFont.systemFontOfSize", Call::On::mainThread);
  return Font(owned(new FontObject(size)));
}

TextField TextField::labelWithString(const std::string& text) {
  const Call call("NSTextField.labelWithString", Call::On::mainThread);
  auto* const field = new simulator::TextFieldObject;
  TextField made(owned(field));
  field->text = simulator::requireUTF8(text, "NSTextField.labelWithString");
  field->fontSize = drawing::metrics::systemFontSize;
  field->box.hugging[drawing::vertical] = drawing::defaultHigh;
  return made;
}

void TextField::setFont(const Font& font) const {
  const Call call("NSTextField.setFont", Call::On::mainThread);
  live<simulator::TextFieldObject>(get(), "NSTextField.setFont").fontSize =
      live<FontObject>(font.get(), "NSTextField.setFont").size;
}

void TextField::setTextColor(const Color& color) const {
  const Call call("NSTextField.setTextColor", Call::On::mainThread);
  live<simulator::TextFieldObject>(get(), "NSTextField.setTextColor").color =
      &live<simulator::ColorObject>(color.get(), "NSTextField.setTextColor");
}

void TextField::setLineBreakMode(LineBreakMode mode) const {
  const Call call("NSTextField.setLineBreakMode", Call::On::mainThread);
  live<simulator::TextFieldObject>(get(), "NSTextField.setLineBreakMode").lineBreakMode = mode;
}

// ---- NSImageView ----

ImageView ImageView::initWithFrame(CGRect frame) {
  const Call call("NSImageView.initWithFrame", Call::On::mainThread);
  auto* const view = new simulator::ImageViewObject;
  view->frame = frame;
  return ImageView(owned(view));
}

void ImageView::setImage(const Image& image) const {
  const Call call("NSImageView.setImage", Call::On::mainThread);
  auto& view = live<simulator::ImageViewObject>(get(), "NSImageView.setImage");
  view.image = {};
  if (image)
    view.image = CF::retain(static_cast<CFTypeRef>(&live<simulator::ImageObject>(image.get(), "NSImageView.setImage")));
}

void ImageView::setContentTintColor(const Color& color) const {
  const Call call("NSImageView.setContentTintColor", Call::On::mainThread);
  live<simulator::ImageViewObject>(get(), "NSImageView.setContentTintColor").tint =
      &live<simulator::ColorObject>(color.get(), "NSImageView.setContentTintColor");
}

}  // namespace NS
