#include "platform/model/layout.h"

#include <gtest/gtest.h>

namespace zunto {
namespace {

TEST(LayoutTest, AStackIsVerticalAndLeadingWithoutSpacingUnlessItSaysOtherwise) {
  const Stack stack;
  EXPECT_EQ(stack.orientation, Orientation::vertical);
  EXPECT_EQ(stack.alignment, StackAlignment::leading);
  EXPECT_EQ(stack.spacing, 0);
}

TEST(LayoutTest, AnElementHasItsNaturalWidthUnlessItSaysOtherwise) {
  EXPECT_EQ(StackItem{Separator()}.width, ElementWidth::natural);
}

TEST(LayoutTest, WhatIsLeftOutOfSizesAndInsetsIsNothing) {
  const Insets insets;
  EXPECT_EQ(insets.leading + insets.trailing + insets.top + insets.minimumBottom, 0);
  const Size size;
  EXPECT_EQ(size.width + size.height, 0);
}

}  // namespace
}  // namespace zunto
