#include "platform/qt/qt_text_label.h"

#include <gtest/gtest.h>

#include <QAccessible>
#include <QApplication>
#include <QHelpEvent>
#include <QImage>

#include "tests/qt/qt_world.h"

namespace zunto::testing {
namespace {

class QtLabel : public QtTest {
 protected:
  /// What stands in the tool tip when the pointer rests on the label.
  static std::string toolTip(QtTextLabel& label) {
    QHelpEvent rest(QEvent::ToolTip, QPoint(1, 1), label.mapToGlobal(QPoint(1, 1)));
    QApplication::sendEvent(&label, &rest);
    return fromQString(label.toolTip());
  }

  QWidget window;
};

TEST_F(QtLabel, TruncatesALineAtItsTail) {
  const Label model("A title that does not fit", {.truncatesTail = true});
  QtTextLabel label(model, &window);
  label.resize(80, 20);
  ASSERT_EQ(label.shownLines().size(), 1);
  EXPECT_TRUE(label.shownLines()[0].endsWith(QChar(0x2026)));
  EXPECT_EQ(fromQString(label.accessibleName()), model.text());
  EXPECT_EQ(toolTip(label), "<qt>A title that does not fit</qt>");
}

TEST_F(QtLabel, HasNoToolTipWhileItsTextFits) {
  const Label model("Short", {.truncatesTail = true});
  QtTextLabel label(model, &window);
  label.resize(400, 20);
  EXPECT_EQ(label.shownLines(), QStringList(QStringLiteral("Short")));
  EXPECT_EQ(toolTip(label), "");
}

TEST_F(QtLabel, WrapsToItsMostLinesAndEndsInAnEllipsis) {
  const Label model(std::string(200, 'w') + " and more words that are cut",
                    {.wraps = true, .maximumLines = 2});
  QtTextLabel label(model, &window);
  label.resize(200, 60);
  ASSERT_EQ(label.shownLines().size(), 2);
  EXPECT_TRUE(label.shownLines()[1].endsWith(QChar(0x2026)));
  EXPECT_EQ(label.heightForWidth(200), 2 * label.fontMetrics().lineSpacing());
  EXPECT_EQ(label.heightForWidth(100'000), label.fontMetrics().lineSpacing());
  EXPECT_NE(toolTip(label), "");
}

TEST_F(QtLabel, TakesOnlyTheReadableBeginningOfMegabytes) {
  const std::string camera = "\xF0\x9F\x8E\xA5";  // two UTF-16 units, so that the cut could fall inside
  std::string text = "x";
  for (int i = 0; i < 500'000; ++i) text += camera;
  const Label model(text, {.wraps = true, .maximumLines = 2});
  const QtTextLabel label(model, &window);
  EXPECT_LT(label.text().size(), 5000);
  EXPECT_TRUE(text.starts_with(fromQString(label.text().chopped(1))));
  EXPECT_TRUE(label.text().endsWith(QChar(0x2026)));
}

TEST_F(QtLabel, ShowsMarkupAsText) {
  const Label model("<b>not bold</b> &amp;", {.truncatesTail = true});
  QtTextLabel label(model, &window);
  EXPECT_EQ(label.textFormat(), Qt::PlainText);
  label.resize(40, 20);
  EXPECT_EQ(toolTip(label), "<qt>&lt;b&gt;not bold&lt;/b&gt; &amp;amp;</qt>");
}

TEST_F(QtLabel, IsSpokenByItsNewText) {
  Label model("before");
  QtTextLabel label(model, &window);
  model.setText("after");
  label.mirrorText();
  QAccessibleInterface* spoken = QAccessible::queryAccessibleInterface(&label);
  EXPECT_EQ(spoken->text(QAccessible::Name).toStdString(), "after");
  EXPECT_EQ(spoken->role(), QAccessible::StaticText);
}

TEST_F(QtLabel, TellsAProblemByItsWeightAndColorAndKeepsItsText) {
  Label model("Not available", {.color = TextColor::secondary, .wraps = true});
  QtTextLabel label(model, &window);
  label.resize(400, 20);
  const QFont plain = label.font();
  const QImage before = label.grab().toImage();
  model.setProblem(true);
  label.mirrorText();
  EXPECT_EQ(label.font().weight(), QFont::DemiBold);
  EXPECT_EQ(label.text().toStdString(), "Not available");
  EXPECT_NE(label.grab().toImage(), before);
  model.setProblem(false);
  label.mirrorText();
  EXPECT_EQ(label.font().weight(), plain.weight());
  EXPECT_EQ(label.grab().toImage(), before);
}

TEST_F(QtLabel, StandsAtTheRightWhereTheLayoutRunsToTheLeft) {
  const Label model("Text", {.wraps = true});
  QtTextLabel label(model, &window);
  label.resize(400, 20);
  const auto inked = [&label] {
    const QImage image = label.grab().toImage();
    for (int x = 0; x < image.width(); ++x) {
      for (int y = 0; y < image.height(); ++y) {
        if (image.pixel(x, y) != image.pixel(image.width() / 2, 0)) return x;
      }
    }
    return image.width();
  };
  EXPECT_LT(inked(), 20);
  label.setLayoutDirection(Qt::RightToLeft);
  EXPECT_GT(inked(), 300);
}

TEST_F(QtLabel, FontsAreAsLargeAndHeavyAsAsked) {
  const Label heading("Media Import", {.font = {.size = 26, .weight = FontWeight::bold}});
  const Label title("Title", {.font = {.size = 17, .weight = FontWeight::semibold}});
  const QtTextLabel large(heading, &window);
  const QtTextLabel middle(title, &window);
  EXPECT_GE(large.font().pixelSize(), 26);
  EXPECT_EQ(large.font().weight(), QFont::Bold);
  EXPECT_GE(middle.font().pixelSize(), 17);
  EXPECT_LT(middle.font().pixelSize(), large.font().pixelSize());
  EXPECT_EQ(middle.font().weight(), QFont::DemiBold);
}

TEST_F(QtLabel, ThatAnnouncesItsTextsIsANotification) {
  const Label model("Analyzing…", {.wraps = true, .announces = true});
  QtTextLabel label(model, &window);
  QAccessibleInterface* spoken = QAccessible::queryAccessibleInterface(&label);
  EXPECT_EQ(spoken->role(), QAccessible::Notification);
  EXPECT_EQ(fromQString(spoken->text(QAccessible::Name)), "Analyzing…");
}

}  // namespace
}  // namespace zunto::testing
