// The two modal dialogs. Each runs on a turn of its own, in which the run loop goes on in the modal mode: the
// clock's turns and timers are not held up.
//
// Owner: the program's entry. Thread: main thread only.
#pragma once

#include "async/clock.h"
#include "platform/dialogs.h"

namespace zunto {

class AppKitAlertPresenter final : public AlertPresenter {
 public:
  explicit AppKitAlertPresenter(Clock& clock) : clock_(clock) {}
  void showAlert(const Alert& alert, std::function<void(std::size_t button)> answered) override;

 private:
  Clock& clock_;
};

class AppKitSavePanelPresenter final : public SavePanelPresenter {
 public:
  explicit AppKitSavePanelPresenter(Clock& clock) : clock_(clock) {}
  void showSavePanel(const SavePanel& panel,
                     std::function<void(std::optional<std::filesystem::path>)> chosen) override;

 private:
  Clock& clock_;
};

}  // namespace zunto
