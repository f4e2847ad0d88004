// Persistent object stores: a container named after its data model holds one store, which
// must be loaded before use. Implementations decide where the store lives (a file, memory).
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/Types.h"

namespace platform {

// Where a loaded store lives: its type ("SQLite", "InMemory") and its location.
struct PersistentStoreDescription {
  std::string type;
  std::string url;
};

class PersistentContainer {
 public:
  virtual ~PersistentContainer() = default;
  virtual const std::string& name() const = 0;
  // Opens the container's store (creating it when missing). `completion` runs before this
  // returns, on the calling thread, with the store's description and an error when the store
  // cannot be opened (an unreadable or corrupt file); nothing else is touched then.
  virtual void loadPersistentStoresWithCompletionHandler(
      std::function<void(const PersistentStoreDescription&, std::optional<Error>)> completion) = 0;
  virtual bool isLoaded() const = 0;
};

// Makes containers by name (initWithName:). Any thread.
class PersistentStores {
 public:
  virtual ~PersistentStores() = default;
  virtual std::shared_ptr<PersistentContainer> containerWithName(const std::string& name) = 0;
};

}  // namespace platform
