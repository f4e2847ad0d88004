// APMEnvironmentInfo: what the experiment request tells about the device, read from the
// installed platform at the moment of asking.
#pragma once

#include <string>

#include "platform/DeviceFacts.h"
#include "platform/Platform.h"

struct APMEnvironmentInfo {
  std::string deviceModel;
  std::string deviceOSVersion;
  // Language and region, "en-us"; empty when unknown.
  std::string userDefaultLanguage;

  static APMEnvironmentInfo current() {
    platform::DeviceFactsSnapshot facts = platform::deviceFacts().facts();
    return {facts.model, facts.osVersion, facts.language};
  }
};
