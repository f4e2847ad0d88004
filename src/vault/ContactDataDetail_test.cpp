// The object store of hidden contacts: what a context keeps pending, what a save writes, and
// what a failed save leaves behind.
#include <gtest/gtest.h>

#include "platform/Platform.h"
#include "sim/World.h"
#include "vault/ContactDataDetail.h"

namespace vault {
namespace {

struct ContactStoreTest : ::testing::Test {
  sim::World world;
  std::shared_ptr<platform::PersistentContainer> container = open();

  std::shared_ptr<platform::PersistentContainer> open() {
    auto c = platform::persistentStores().containerWithName("ContactDataModel");
    c->loadPersistentStoresWithCompletionHandler([](const auto&, std::optional<platform::Error> e) { ASSERT_FALSE(e); });
    return c;
  }
  std::vector<std::shared_ptr<ContactDataDetail>> fetch(platform::ManagedObjectContext& context) {
    platform::Error error;
    auto found = context.executeFetchRequest(ContactDataDetail::entity(), &error);
    EXPECT_TRUE(found);
    std::vector<std::shared_ptr<ContactDataDetail>> out;
    for (const auto& o : found ? *found : std::vector<std::shared_ptr<platform::ManagedObject>>{}) {
      out.push_back(std::static_pointer_cast<ContactDataDetail>(o));
    }
    return out;
  }
  std::shared_ptr<ContactDataDetail> add(platform::ManagedObjectContext& context, std::string name) {
    auto r = ContactDataDetail::insertInContext(context);
    r->setContactName(std::move(name));
    r->setContactNumber("1");
    return r;
  }
};

TEST_F(ContactStoreTest, SavedRecordsReachANewContainerAndEqualRecordsStayTwo) {
  auto& context = *container->viewContext();
  add(context, "Ann");
  add(context, "Ann");
  platform::Error error;
  ASSERT_TRUE(context.save(&error));
  auto again = open();
  auto records = fetch(*again->viewContext());
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0]->contactName(), "Ann");
  EXPECT_EQ(records[1]->contactNumber(), "1");
  EXPECT_FALSE(records[0]->isSelected());
}

TEST_F(ContactStoreTest, FetchesSeeUnsavedChangesOfTheirContextOnly) {
  auto& context = *container->viewContext();
  auto kept = add(context, "Ann");
  platform::Error error;
  ASSERT_TRUE(context.save(&error));
  auto pending = add(context, "Bo");
  // The same record is the same object in its context, with its unsaved flag.
  kept->setIsSelected(true);
  auto records = fetch(context);
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0], kept);
  EXPECT_TRUE(records[0]->isSelected());
  EXPECT_EQ(records[1], pending);
  EXPECT_EQ(fetch(*open()->viewContext()).size(), 1u);
  // Deleting an unsaved insert drops it; deleting a saved record hides it until the save.
  context.deleteObject(pending);
  context.deleteObject(kept);
  EXPECT_TRUE(fetch(context).empty());
  EXPECT_EQ(fetch(*open()->viewContext()).size(), 1u);
  ASSERT_TRUE(context.save(&error));
  EXPECT_TRUE(fetch(*open()->viewContext()).empty());
  EXPECT_FALSE(context.hasChanges());
}

TEST_F(ContactStoreTest, AFailedSaveWritesNothingAndKeepsTheChanges) {
  auto& context = *container->viewContext();
  add(context, "Ann");
  world.platform.stores().failSaves("ContactDataModel", true);
  platform::Error error;
  EXPECT_FALSE(context.save(&error));
  EXPECT_EQ(error.code, 640);
  EXPECT_TRUE(context.hasChanges());
  EXPECT_TRUE(fetch(*open()->viewContext()).empty());
  world.platform.stores().failSaves("ContactDataModel", false);
  EXPECT_TRUE(context.save(&error));
  EXPECT_EQ(fetch(*open()->viewContext()).size(), 1u);
}

TEST_F(ContactStoreTest, ASelectionFlagIsSavedWithTheNextSave) {
  auto& context = *container->viewContext();
  auto r = add(context, "Ann");
  platform::Error error;
  ASSERT_TRUE(context.save(&error));
  r->setIsSelected(true);
  EXPECT_FALSE(fetch(*open()->viewContext())[0]->isSelected());
  add(context, "Bo");
  ASSERT_TRUE(context.save(&error));
  EXPECT_TRUE(fetch(*open()->viewContext())[0]->isSelected());
}

}  // namespace
}  // namespace vault
