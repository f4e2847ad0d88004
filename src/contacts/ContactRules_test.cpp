// The address book's rules below the screens: the full-name formatter on cards of each shape,
// the store's name matching, and deleting by name.
#include <gtest/gtest.h>

#include "contacts/ContactDeletion.h"
#include "kit/Console.h"
#include "platform/ContactStore.h"
#include "sim/World.h"

namespace contacts {
namespace {

platform::Contact card(std::string given, std::string family, std::string org = {}) {
  platform::Contact c;
  c.givenName = std::move(given);
  c.familyName = std::move(family);
  c.organizationName = std::move(org);
  return c;
}

TEST(FullNameTest, CardsOfEachShape) {
  EXPECT_EQ(platform::stringFromContact(card("Ann", "Lee")), "Ann Lee");
  EXPECT_EQ(platform::stringFromContact(card("Ann", "")), "Ann");
  EXPECT_EQ(platform::stringFromContact(card("", "Lee")), "Lee");
  // The organisation stands in only when there is no name at all.
  EXPECT_EQ(platform::stringFromContact(card("", "", "Acme")), "Acme");
  EXPECT_EQ(platform::stringFromContact(card("Ann", "Lee", "Acme")), "Ann Lee");
  EXPECT_EQ(platform::stringFromContact(card("", "")), std::nullopt);
  platform::Contact full = card("Ann", "Lee");
  full.namePrefix = "Dr.";
  full.middleName = "Marie";
  full.nameSuffix = "Jr.";
  EXPECT_EQ(platform::stringFromContact(full), "Dr. Ann Marie Lee Jr.");
  // Parts are joined as they stand: a blank inside a part survives, so these two differ.
  EXPECT_EQ(platform::stringFromContact(card("Ann ", "Lee")), "Ann  Lee");
  EXPECT_EQ(platform::stringFromContact(card("Åsa", "Öberg")), "Åsa Öberg");
}

TEST(NameMatchTest, WordsStartWordsCaseBlind) {
  auto ann = card("Ann", "Lee-Smith");
  EXPECT_TRUE(platform::contactMatchesName(ann, "ann"));
  EXPECT_TRUE(platform::contactMatchesName(ann, "AN LE"));
  EXPECT_TRUE(platform::contactMatchesName(ann, "smi"));
  EXPECT_FALSE(platform::contactMatchesName(ann, "nn"));
  EXPECT_FALSE(platform::contactMatchesName(ann, "Ann Bo"));
  EXPECT_FALSE(platform::contactMatchesName(ann, ""));
  EXPECT_FALSE(platform::contactMatchesName(ann, "   "));
  EXPECT_TRUE(platform::contactMatchesName(card("", "", "Acme Corp"), "corp"));
}

struct DeletionTest : ::testing::Test {
  sim::World world;
  kit::ConsoleCapture console;
  sim::ContactStore& book() { return world.platform.contacts(); }
  void SetUp() override { book().setStatus(platform::AuthorizationStatus::Authorized); }
};

TEST_F(DeletionTest, NoMatchChangesNothing) {
  book().setContacts({sim::contact("Ann", "Lee")});
  deleteContactNamed("Bob");
  EXPECT_TRUE(console.contains("No contacts found"));
  EXPECT_EQ(book().contacts().size(), 1u);
}

TEST_F(DeletionTest, OnlyTheFirstOfSeveralMatchesGoes) {
  book().setContacts({sim::contact("Ann", "Lee", {"1"}), sim::contact("Ann", "Berg", {"2"}),
                      sim::contact("Anna", "Ek", {"3"})});
  auto first = book().contacts()[0]->identifier;
  deleteContactNamed("Ann");
  EXPECT_TRUE(console.contains("Success, You deleted the user"));
  EXPECT_EQ(book().deletedIdentifiers(), std::vector<std::string>{first});
  ASSERT_EQ(book().contacts().size(), 2u);
  // By given name alone, the store's first match goes, whichever row the name came from.
  deleteContactNamed("Ann");
  EXPECT_EQ(book().contacts().size(), 1u);
  EXPECT_EQ(book().contacts()[0]->familyName, "Ek");
}

TEST_F(DeletionTest, FailuresAreOnlyPrinted) {
  book().setContacts({sim::contact("Ann", "Lee")});
  book().failSaves(true);
  deleteContactNamed("Ann Lee");
  EXPECT_EQ(console.count("Error = Error Domain=CNErrorDomain Code=500 \"The save request failed.\""), 1);
  EXPECT_EQ(book().contacts().size(), 1u);
  book().setStatus(platform::AuthorizationStatus::Denied);
  console.clear();
  deleteContactNamed("Ann Lee");
  EXPECT_FALSE(console.contains("No contacts found"));
  EXPECT_EQ(console.lines().size(), 1u);
}

}  // namespace
}  // namespace contacts
