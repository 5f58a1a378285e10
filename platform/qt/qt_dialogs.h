// Alert and save panel as dialogs that do not stop the event loop.
//
// Owner: the program's entry; outlives the logic. Thread: main thread only.
#pragma once

#include <memory>

#include "async/clock.h"
#include "platform/dialogs.h"

namespace zunto {

class QtDialogs final : public AlertPresenter, public SavePanelPresenter {
 public:
  /// `clock` must outlive this object.
  explicit QtDialogs(Clock& clock);
  /// Closes every open dialog unanswered.
  ~QtDialogs() override;

  void showAlert(const Alert& alert, std::function<void(std::size_t button)> answered) override;

  /// Opens in the folder of the last choice of this run, at first in the downloads folder. Only the last
  /// component of the suggested name is suggested, so that it cannot lead out of the folder that is shown.
  void showSavePanel(const SavePanel& panel,
                     std::function<void(std::optional<std::filesystem::path>)> chosen) override;

 private:
  class OpenDialogs;
  template <class Value>
  class Answer;

  Clock& clock_;
  std::filesystem::path saveFolder_;
  std::shared_ptr<OpenDialogs> open_;
};

}  // namespace zunto
