#include "platform/model/controls.h"

#include <algorithm>
#include <cmath>

namespace zunto {

PopUpButton::PopUpButton(std::vector<std::string> titles) : titles_(std::move(titles)) {
  if (!titles_.empty()) selected_ = 0;
}

void PopUpButton::setItems(std::vector<std::string> titles, std::size_t selected) {
  std::optional<std::size_t> selection;
  if (!titles.empty()) selection = selected < titles.size() ? selected : 0;
  const bool isSameList = titles == titles_;
  if (isSameList && selection == selected_) return;
  if (!isSameList) {
    titles_ = std::move(titles);
    ++listRevision_;
  }
  selected_ = selection;
  notify();
}

std::optional<std::string> PopUpButton::selectedTitle() const {
  if (!selected_) return std::nullopt;
  return titles_[*selected_];
}

void PopUpButton::selectIndex(std::size_t index) {
  if (index < titles_.size()) assign(selected_, index);
}

void PopUpButton::userSelected(std::size_t index) {
  if (!acceptsUser() || index >= titles_.size()) return;
  selectIndex(index);
  if (action_) action_();
}

void ProgressBar::setValue(double percent) {
  assign(value_, std::isnan(percent) ? minimum : std::clamp(percent, minimum, maximum));
}

}  // namespace zunto
