#include "shared/ViewHelpers.h"

#include <cctype>
#include <string>

#include "platform/Platform.h"

namespace shared {

kit::Color colorFromHex(std::string_view text) {
  std::size_t begin = 0, end = text.size();
  auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; };
  while (begin < end && blank(text[begin])) ++begin;
  while (end > begin && blank(text[end - 1])) --end;
  std::string s(text.substr(begin, end - begin));
  for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  if (!s.empty() && s[0] == '#') s.erase(0, 1);
  if (s.size() != 6) return kit::Color::gray();
  // Scan hexadecimal digits (after an optional "0X") until the first other character, from 0.
  std::uint32_t rgb = 0;
  std::string_view digits = s;
  if (digits.substr(0, 2) == "0X") digits.remove_prefix(2);
  for (char c : digits) {
    int digit;
    if (c >= '0' && c <= '9') digit = c - '0';
    else if (c >= 'A' && c <= 'F') digit = c - 'A' + 10;
    else break;
    rgb = (rgb << 4) | static_cast<std::uint32_t>(digit);
  }
  return kit::Color{((rgb >> 16) & 0xFF) / 255.0, ((rgb >> 8) & 0xFF) / 255.0, (rgb & 0xFF) / 255.0, 1.0};
}

void roundCorners(kit::View& view, unsigned corners, double radius) {
  view.setCornerMask(corners, radius);
  view.setCornerRadius(0.0);
  view.setShadowColor(kit::Color::gray());
  view.setShadowOffset(kit::Size{0.0, 0.0});
  view.setShadowRadius(4.0);
  view.setShadowOpacity(0.5);
}

void dismissKeyboard(kit::ViewController& controller) { controller.view().endEditing(true); }

void forceLightInterfaceStyle() {
  if (platform::device().systemMajorVersion() < 13) return;
  for (auto& window : platform::application().windows()) window->setOverrideUserInterfaceStyle(1);
}

}  // namespace shared
