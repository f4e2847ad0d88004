// Fatal errors: the analogue of a trap in the original runtime (a failed forced cast, a
// missing view, an arithmetic overflow). In production a fatal error ends the process; tests
// install a handler that turns it into an exception they can expect.
#pragma once

#include <stdexcept>
#include <string>

namespace kit {

// Thrown by the throwing handler that test programs install.
class FatalError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A fatal handler must not return: it ends the process or throws.
using FatalHandler = void (*)(const std::string& message);

// Reports `message` to the installed handler. Never returns. Thread-safe.
[[noreturn]] void fatal(const std::string& message);

// Installs `handler` and returns the previous one. The default handler writes
// "Fatal error: <message>" to standard error and aborts.
FatalHandler setFatalHandler(FatalHandler handler);

// The handler test programs install: throws FatalError(message).
void throwingFatalHandler(const std::string& message);

// Checked signed arithmetic: a fatal error on overflow, as the original's trapping
// arithmetic does.
long long checkedAdd(long long a, long long b);
long long checkedSubtract(long long a, long long b);
long long checkedMultiply(long long a, long long b);

}  // namespace kit
