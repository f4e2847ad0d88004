// SplashVC: the first screen. It counts 6 down to 0 on a 1-second timer and on the seventh
// tick pushes the interlude (BlankViewController) and asks for an interstitial over itself.
// Main thread.
#pragma once

#include <memory>

#include "kit/Dispatch.h"
#include "kit/ViewController.h"
#include "kit/Views.h"

namespace shell {

class SplashVC : public kit::ViewController {
 public:
  SplashVC();

  int splashCounter = 6;
  std::shared_ptr<kit::Timer> splashTimer;

  void loadView() override;
  // Sets the counter to 6 and starts the repeating timer.
  void viewDidLoad() override;
  // One tick: prints the counter; counts down, or at 0 stops the timer and hands over.
  void updateTimer();
  // Has no effect.
  void letgGOButtonAction(kit::Object* sender);

 private:
  void handOver();
};

// Screens that no code creates.
class ViewController : public kit::ViewController {};
class CleanVC : public kit::ViewController {};

}  // namespace shell
