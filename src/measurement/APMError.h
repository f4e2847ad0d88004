// The error record of the measurement client. Every operation that can fail returns a truth
// value (or an empty result) and fills a caller-owned platform::Error; nothing is thrown and
// nothing reaches the application.
#pragma once

#include <string>

#include "platform/Types.h"

// Domain of every error the store and the database report.
inline constexpr const char* kAPMErrorDomain = "com.stuvop.smp.measurement.ErrorDomain";

// Codes of kAPMErrorDomain.
enum APMErrorCode : int {
  kAPMErrorCodeInvalidArgument = 1,  // a bad argument
  kAPMErrorCodeInvalidState = 2,     // an unusable store state (no open handle)
  kAPMErrorCodeFailedStep = 3,       // a bad value or a failed step
};

// Fills `error` (when non-null) with kAPMErrorDomain, `code` and `message`; returns false so
// that callers can write `return APMSetError(...)`.
bool APMSetError(platform::Error* error, int code, std::string message);

// Precondition: when `condition` is false, fills `error` with `code` and `message`. Returns
// `condition`.
bool APMCheck(bool condition, int code, const char* message, platform::Error* error);

// Precondition: `object` must be non-null; otherwise fills `error`. Returns whether it is.
bool APMCheckNotNull(const void* object, int code, const char* message, platform::Error* error);
