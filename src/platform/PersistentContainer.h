// Persistent object stores: a container named after its data model holds one store, which
// must be loaded before use. Implementations decide where the store lives (a file, memory).
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "kit/Value.h"
#include "platform/Types.h"

namespace platform {

// Where a loaded store lives: its type ("SQLite", "InMemory") and its location.
struct PersistentStoreDescription {
  std::string type;
  std::string url;
};

// ---- Objects and their context ----

class ManagedObject;

// One entity of a data model: its name, its attributes (name and the kind of value), and the
// maker of its objects (a subclass of ManagedObject, or ManagedObject itself).
struct EntityDescription {
  enum class AttributeType { String, Boolean, Integer };
  struct Attribute {
    std::string name;
    AttributeType type;
  };
  std::string name;
  std::vector<Attribute> attributes;
  std::function<std::shared_ptr<ManagedObject>()> make;
};

// A record as a store keeps it: its primary key (1 and up) and its attribute values.
struct StoredObject {
  std::int64_t pk = 0;
  std::map<std::string, kit::Value> values;
};

// One change of a save: an object inserted (pk 0 until the store assigns one), changed or
// deleted.
struct StoreChange {
  enum class Kind { Insert, Update, Delete };
  Kind kind;
  const EntityDescription* entity;
  StoredObject object;
};

// The store a container loaded. Each call is atomic: a commit applies every change or none,
// so a killed process leaves either the state before it or the state after it.
class ObjectStore {
 public:
  virtual ~ObjectStore() = default;
  // Every record of `entity`, in the store's order; nothing and an error on failure.
  virtual std::optional<std::vector<StoredObject>> fetch(const EntityDescription& entity, Error* error) = 0;
  // Applies `changes` in order in one transaction, filling the pk of each insert. False and an
  // error when it failed; nothing is then changed.
  virtual bool commit(std::vector<StoreChange>& changes, Error* error) = 0;
};

class ManagedObjectContext;

// A record in a context. Attribute values change in memory and reach the store with the
// context's next save. Values may be read and written from any thread.
class ManagedObject : public std::enable_shared_from_this<ManagedObject> {
 public:
  virtual ~ManagedObject() = default;
  const EntityDescription& entity() const { return *entity_; }
  kit::Value valueForKey(const std::string& key) const;
  // Sets a value and marks the object changed in its context.
  void setValueForKey(kit::Value value, const std::string& key);
  // True once the context deleted it (before or after the save).
  bool isDeleted() const;

 private:
  friend class ManagedObjectContext;
  mutable std::mutex mu_;
  const EntityDescription* entity_ = nullptr;
  std::map<std::string, kit::Value> values_;
  std::int64_t pk_ = 0;
  bool deleted_ = false;
  std::weak_ptr<ManagedObjectContext> context_;
};

// The objects of one store as the app works with them: inserts, changes and deletions stay
// in memory until save. A fetch gives the same object for the same record each time, and
// includes unsaved inserts and excludes unsaved deletions. Thread-safe: each call is atomic.
class ManagedObjectContext : public std::enable_shared_from_this<ManagedObjectContext> {
 public:
  explicit ManagedObjectContext(std::shared_ptr<ObjectStore> store);

  // A new object of `entity` (initWithContext:), inserted in this context; its attributes
  // start empty (booleans false).
  std::shared_ptr<ManagedObject> insertNewObjectForEntity(const EntityDescription& entity);
  // Every object of `entity`: the store's records in its order, then the unsaved inserts; no
  // unsaved deletions. Nothing and an error when the store cannot be read.
  std::optional<std::vector<std::shared_ptr<ManagedObject>>> executeFetchRequest(const EntityDescription& entity,
                                                                                 Error* error);
  // Marks `object` deleted; an unsaved insert is simply dropped. Objects of another context
  // are ignored.
  void deleteObject(const std::shared_ptr<ManagedObject>& object);
  bool hasChanges() const;
  // Writes every pending insert, change and deletion to the store in one transaction. On
  // failure returns false with an error and keeps the changes pending.
  bool save(Error* error);

 private:
  friend class ManagedObject;
  void noteChanged(ManagedObject* object);

  mutable std::mutex mu_;
  std::shared_ptr<ObjectStore> store_;
  std::map<std::pair<std::string, std::int64_t>, std::shared_ptr<ManagedObject>> registered_;
  std::vector<std::shared_ptr<ManagedObject>> inserted_;
  std::vector<std::shared_ptr<ManagedObject>> updated_;
  std::vector<std::shared_ptr<ManagedObject>> deleted_;
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
  // The main context of the loaded store (one per container); null before a successful load.
  virtual std::shared_ptr<ManagedObjectContext> viewContext() = 0;
};

// Makes containers by name (initWithName:). Any thread.
class PersistentStores {
 public:
  virtual ~PersistentStores() = default;
  virtual std::shared_ptr<PersistentContainer> containerWithName(const std::string& name) = 0;
};

}  // namespace platform
