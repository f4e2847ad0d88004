#include "vault/SecurityQuestionVC.h"

#include "kit/Fatal.h"
#include "shared/PreferenceKeys.h"
#include "shared/ViewHelpers.h"
#include "vault/SecretSpaceVC.h"
#include "vault/VaultFixture.h"

namespace vault {
namespace {

struct SecurityQuestionTest : VaultFixture {
  std::shared_ptr<SecurityQuestionVC> show(std::optional<std::string> forgot, std::optional<std::string> from) {
    auto vc = kit::Storyboard::named("Main").instantiate<SecurityQuestionVC>("SecurityQuestionVC");
    vc->forgotpassword = std::move(forgot);
    vc->isFrom = std::move(from);
    nav->pushViewController(vc, false);
    world.env.runUntilIdle();
    return vc;
  }
  void pick(SecurityQuestionVC& vc, const std::string& question) {
    ASSERT_TRUE(kit::tap(*vc.dropDown));
    ASSERT_TRUE(vc.dropDown->isListShown());
    for (const auto& row : vc.dropDown->listView().subviews()) {
      auto* button = dynamic_cast<kit::Button*>(row.get());
      if (button && button->currentTitle() == question) {
        ASSERT_TRUE(kit::tap(*button));
        return;
      }
    }
    FAIL() << "no row " << question;
  }
  void type(SecurityQuestionVC& vc, const std::string& text) {
    vc.answer->setText(std::string());
    vc.answer->typeText(text);
  }
};

TEST_F(SecurityQuestionTest, AnswersAreLowerCasedAndStoredWithoutAnyWhiteSpace) {
  EXPECT_EQ(answerForStoring("  Rex The\tDog \n"), "rexthedog");
  EXPECT_EQ(answerForStoring("\u00C9COLE\u00A0Centrale\u2029"), "\u00E9colecentrale");
  EXPECT_EQ(answerForStoring(" \t\u3000"), "");
  EXPECT_EQ(answerForChecking("Rex The Dog"), "rex the dog");
}

TEST_F(SecurityQuestionTest, TheDropDownOffersTheSevenQuestionsAndPicksOne) {
  auto vc = show(std::nullopt, "setpin");
  EXPECT_EQ(vc->dropDown->optionArray(), SecurityQuestionVC::questions());
  EXPECT_EQ(vc->dropDown->optionArray().size(), 7u);
  EXPECT_FALSE(vc->selectedQuestion);
  EXPECT_TRUE(vc->dropDown->listView().isHidden());
  pick(*vc, "What was the make of your first car?");
  EXPECT_EQ(vc->selectedQuestion, "What was the make of your first car?");
  EXPECT_EQ(vc->dropDown->text(), "What was the make of your first car?");
  EXPECT_FALSE(vc->dropDown->isListShown());
}

TEST_F(SecurityQuestionTest, TheConfirmButtonIsAHintOnly) {
  auto vc = show(std::nullopt, "setpin");
  const kit::Color accent = shared::colorFromHex("#2485EF");
  vc->answer->typeText("a");
  EXPECT_EQ(vc->confirmBtnColor->backgroundColor(), accent);
  vc->answer->setText(std::string());
  vc->answer->sendActionsForControlEvents(kit::kControlEventEditingChanged);
  EXPECT_EQ(vc->confirmBtnColor->backgroundColor(), kit::Color::gray());
  EXPECT_TRUE(vc->confirmBtnColor->isEnabled());
}

TEST_F(SecurityQuestionTest, StoringTurnsTheLockOnAndAsksForThePin) {
  defaults().setObject(kit::Value(std::string("1234")), shared::SAVE_PIN);
  auto vc = show(std::nullopt, "setpin");
  pick(*vc, "In what city were you born?");
  type(*vc, " New York ");
  vc->performAction("confirnSecurityAnswer");
  EXPECT_EQ(defaults().stringForKey(shared::ANSWER), "newyork");
  EXPECT_EQ(defaults().stringForKey(shared::SELECTED_QUESTION), "In what city were you born?");
  EXPECT_TRUE(defaults().boolForKey(shared::IS_PIN_SET));
  EXPECT_EQ(vc->answer->text(), "");
  ASSERT_EQ(topIdentifier(), "SetPin");
  EXPECT_EQ(dynamic_cast<SetPin&>(*top()).isFrom, "security");
  EXPECT_EQ(defaults().integerForKey(shared::FULLSERVICECOUNT), 0);
}

TEST_F(SecurityQuestionTest, ABlankAnswerIsRefusedAndChangesNothing) {
  auto vc = show(std::nullopt, "setpin");
  vc->performAction("confirnSecurityAnswer");  // a field never typed into
  type(*vc, "  \t ");
  vc->performAction("confirnSecurityAnswer");
  EXPECT_EQ(toasts(), (std::vector<std::string>{"Enter the answer", "Enter the answer"}));
  EXPECT_FALSE(defaults().boolForKey(shared::IS_PIN_SET));
  EXPECT_TRUE(defaults().objectForKey(shared::ANSWER).isNull());
  EXPECT_EQ(topIdentifier(), "SecurityQuestionVC");
}

TEST_F(SecurityQuestionTest, StoringWithNoQuestionRemovesTheStoredOneAndTheCheckNeverPasses) {
  defaults().setObject(kit::Value(std::string("What high school did you attend?")), shared::SELECTED_QUESTION);
  auto vc = show(std::nullopt, std::nullopt);
  type(*vc, "lincoln");
  vc->performAction("confirnSecurityAnswer");
  EXPECT_TRUE(defaults().boolForKey(shared::IS_PIN_SET));
  EXPECT_TRUE(defaults().objectForKey(shared::SELECTED_QUESTION).isNull());
  auto check = show("forgotpassword", std::nullopt);
  pick(*check, "What high school did you attend?");
  type(*check, "lincoln");
  check->performAction("confirnSecurityAnswer");
  EXPECT_EQ(topIdentifier(), "SecurityQuestionVC");
  EXPECT_EQ(toasts().back(), "Entered Security Question or Answer is not matching or it is incorrect. Please retry again.");
  // The PIN screen that follows a store with no PIN ends the process at its first key.
  auto pin = showPin("security");
  EXPECT_THROW(press(*pin, "1"), kit::FatalError);
}

TEST_F(SecurityQuestionTest, TheCheckComparesQuestionAndAnswerAsStored) {
  defaults().setObject(kit::Value(std::string("newyork")), shared::ANSWER);
  defaults().setObject(kit::Value(std::string("In what city were you born?")), shared::SELECTED_QUESTION);
  auto vc = show("forgotpassword", std::nullopt);
  const std::string failure =
      "Entered Security Question or Answer is not matching or it is incorrect. Please retry again.";
  // No question picked.
  type(*vc, "newyork");
  vc->performAction("confirnSecurityAnswer");
  EXPECT_EQ(toasts().back(), failure);
  // Another question.
  pick(*vc, "What is the name of your favorite pet?");
  vc->performAction("confirnSecurityAnswer");
  EXPECT_EQ(topIdentifier(), "SecurityQuestionVC");
  // The right question; the two words as typed at first no longer match.
  pick(*vc, "In what city were you born?");
  type(*vc, "New York");
  vc->performAction("confirnSecurityAnswer");
  EXPECT_EQ(topIdentifier(), "SecurityQuestionVC");
  EXPECT_EQ(vc->answer->text(), "New York");  // kept for another try
  type(*vc, "NEWYORK");
  vc->performAction("confirnSecurityAnswer");
  ASSERT_EQ(topIdentifier(), "SetPin");
  EXPECT_EQ(dynamic_cast<SetPin&>(*top()).isFrom, "forgot_password");
  EXPECT_EQ(defaults().stringForKey(shared::ANSWER), "newyork");
}

TEST_F(SecurityQuestionTest, BackGoesToTheHubAfterANewPinElseHome) {
  auto fromPin = show(std::nullopt, "setpin");
  const std::size_t depth = nav->viewControllers().size();
  fromPin->performAction("openDashBoard");
  EXPECT_EQ(topIdentifier(), "SecretSpaceVC");
  EXPECT_EQ(nav->viewControllers().size(), depth + 1);
  auto forgot = show("forgotpassword", std::nullopt);
  forgot->performAction("openDashBoard");
  EXPECT_EQ(topIdentifier(), "HomeVC");
}

using SecretSpaceTest = VaultFixture;

TEST_F(SecretSpaceTest, ThePinOfferShowsOnlyWhileTheSpaceIsUnprotected) {
  defaults().setObject(kit::Value(std::string("1234")), shared::SAVE_PIN);  // an abandoned set-up
  auto open = kit::Storyboard::named("Main").instantiate<SecretSpaceVC>("SecretSpaceVC");
  nav->pushViewController(open, false);
  EXPECT_FALSE(open->showLockBtn->isHidden());
  ASSERT_TRUE(open->secretAnimationView);
  EXPECT_EQ(open->secretAnimationView->animationName(), "vault");
  EXPECT_TRUE(open->secretAnimationView->isAnimationPlaying());
  EXPECT_EQ(open->secretAnimationView->loopMode(), kit::LoopMode::Loop);
  EXPECT_EQ(open->secretAnimationView->superview(), &*open->secretSpaceView);
  defaults().setBool(true, shared::IS_PIN_SET);
  auto locked = kit::Storyboard::named("Main").instantiate<SecretSpaceVC>("SecretSpaceVC");
  nav->pushViewController(locked, false);
  EXPECT_TRUE(locked->showLockBtn->isHidden());
  defaults().setBool(false, shared::IS_PIN_SET);
  EXPECT_TRUE(locked->showLockBtn->isHidden());  // decided at load only
}

TEST_F(SecretSpaceTest, EveryActionButBackCountsAStep) {
  auto hub = kit::Storyboard::named("Main").instantiate<SecretSpaceVC>("SecretSpaceVC");
  nav->pushViewController(hub, false);
  struct Row {
    const char* action;
    const char* target;
  };
  // The fourth step is over 3: the count starts again from 0 and an ad is asked for.
  std::vector<long> counts = {1, 2, 3, 0};
  std::size_t step = 0;
  for (Row row : {Row{"openSecretFolder", "SecretFilesVC"}, Row{"openSecretContact", "SecretContactVC"},
                  Row{"openSecurityPage", "SecurityQuestionVC"}, Row{"setPasscode", "SetPin"}}) {
    hub->performAction(row.action);
    EXPECT_EQ(topIdentifier(), row.target);
    EXPECT_EQ(defaults().integerForKey(shared::FULLSERVICECOUNT), counts[step++]);
  }
  EXPECT_EQ(dynamic_cast<SetPin&>(*top()).isFrom, "newpass");
  hub->performAction("backBtn");
  EXPECT_EQ(topIdentifier(), "HomeVC");
  EXPECT_EQ(defaults().integerForKey(shared::FULLSERVICECOUNT), 0);
}

}  // namespace
}  // namespace vault
