// What AppKit's controls, menus and colours measure on macOS 15, in points, in one place.
//
// Where a number comes from stands beside it:
//   documented  Apple's headers or documentation say so
//   font        it follows from the font that stands in for the system's (Font.h)
//   assumed     no public source has it; it was chosen by eye to look as it does on a Mac. Nothing that is tested about
//               the program may depend on such a number, only on what the program makes of it
#pragma once

#include "simulator/drawing/Picture.h"

namespace drawing::metrics {

// ---- Text ----

constexpr double systemFontSize = 13;         // documented: Human Interface Guidelines, Typography, macOS body text
constexpr double smallSystemFontSize = 11;    // documented: the same, subheadline; NSFont.h: smallSystemFontSize
constexpr double sectionHeaderFontSize = 11;  // assumed
// The height of a line of text is the font's ascent and descent, rounded up to whole points (font).

// ---- Controls ----

constexpr double sliderHeight = 20;               // assumed: the knob's height
constexpr double sliderHeightWithTickMarks = 24;  // assumed: the tick marks reach out below the track
constexpr double sliderKnobWidth = 8;             // assumed
constexpr double sliderKnobHeight = 18;           // assumed
constexpr double sliderTrackHeight = 4;           // assumed
constexpr double sliderTickMarkWidth = 1;         // assumed
constexpr double sliderTickMarkHeight = 4;        // assumed
constexpr double imageViewSymbolSize = 13;        // documented: a symbol has the size of the system font by default

// ---- Menus ----

constexpr double menuPadding = 5;            // assumed: above the first item and below the last
constexpr double menuCornerRadius = 6;       // assumed
constexpr double menuItemHeight = 22;        // assumed
constexpr double menuSectionHeight = 22;     // assumed
constexpr double menuSeparatorHeight = 11;   // assumed
constexpr double menuTextMargin = 14;        // assumed: left of the titles, and right of what stands at the right edge
constexpr double menuTickWidth = 10;         // assumed: what titles move to the right when an item is ticked
constexpr double menuKeyEquivalentGap = 24;  // assumed: at least, between a title and the key equivalents
constexpr double menuBarHeight = 24;         // assumed: of a display without a camera housing
constexpr double menuBarIconPadding = 4;     // assumed: a square item is wider than its image by that on each side

// ---- Colours ----

struct Appearance {
  Color menuBackground;
  Color menuBorder;
  Color label;
  Color secondaryLabel;
  Color disabledLabel;
  Color separator;
  Color accent;
  Color sliderTrack;
  Color sliderKnob;
  Color sliderKnobBorder;
};

// The label colours' opacities, separators and the accent colour: assumed, as the Human Interface Guidelines show them.
// The rest: assumed; a menu's background lets what is behind it through on a Mac, which is left out here.
constexpr Appearance light = {
    .menuBackground = {0.965, 0.965, 0.965, 1},
    .menuBorder = {0, 0, 0, 0.18},
    .label = {0, 0, 0, 0.85},
    .secondaryLabel = {0, 0, 0, 0.5},
    .disabledLabel = {0, 0, 0, 0.25},
    .separator = {0, 0, 0, 0.1},
    .accent = {0, 0.478, 1, 1},
    .sliderTrack = {0, 0, 0, 0.12},
    .sliderKnob = {1, 1, 1, 1},
    .sliderKnobBorder = {0, 0, 0, 0.2},
};
constexpr Appearance dark = {
    .menuBackground = {0.165, 0.165, 0.172, 1},
    .menuBorder = {1, 1, 1, 0.16},
    .label = {1, 1, 1, 0.85},
    .secondaryLabel = {1, 1, 1, 0.55},
    .disabledLabel = {1, 1, 1, 0.25},
    .separator = {1, 1, 1, 0.12},
    .accent = {0.039, 0.518, 1, 1},
    .sliderTrack = {1, 1, 1, 0.18},
    .sliderKnob = {0.78, 0.78, 0.79, 1},
    .sliderKnobBorder = {0, 0, 0, 0.3},
};

}  // namespace drawing::metrics
