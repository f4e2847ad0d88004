#include "desktop/system/JsonPreferenceStore.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <thread>

#include "desktop/system/FileUtil.h"
#include "desktop/testing/DesktopTesting.h"

namespace desktop {
namespace {

struct PreferencesTest : ::testing::Test {
  testing::TempDir dir;
  std::string path = dir / "preferences.json";
  std::vector<std::string> diagnostics;
  DiagnosticHandler previous =
      setDiagnosticHandler([this](const std::string& l) { diagnostics.push_back(l); });
  ~PreferencesTest() override { setDiagnosticHandler(previous); }
};

TEST_F(PreferencesTest, EveryKindOfValueSurvivesASaveAndALoad) {
  kit::Dictionary nested{{"$weird", kit::Value(1)}, {"plain", kit::Value("x")}};
  std::map<std::string, kit::Value> values = {
      {"IS_PIN_SET", kit::Value(true)},
      {"FULLSERVICECOUNT", kit::Value(42)},
      {"big", kit::Value(std::numeric_limits<long long>::max())},
      {"negative", kit::Value(-7)},
      {"real", kit::Value(1.0)},
      {"pi", kit::Value(3.141592653589793)},
      {"inf", kit::Value(std::numeric_limits<double>::infinity())},
      {"SAVE_PIN", kit::Value("1234")},
      {"data", kit::Value(kit::Data{0, 1, 2, 250, 255})},
      {"emptyData", kit::Value(kit::Data{})},
      {"CONTACT_DATA_NAME",
       kit::Value(kit::Array{kit::Value("Ann"), kit::Value(2), kit::Value(false)})},
      {"dict", kit::Value(kit::Dictionary{{"inner", kit::Value(nested)}, {"n", kit::Value(0.5)}})},
      {"$tagged", kit::Value(kit::Dictionary{{"$data", kit::Value("not bytes")}})},
  };
  {
    JsonPreferenceStore store(path);
    for (const auto& [key, value] : values) store.setObject(value, key);
  }
  JsonPreferenceStore reloaded(path);
  for (const auto& [key, value] : values) EXPECT_EQ(reloaded.objectForKey(key), value) << key;
  EXPECT_TRUE(reloaded.objectForKey("absent").isNull());
  EXPECT_TRUE(reloaded.objectForKey("real").isReal());
  EXPECT_TRUE(reloaded.objectForKey("FULLSERVICECOUNT").isInteger());

  reloaded.setObject(kit::Value(std::nan("")), "nan");
  ASSERT_TRUE(JsonPreferenceStore(path).objectForKey("nan").asReal());
  EXPECT_TRUE(std::isnan(*JsonPreferenceStore(path).objectForKey("nan").asReal()));
  EXPECT_TRUE(diagnostics.empty());
}

TEST_F(PreferencesTest, TheFileIsPlainJsonWrittenWhole) {
  JsonPreferenceStore store(path);
  store.setBool(true, "IS_PIN_SET");
  store.setInteger(3, "FULLSERVICECOUNT");
  store.setURL(std::nullopt, "SAVE_PIN");  // clearing a key that was never set
  auto text = readWholeFile(path);
  ASSERT_TRUE(text);
  EXPECT_EQ(*text, "{\n  \"FULLSERVICECOUNT\": 3,\n  \"IS_PIN_SET\": true\n}\n");
  store.removeObjectForKey("FULLSERVICECOUNT");
  EXPECT_EQ(*readWholeFile(path), "{\n  \"IS_PIN_SET\": true\n}\n");
  struct stat st {};
  ASSERT_EQ(::stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  EXPECT_EQ(testing::listFolder(dir.path()), std::vector<std::string>{"preferences.json"});
}

TEST_F(PreferencesTest, DamagedFileIsSetAsideAndTheStoreStartsEmpty) {
  testing::writeBytes(path, {'{', '"', 'a', '"', ':'});
  JsonPreferenceStore store(path);
  EXPECT_TRUE(store.objectForKey("a").isNull());
  ASSERT_EQ(diagnostics.size(), 1u);
  EXPECT_NE(diagnostics[0].find("damaged"), std::string::npos);
  EXPECT_EQ(readWholeFile(path + ".bad"), std::string("{\"a\":"));
  store.setInteger(1, "a");
  EXPECT_EQ(JsonPreferenceStore(path).integerForKey("a"), 1);
  // A file holding JSON that is not an object is damaged too.
  testing::writeBytes(path, {'[', '1', ']'});
  EXPECT_TRUE(JsonPreferenceStore(path).objectForKey("a").isNull());
}

TEST_F(PreferencesTest, AFailedWriteKeepsTheValueForThisRun) {
  JsonPreferenceStore store(dir / "missing-folder/preferences.json");
  store.setInteger(5, "FULLSERVICECOUNT");
  EXPECT_EQ(store.integerForKey("FULLSERVICECOUNT"), 5);
  ASSERT_EQ(diagnostics.size(), 1u);
  EXPECT_NE(diagnostics[0].find("cannot"), std::string::npos);
}

TEST_F(PreferencesTest, StoringWhatIsStoredLeavesTheFileAloneUntilAWriteFails) {
  JsonPreferenceStore store(path);
  store.setObject(kit::Value(0.0), "last_backoff");
  store.setObject(kit::Value("x"), "text");
  // A marker in place of the file shows whether the next calls write it.
  testing::writeBytes(path, {'m'});
  store.setObject(kit::Value(0.0), "last_backoff");
  store.setObject(kit::Value("x"), "text");
  store.removeObjectForKey("never_set");
  EXPECT_EQ(readWholeFile(path), std::string("m"));
  // Same number, other kind or other bits: written.
  store.setObject(kit::Value(-0.0), "last_backoff");
  EXPECT_TRUE(std::signbit(*JsonPreferenceStore(path).objectForKey("last_backoff").asReal()));
  testing::writeBytes(path, {'m'});
  store.setInteger(0, "last_backoff");
  EXPECT_TRUE(JsonPreferenceStore(path).objectForKey("last_backoff").isInteger());

  // After a failed write the same value is written again, and lands once the folder exists.
  std::string later = dir / "later/preferences.json";
  JsonPreferenceStore pending(later);
  pending.setInteger(5, "FULLSERVICECOUNT");
  ASSERT_FALSE(readWholeFile(later));
  ASSERT_TRUE(std::filesystem::create_directories(dir / "later"));
  pending.setInteger(5, "FULLSERVICECOUNT");
  EXPECT_EQ(JsonPreferenceStore(later).integerForKey("FULLSERVICECOUNT"), 5);
}

TEST_F(PreferencesTest, WritersOnManyThreadsLoseNothing) {
  JsonPreferenceStore store(path);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&store, t] {
      for (int i = 0; i < 25; ++i)
        store.setInteger(i, "k" + std::to_string(t) + "-" + std::to_string(i));
    });
  }
  for (auto& t : threads) t.join();
  JsonPreferenceStore reloaded(path);
  for (int t = 0; t < 4; ++t) {
    for (int i = 0; i < 25; ++i)
      EXPECT_EQ(reloaded.integerForKey("k" + std::to_string(t) + "-" + std::to_string(i)), i);
  }
}

TEST(PreferenceDecoding, TagsThatDoNotFitAreOrdinaryDictionaries) {
  auto values = decodeValues(
      R"({"a": {"$data": "not base64!"}, "b": {"$real": 1}, "c": {"$data": "AAE=", "x": 1}})");
  ASSERT_TRUE(values);
  EXPECT_TRUE((*values)["a"].isDictionary());
  EXPECT_TRUE((*values)["b"].isDictionary());
  EXPECT_TRUE((*values)["c"].isDictionary());
  auto data = decodeValues(R"({"d": {"$data": "AAE="}})");
  ASSERT_TRUE(data);
  EXPECT_EQ((*data)["d"], kit::Value(kit::Data{0, 1}));
  EXPECT_FALSE(decodeValues("not json"));
  EXPECT_FALSE(decodeValues("42"));
}

}  // namespace
}  // namespace desktop
