#include <gtest/gtest.h>

#include "kit/Fatal.h"

int main(int argc, char** argv) {
  GTEST_FLAG_SET(shuffle, true);
  testing::InitGoogleTest(&argc, argv);
  kit::setFatalHandler(&kit::throwingFatalHandler);
  return RUN_ALL_TESTS();
}
