#include "vault/SetPin.h"

#include "kit/Console.h"
#include "kit/Fatal.h"
#include "shared/PreferenceKeys.h"
#include "shared/ViewHelpers.h"
#include "vault/SecurityQuestionVC.h"
#include "vault/VaultFixture.h"

namespace vault {
namespace {

using SetPinTest = VaultFixture;

const kit::Color kGrey = kit::Color::gray();
const kit::Color kRed{1, 0, 0, 1};

std::vector<kit::Color> tints(SetPin& pin) {
  std::vector<kit::Color> out;
  for (auto* dot : {&*pin.dot1, &*pin.dot2, &*pin.dot3, &*pin.dot4}) out.push_back(dot->tintColor().value_or(kit::Color::clear()));
  return out;
}

TEST_F(SetPinTest, KeypadHoldsTwelveKeysWithTheEmptyKeyAndTheCross) {
  auto pin = showPin(std::nullopt);
  ASSERT_EQ(pin->NumberCollectionView->visibleCells().size(), 12u);
  std::string labels;
  for (const auto& cell : pin->NumberCollectionView->visibleCells()) {
    labels += "[" + dynamic_cast<NumberCell&>(*cell).numberCell->text().value_or("?") + "]";
  }
  EXPECT_EQ(labels, "[1][2][3][4][5][6][7][8][9][][0][\u00D7]");
  EXPECT_EQ(characterCount("12\u00D7"), 3u);
}

TEST_F(SetPinTest, CreatingAPinTakesItTwiceThenAsksForTheQuestion) {
  auto pin = showPin(std::nullopt);
  press(*pin, "123");
  EXPECT_EQ(pin->password, "123");
  EXPECT_FALSE(pin->mainPassword);
  EXPECT_EQ(pin->pageTitle->text(), "Set Pin");
  press(*pin, "4");
  EXPECT_EQ(pin->mainPassword, "1234");
  EXPECT_EQ(pin->pageTitle->text(), "Confirm Pin");
  EXPECT_EQ(defaults().stringForKey(shared::CHANGE_TITLE), "Confirm Pin");
  press(*pin, "5");  // before the clearing: nothing is added
  EXPECT_EQ(pin->password, "1234");
  world.env.advance(0.2);
  EXPECT_EQ(pin->password, "");
  EXPECT_EQ(tints(*pin), std::vector<kit::Color>(4, kGrey));

  press(*pin, "1234");
  EXPECT_EQ(defaults().stringForKey(shared::SAVE_PIN), "1234");
  EXPECT_FALSE(defaults().boolForKey(shared::IS_PIN_SET));
  EXPECT_EQ(topIdentifier(), "SetPin");
  world.env.advance(0.2);
  ASSERT_EQ(topIdentifier(), "SecurityQuestionVC");
  EXPECT_EQ(dynamic_cast<SecurityQuestionVC&>(*top()).isFrom, "setpin");
  EXPECT_EQ(pin->password, "");
  // The "" written at the match is overwritten at once.
  EXPECT_EQ(defaults().stringForKey(shared::CHANGE_TITLE), "Confirm Pin");
}

TEST_F(SetPinTest, AMismatchedConfirmationIsSilentAndKeepsTheFirstEntry) {
  auto pin = showPin("setpasscode");
  press(*pin, "1234");
  world.env.advance(0.2);
  press(*pin, "4321");
  EXPECT_TRUE(toasts().empty());
  EXPECT_EQ(pin->mainPassword, "1234");
  EXPECT_FALSE(defaults().objectForKey(shared::SAVE_PIN).isString());
  world.env.advance(0.2);
  EXPECT_EQ(pin->password, "");
  EXPECT_EQ(topIdentifier(), "SetPin");
  press(*pin, "1234");
  world.env.advance(0.2);
  EXPECT_EQ(topIdentifier(), "SecurityQuestionVC");
}

TEST_F(SetPinTest, TheCrossCountsAsACharacterBeforeItClears) {
  auto pin = showPin("newpass");
  press(*pin, "12x");
  EXPECT_EQ(pin->password, "");
  EXPECT_FALSE(pin->mainPassword);
  press(*pin, "123x");
  EXPECT_EQ(pin->mainPassword, "123\u00D7");
  EXPECT_EQ(pin->password, "");
  EXPECT_EQ(pin->pageTitle->text(), "Confirm Pin");
  world.env.advance(0.2);
  press(*pin, "123x");
  EXPECT_EQ(defaults().stringForKey(shared::SAVE_PIN), "123\u00D7");
}

TEST_F(SetPinTest, TheRightPinOpensTheHubHalfASecondLater) {
  defaults().setObject(kit::Value(std::string("2580")), shared::SAVE_PIN);
  auto pin = showPin("security");
  kit::ConsoleCapture console;
  press(*pin, "2580");
  EXPECT_TRUE(console.contains("pass1  Optional(\"2580\")"));
  EXPECT_TRUE(console.contains("valueofisfrom  Optional(\"security\")"));
  world.env.advance(0.4);
  EXPECT_EQ(topIdentifier(), "SetPin");
  EXPECT_EQ(pin->password, "2580");
  world.env.advance(0.1);
  EXPECT_EQ(topIdentifier(), "SecretSpaceVC");
  EXPECT_EQ(defaults().integerForKey(shared::FULLSERVICECOUNT), 1);
}

TEST_F(SetPinTest, AWrongPinShakesReddensAndClearsAfterASecond) {
  defaults().setObject(kit::Value(std::string("2580")), shared::SAVE_PIN);
  auto pin = showPin("security");
  press(*pin, "1111");
  EXPECT_EQ(toasts(), std::vector<std::string>{"Wrong Pin"});
  EXPECT_EQ(tints(*pin), std::vector<kit::Color>(4, kRed));
  EXPECT_EQ(pin->passwordView->borderColor(), kRed);
  EXPECT_EQ(pin->passwordView->borderWidth(), 2.0);
  for (kit::View* shaken : {static_cast<kit::View*>(&*pin->passwordView), static_cast<kit::View*>(&*pin->lockBtn)}) {
    ASSERT_TRUE(shaken->transformAnimation().has_value());
    const kit::TransformAnimation& spring = *shaken->transformAnimation();
    EXPECT_EQ(spring.from, (kit::AffineTransform{1, 0, 0, 1, 20, 0}));
    EXPECT_EQ(spring.duration, 0.4);
    EXPECT_EQ(spring.damping, 0.2);
    EXPECT_EQ(spring.initialVelocity, 1.0);
    EXPECT_TRUE(shaken->transform().isIdentity());
  }
  press(*pin, "2");  // ignored: already four characters
  EXPECT_EQ(pin->password, "1111");
  world.env.advance(1.0);
  EXPECT_EQ(pin->password, "");
  EXPECT_EQ(pin->passwordView->borderWidth(), 0.0);
  EXPECT_EQ(tints(*pin), std::vector<kit::Color>(4, kGrey));
  EXPECT_EQ(topIdentifier(), "SetPin");
  press(*pin, "2580");
  world.env.advance(0.5);
  EXPECT_EQ(topIdentifier(), "SecretSpaceVC");
}

TEST_F(SetPinTest, ThreeDigitsAndTheCrossAreAWrongEntryThatEndsEmpty) {
  defaults().setObject(kit::Value(std::string("2580")), shared::SAVE_PIN);
  auto pin = showPin("security");
  press(*pin, "258x");
  EXPECT_EQ(toasts(), std::vector<std::string>{"Wrong Pin"});
  EXPECT_EQ(pin->password, "");
  EXPECT_EQ(tints(*pin), std::vector<kit::Color>(4, kGrey));
  // A digit typed before the pending reset is wiped by it.
  press(*pin, "2");
  EXPECT_EQ(pin->password, "2");
  world.env.advance(1.0);
  EXPECT_EQ(pin->password, "");
}

TEST_F(SetPinTest, TheEmptyKeyLightsADotAndAddsNothing) {
  defaults().setObject(kit::Value(std::string("2580")), shared::SAVE_PIN);
  auto pin = showPin("security");
  const kit::Color accent = shared::colorFromHex("#2485EF");
  press(*pin, " ");
  EXPECT_EQ(pin->password, "");
  EXPECT_EQ(tints(*pin)[0], accent);
  press(*pin, "2580");
  world.env.advance(0.5);
  EXPECT_EQ(topIdentifier(), "SecretSpaceVC");
}

TEST_F(SetPinTest, ResetRemovesThePinAndTheFlagButKeepsTheQuestion) {
  defaults().setObject(kit::Value(std::string("2580")), shared::SAVE_PIN);
  defaults().setBool(true, shared::IS_PIN_SET);
  defaults().setObject(kit::Value(std::string("tokyo")), shared::ANSWER);
  defaults().setObject(kit::Value(std::string("In what city were you born?")), shared::SELECTED_QUESTION);
  auto pin = showPin("reset");
  EXPECT_FALSE(pin->lockBtn->isHidden());
  press(*pin, "2580");
  EXPECT_EQ(topIdentifier(), "SettingVc");
  EXPECT_FALSE(defaults().boolForKey(shared::IS_PIN_SET));
  EXPECT_TRUE(defaults().objectForKey(shared::SAVE_PIN).isNull());
  EXPECT_EQ(defaults().stringForKey(shared::ANSWER), "tokyo");
  EXPECT_EQ(defaults().stringForKey(shared::SELECTED_QUESTION), "In what city were you born?");
}

TEST_F(SetPinTest, ChangingThePinAsksForTheOldOneThenStartsANewCreation) {
  defaults().setObject(kit::Value(std::string("2580")), shared::SAVE_PIN);
  auto pin = showPin("changepasscode");
  EXPECT_EQ(pin->passwordContent->text(), "Confirm your pin");
  press(*pin, "2580");
  ASSERT_EQ(topIdentifier(), "SetPin");
  auto* next = dynamic_cast<SetPin*>(top());
  ASSERT_NE(next, pin.get());
  EXPECT_FALSE(next->isFrom);
}

TEST_F(SetPinTest, StoredPinsOfOddShapes) {
  // A number where text belongs reads as its decimal text.
  defaults().setObject(kit::Value(4321LL), shared::SAVE_PIN);
  auto pin = showPin("security");
  press(*pin, "4321");
  world.env.advance(0.5);
  EXPECT_EQ(topIdentifier(), "SecretSpaceVC");
  // A PIN of five characters can never be typed: four keys are a wrong entry.
  defaults().setObject(kit::Value(std::string("12345")), shared::SAVE_PIN);
  auto other = showPin("security");
  press(*other, "1234");
  EXPECT_EQ(toasts().back(), "Wrong Pin");
  // No PIN at all in a verify mode is a failed precondition.
  defaults().removeObjectForKey(shared::SAVE_PIN);
  auto third = showPin("reset");
  EXPECT_THROW(press(*third, "1"), kit::FatalError);
}

TEST_F(SetPinTest, AnUnknownModeIgnoresAllKeysButTheCrossClearing) {
  auto pin = showPin("elsewhere");
  press(*pin, "12");
  EXPECT_EQ(pin->password, "");
  EXPECT_EQ(pin->pageTitle->text(), "Set Pin");
}

TEST_F(SetPinTest, WhatEachModeShowsAtLoad) {
  defaults().setBool(true, shared::SINGLE_TIME_CALL);
  auto security = showPin("security");
  EXPECT_TRUE(security->firstTimeView->isHidden());
  EXPECT_EQ(security->pageTitle->text(), "Enter Pin");
  EXPECT_EQ(security->passwordContent->text(), "Enter pin to access secret folder");
  EXPECT_TRUE(security->lockBtn->isHidden());
  auto forgot = showPin("forgot_password");
  EXPECT_EQ(forgot->pageTitle->text(), "Set Pin");
  EXPECT_TRUE(forgot->lockBtn->isHidden());
  defaults().setBool(false, shared::SINGLE_TIME_CALL);
  auto first = showPin(std::nullopt);
  EXPECT_FALSE(first->firstTimeView->isHidden());
  first->performAction("createPin");
  EXPECT_TRUE(first->firstTimeView->isHidden());
  EXPECT_TRUE(defaults().boolForKey(shared::SINGLE_TIME_CALL));
}

TEST_F(SetPinTest, LeavingTheScreen) {
  auto fromHub = showPin("newpass");
  const std::size_t depth = nav->viewControllers().size();
  fromHub->performAction("backBtn");
  EXPECT_EQ(nav->viewControllers().size(), depth - 1);
  auto first = showPin(std::nullopt);
  first->performAction("backBtn");
  EXPECT_EQ(topIdentifier(), "HomeVC");
  EXPECT_EQ(nav->viewControllers().size(), depth + 1);  // pushed, not popped
  auto skip = showPin(std::nullopt);
  skip->performAction("openSecretFolder");
  EXPECT_EQ(topIdentifier(), "SecretSpaceVC");
  EXPECT_TRUE(defaults().boolForKey(shared::SINGLE_TIME_CALL));
  auto forgot = showPin("security");
  forgot->performAction("openSecuritypage");
  ASSERT_EQ(topIdentifier(), "SecurityQuestionVC");
  auto& question = dynamic_cast<SecurityQuestionVC&>(*top());
  EXPECT_EQ(question.forgotpassword, "forgotpassword");
  EXPECT_FALSE(question.isFrom);
}

}  // namespace
}  // namespace vault
