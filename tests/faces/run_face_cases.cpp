#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>

#include "tests/faces/face.h"

namespace zunto::testing {

int runFaceCases(int argc, char** argv, const std::string& faceName) {
  ::testing::InitGoogleMock(&argc, argv);
  const int failure = RUN_ALL_TESTS();
  const ::testing::UnitTest& tests = *::testing::UnitTest::GetInstance();
  const int ran = tests.successful_test_count() + tests.failed_test_count();
  std::printf("%s face: %d cases\n", faceName.c_str(), ran);
  return ran == 0 ? 1 : failure;
}

}  // namespace zunto::testing
