// The controls of a form as portable models: they hold the state, views mirror it.
//
// Setters are for the program and never call an action. The functions that start with `user` are for views:
// they say what the user did, are ignored where the control is disabled or hidden, and come back as state. A
// native control never changes itself.
//
// Owner: the form that declares them; views hold references and subscriptions. Thread: main thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/model/observable.h"

namespace zunto {

/// What every control has. All texts are UTF-8.
class Control : public Observable {
 public:
  [[nodiscard]] bool isEnabled() const { return enabled_; }
  void setEnabled(bool enabled) { assign(enabled_, enabled); }

  [[nodiscard]] bool isHidden() const { return hidden_; }
  void setHidden(bool hidden) { assign(hidden_, hidden); }

  /// What a screen reader speaks for a control that has no text of its own; empty for one that has.
  [[nodiscard]] const std::string& accessibleName() const { return accessibleName_; }
  void setAccessibleName(std::string name) { assign(accessibleName_, std::move(name)); }

 protected:
  [[nodiscard]] bool acceptsUser() const { return enabled_ && !hidden_; }

 private:
  bool enabled_ = true;
  bool hidden_ = false;
  std::string accessibleName_;
};

enum class FontWeight { regular, semibold, bold };

/// A system font; `size` in points, none for the system's own size.
struct Font {
  std::optional<double> size;
  FontWeight weight = FontWeight::regular;
};

enum class TextColor { primary, secondary };

/// How a label shows its text. Fixed when the label is made.
struct LabelStyle {
  Font font{};
  TextColor color = TextColor::primary;
  bool wraps = false;          ///< else one line
  int maximumLines = 1;        ///< when it wraps; what does not fit ends in an ellipsis
  bool keepsRoom = false;      ///< for all of its lines, so that what stands below stays where it is
  bool truncatesTail = false;  ///< a line that does not fit ends in an ellipsis
  bool announces = false;      ///< screen readers speak every new text without being asked
};

/// Text that the user reads.
class Label final : public Control {
 public:
  explicit Label(std::string text, LabelStyle style = {}) : text_(std::move(text)), style_(style) {}

  [[nodiscard]] const std::string& text() const { return text_; }
  void setText(std::string text) { assign(text_, std::move(text)); }
  [[nodiscard]] const LabelStyle& style() const { return style_; }

  /// Whether the text tells of a problem: it is then shown heavier than the style says, in the primary
  /// colour.
  [[nodiscard]] bool isProblem() const { return problem_; }
  void setProblem(bool problem) { assign(problem_, problem); }

 private:
  std::string text_;
  LabelStyle style_;
  bool problem_ = false;
};

/// One line of text that the user edits.
class TextField final : public Control {
 public:
  explicit TextField(std::string placeholder) : placeholder_(std::move(placeholder)) {}

  [[nodiscard]] const std::string& text() const { return text_; }
  void setText(std::string text) { assign(text_, std::move(text)); }
  void userEdited(std::string text) {
    if (acceptsUser()) setText(std::move(text));
  }

  [[nodiscard]] const std::string& placeholder() const { return placeholder_; }

  /// How strongly the field keeps to its natural width in a row, 1 to 1000: the lowest of a row takes the
  /// spare width.
  [[nodiscard]] int horizontalHugging() const { return horizontalHugging_; }
  void setHorizontalHugging(int priority) { assign(horizontalHugging_, priority); }

 private:
  std::string text_;
  std::string placeholder_;
  int horizontalHugging_ = 250;
};

class CheckBox final : public Control {
 public:
  CheckBox(std::string title, bool on) : title_(std::move(title)), on_(on) {}

  [[nodiscard]] const std::string& title() const { return title_; }
  [[nodiscard]] bool isOn() const { return on_; }
  void setOn(bool on) { assign(on_, on); }
  void userToggled() {
    if (acceptsUser()) setOn(!on_);
  }

 private:
  std::string title_;
  bool on_;
};

enum class KeyEquivalent { none, returnKey };

class PushButton final : public Control {
 public:
  explicit PushButton(std::string title, KeyEquivalent key = KeyEquivalent::none)
      : title_(std::move(title)), keyEquivalent_(key) {}

  [[nodiscard]] const std::string& title() const { return title_; }

  /// The key that presses the button from anywhere in its window.
  [[nodiscard]] KeyEquivalent keyEquivalent() const { return keyEquivalent_; }

  /// What a press does; none at first.
  void setAction(std::function<void()> action) { action_ = std::move(action); }
  void userClicked() const {
    if (acceptsUser() && action_) action_();
  }

 private:
  std::string title_;
  KeyEquivalent keyEquivalent_;
  std::function<void()> action_;
};

/// A list of titles of which one is selected. Items are told apart by their index: equal titles stay apart.
class PopUpButton final : public Control {
 public:
  explicit PopUpButton(std::vector<std::string> titles);

  [[nodiscard]] const std::vector<std::string>& titles() const { return titles_; }

  /// Grows with every change of the list. A list may be long: a view fills its own anew when this has grown,
  /// instead of comparing.
  [[nodiscard]] std::uint64_t listRevision() const { return listRevision_; }

  /// Replaces the list and the selection in one change. An index outside the list selects the first item.
  void setItems(std::vector<std::string> titles, std::size_t selected = 0);

  /// The selected index; none when there is no item.
  [[nodiscard]] std::optional<std::size_t> selectedIndex() const { return selected_; }

  /// The title of the selected item; none when there is no item.
  [[nodiscard]] std::optional<std::string> selectedTitle() const;

  /// Selects an item; an index outside the list is ignored.
  void selectIndex(std::size_t index);

  /// What a choice of the user does; none at first. It runs after the selection has changed, and also when
  /// the user chooses what is selected already.
  void setAction(std::function<void()> action) { action_ = std::move(action); }
  void userSelected(std::size_t index);

 private:
  std::vector<std::string> titles_;
  std::uint64_t listRevision_ = 0;
  std::optional<std::size_t> selected_;
  std::function<void()> action_;
};

/// A determinate bar from 0 to 100 percent.
class ProgressBar final : public Control {
 public:
  static constexpr double minimum = 0;
  static constexpr double maximum = 100;

  /// Percent, within the range.
  [[nodiscard]] double value() const { return value_; }

  /// What lies outside the range becomes its nearer end; what is not a number becomes 0.
  void setValue(double percent);

 private:
  double value_ = 0;
};

}  // namespace zunto
