#include <gtest/gtest.h>

#include "kit/Controls.h"
#include "kit/DropDown.h"
#include "kit/GestureRecognizer.h"
#include "kit/Views.h"

namespace {

TEST(ViewTest, ObserversHearOnlyRealChanges) {
  auto label = kit::make<kit::Label>();
  std::vector<std::string> heard;
  int token = label->addObserver([&](std::string_view p) { heard.emplace_back(p); });
  label->setText("a");
  label->setText("a");
  label->setHidden(false);
  label->setHidden(true);
  label->removeObserver(token);
  label->setText("b");
  EXPECT_EQ(heard, (std::vector<std::string>{"text", "hidden"}));
}

TEST(ViewTest, HierarchyMovesAViewBetweenParents) {
  auto a = kit::make<kit::View>(), b = kit::make<kit::View>(), child = kit::make<kit::View>();
  a->addSubview(child);
  b->addSubview(child);
  EXPECT_TRUE(a->subviews().empty());
  EXPECT_EQ(child->superview(), b.get());
  EXPECT_TRUE(child->isDescendantOf(*b));
  child->removeFromSuperview();
  EXPECT_EQ(child->superview(), nullptr);
}

// Only transforms set inside the block are animated, from where the view was, innermost
// parameters winning; the model holds the final transform at once.
TEST(ViewTest, SpringAnimationsRecordWhereTheTransformCameFrom) {
  auto view = kit::make<kit::View>();
  view->setTransform(kit::AffineTransform{1, 0, 0, 1, 20, 0});
  EXPECT_FALSE(view->transformAnimation().has_value());
  kit::View::animateWithSpring(0.4, 0.1, 0.2, 1.0, [&] {
    kit::View::animateWithSpring(0.3, 0, 0.5, 0, [&] { view->setTransform(kit::AffineTransform::scale(2, 2)); });
    view->setTransform(kit::AffineTransform::identity());
  });
  ASSERT_TRUE(view->transformAnimation().has_value());
  EXPECT_EQ(view->transformAnimation()->from, kit::AffineTransform::scale(2, 2));
  EXPECT_EQ(view->transformAnimation()->duration, 0.4);
  EXPECT_EQ(view->transformAnimation()->delay, 0.1);
  EXPECT_EQ(view->transformAnimation()->serial, 2u);
  EXPECT_TRUE(view->transform().isIdentity());
  // Outside a block, and for no change inside one, nothing is recorded.
  view->setTransform(kit::AffineTransform::scale(3, 3));
  kit::View::animateWithSpring(1, 0, 1, 0, [&] { view->setTransform(kit::AffineTransform::scale(3, 3)); });
  EXPECT_EQ(view->transformAnimation()->serial, 2u);
}

TEST(ButtonTest, TitlesFallBackToTheNormalState) {
  auto button = kit::make<kit::Button>();
  button->setTitle("Select All", kit::kControlStateNormal);
  button->setTitle("Deselect All", kit::kControlStateSelected);
  EXPECT_EQ(button->currentTitle(), "Select All");
  button->setSelected(true);
  EXPECT_EQ(button->currentTitle(), "Deselect All");
  button->setEnabled(false);
  EXPECT_EQ(button->currentTitle(), "Deselect All");
  button->setSelected(false);
  EXPECT_EQ(button->currentTitle(), "Select All");
}

TEST(ControlTest, TapsReachOnlyVisibleEnabledControls) {
  auto parent = kit::make<kit::View>();
  auto button = kit::make<kit::Button>();
  parent->addSubview(button);
  int taps = 0;
  button->addTarget([&](kit::Object* sender) {
    EXPECT_EQ(sender, button.get());
    ++taps;
  }, kit::kControlEventTouchUpInside);
  EXPECT_TRUE(kit::tap(*button));
  button->setEnabled(false);
  EXPECT_FALSE(kit::tap(*button));
  button->setEnabled(true);
  parent->setHidden(true);
  EXPECT_FALSE(kit::tap(*button));
  EXPECT_EQ(taps, 1);
}

TEST(GestureTest, LongPressReportsStateAndLocation) {
  auto view = kit::make<kit::View>(kit::makeRect(0, 0, 100, 100));
  auto press = kit::make<kit::LongPressGestureRecognizer>();
  std::vector<kit::GestureState> states;
  kit::Point where;
  press->addTarget([&](kit::GestureRecognizer& r) {
    states.push_back(r.state());
    where = r.locationInView();
  });
  view->addGestureRecognizer(press);
  press->recognize(kit::GestureState::Began, {10, 20});
  press->recognize(kit::GestureState::Ended, {12, 22});
  EXPECT_EQ(states, (std::vector<kit::GestureState>{kit::GestureState::Began, kit::GestureState::Ended}));
  EXPECT_EQ(where, (kit::Point{12, 22}));
  auto tapper = kit::make<kit::TapGestureRecognizer>();
  int taps = 0;
  tapper->addTarget([&](kit::GestureRecognizer&) { ++taps; });
  view->addGestureRecognizer(tapper);
  EXPECT_TRUE(kit::tap(*view));
  EXPECT_EQ(taps, 1);
}

class DigitsOnly : public kit::TextFieldDelegate {
 public:
  bool shouldChangeCharactersInRange(kit::TextField&, std::size_t location, std::size_t,
                                     const std::string& s) override {
    return location < 4 && s >= "0" && s <= "9";
  }
};

TEST(TextFieldTest, TypingAsksTheDelegateForEachCharacter) {
  auto root = kit::make<kit::View>();
  auto field = kit::make<kit::TextField>();
  root->addSubview(field);
  auto delegate = std::make_shared<DigitsOnly>();
  field->setDelegate(delegate);
  int changes = 0;
  field->addTarget([&](kit::Object*) { ++changes; }, kit::kControlEventEditingChanged);
  field->typeText("1a2345");
  EXPECT_EQ(field->text(), "1234");
  EXPECT_EQ(changes, 4);
  EXPECT_TRUE(field->isFirstResponder());
  root->endEditing(true);
  EXPECT_FALSE(field->isFirstResponder());
}

}  // namespace

// ---- DropDown ----


TEST(DropDownTest, ATouchOpensTheListAndAChoiceClosesItAndTellsTheHandler) {
  auto field = kit::make<kit::DropDown>();
  std::vector<std::string> chosen;
  field->didSelect([&](const std::string& text, int index, int id) {
    chosen.push_back(text + "/" + std::to_string(index) + "/" + std::to_string(id));
  });
  EXPECT_TRUE(kit::tap(*field));
  EXPECT_FALSE(field->isListShown());  // nothing to offer
  field->setOptionArray({"a", "b", "c"});
  field->setOptionIds({10, 20});
  ASSERT_EQ(field->listView().subviews().size(), 3u);
  EXPECT_TRUE(kit::tap(*field));
  EXPECT_TRUE(field->isListShown());
  EXPECT_FALSE(field->listView().isHidden());
  EXPECT_TRUE(kit::tap(*field->listView().subviews()[1]));
  EXPECT_FALSE(field->isListShown());
  EXPECT_EQ(field->text(), "b");
  EXPECT_EQ(field->selectedIndex(), 1);
  EXPECT_TRUE(static_cast<kit::Button&>(*field->listView().subviews()[1]).isSelected());
  EXPECT_FALSE(field->selectOption(3));
  EXPECT_FALSE(field->selectOption(-1));
  EXPECT_TRUE(field->selectOption(2));  // past the ids: the index stands in
  EXPECT_EQ(chosen, (std::vector<std::string>{"b/1/20", "c/2/2"}));
  // New options forget the choice and close the list.
  field->showList();
  field->setOptionArray({"x"});
  EXPECT_FALSE(field->selectedIndex());
  EXPECT_FALSE(field->isListShown());
  EXPECT_EQ(field->listView().subviews().size(), 1u);
}

TEST(DropDownTest, ATapRecognizerOnTheFieldDecidesWhatATouchDoes) {
  auto field = kit::make<kit::DropDown>();
  field->setOptionArray({"a"});
  int recognized = 0;
  auto tap = std::make_shared<kit::TapGestureRecognizer>();
  tap->addTarget([&](kit::GestureRecognizer&) { ++recognized; });
  field->addGestureRecognizer(tap);
  EXPECT_TRUE(kit::tap(*field));
  EXPECT_EQ(recognized, 1);
  EXPECT_FALSE(field->isListShown());
}
