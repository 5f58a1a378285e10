// The program behind a face: the real logic, with a scripted world and a virtual clock in the place of the
// processor, the network and time.
//
// Owner: the case. Thread: main thread only.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "app/helper_delegate.h"
#include "async/executor.h"
#include "tests/faces/face.h"
#include "tests/fakes/fake_application.h"
#include "tests/fakes/fake_command_runner.h"
#include "tests/fakes/fake_file_system.h"
#include "tests/fakes/fake_host_environment.h"
#include "tests/fakes/fake_process_spawner.h"
#include "tests/fakes/scripted_http_session.h"
#include "tests/fakes/virtual_clock.h"

namespace zunto::testing {

/// The texts of the visible controls of one kind, in order.
[[nodiscard]] std::vector<std::string> textsOf(const SeenWindow& window, SeenControl::Kind kind);

/// A program on the face that was linked, with everything in place for a start. Cases derive from it.
class FaceProgram : public ::testing::Test {
 protected:
  FaceProgram();
  ~FaceProgram() override;

  // The world.

  /// Something answers the health probe with "ok" from now on, or nothing does.
  void processorAnswers();
  void processorIsSilent();

  /// Every analysis from now on is answered by this job at once.
  void analysisGives(const std::string& completedJob);

  /// Every download job from now on runs at 40 percent in the stage "Fetching" until it ends with `lastJob`
  /// after `polls` answers.
  void downloadEndsWith(const std::string& lastJob, int polls = 1);

  // The run.

  /// As after a start: the launch sequence, and everything that comes of it by itself.
  void launch();

  /// As launch() with a processor that answers: the form is ready.
  void launchReady();

  /// From a ready form: types a link and analyses it.
  void analyze(const std::string& link = "https://media.example/watch");

  /// Lets everything happen that is due.
  void settle();
  void advance(std::chrono::nanoseconds duration);

  // What the user sees and does.

  [[nodiscard]] SeenWindow look() { return face_->window().look(); }

  /// The visible control with this text (or name, for one without a text of its own); fails the case and
  /// answers an empty one when there is none.
  [[nodiscard]] SeenControl control(const std::string& textOrName);
  [[nodiscard]] bool isVisible(const std::string& textOrName);

  /// The last label but the rows' own: where every flow reports.
  [[nodiscard]] std::string statusLine();

  [[nodiscard]] SeenMenuItem menuItem(std::size_t index);

  void click(const std::string& title);
  void type(const std::string& name, const std::string& text);
  void choose(const std::string& popUp, std::size_t index);
  void chooseInMenu(const std::string& title);

  [[nodiscard]] Face& face() { return *face_; }
  [[nodiscard]] HelperDelegate& delegate() { return *delegate_; }

  VirtualClock clock_;
  FakeApplication application_;
  FakeFileSystem files_;
  FakeProcessSpawner processes_{clock_, files_};
  FakeCommandRunner commands_;
  FakeHostEnvironment host_;
  ScriptedHttpSession http_{clock_};

 private:
  [[nodiscard]] std::shared_ptr<HelperDelegate> makeDelegate();

  std::unique_ptr<Face> face_;
  std::unique_ptr<Executor> executor_;
  std::shared_ptr<HelperDelegate> delegate_;
};

}  // namespace zunto::testing
