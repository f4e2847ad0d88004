#include "kit/Fatal.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace kit {
namespace {

void abortingFatalHandler(const std::string& message) {
  std::fprintf(stderr, "Fatal error: %s\n", message.c_str());
  std::fflush(stderr);
  std::abort();
}

std::atomic<FatalHandler> gHandler{&abortingFatalHandler};

}  // namespace

void fatal(const std::string& message) {
  gHandler.load()(message);
  // A handler that returns breaks its contract; end the process regardless.
  std::abort();
}

FatalHandler setFatalHandler(FatalHandler handler) {
  return gHandler.exchange(handler ? handler : &abortingFatalHandler);
}

void throwingFatalHandler(const std::string& message) { throw FatalError(message); }

long long checkedAdd(long long a, long long b) {
  long long r;
  if (__builtin_add_overflow(a, b, &r)) fatal("arithmetic overflow in addition");
  return r;
}

long long checkedSubtract(long long a, long long b) {
  long long r;
  if (__builtin_sub_overflow(a, b, &r)) fatal("arithmetic overflow in subtraction");
  return r;
}

long long checkedMultiply(long long a, long long b) {
  long long r;
  if (__builtin_mul_overflow(a, b, &r)) fatal("arithmetic overflow in multiplication");
  return r;
}

}  // namespace kit
