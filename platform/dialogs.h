// The two modal dialogs. They stand in front of the program's windows while the rest of it (repainting,
// timers, other tasks) goes on.
//
// Owner: the program's entry; outlives the logic. Thread: main thread only, callbacks included. A dialog that
// is open when the program ends closes unanswered: its callback is not called.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "async/interface.h"

namespace zunto {

/// A warning. The first button is the default; there is at least one.
struct Alert {
  std::string messageText;
  std::string informativeText;
  std::vector<std::string> buttons;
};

class AlertPresenter : public Interface {
 public:
  /// Shows `alert` and calls `answered` once, on a later turn, with the index of the button that ended it;
  /// closing it without a button (Escape, the window's close box) counts as the first.
  virtual void showAlert(const Alert& alert, std::function<void(std::size_t button)> answered) = 0;
};

struct SavePanel {
  std::string title;
  std::string suggestedName;  ///< one path component
  bool canCreateFolders = true;
};

class SavePanelPresenter : public Interface {
 public:
  /// Asks where to save and calls `chosen` once, on a later turn, with the absolute location, or none when
  /// the user cancelled. The panel itself asks before an existing file is chosen.
  virtual void showSavePanel(const SavePanel& panel,
                             std::function<void(std::optional<std::filesystem::path>)> chosen) = 0;
};

}  // namespace zunto
