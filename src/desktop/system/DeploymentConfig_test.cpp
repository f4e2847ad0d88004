#include "desktop/system/DeploymentConfig.h"

#include <gtest/gtest.h>

#include "desktop/testing/DesktopTesting.h"

namespace desktop {
namespace {

void writeText(const std::string& path, const std::string& text) {
  testing::writeBytes(path, std::vector<std::uint8_t>(text.begin(), text.end()));
}

void expectDefaults(const DeploymentConfig& config) {
  DeploymentConfig defaults;
  EXPECT_EQ(config.interstitialAdUnitID, defaults.interstitialAdUnitID);
  EXPECT_EQ(config.appOpenAdUnitID, defaults.appOpenAdUnitID);
  EXPECT_EQ(config.bannerAdUnitID, defaults.bannerAdUnitID);
  EXPECT_EQ(config.testDeviceIdentifier, defaults.testDeviceIdentifier);
  EXPECT_EQ(config.houseAdsFillRate, 1.0);
  EXPECT_EQ(config.houseAdsLatencySeconds, 0.5);
}

struct DeploymentConfigTest : ::testing::Test {
  testing::IsolatedHome home;
  testing::ScopedEnv named{"SOLVANTA_DEPLOYMENT", std::nullopt};
  std::string defaultPath() const { return home.folders().config() + "/deployment.json"; }
};

TEST_F(DeploymentConfigTest, TheFileSetsWhatItNamesAndLeavesTheRest) {
  writeText(defaultPath(), R"({
    "interstitialAdUnitID": "inter-1", "appOpenAdUnitID": "open-1", "bannerAdUnitID": "banner-1",
    "testDeviceIdentifier": "device-1", "houseAds": {"fillRate": 0.25, "latencySeconds": 2},
    "storeLink": "https://store.example/app", "supportAddress": "help@example.org"
  })");
  DeploymentConfigLoad load = loadDeploymentConfig(home.folders());
  EXPECT_TRUE(load.fromFile);
  EXPECT_EQ(load.path, defaultPath());
  EXPECT_EQ(load.problem, "");
  EXPECT_EQ(load.config.interstitialAdUnitID, "inter-1");
  EXPECT_EQ(load.config.appOpenAdUnitID, "open-1");
  EXPECT_EQ(load.config.bannerAdUnitID, "banner-1");
  EXPECT_EQ(load.config.testDeviceIdentifier, "device-1");
  EXPECT_EQ(load.config.houseAdsFillRate, 0.25);
  EXPECT_EQ(load.config.houseAdsLatencySeconds, 2.0);
  EXPECT_EQ(load.config.storeLink, "https://store.example/app");
  EXPECT_EQ(load.config.supportAddress, "help@example.org");
  EXPECT_FALSE(load.config.promotionLink);

  writeText(defaultPath(), R"({"houseAds": {"fillRate": 0}})");
  load = loadDeploymentConfig(home.folders());
  EXPECT_TRUE(load.fromFile);
  EXPECT_EQ(load.config.houseAdsFillRate, 0.0);
  EXPECT_EQ(load.config.houseAdsLatencySeconds, 0.5);
  EXPECT_EQ(load.config.houseAdsFormat, "image");
  EXPECT_EQ(load.config.bannerAdUnitID, DeploymentConfig().bannerAdUnitID);
  writeText(defaultPath(), R"({"houseAds": {"format": "video"}})");
  EXPECT_EQ(loadDeploymentConfig(home.folders()).config.houseAdsFormat, "video");
}

TEST_F(DeploymentConfigTest, TheMeasurementHostIsASchemeAndAHostOrNothing) {
  EXPECT_EQ(loadDeploymentConfig(home.folders()).config.measurementHost, "");
  writeText(defaultPath(), R"({"measurement": {"host": "http://127.0.0.1:8765/"}})");
  DeploymentConfigLoad load = loadDeploymentConfig(home.folders());
  EXPECT_EQ(load.problem, "");
  EXPECT_EQ(load.config.measurementHost, "http://127.0.0.1:8765");
  writeText(defaultPath(), R"({"measurement": {}})");
  EXPECT_EQ(loadDeploymentConfig(home.folders()).config.measurementHost, "");

  for (const char* bad : {R"({"measurement": {"host": "ftp://x"}})",
                          R"({"measurement": {"host": "https://x/path"}})",
                          R"({"measurement": {"host": "https://"}})",
                          R"({"measurement": {"host": 5}})",
                          R"({"measurement": {"hots": "https://x"}})",
                          R"({"measurement": "https://x"})"}) {
    SCOPED_TRACE(bad);
    writeText(defaultPath(), bad);
    load = loadDeploymentConfig(home.folders());
    EXPECT_FALSE(load.fromFile);
    EXPECT_NE(load.problem.find("measurement"), std::string::npos) << load.problem;
    EXPECT_EQ(load.config.measurementHost, "");
  }
}

TEST_F(DeploymentConfigTest, TheInfoPlistIsADictionaryOfJSONValues) {
  writeText(defaultPath(), R"({"infoPlist": {"STUVOP_ANALYTICS_DEFAULT_ALLOW_AD_STORAGE": false,
    "STUVOP_APP_ID": "1:2:ios:3", "n": 5, "r": 0.5, "ORVEX_ANALYTICS_CONFIGURATION":
    {"safelisted_events": ["a", "b"]}, "none": null}})");
  DeploymentConfigLoad load = loadDeploymentConfig(home.folders());
  EXPECT_EQ(load.problem, "");
  const kit::Dictionary& info = load.config.infoPlist;
  EXPECT_EQ(info.at("STUVOP_ANALYTICS_DEFAULT_ALLOW_AD_STORAGE"), kit::Value(false));
  EXPECT_EQ(info.at("STUVOP_APP_ID"), kit::Value("1:2:ios:3"));
  EXPECT_EQ(info.at("n"), kit::Value(5));
  EXPECT_EQ(info.at("r"), kit::Value(0.5));
  EXPECT_TRUE(info.at("none").isNull());
  const kit::Dictionary* nested = info.at("ORVEX_ANALYTICS_CONFIGURATION").asDictionary();
  ASSERT_NE(nested, nullptr);
  EXPECT_EQ(nested->at("safelisted_events"), kit::Value(kit::Array{"a", "b"}));

  writeText(defaultPath(), R"({"infoPlist": ["STUVOP_APP_ID"]})");
  load = loadDeploymentConfig(home.folders());
  EXPECT_FALSE(load.fromFile);
  EXPECT_NE(load.problem.find("infoPlist"), std::string::npos) << load.problem;
  EXPECT_TRUE(load.config.infoPlist.empty());
}

TEST_F(DeploymentConfigTest, AMalformedAdUnitNamesTheFileAndKeyAndKeepsTheDefaults) {
  for (const char* bad : {R"("")", R"("open unit 1")", R"("open-1\n")"}) {
    writeText(defaultPath(), std::string(R"({"interstitialAdUnitID": "inter-1", "appOpenAdUnitID": )") + bad + "}");
    DeploymentConfigLoad load = loadDeploymentConfig(home.folders());
    EXPECT_EQ(load.problem, "the deployment file " + defaultPath() +
                                " is not used: \"appOpenAdUnitID\" is not an ad-unit identifier (empty, or with spaces "
                                "or control characters); using the defaults")
        << bad;
    expectDefaults(load.config);
  }
}

TEST_F(DeploymentConfigTest, NoFileMeansTheDefaultsQuietly) {
  DeploymentConfigLoad load = loadDeploymentConfig(home.folders());
  EXPECT_FALSE(load.fromFile);
  EXPECT_EQ(load.problem, "");
  expectDefaults(load.config);
  EXPECT_FALSE(load.config.interstitialAdUnitID);  // the app keeps its own defaults
}

TEST_F(DeploymentConfigTest, TheVariableNamesAnotherFileWhichMustExist) {
  writeText(defaultPath(), R"({"bannerAdUnitID": "from-default"})");
  std::string other = home.dir() / "elsewhere.json";
  writeText(other, R"({"bannerAdUnitID": "from-variable"})");
  {
    testing::ScopedEnv set("SOLVANTA_DEPLOYMENT", other);
    DeploymentConfigLoad load = loadDeploymentConfig(home.folders());
    EXPECT_EQ(load.path, other);
    EXPECT_EQ(load.config.bannerAdUnitID, "from-variable");
  }
  testing::ScopedEnv missing("SOLVANTA_DEPLOYMENT", home.dir() / "missing.json");
  DeploymentConfigLoad load = loadDeploymentConfig(home.folders());
  EXPECT_FALSE(load.fromFile);
  EXPECT_NE(load.problem.find("missing.json"), std::string::npos);
  expectDefaults(load.config);
}

TEST_F(DeploymentConfigTest, ABadFileGivesTheDefaultsAndSaysWhy) {
  struct Case {
    std::string text;
    std::string hint;
  };
  const Case cases[] = {
      {R"({"bannerAdUnitID": "b", )", "not valid JSON"},
      {R"(["bannerAdUnitID"])", "top level"},
      {R"({"bannerAdUnitID": 42})", "\"bannerAdUnitID\" must be a string"},
      {R"({"houseAds": {"fillRate": 1.5}})", "\"houseAds.fillRate\" is out of range"},
      {R"({"houseAds": {"fillRate": "1"}})", "\"houseAds.fillRate\" must be a number"},
      {R"({"houseAds": {"latencySeconds": -1}})", "\"houseAds.latencySeconds\" is out of range"},
      {R"({"houseAds": {"filRate": 0.5}})", "unknown key \"houseAds.filRate\""},
      {R"({"houseAds": 0.5})", "\"houseAds\" must be an object"},
      {R"({"houseAds": {"format": "gif"}})", "\"houseAds.format\" must be \"image\" or \"video\""},
      {R"({"houseAds": {"format": 1}})", "\"houseAds.format\" must be \"image\" or \"video\""},
      {R"({"bannerAdUnitId": "b"})", "unknown key \"bannerAdUnitId\""},
  };
  for (const Case& c : cases) {
    writeText(defaultPath(), c.text);
    DeploymentConfigLoad load = loadDeploymentConfig(home.folders());
    EXPECT_FALSE(load.fromFile) << c.text;
    EXPECT_NE(load.problem.find(c.hint), std::string::npos) << load.problem;
    EXPECT_NE(load.problem.find(defaultPath()), std::string::npos) << load.problem;
    expectDefaults(load.config);
  }
  // A folder where the file should be cannot be read.
  DeploymentConfigLoad folder = readDeploymentConfig(home.dir().path());
  EXPECT_FALSE(folder.fromFile);
  EXPECT_NE(folder.problem.find(home.dir().path()), std::string::npos);
}

}  // namespace
}  // namespace desktop
