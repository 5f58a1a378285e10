// A label that wraps to so many lines, or stays on one, and ends in an ellipsis where its text does not fit.
//
// The whole text stays its accessible name, and its tooltip while a part of it is cut. Owner: the window that
// it stands in. Thread: main thread only.
#pragma once

#include <QLabel>
#include <QTextLayout>
#include <memory>
#include <optional>

#include "platform/model/controls.h"

namespace zunto {

class QtTextLabel final : public QLabel {
 public:
  /// Mirrors `model`, which must outlive it.
  explicit QtTextLabel(const Label& model, QWidget* parent);

  /// Mirrors the model's text. Screen readers hear of a change once, and speak what is to be announced.
  void mirrorText();

  [[nodiscard]] bool announces() const { return style_.announces; }

  [[nodiscard]] bool hasHeightForWidth() const override { return style_.wraps; }
  [[nodiscard]] int heightForWidth(int width) const override;
  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] QSize minimumSizeHint() const override;

  /// The lines as they are shown in the label's present width.
  [[nodiscard]] QStringList shownLines() const { return breakLines(contentsRect().width()); }

 protected:
  bool event(QEvent* event) override;
  void paintEvent(QPaintEvent* event) override;
  void changeEvent(QEvent* event) override;

 private:
  [[nodiscard]] QSize naturalSize() const;
  void announce();
  void applyFont();
  void updateToolTip();
  [[nodiscard]] int maximumLines() const { return style_.wraps ? style_.maximumLines : 1; }
  [[nodiscard]] QStringList breakLines(int width) const;

  const Label& model_;
  LabelStyle style_;
  bool isApplyingFont_ = false;
  mutable std::optional<QSize> sizeHint_;  ///< until the text or the font changes
  bool isAnnouncing_ = false;
  bool isProblem_ = false;
};

/// From now on a label that announces its texts is a notification for screen readers.
void announceQtTextLabels();

}  // namespace zunto
