// The vdir address book on real files: cards of each shape and version, bad files skipped,
// deletion into the Trash only of a card as it was read, and the hand-over's end to end.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <cstdlib>
#include <sstream>

#include <glib.h>

#include "desktop/contacts/VCardReader.h"
#include "desktop/contacts/VdirContactStore.h"
#include "kit/Dispatch.h"
#include "samplegen/SampleContacts.h"
#include "sim/Environment.h"

namespace desktop {
namespace {

namespace fs = std::filesystem;

std::optional<std::string> fullName(std::string_view text) {
  auto c = readVCard(text, nullptr);
  return c ? platform::stringFromContact(*c) : std::nullopt;
}

TEST(VCardReaderTest, NamesOfEachShapeAndVersion) {
  EXPECT_EQ(fullName("BEGIN:VCARD\r\nVERSION:3.0\r\nN:Lee;Ann;;;\r\nFN:Ann Lee\r\nEND:VCARD\r\n"), "Ann Lee");
  // Version 4.0 with prefix, middle name and suffix.
  EXPECT_EQ(fullName("BEGIN:VCARD\nVERSION:4.0\nN:Lee;Ann;Marie;Dr.;Jr.\nEND:VCARD\n"), "Dr. Ann Marie Lee Jr.");
  // A formatted name alone stands as the given name.
  EXPECT_EQ(fullName("BEGIN:VCARD\nVERSION:3.0\nFN:Cher\nEND:VCARD\n"), "Cher");
  // An organisation alone.
  EXPECT_EQ(fullName("BEGIN:VCARD\nVERSION:3.0\nN:;;;;\nFN:Acme\nORG:Acme;Sales\nEND:VCARD\n"), "Acme");
  // No name at all.
  EXPECT_EQ(fullName("BEGIN:VCARD\nVERSION:3.0\nTEL:123\nEND:VCARD\n"), std::nullopt);
  // Folded lines and escapes.
  EXPECT_EQ(fullName("BEGIN:VCARD\nVERSION:3.0\nN:Lee\\, Jr;An\n n;;;\nEND:VCARD\n"), "Ann Lee, Jr");
  // Version 2.1, quoted-printable, UTF-8.
  EXPECT_EQ(fullName("BEGIN:VCARD\nVERSION:2.1\nN;CHARSET=UTF-8;ENCODING=QUOTED-PRINTABLE:=C3=96berg;=C3=85sa\nEND:VCARD\n"),
            "Åsa Öberg");
  // Bytes that are not UTF-8 are repaired, not passed on.
  auto bad = fullName("BEGIN:VCARD\nVERSION:3.0\nN:Lee;A\xFFn;;;\nEND:VCARD\n");
  ASSERT_TRUE(bad);
  EXPECT_TRUE(g_utf8_validate(bad->c_str(), -1, nullptr));
}

TEST(VCardReaderTest, NumbersInOrderWithLabels) {
  auto c = readVCard("BEGIN:VCARD\nVERSION:3.0\nN:Lee;Ann;;;\nTEL;TYPE=CELL:+1 555 0100\nTEL;TYPE=HOME:0200\n"
                     "TEL:0300\nUID:abc\nEND:VCARD\n", nullptr);
  ASSERT_TRUE(c);
  ASSERT_EQ(c->phoneNumbers.size(), 3u);
  EXPECT_EQ(c->phoneNumbers[0].stringValue, "+1 555 0100");
  EXPECT_EQ(c->phoneNumbers[0].label, "mobile");
  EXPECT_EQ(c->phoneNumbers[1].label, "home");
  EXPECT_EQ(c->phoneNumbers[2].label, "other");
  EXPECT_EQ(c->identifier, "abc");
  auto v4 = readVCard("BEGIN:VCARD\nVERSION:4.0\nFN:X\nTEL;VALUE=uri;TYPE=cell:tel:+1-555\nEND:VCARD\n", nullptr);
  ASSERT_TRUE(v4);
  EXPECT_EQ(v4->phoneNumbers.at(0).stringValue, "+1-555");
}

TEST(VCardReaderTest, MalformedLinesAreDroppedAndTheRestIsRead) {
  auto c = readVCard("\r\nBEGIN:VCARD\nVERSION:3.0\n"
                     "a.b\nX;Y=abc\nTEL;TY,E=CELL:999\nNOTE\ng.:x\n"  // dropped, each one
                     "item1.TEL;TYPE=CELL:+1 555\nTEL;HOME,VOICE:0200\n"
                     "N;ENCODING=QUOTED-PRINTABLE:Lee;J.R.=\nR. =C3=96\nEND:VCARD", nullptr);
  ASSERT_TRUE(c);
  ASSERT_EQ(c->phoneNumbers.size(), 2u);
  EXPECT_EQ(c->phoneNumbers[0].stringValue, "+1 555");
  EXPECT_EQ(c->phoneNumbers[0].label, "mobile");
  EXPECT_EQ(c->phoneNumbers[1].label, "home");
  // The line after a soft break is value text, however it looks (the parser keeps the break
  // itself in the text).
  EXPECT_EQ(c->givenName.substr(0, 4), "J.R.");
  EXPECT_NE(c->givenName.find("R. \xC3\x96"), std::string::npos);
  EXPECT_EQ(c->familyName, "Lee");
}

TEST(VCardReaderTest, WhatIsNotACardIsRefusedWithAReason) {
  std::string why;
  EXPECT_FALSE(readVCard("", &why));
  EXPECT_EQ(why, "the file is empty");
  EXPECT_FALSE(readVCard(std::string("BEGIN:VCARD\n\0\x01\x02", 15), &why));
  EXPECT_EQ(why, "the file holds binary data, not a vCard");
  EXPECT_FALSE(readVCard("hello world", &why));
  EXPECT_FALSE(readVCard("BEGIN:VCARD\nVERSION:3.0\nN:Lee;Ann", &why));
  EXPECT_EQ(why, "the card has no END:VCARD (truncated?)");
  EXPECT_FALSE(readVCard(std::string(kMaxVCardBytes + 1, 'a'), &why));
}

// A scratch folder, removed with everything in it.
class ScratchDir {
 public:
  ScratchDir() {
    char pattern[] = "/tmp/solvanta-vdir-XXXXXX";
    path_ = ::mkdtemp(pattern);
  }
  ~ScratchDir() {
    std::error_code ec;
    fs::remove_all(path_, ec);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

struct VdirTest : ::testing::Test {
  sim::Environment env;
  ScratchDir dir;
  std::string root = dir.path() + "/contacts";
  std::vector<std::string> warnings;
  std::shared_ptr<PermissionStore> permissions =
      std::make_shared<PermissionStore>(dir.path() + "/permissions.json", PermissionPrompt{});
  std::shared_ptr<Trash> trash = std::make_shared<Trash>(dir.path() + "/Trash");
  VdirContactStore store{{root, permissions, trash, [this](const std::string& w) { warnings.push_back(w); }}};

  void SetUp() override {
    fs::create_directories(root + "/work");
    permissions->set(PermissionKind::Contacts, platform::AuthorizationStatus::Authorized);
  }
  void write(const std::string& name, const std::string& text) { std::ofstream(root + "/" + name, std::ios::binary) << text; }
  std::vector<platform::ContactPtr> all() {
    std::vector<platform::ContactPtr> out;
    platform::Error error;
    EXPECT_TRUE(store.enumerateContactsWithFetchRequest({}, &error, [&](const auto& c, bool*) { out.push_back(c); }));
    return out;
  }
  static std::string vcard(const std::string& n, const std::string& uid) {
    return "BEGIN:VCARD\nVERSION:3.0\nUID:" + uid + "\nN:" + n + "\nTEL:1\nEND:VCARD\n";
  }
};

TEST_F(VdirTest, NestedBooksAreOneStoreAndBadFilesAreSkipped) {
  write("a.vcf", vcard("Lee;Ann;;;", "1"));
  write("work/b.vcf", vcard("Ek;Bo;;;", "2"));
  write("z.vcf", vcard("Ek;Bo;;;", "2"));  // the same UID again, read after work/b.vcf
  write("d.vcf", "\x89PNG\r\n\x1a\n");
  write("notes.txt", vcard("Not;A;;;", "3"));
  write(".hidden.vcf", vcard("Hid;Den;;;", "4"));
  auto book = all();
  ASSERT_EQ(book.size(), 2u);
  EXPECT_EQ(book[0]->givenName, "Ann");
  EXPECT_EQ(book[1]->givenName, "Bo");
  EXPECT_EQ(book[1]->identifier, root + "/work/b.vcf");
  ASSERT_EQ(warnings.size(), 2u);
  EXPECT_NE(warnings[0].find("d.vcf: skipped, the file does not begin with BEGIN:VCARD"), std::string::npos);
  EXPECT_NE(warnings[1].find("z.vcf: skipped, another card has the same UID 2"), std::string::npos);
}

TEST_F(VdirTest, CardsAreInFolderOrderAndReadingAgainReparsesOnlyChangedCards) {
  write("work/a.vcf", vcard("Lee;Ann;;;", "1"));
  write("work-old.vcf", vcard("Ek;Bo;;;", "2"));
  write("x.vcf", vcard("Ro;Cy;;;", "3"));
  auto first = all();
  ASSERT_EQ(first.size(), 3u);
  EXPECT_EQ(first[0]->givenName, "Ann");  // the folder "work" sorts before "work-old.vcf"
  EXPECT_EQ(first[1]->givenName, "Bo");
  // The same size, a new name, and the time of the old file: the inode still tells.
  auto when = fs::last_write_time(root + "/x.vcf");
  write("x.vcf.new", vcard("Ro;Dy;;;", "3"));
  fs::last_write_time(root + "/x.vcf.new", when);
  fs::rename(root + "/x.vcf.new", root + "/x.vcf");
  // Rewritten in place, one second later.
  write("work/a.vcf", vcard("Lee;Ama;;;", "1"));
  fs::last_write_time(root + "/work/a.vcf", when + std::chrono::seconds(1));
  auto second = all();
  ASSERT_EQ(second.size(), 3u);
  EXPECT_EQ(second[0]->givenName, "Ama");
  EXPECT_EQ(second[1], first[1]);  // unchanged: the same parsed contact
  EXPECT_EQ(second[2]->givenName, "Dy");
  EXPECT_EQ(second[2]->identifier, root + "/x.vcf");
}

TEST_F(VdirTest, AMissingFolderIsAnEmptyBookAndDeniedAccessReadsNothing) {
  fs::remove_all(root);
  EXPECT_TRUE(all().empty());
  EXPECT_EQ(warnings.size(), 1u);
  permissions->set(PermissionKind::Contacts, platform::AuthorizationStatus::Denied);
  platform::Error error;
  EXPECT_FALSE(store.enumerateContactsWithFetchRequest({}, &error, [](const auto&, bool*) {}));
  EXPECT_EQ(error.code, 100);
}

TEST_F(VdirTest, DeletingMovesTheCardToTheTrashWithARecord) {
  write("a.vcf", vcard("Lee;Ann;;;", "1"));
  auto book = all();
  platform::SaveRequest request;
  request.deleteContact(*book.at(0));
  platform::Error error;
  ASSERT_TRUE(store.executeSaveRequest(request, &error)) << error.localizedDescription;
  EXPECT_FALSE(fs::exists(root + "/a.vcf"));
  EXPECT_TRUE(fs::exists(dir.path() + "/Trash/files/a.vcf"));
  std::ifstream info(dir.path() + "/Trash/info/a.vcf.trashinfo");
  std::stringstream text;
  text << info.rdbuf();
  EXPECT_NE(text.str().find("[Trash Info]\nPath=" + percentEncodePath(root + "/a.vcf")), std::string::npos);
  EXPECT_NE(text.str().find("DeletionDate="), std::string::npos);
  // Deleting it again: it is gone, and nothing else is touched.
  EXPECT_FALSE(store.executeSaveRequest(request, &error));
}

TEST_F(VdirTest, ACardChangedOrRemovedSinceItWasReadIsNotDeleted) {
  write("a.vcf", vcard("Lee;Ann;;;", "1"));
  write("b.vcf", vcard("Ek;Bo;;;", "2"));
  auto book = all();
  write("a.vcf", vcard("Lee;Ann;;;", "1") + "\n");
  platform::SaveRequest changed;
  changed.deleteContact(*book.at(0));
  platform::Error error;
  EXPECT_FALSE(store.executeSaveRequest(changed, &error));
  EXPECT_EQ(error.code, 201);
  EXPECT_TRUE(fs::exists(root + "/a.vcf"));
  fs::remove(root + "/b.vcf");
  platform::SaveRequest removed;
  removed.deleteContact(*book.at(1));
  EXPECT_FALSE(store.executeSaveRequest(removed, &error));
  EXPECT_FALSE(fs::exists(dir.path() + "/Trash/files/b.vcf"));
  // A contact this store never read is refused.
  platform::Contact stranger;
  stranger.identifier = root + "/a.vcf.other";
  platform::SaveRequest unknown;
  unknown.deleteContact(stranger);
  EXPECT_FALSE(store.executeSaveRequest(unknown, &error));
}

TEST_F(VdirTest, TheSampleBookReadsWholeButForItsBrokenCard) {
  fs::remove_all(root);
  std::string error;
  ASSERT_TRUE(samplegen::writeSampleAddressBook(root, &error)) << error;
  auto book = all();
  ASSERT_EQ(book.size(), static_cast<std::size_t>(samplegen::kSampleContactCount));
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_NE(warnings[0].find("broken.vcf: skipped"), std::string::npos);
  std::vector<std::string> names;
  for (const auto& c : book) names.push_back(platform::stringFromContact(*c).value_or("No Name"));
  EXPECT_NE(std::find(names.begin(), names.end(), "J\xC3\xBCrgen M\xC3\xBCller"), names.end());
  EXPECT_NE(std::find(names.begin(), names.end(), "Karl-Erik Lindqvist, Jr"), names.end());
  EXPECT_EQ(std::count(names.begin(), names.end(), "Ann Lee"), 2);
  EXPECT_EQ(std::count(names.begin(), names.end(), "Bo Ek"), 2);
  EXPECT_EQ(std::count(names.begin(), names.end(), "No Name"), 1);
}

}  // namespace
}  // namespace desktop
