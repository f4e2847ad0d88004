#include "shared/ViewHelpers.h"

#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <cctype>
#include <string>

#include "platform/Platform.h"

namespace shared {

namespace {

// The platform's "whitespace and newline" characters: space separators, line and paragraph
// separators, tab, the four line-ending controls and NEL.
bool isWhitespaceOrNewline(UChar32 c) {
  if (c == 0x09 || (c >= 0x0A && c <= 0x0D) || c == 0x85) return true;
  const std::int8_t type = u_charType(c);
  return type == U_SPACE_SEPARATOR || type == U_LINE_SEPARATOR || type == U_PARAGRAPH_SEPARATOR;
}

}  // namespace

// Lengths and positions are in UTF-16 units, as the platform's strings count them.
kit::Color colorFromHex(std::string_view text) {
  icu::UnicodeString s = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
  std::int32_t begin = 0, end = s.length();
  while (begin < end && isWhitespaceOrNewline(s.char32At(begin))) begin = s.moveIndex32(begin, 1);
  while (end > begin && isWhitespaceOrNewline(s.char32At(s.moveIndex32(end, -1)))) end = s.moveIndex32(end, -1);
  s = icu::UnicodeString(s, begin, end - begin);
  s.toUpper(icu::Locale::getRoot());
  if (s.startsWith(icu::UnicodeString(u"#"))) s.remove(0, 1);
  if (s.length() != 6) return kit::Color::gray();
  // The number scanner: it skips leading whitespace, takes an optional "0X", then hexadecimal
  // digits until the first other character, from 0.
  std::int32_t i = 0;
  while (i < s.length() && isWhitespaceOrNewline(s.char32At(i))) i = s.moveIndex32(i, 1);
  if (s.length() - i >= 2 && s[i] == u'0' && s[i + 1] == u'X') i += 2;
  std::uint32_t rgb = 0;
  for (; i < s.length(); ++i) {
    const char16_t c = s[i];
    int digit;
    if (c >= u'0' && c <= u'9') digit = c - u'0';
    else if (c >= u'A' && c <= u'F') digit = c - u'A' + 10;
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

namespace {

// Every controller answers to "dismissKeyboard", so that a tap recogniser can target it.
const bool kDismissKeyboardOnEveryController = [] {
  kit::ViewController::registerActionOnEveryController(
      "dismissKeyboard", [](kit::ViewController& controller, kit::Object*) { dismissKeyboard(controller); });
  return true;
}();

}  // namespace

void forceLightInterfaceStyle() {
  if (platform::device().systemMajorVersion() < 13) return;
  for (auto& window : platform::application().windows()) window->setOverrideUserInterfaceStyle(1);
}

}  // namespace shared
