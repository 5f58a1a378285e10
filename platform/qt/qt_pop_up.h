// A pop-up button as a combo box that shows its model and nothing else.
//
// Owner: the window that it stands in. Thread: main thread only.
#pragma once

#include <QComboBox>
#include <QStyleOptionComboBox>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/model/controls.h"
#include "platform/qt/qt_steady_focus.h"

namespace zunto {

class QtPopUp final : public QtSteadyFocus<QComboBox> {
 public:
  /// Mirrors `model`, which must outlive it.
  QtPopUp(PopUpButton& model, QWidget* parent);
  ~QtPopUp() override;

  void mirrorItems();

  /// As wide as the widest title asks, within reason.
  [[nodiscard]] QSize sizeHint() const override;
  /// Narrower than the longest title: a title that does not fit ends in an ellipsis.
  [[nodiscard]] QSize minimumSizeHint() const override;

  void showPopup() override;

  /// The selected title as far as it fits; the whole one is the tool tip then.
  [[nodiscard]] QString shownTitle() const;

 protected:
  bool event(QEvent* event) override;
  void initStyleOption(QStyleOptionComboBox* option) const override;
  void paintEvent(QPaintEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;

 private:
  class TitleList;

  [[nodiscard]] int selectedRow() const;
  void fillList();
  /// How the closed list is drawn.
  [[nodiscard]] QStyleOptionComboBox look() const;
  [[nodiscard]] QSize sizeForText(int width) const;
  [[nodiscard]] int widthForCharacters(int count) const;
  [[nodiscard]] int widestTitle() const;

  PopUpButton& model_;
  std::unique_ptr<TitleList> list_;
  std::uint64_t shownRevision_ = 0;
  std::vector<int> longestRows_;  ///< the few that are measured for all
};

/// From now on a QtPopUp has its given name for screen readers (Qt alone gives a combo box the selected title
/// for a name, which leaves it nameless) and the selected title as its description.
void nameQtPopUpsForScreenReaders();

}  // namespace zunto
