// One native face of the program, as a user meets it: what the cases of this folder drive and look at. Every
// face (Qt, AppKit) implements it on its own controls and brings a main() that runs the same cases.
//
// Drivers go through what a user can reach: a click on a disabled button must do nothing because the native
// button does nothing. Owner: the case. Thread: main thread only.
#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/beeper.h"
#include "platform/dialogs.h"
#include "platform/pasteboard.h"
#include "platform/status_bar.h"
#include "platform/url_events.h"
#include "platform/window_system.h"
#include "platform/workspace.h"

namespace zunto::testing {

/// One control that the user sees. Hidden ones are not among them.
struct SeenControl {
  enum class Kind { label, field, checkBox, button, popUp, progress, separator };

  Kind kind = Kind::label;
  std::string name;  ///< what a screen reader speaks where the control has no text of its own
  std::string text;  ///< of a label or field; the title of a button or box; the selected title of a pop-up
  bool isEnabled = true;
  bool isOn = false;                     ///< of a box
  std::vector<std::string> items;        ///< of a pop-up
  std::optional<std::size_t> selection;  ///< of a pop-up
  double value = 0;                      ///< of a progress bar
  double x = 0;                          ///< points from the content's left edge
  double y = 0;                          ///< points from the content's top edge
  double width = 0;
  double height = 0;
};

/// The window as the user sees it: its controls row by row, from left to right.
struct SeenWindow {
  bool isVisible = false;
  std::string title;
  double contentWidth = 0;
  double contentHeight = 0;
  std::vector<SeenControl> controls;
};

class WindowDriver {
 public:
  WindowDriver() = default;
  WindowDriver(const WindowDriver&) = delete;
  WindowDriver& operator=(const WindowDriver&) = delete;
  virtual ~WindowDriver() = default;

  [[nodiscard]] virtual SeenWindow look() = 0;

  /// Clicks the visible button or box with this title; nothing when there is none.
  virtual void click(const std::string& title) = 0;

  /// Replaces the text of the visible field of this name by typing.
  virtual void type(const std::string& name, const std::string& text) = 0;

  /// Chooses an item of the visible pop-up of this name, as from its open list.
  virtual void choose(const std::string& name, std::size_t index) = 0;

  /// Drops a text on the window, beside its controls.
  virtual void drop(const std::string& text) = 0;

  /// Presses Return in the window.
  virtual void pressReturn() = 0;

  /// Closes the window by its close box.
  virtual void close() = 0;
};

/// One line of the status menu.
struct SeenMenuItem {
  bool isSeparator = false;
  std::string title;
  bool isEnabled = true;
  std::string keyEquivalent;  ///< the lowercase letter; empty for none
};

class StatusDriver {
 public:
  StatusDriver() = default;
  StatusDriver(const StatusDriver&) = delete;
  StatusDriver& operator=(const StatusDriver&) = delete;
  virtual ~StatusDriver() = default;

  /// What the bar shows.
  [[nodiscard]] virtual std::string title() = 0;

  /// The menu as it looks when it is opened now.
  [[nodiscard]] virtual std::vector<SeenMenuItem> openMenu() = 0;

  /// Chooses the item of this title.
  virtual void choose(const std::string& title) = 0;
};

/// A dialog that came up.
struct SeenDialog {
  enum class Kind { alert, savePanel };

  Kind kind = Kind::alert;
  std::string message;               ///< of an alert; the title of a panel
  std::string information;           ///< of an alert
  std::vector<std::string> buttons;  ///< of an alert, the default one first
  std::string suggestedName;         ///< of a panel
};

class DialogDriver {
 public:
  DialogDriver() = default;
  DialogDriver(const DialogDriver&) = delete;
  DialogDriver& operator=(const DialogDriver&) = delete;
  virtual ~DialogDriver() = default;

  /// The next alert will be answered by its button of this title.
  virtual void answerAlert(std::string button) = 0;

  /// The next panel will be answered with this location, or cancelled.
  virtual void answerSavePanel(std::optional<std::filesystem::path> location) = 0;

  /// Every dialog that came up so far, oldest first.
  [[nodiscard]] virtual const std::vector<SeenDialog>& seen() const = 0;
};

class DesktopDriver {
 public:
  DesktopDriver() = default;
  DesktopDriver(const DesktopDriver&) = delete;
  DesktopDriver& operator=(const DesktopDriver&) = delete;
  virtual ~DesktopDriver() = default;

  /// What the pasteboard holds from now on; none for no text.
  virtual void setPasteboard(std::optional<std::string> text) = 0;

  /// Another program hands over a link.
  virtual void deliverLink(const std::string& link) = 0;

  /// What was asked of the desktop so far, oldest first: "open ADDRESS", "reveal PATH", "beep".
  [[nodiscard]] virtual std::vector<std::string> requests() = 0;
};

/// The capabilities of the face, for the logic.
struct FaceCapabilities {
  WindowSystem& windowSystem;
  StatusBar& statusBar;
  AlertPresenter& alerts;
  SavePanelPresenter& savePanels;
  Pasteboard& pasteboard;
  Beeper& beeper;
  Workspace& workspace;
  UrlEventSource& urlEvents;
};

class Face {
 public:
  Face() = default;
  Face(const Face&) = delete;
  Face& operator=(const Face&) = delete;
  virtual ~Face() = default;

  [[nodiscard]] virtual FaceCapabilities capabilities() = 0;
  [[nodiscard]] virtual WindowDriver& window() = 0;
  [[nodiscard]] virtual StatusDriver& status() = 0;
  [[nodiscard]] virtual DialogDriver& dialogs() = 0;
  [[nodiscard]] virtual DesktopDriver& desktop() = 0;

  /// Runs the native main loop until it has nothing left to do. A dialog that comes up meanwhile is answered
  /// as was said before; one without an answer fails the case and is closed.
  virtual void runNativeLoop() = 0;
};

/// Made by the face that the program was linked with.
[[nodiscard]] std::unique_ptr<Face> makeFace();

/// Runs all cases and prints how many ran on the face of this name ("AppKit"); answers the exit status.
[[nodiscard]] int runFaceCases(int argc, char** argv, const std::string& faceName);

}  // namespace zunto::testing
