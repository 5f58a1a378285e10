// A menu and its items as portable models; see controls.h for who may call what.
//
// Items are shared: the menu holds them, and whoever changes one keeps it too. Thread: main thread only.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/model/observable.h"

namespace zunto {

class MenuItem final : public Observable {
 public:
  /// `keyEquivalent` is a lowercase letter, used with the platform's default modifier (Command, Ctrl).
  explicit MenuItem(std::string title, std::function<void()> action = nullptr,
                    std::optional<char> keyEquivalent = std::nullopt)
      : title_(std::move(title)), action_(std::move(action)), keyEquivalent_(keyEquivalent) {}

  /// A line between items: no title, no action.
  [[nodiscard]] static std::shared_ptr<MenuItem> separator();

  [[nodiscard]] bool isSeparator() const { return separator_; }

  [[nodiscard]] const std::string& title() const { return title_; }
  void setTitle(std::string title) { assign(title_, std::move(title)); }

  [[nodiscard]] bool isEnabled() const { return enabled_; }
  void setEnabled(bool enabled) { assign(enabled_, enabled); }

  [[nodiscard]] std::optional<char> keyEquivalent() const { return keyEquivalent_; }

  /// Whether choosing it does anything; one that has no action only says something.
  [[nodiscard]] bool hasAction() const { return action_ != nullptr; }

  /// For views: the user has chosen the item. Ignored when it is disabled or has no action.
  void userChose() const {
    if (enabled_ && action_) action_();
  }

 private:
  std::string title_;
  std::function<void()> action_;
  std::optional<char> keyEquivalent_;
  bool enabled_ = true;
  bool separator_ = false;
};

/// Items in order. It grows only while it is built: a view may read it once.
class Menu final {
 public:
  void addItem(std::shared_ptr<MenuItem> item) { items_.push_back(std::move(item)); }
  [[nodiscard]] const std::vector<std::shared_ptr<MenuItem>>& items() const { return items_; }

 private:
  std::vector<std::shared_ptr<MenuItem>> items_;
};

}  // namespace zunto
