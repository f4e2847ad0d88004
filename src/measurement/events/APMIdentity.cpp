#include "measurement/events/APMIdentity.h"

#include <cstdlib>

#include "platform/Platform.h"

std::string APMRandomIdentifier() {
  std::uint8_t bytes[16];
  if (!platform::secureRandom().copyBytes(bytes, sizeof bytes)) return "";
  static const char kHex[] = "0123456789abcdef";
  std::string id;
  for (std::uint8_t b : bytes) {
    id.push_back(kHex[b >> 4]);
    id.push_back(kHex[b & 15]);
  }
  return id;
}

std::string APMAppInstanceID(APMPersistedConfig& config) {
  std::string current = config.appInstanceID();
  if (!current.empty()) return current;
  std::string id = APMRandomIdentifier();
  if (id.empty()) return "";
  config.setAppInstanceID(id);
  return id;
}

APMVersionParts APMParseVersion(const std::string& version) {
  APMVersionParts parts;
  std::int32_t* slots[] = {&parts.major, &parts.minor, &parts.release};
  std::size_t pos = 0;
  for (std::int32_t* slot : slots) {
    if (pos >= version.size()) break;
    std::size_t end = version.find('.', pos);
    std::string piece = version.substr(pos, end == std::string::npos ? std::string::npos : end - pos);
    *slot = static_cast<std::int32_t>(std::strtol(piece.c_str(), nullptr, 10));
    if (end == std::string::npos) break;
    pos = end + 1;
  }
  return parts;
}

APMConsentVerdict APMConsentVerdictOf(const std::string& consentSignals) {
  APMConsentVerdict verdict;
  if (consentSignals.size() >= 4) {
    verdict.adsDenied = consentSignals[2] == '0';
    verdict.analyticsDenied = consentSignals[3] == '0';
  }
  return verdict;
}
