// The native methods of strings and arrays.
#include <algorithm>
#include <cmath>
#include <regex>

#include "measurement/runtime/APMPEvaluator.h"

namespace {

using V = APMPRuntimeValue;

const V& argumentAt(const V* arguments, std::size_t count, std::size_t i) {
  return i < count ? arguments[i] : APMPUndefinedValue::sharedInstance();
}

// ToIntegerOrInfinity.
double integerOf(const V& v) {
  double d = v.doubleValue();
  if (std::isnan(d)) return 0;
  return std::trunc(d);
}

// A relative position (negative counts from the end) clamped to [0, length].
std::size_t relativeIndex(const V& v, std::size_t length, std::size_t fallback) {
  if (v.isUndefined()) return fallback;
  double d = integerOf(v);
  double len = static_cast<double>(length);
  if (d < 0) d = std::max(0.0, len + d);
  return static_cast<std::size_t>(std::min(d, len));
}

std::size_t clampIndex(const V& v, std::size_t length) {
  double d = integerOf(v);
  return static_cast<std::size_t>(std::clamp(d, 0.0, static_cast<double>(length)));
}

bool isSpace(unsigned char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

V newArray(std::vector<V> elements, APMPEvaluator& ev) {
  if (!APMPHeap::canAllocate(elements.size() * sizeof(V))) {
    return ev.fail(kAPMPErrorCodeBudgetExceeded, "Out of memory: array too large");
  }
  return APMPMake<APMPArrayValue>(std::move(elements));
}

V newString(std::string s, APMPEvaluator& ev) {
  if (!APMPHeap::canAllocate(s.size() + 64)) {
    return ev.fail(kAPMPErrorCodeBudgetExceeded, "Out of memory: string too long");
  }
  return V::string(std::move(s));
}

// A pattern for match and search, within the pattern engine's limits.
bool makePattern(const V& pattern, const std::string& subject, std::regex* out, APMPEvaluator& ev) {
  std::string source = pattern.isUndefined() ? std::string() : pattern.stringValue();
  if (source.size() > APMPStringCommandEvaluator::kMaxPattern ||
      subject.size() > APMPStringCommandEvaluator::kMaxPatternSubject) {
    ev.fail(kAPMPErrorCodeBudgetExceeded, "Pattern or subject too long");
    return false;
  }
  try {
    *out = std::regex(source, std::regex::ECMAScript);
  } catch (const std::regex_error&) {
    ev.fail(kAPMPErrorCodeWrongArgumentKind, "Invalid pattern " + source);
    return false;
  }
  return true;
}

// Expands $$, $&, $` and $' of a replacement text.
std::string expandReplacement(const std::string& replacement, const std::string& subject,
                              std::size_t at, std::size_t length) {
  std::string out;
  for (std::size_t i = 0; i < replacement.size(); ++i) {
    char c = replacement[i];
    if (c == '$' && i + 1 < replacement.size()) {
      char n = replacement[i + 1];
      if (n == '$') {
        out += '$';
        ++i;
        continue;
      }
      if (n == '&') {
        out.append(subject, at, length);
        ++i;
        continue;
      }
      if (n == '`') {
        out.append(subject, 0, at);
        ++i;
        continue;
      }
      if (n == '\'') {
        out.append(subject, at + length, std::string::npos);
        ++i;
        continue;
      }
    }
    out += c;
  }
  return out;
}

}  // namespace

APMPRuntimeValue APMPStringCommandEvaluator::apply(const APMPRuntimeValue& target,
                                                   const std::string& name, int method,
                                                   const APMPRuntimeValue* arguments,
                                                   std::size_t count, APMPEvaluator& ev) {
  const std::string& s = target.stringPayload();
  auto arg = [&](std::size_t i) -> const V& { return argumentAt(arguments, count, i); };
  if (!ev.chargeWork(s.size())) return {};
  if (method == kAPMPMethodCharAt) {
    double i = integerOf(arg(0));
    if (i < 0 || i >= static_cast<double>(s.size())) return V::string("");
    return V::string(std::string(1, s[static_cast<std::size_t>(i)]));
  }
  if (method == kAPMPMethodConcat) {
    std::string out = s;
    for (std::size_t i = 0; i < count; ++i) {
      out += arguments[i].stringValue();
      if (!APMPHeap::canAllocate(out.size())) break;
    }
    return newString(std::move(out), ev);
  }
  if (method == kAPMPMethodHasOwnProperty) {
    std::string key = arg(0).stringValue();
    std::int64_t index = APMPArrayIndexOf(key);
    return V::boolean(key == "length" || (index >= 0 && static_cast<std::size_t>(index) < s.size()));
  }
  if (method == kAPMPMethodIndexOf) {
    std::string search = arg(0).stringValue();
    std::size_t from = clampIndex(arg(1), s.size());
    std::size_t at = s.find(search, from);
    return V::number(at == std::string::npos ? -1 : static_cast<double>(at));
  }
  if (method == kAPMPMethodLastIndexOf) {
    std::string search = arg(0).stringValue();
    double p = arg(1).doubleValue();
    std::size_t from = std::isnan(p) ? s.size() : clampIndex(arg(1), s.size());
    std::size_t at = s.rfind(search, from);
    return V::number(at == std::string::npos ? -1 : static_cast<double>(at));
  }
  if (method == kAPMPMethodMatch || method == kAPMPMethodSearch) {
    std::regex pattern;
    if (!makePattern(arg(0), s, &pattern, ev)) return {};
    std::smatch m;
    bool found;
    try {
      found = std::regex_search(s, m, pattern);
    } catch (const std::regex_error&) {
      return ev.fail(kAPMPErrorCodeBudgetExceeded, "Pattern too complex");
    }
    if (method == kAPMPMethodSearch) return V::number(found ? static_cast<double>(m.position(0)) : -1);
    if (!found) return V::null();
    std::vector<V> groups;
    for (std::size_t i = 0; i < m.size(); ++i) {
      groups.push_back(m[i].matched ? V::string(m[i].str()) : V());
    }
    return newArray(std::move(groups), ev);
  }
  if (method == kAPMPMethodReplace) {
    std::string search = arg(0).stringValue();
    std::size_t at = s.find(search);
    if (at == std::string::npos) return target;
    std::string replacement;
    if (arg(1).isFunction()) {
      V callArgs[3] = {V::string(search), V::number(static_cast<double>(at)), target};
      V r = ev.callFunction(arg(1), callArgs, 3);
      if (ev.failed()) return {};
      replacement = r.stringValue();
    } else {
      replacement = expandReplacement(arg(1).stringValue(), s, at, search.size());
    }
    std::string out = s.substr(0, at) + replacement + s.substr(at + search.size());
    return newString(std::move(out), ev);
  }
  if (method == kAPMPMethodSlice) {
    std::size_t from = relativeIndex(arg(0), s.size(), 0);
    std::size_t to = relativeIndex(arg(1), s.size(), s.size());
    return V::string(from < to ? s.substr(from, to - from) : std::string());
  }
  if (method == kAPMPMethodSubstring) {
    std::size_t from = clampIndex(arg(0), s.size());
    std::size_t to = arg(1).isUndefined() ? s.size() : clampIndex(arg(1), s.size());
    if (from > to) std::swap(from, to);
    return V::string(s.substr(from, to - from));
  }
  if (method == kAPMPMethodSplit) {
    std::uint32_t limit = arg(1).isUndefined() ? UINT32_MAX : APMPToUint32(arg(1).doubleValue());
    std::vector<V> parts;
    if (limit == 0) return newArray({}, ev);
    if (arg(0).isUndefined()) return newArray({target}, ev);
    std::string separator = arg(0).stringValue();
    if (separator.empty()) {
      for (std::size_t i = 0; i < s.size() && parts.size() < limit; ++i) {
        parts.push_back(V::string(std::string(1, s[i])));
      }
      return newArray(std::move(parts), ev);
    }
    std::size_t start = 0;
    while (parts.size() < limit) {
      std::size_t at = s.find(separator, start);
      if (at == std::string::npos) {
        parts.push_back(V::string(s.substr(start)));
        break;
      }
      parts.push_back(V::string(s.substr(start, at - start)));
      start = at + separator.size();
    }
    return newArray(std::move(parts), ev);
  }
  if (method == kAPMPMethodToLowerCase || method == kAPMPMethodToLocaleLowerCase) {
    std::string out = s;
    for (char& c : out) {
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return V::string(std::move(out));
  }
  if (method == kAPMPMethodToUpperCase || method == kAPMPMethodToLocaleUpperCase) {
    std::string out = s;
    for (char& c : out) {
      if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return V::string(std::move(out));
  }
  if (method == kAPMPMethodToString) return target;
  if (method == kAPMPMethodTrim) {
    std::size_t b = 0, e = s.size();
    while (b < e && isSpace(static_cast<unsigned char>(s[b]))) ++b;
    while (e > b && isSpace(static_cast<unsigned char>(s[e - 1]))) --e;
    return V::string(s.substr(b, e - b));
  }
  return ev.fail(kAPMPErrorCodeWrongArgumentKind, "String has no method " + name);
}

namespace {

// Stable merge sort that tolerates any comparator (an inconsistent one only gives some
// order). `less` returns false after a failure, which ends the sort early.
template <class Less>
void mergeSort(std::vector<V>& items, Less less, APMPEvaluator& ev) {
  std::vector<V> buffer(items.size());
  for (std::size_t width = 1; width < items.size(); width *= 2) {
    for (std::size_t lo = 0; lo < items.size(); lo += 2 * width) {
      std::size_t mid = std::min(lo + width, items.size());
      std::size_t hi = std::min(lo + 2 * width, items.size());
      std::size_t i = lo, j = mid, k = lo;
      while (i < mid && j < hi) {
        // Take from the right only when it is strictly less: stability.
        if (!ev.failed() && less(items[j], items[i])) {
          buffer[k++] = items[j++];
        } else {
          buffer[k++] = items[i++];
        }
      }
      while (i < mid) buffer[k++] = items[i++];
      while (j < hi) buffer[k++] = items[j++];
    }
    items.swap(buffer);
    if (ev.failed()) return;
  }
}

std::string joinArray(const V& target, const std::string& separator, APMPEvaluator& ev,
                      bool* ok) {
  APMPArrayValue* a = target.asArray();
  std::string out;
  *ok = true;
  for (std::size_t i = 0; i < a->size(); ++i) {
    if (i) out += separator;
    const V& e = a->at(i);
    if (e.isString()) {
      out += e.stringPayload();
    } else if (e.isNumber()) {
      APMPAppendNumber(out, e.numberPayload());
    } else if (e.isArray() && e.asArray() == a) {
      // a cycle joins as ""
    } else if (!e.isNullish()) {
      out += e.stringValue();
    }
    if (!APMPHeap::canAllocate(out.size() + 64)) {
      *ok = false;
      ev.fail(kAPMPErrorCodeBudgetExceeded, "Out of memory: string too long");
      return {};
    }
  }
  return out;
}

}  // namespace

APMPRuntimeValue APMPArrayCommandEvaluator::apply(const APMPRuntimeValue& target,
                                                  const std::string& name, int method,
                                                  const APMPRuntimeValue* arguments,
                                                  std::size_t count, APMPEvaluator& ev) {
  V hold = target;
  APMPArrayValue* a = hold.asArray();
  auto arg = [&](std::size_t i) -> const V& { return argumentAt(arguments, count, i); };
  if (!ev.chargeWork(a->size())) return {};
  auto memoryFailure = [&] { return ev.fail(kAPMPErrorCodeBudgetExceeded, "Out of memory: array too large"); };

  // Methods that call back for each element: fn(element, index, array).
  if (method == kAPMPMethodEvery || method == kAPMPMethodSome || method == kAPMPMethodFilter || method == kAPMPMethodForEach ||
      method == kAPMPMethodMap) {
    const V& fn = arg(0);
    if (!fn.isFunction()) return ev.fail(kAPMPErrorCodeWrongArgumentKind, fn.stringValue() + " is not a function");
    std::size_t length = a->size();
    std::vector<V> out;
    if (method == kAPMPMethodMap) out.resize(length);
    // The caller's arguments hold the function for the whole loop.
    APMPFunctionValue* callee = fn.asFunction();
    const bool leaf = ev.prepareLeaf(*callee);
    // Map, filter and forEach, which call back for every element, run a leaf that reads the
    // element and its index on runs of number elements at once (every and some stop early).
    const bool runs = leaf && ev.leafTakesNumbers(*callee) &&
                      (method == kAPMPMethodMap || method == kAPMPMethodFilter || method == kAPMPMethodForEach);
    const bool booleans = runs && ev.leafGivesBoolean(*callee);
    V callArgs[3] = {V(), V(), target};
    for (std::size_t i = 0; i < length && i < a->size(); ++i) {
      if (runs) {
        double results[64];
        std::size_t first = i;
        std::size_t ran = ev.runLeafOnNumbers(*callee, *a, first, std::min({length, a->size(), first + 64}), results);
        for (std::size_t k = 0; k < ran; ++k) {
          double d = results[k];
          if (method == kAPMPMethodMap) out[first + k] = booleans ? V::boolean(d != 0) : V::number(d);
          if (method == kAPMPMethodFilter && !(d == 0 || d != d)) out.push_back(a->at(first + k));
        }
        i = first + ran;
        if (ran) {
          --i;
          continue;
        }
      }
      // callArgs[0] keeps the element as it was before the call, which may change the array.
      callArgs[0] = a->at(i);
      callArgs[1].setNumber(static_cast<double>(i));
      V r;
      if (!leaf || !ev.callPreparedLeaf(*callee, callArgs, 3, &r)) r = callee->call(ev, callArgs, 3);
      if (ev.failed()) return {};
      if (method == kAPMPMethodEvery && !r.booleanValue()) return V::boolean(false);
      if (method == kAPMPMethodSome && r.booleanValue()) return V::boolean(true);
      if (method == kAPMPMethodFilter && r.booleanValue()) out.push_back(callArgs[0]);
      if (method == kAPMPMethodMap) out[i] = std::move(r);
    }
    if (method == kAPMPMethodEvery) return V::boolean(true);
    if (method == kAPMPMethodSome) return V::boolean(false);
    if (method == kAPMPMethodForEach) return {};
    return newArray(std::move(out), ev);
  }
  if (method == kAPMPMethodReduce || method == kAPMPMethodReduceRight) {
    const V& fn = arg(0);
    if (!fn.isFunction()) return ev.fail(kAPMPErrorCodeWrongArgumentKind, fn.stringValue() + " is not a function");
    bool right = method == kAPMPMethodReduceRight;
    std::size_t length = a->size();
    std::size_t k = 0;
    V accumulator;
    if (count >= 2) {
      accumulator = arguments[1];
    } else {
      if (length == 0) {
        return ev.fail(kAPMPErrorCodeWrongArgumentKind, "Reduce of empty array with no initial value");
      }
      accumulator = a->at(right ? length - 1 : 0);
      k = 1;
    }
    // The caller's arguments hold the function for the whole loop.
    APMPFunctionValue* callee = fn.asFunction();
    const bool leaf = ev.prepareLeaf(*callee);
    V callArgs[4] = {V(), V(), V(), target};
    for (; k < length; ++k) {
      std::size_t i = right ? length - 1 - k : k;
      if (i >= a->size()) continue;
      callArgs[0] = std::move(accumulator);
      callArgs[1] = a->at(i);
      callArgs[2] = V::number(static_cast<double>(i));
      if (!leaf || !ev.callPreparedLeaf(*callee, callArgs, 4, &accumulator)) {
        accumulator = callee->call(ev, callArgs, 4);
      }
      if (ev.failed()) return {};
    }
    return accumulator;
  }
  if (method == kAPMPMethodConcat) {
    std::vector<V> out = a->elements();
    for (std::size_t i = 0; i < count; ++i) {
      if (arguments[i].isArray()) {
        const auto& more = arguments[i].asArray()->elements();
        if (!APMPHeap::canAllocate((out.size() + more.size()) * sizeof(V))) return memoryFailure();
        out.insert(out.end(), more.begin(), more.end());
      } else {
        out.push_back(arguments[i]);
      }
    }
    return newArray(std::move(out), ev);
  }
  if (method == kAPMPMethodHasOwnProperty) {
    std::string key = arg(0).stringValue();
    std::int64_t index = APMPArrayIndexOf(key);
    return V::boolean(key == "length" || (index >= 0 && static_cast<std::size_t>(index) < a->size()));
  }
  if (method == kAPMPMethodIndexOf) {
    double from = integerOf(arg(1));
    double len = static_cast<double>(a->size());
    if (from < 0) from = std::max(0.0, len + from);
    for (std::size_t i = static_cast<std::size_t>(std::min(from, len)); i < a->size(); ++i) {
      if (a->at(i).isEqualToRuntimeValue(arg(0))) return V::number(static_cast<double>(i));
    }
    return V::number(-1);
  }
  if (method == kAPMPMethodLastIndexOf) {
    if (a->size() == 0) return V::number(-1);
    double len = static_cast<double>(a->size());
    double from = count >= 2 ? integerOf(arguments[1]) : len - 1;
    if (from < 0) from = len + from;
    if (from < 0) return V::number(-1);
    for (std::size_t i = static_cast<std::size_t>(std::min(from, len - 1)) + 1; i-- > 0;) {
      if (a->at(i).isEqualToRuntimeValue(arg(0))) return V::number(static_cast<double>(i));
    }
    return V::number(-1);
  }
  if (method == kAPMPMethodJoin || method == kAPMPMethodToString) {
    std::string separator = (method == kAPMPMethodJoin && !arg(0).isUndefined()) ? arg(0).stringValue() : ",";
    bool ok;
    std::string s = joinArray(target, separator, ev, &ok);
    if (!ok) return {};
    return V::string(std::move(s));
  }
  if (method == kAPMPMethodPop) {
    if (a->size() == 0) return {};
    V last = a->at(a->size() - 1);
    a->resize(a->size() - 1);
    return last;
  }
  if (method == kAPMPMethodPush) {
    for (std::size_t i = 0; i < count; ++i) {
      if (!a->push(arguments[i])) return memoryFailure();
    }
    return V::number(static_cast<double>(a->size()));
  }
  if (method == kAPMPMethodReverse) {
    std::reverse(a->mutableElements().begin(), a->mutableElements().end());
    return target;
  }
  if (method == kAPMPMethodShift) {
    if (a->size() == 0) return {};
    V first = a->at(0);
    auto& e = a->mutableElements();
    e.erase(e.begin());
    a->resize(e.size());
    return first;
  }
  if (method == kAPMPMethodUnshift) {
    if (!APMPHeap::canAllocate(count * sizeof(V))) return memoryFailure();
    std::size_t old = a->size();
    a->resize(old + count);
    auto& e = a->mutableElements();
    std::move_backward(e.begin(), e.begin() + static_cast<std::ptrdiff_t>(old), e.end());
    for (std::size_t i = 0; i < count; ++i) e[i] = arguments[i];
    return V::number(static_cast<double>(a->size()));
  }
  if (method == kAPMPMethodSlice) {
    std::size_t from = relativeIndex(arg(0), a->size(), 0);
    std::size_t to = relativeIndex(arg(1), a->size(), a->size());
    std::vector<V> out;
    if (from < to) out.assign(a->elements().begin() + static_cast<std::ptrdiff_t>(from),
                              a->elements().begin() + static_cast<std::ptrdiff_t>(to));
    return newArray(std::move(out), ev);
  }
  if (method == kAPMPMethodSplice) {
    std::size_t length = a->size();
    std::size_t start = relativeIndex(arg(0), length, 0);
    std::size_t deleteCount;
    if (count == 0) {
      deleteCount = 0;
    } else if (count == 1) {
      deleteCount = length - start;
    } else {
      deleteCount = static_cast<std::size_t>(
          std::clamp(integerOf(arguments[1]), 0.0, static_cast<double>(length - start)));
    }
    std::size_t inserted = count > 2 ? count - 2 : 0;
    if (!APMPHeap::canAllocate(inserted * sizeof(V))) return memoryFailure();
    auto& e = a->mutableElements();
    auto first = e.begin() + static_cast<std::ptrdiff_t>(start);
    std::vector<V> removed(first, first + static_cast<std::ptrdiff_t>(deleteCount));
    e.erase(first, first + static_cast<std::ptrdiff_t>(deleteCount));
    e.insert(e.begin() + static_cast<std::ptrdiff_t>(start), arguments + (count > 2 ? 2 : count),
             arguments + count);
    a->resize(e.size());
    return newArray(std::move(removed), ev);
  }
  if (method == kAPMPMethodSort) {
    const V& fn = arg(0);
    if (!fn.isUndefined() && !fn.isFunction()) {
      return ev.fail(kAPMPErrorCodeWrongArgumentKind, "The comparison function must be a function");
    }
    // Undefined elements go last, unsorted; the rest by the comparator or by text.
    std::vector<V> items, undefinedItems;
    for (const auto& e : a->elements()) (e.isUndefined() ? undefinedItems : items).push_back(e);
    if (fn.isUndefined()) {
      std::vector<std::pair<std::string, V>> keyed;
      keyed.reserve(items.size());
      for (auto& e : items) keyed.emplace_back(e.stringValue(), e);
      std::stable_sort(keyed.begin(), keyed.end(),
                       [](const auto& x, const auto& y) { return x.first < y.first; });
      for (std::size_t i = 0; i < items.size(); ++i) items[i] = keyed[i].second;
    } else {
      mergeSort(
          items,
          [&](const V& x, const V& y) {
            V callArgs[2] = {x, y};
            V r = ev.callFunction(fn, callArgs, 2);
            double d = r.doubleValue();
            return !ev.failed() && d < 0;
          },
          ev);
      if (ev.failed()) return {};
    }
    auto& e = a->mutableElements();
    std::size_t size = e.size();
    items.insert(items.end(), undefinedItems.begin(), undefinedItems.end());
    // The comparator may have changed the array's length; write what fits, as it is now.
    for (std::size_t i = 0; i < items.size() && i < size && i < e.size(); ++i) e[i] = items[i];
    return target;
  }
  return ev.fail(kAPMPErrorCodeWrongArgumentKind, "Array has no method " + name);
}
