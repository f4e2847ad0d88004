// A button that carries the row and section of the list cell it sits in.
#pragma once

#include "kit/Controls.h"

namespace shared {

class CustomButton : public kit::Button {
 public:
  int row = 0;
  int section = 0;
};

}  // namespace shared
