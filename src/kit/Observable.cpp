#include "kit/Observable.h"

#include <algorithm>

namespace kit {

int Observable::addObserver(Observer observer) {
  int token = nextToken_++;
  observers_.emplace_back(token, std::move(observer));
  return token;
}

void Observable::removeObserver(int token) {
  std::erase_if(observers_, [token](const auto& p) { return p.first == token; });
}

void Observable::notify(std::string_view property) {
  if (observers_.empty()) return;
  auto snapshot = observers_;
  for (auto& [token, observer] : snapshot) {
    bool stillRegistered = std::any_of(observers_.begin(), observers_.end(),
                                       [t = token](const auto& p) { return p.first == t; });
    if (stillRegistered) observer(property);
  }
}

}  // namespace kit
