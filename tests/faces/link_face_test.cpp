// Links that other programs hand over.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/faces/program.h"

namespace zunto::testing {
namespace {

class LinkFace : public FaceProgram {
 protected:
  void SetUp() override { launchReady(); }

  void deliver(const std::string& link) {
    face().desktop().deliverLink(link);
    settle();
  }
};

TEST_F(LinkFace, FillsTheFieldWithTheDecodedMediaLink) {
  deliver("zunto-helper://open?url=https%3A%2F%2Fmedia.example%2Fwatch%3Fv%3D1%26t%3D2");

  EXPECT_EQ(control("Media link").text, "https://media.example/watch?v=1&t=2");
  EXPECT_EQ(application_.activations(), 2);
}

TEST_F(LinkFace, BringsTheWindowBackForALinkWithoutMedia) {
  type("Media link", "https://media.example/kept");
  face().window().close();
  settle();
  deliver("zunto-helper:");

  EXPECT_TRUE(look().isVisible);
  EXPECT_EQ(control("Media link").text, "https://media.example/kept");
}

TEST_F(LinkFace, IgnoresAForeignScheme) {
  face().window().close();
  settle();
  deliver("https://media.example/?url=https%3A%2F%2Fmedia.example%2F");
  deliver("ZUNTO-HELPER://open?url=https%3A%2F%2Fmedia.example%2F");

  EXPECT_FALSE(look().isVisible);
  EXPECT_EQ(application_.activations(), 1);
}

TEST_F(LinkFace, ReplacesTheLinkWhileTheWindowIsOpen) {
  deliver("zunto-helper:?url=https%3A%2F%2Fmedia.example%2Ffirst");
  deliver("zunto-helper:?url=https%3A%2F%2Fmedia.example%2Fsecond");

  EXPECT_EQ(control("Media link").text, "https://media.example/second");
}

TEST_F(LinkFace, IsHeardNoMoreAfterTheEnd) {
  delegate().applicationWillTerminate();
  deliver("zunto-helper:?url=https%3A%2F%2Fmedia.example%2Flate");

  EXPECT_EQ(control("Media link").text, "");
}

}  // namespace
}  // namespace zunto::testing
