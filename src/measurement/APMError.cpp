#include "measurement/APMError.h"

bool APMSetError(platform::Error* error, int code, std::string message) {
  if (error) *error = platform::Error{kAPMErrorDomain, code, std::move(message)};
  return false;
}

bool APMCheck(bool condition, int code, const char* message, platform::Error* error) {
  if (!condition) APMSetError(error, code, message);
  return condition;
}

bool APMCheckNotNull(const void* object, int code, const char* message, platform::Error* error) {
  return APMCheck(object != nullptr, code, message, error);
}
