#include "desktop/system/MeasurementServices.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <set>

#include "desktop/system/FileUtil.h"
#include "desktop/testing/DesktopTesting.h"

namespace desktop {
namespace {

using testing::TempDir;

mode_t modeBits(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 ? (st.st_mode & 07777) : 0;
}

TEST(FileKeychainTest, ItemsSurviveANewInstanceAndLiveInPrivateFiles) {
  TempDir dir;
  std::string folder = dir / "keychain";
  {
    FileKeychain keychain(folder);
    EXPECT_EQ(keychain.stringForKey("svc", "a", nullptr), std::nullopt);
    ASSERT_TRUE(keychain.setString("1", "svc", "a", nullptr));
    ASSERT_TRUE(keychain.setString("x", "other", "a", nullptr));
  }
  FileKeychain again(folder);
  EXPECT_EQ(again.stringForKey("svc", "a", nullptr), "1");
  EXPECT_EQ(again.stringForKey("other", "a", nullptr), "x");
  EXPECT_EQ(modeBits(folder), 0700u);
  EXPECT_EQ(modeBits(again.path()), 0600u);
  ASSERT_TRUE(again.removeKey("svc", "a", nullptr));
  ASSERT_TRUE(again.removeKey("svc", "missing", nullptr));
  EXPECT_EQ(again.stringForKey("svc", "a", nullptr), std::nullopt);
  EXPECT_EQ(again.stringForKey("other", "a", nullptr), "x");
}

TEST(FileKeychainTest, ADamagedFileIsAnErrorAndIsNotOverwritten) {
  TempDir dir;
  FileKeychain keychain(dir.path());
  ASSERT_TRUE(writeFileAtomically(keychain.path(), "{not json", 0600));
  platform::Error error;
  EXPECT_EQ(keychain.stringForKey("s", "a", &error), std::nullopt);
  EXPECT_FALSE(error.localizedDescription.empty());
  EXPECT_FALSE(keychain.setString("1", "s", "a", nullptr));
  EXPECT_EQ(readWholeFile(keychain.path()), "{not json");
}

TEST(OsReleaseTest, ValuesQuotedOrNot) {
  std::string text =
      "# comment\nNAME=\"Debian GNU/Linux\"\nVERSION_ID='12'\nID=debian\n"
      "PRETTY_NAME=\"A \\\"quoted\\\" one\"\nBROKEN=\"open\n";
  EXPECT_EQ(osReleaseValue(text, "NAME"), "Debian GNU/Linux");
  EXPECT_EQ(osReleaseValue(text, "VERSION_ID"), "12");
  EXPECT_EQ(osReleaseValue(text, "ID"), "debian");
  EXPECT_EQ(osReleaseValue(text, "PRETTY_NAME"), "A \"quoted\" one");
  EXPECT_EQ(osReleaseValue(text, "BROKEN"), std::nullopt);
  EXPECT_EQ(osReleaseValue(text, "VERSION"), std::nullopt);  // a prefix of VERSION_ID
}

TEST(LocaleTest, LanguageOfPosixLocaleNames) {
  EXPECT_EQ(languageOfLocale("en_US.UTF-8"), "en-us");
  EXPECT_EQ(languageOfLocale("de_DE@euro"), "de-de");
  EXPECT_EQ(languageOfLocale("fr"), "fr");
  EXPECT_EQ(languageOfLocale("C.UTF-8"), "");
  EXPECT_EQ(languageOfLocale("POSIX"), "");
}

TEST(SystemDeviceFactsTest, ReadsTheGivenOsReleaseAndLocale) {
  TempDir dir;
  ASSERT_TRUE(writeFileAtomically(dir / "os-release", "NAME=Testix\nVERSION_ID=3.1\n", 0644));
  testing::ScopedEnv all("LC_ALL", std::nullopt);
  testing::ScopedEnv messages("LC_MESSAGES", std::nullopt);
  testing::ScopedEnv lang("LANG", std::string("pt_BR.UTF-8"));
  SystemDeviceFacts device(dir / "os-release");
  device.setScreen(390, 844, 2);
  auto facts = device.facts();
  EXPECT_EQ(facts.osName, "Testix");
  EXPECT_EQ(facts.osVersion, "3.1");
  EXPECT_EQ(facts.language, "pt-br");
  EXPECT_FALSE(facts.model.empty());
  EXPECT_EQ(facts.screenWidth, 390);
  EXPECT_EQ(facts.screenScale, 2);
}

TEST(SystemAdvertisingIdentityTest, NoAdvertisingIdentityAndAMakerSpecificVendorID) {
  TempDir dir;
  ASSERT_TRUE(writeFileAtomically(dir / "machine-id", "0123456789abcdef0123456789abcdef\n", 0644));
  SystemAdvertisingIdentity identity(dir / "machine-id");
  EXPECT_EQ(identity.advertisingIdentifier(), std::nullopt);
  EXPECT_EQ(identity.trackingAuthorizationStatus(), std::nullopt);
  auto vendor = identity.identifierForVendor();
  ASSERT_TRUE(vendor);
  EXPECT_EQ(vendor->size(), 36u);
  EXPECT_EQ((*vendor)[14], '4');
  EXPECT_EQ(vendor->find("0123456789"), std::string::npos);
  EXPECT_EQ(identity.identifierForVendor(), vendor);
  SystemAdvertisingIdentity none(dir / "missing");
  EXPECT_EQ(none.identifierForVendor(), std::nullopt);
}

TEST(KernelSecureRandomTest, FillsDistinctBuffers) {
  KernelSecureRandom random;
  std::set<std::string> seen;
  for (int i = 0; i < 4; ++i) {
    std::string bytes(32, '\0');
    ASSERT_TRUE(random.copyBytes(reinterpret_cast<std::uint8_t*>(bytes.data()), bytes.size()));
    seen.insert(bytes);
  }
  EXPECT_EQ(seen.size(), 4u);
}

}  // namespace
}  // namespace desktop
