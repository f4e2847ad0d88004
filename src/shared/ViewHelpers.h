// Small helpers on views, controllers and windows.
#pragma once

#include <string_view>

#include "kit/Color.h"
#include "kit/View.h"
#include "kit/ViewController.h"

namespace shared {

// A colour from "#RRGGBB" or "RRGGBB": trimmed, upper-cased, one leading "#" removed; any
// length but 6 gives gray; otherwise the text is scanned as hexadecimal as far as it goes.
kit::Color colorFromHex(std::string_view text);

// Rounds `corners` (a kit::RectCorner mask) of `view` with a mask layer of `radius`, clears
// the layer's corner radius and gives it a gray shadow (offset 0, radius 4, opacity 0.5).
void roundCorners(kit::View& view, unsigned corners, double radius);

// Ends editing in the controller's view (the action of a tap recognizer).
void dismissKeyboard(kit::ViewController& controller);

// On system version 13 or later, sets every window of the app to the light style.
void forceLightInterfaceStyle();

}  // namespace shared
