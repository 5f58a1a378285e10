// The controls of the "Media Import" window and how they stand in it, described once for every backend.
//
// Owner: the window's controller. Thread: main thread only.
#pragma once

#include "platform/model/controls.h"
#include "platform/model/window.h"

namespace zunto {

/// What modePopup offers, by index.
enum class OutputMode { video = 0, audio = 1, subtitle = 2 };

/// What browserPopup offers, by index: how the processor reaches the site.
enum class BrowserAccess { anonymous = 0, chrome = 1, safari = 2 };

/// What subtitleFormatPopup offers, by index.
enum class SubtitleFormat { vtt = 0, srt = 1 };

struct ImportForm {
  ImportForm();

  TextField urlField;
  CheckBox permissionCheck;
  PopUpButton browserPopup;
  PushButton analyzeButton;
  PushButton pasteButton;
  Label titleLabel;
  Label detailLabel;
  PopUpButton modePopup;
  PopUpButton qualityPopup;
  PopUpButton subtitlePopup;
  PopUpButton subtitleFormatPopup;
  PushButton startButton;
  PushButton cancelButton;
  ProgressBar progress;
  Label statusLabel;
  PushButton revealButton;

  // Texts that never change.
  Label headingLabel;
  Label introductionLabel;
  Label accessLabel;
  Label cookiesLabel;
  Label saveAsLabel;

  /// The window with all rows. The form must outlive it.
  [[nodiscard]] WindowSpec describeWindow();
};

}  // namespace zunto
