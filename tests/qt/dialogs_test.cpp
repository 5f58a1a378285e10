#include "platform/qt/qt_dialogs.h"

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QDialogButtonBox>
#include <QFile>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QWindow>
#include <filesystem>
#include <fstream>
#include <optional>

#include "tests/qt/qt_world.h"

namespace zunto::testing {
namespace {

class QtAlerts : public QtTest {
 protected:
  QMessageBox& show() {
    dialogs->showAlert({"Title & <b>more</b>", "Message <i>plain</i>", {"OK", "Show Log"}},
                       [this](std::size_t index) { answers.push_back(index); });
    return dynamic_cast<QMessageBox&>(*QApplication::activeModalWidget());
  }
  std::vector<std::size_t> answers;
  std::unique_ptr<QtDialogs> dialogs = std::make_unique<QtDialogs>(clock);
};

TEST_F(QtAlerts, ShowsTextsAndButtonsInTheirOrder) {
  QMessageBox& box = show();
  EXPECT_EQ(box.icon(), QMessageBox::Warning);
  EXPECT_EQ(box.text().toStdString(), "Title & <b>more</b>");
  EXPECT_EQ(box.informativeText().toStdString(), "Message <i>plain</i>");
  EXPECT_EQ(box.findChild<QLabel*>(QStringLiteral("qt_msgbox_informativelabel"))->textFormat(),
            Qt::PlainText);
  ASSERT_EQ(box.buttons().size(), 2);
  EXPECT_EQ(box.defaultButton()->text().toStdString(), "OK");
  EXPECT_EQ(box.escapeButton()->text().toStdString(), "OK");
  EXPECT_LT(box.defaultButton()->x(), box.buttons()[1]->x());
}

TEST_F(QtAlerts, AnswersOnALaterTurnWithTheButton) {
  QMessageBox& box = show();
  EXPECT_TRUE(box.isVisible());
  box.buttons()[1]->click();
  EXPECT_TRUE(answers.empty());
  runTurns();
  EXPECT_EQ(answers, std::vector<std::size_t>{1});
  EXPECT_EQ(QApplication::activeModalWidget(), nullptr);
}

TEST_F(QtAlerts, ReturnIsTheFirstButton) {
  press(show(), Qt::Key_Return);
  runTurns();
  EXPECT_EQ(answers, std::vector<std::size_t>{0});
}

TEST_F(QtAlerts, EscapeIsTheFirstButton) {
  press(show(), Qt::Key_Escape);
  runTurns();
  EXPECT_EQ(answers, std::vector<std::size_t>{0});
}

TEST_F(QtAlerts, TheCloseBoxIsTheFirstButton) {
  show().close();
  runTurns();
  EXPECT_EQ(answers, std::vector<std::size_t>{0});
}

TEST_F(QtAlerts, TheRestOfTheProgramGoesOn) {
  show();
  bool ran = false;
  const auto timer = clock.callLater(std::chrono::milliseconds(5), [&ran] { ran = true; });
  EXPECT_TRUE(runUntil([&ran] { return ran; }));
  EXPECT_TRUE(answers.empty());
}

TEST_F(QtAlerts, ClosesUnansweredWhenTheProgramEnds) {
  show().buttons()[0]->click();
  show();
  dialogs.reset();
  runTurns();
  EXPECT_TRUE(answers.empty());
  EXPECT_EQ(QApplication::activeModalWidget(), nullptr);
}

TEST_F(QtAlerts, ClosesUnansweredWithTheWindowItStandsInFrontOf) {
  auto window = std::make_unique<QWidget>();
  window->show();
  EXPECT_EQ(show().parentWidget(), window.get());
  window.reset();
  dialogs.reset();
  runTurns();
  EXPECT_TRUE(answers.empty());
}

/// A window that can be used, and counts what reaches it.
class UsableWindow final : public QWidget {
 public:
  UsableWindow() {
    button_.setText(QStringLiteral("Count"));
    QObject::connect(&button_, &QPushButton::clicked, this, [this] { ++clicks; });
    resize(200, 100);
  }

  /// As the user does it: by way of the native window.
  void click() { QTest::mouseClick(windowHandle(), Qt::LeftButton, {}, button_.geometry().center()); }

  int clicks = 0;
  int paints = 0;

 protected:
  void paintEvent(QPaintEvent*) override { ++paints; }

 private:
  QPushButton button_{this};
};

TEST_F(QtAlerts, BlocksAWindowThatIsShownWhileItStandsAlone) {
  UsableWindow window;
  QMessageBox& box = show();
  window.show();
  window.click();
  EXPECT_EQ(window.clicks, 0);
  EXPECT_TRUE(runUntil([&window] { return window.paints > 0; }));
  box.buttons()[0]->click();
  runTurns();
  window.click();
  EXPECT_EQ(window.clicks, 1);
}

TEST_F(QtAlerts, BlocksEveryWindowAndNotOnlyTheOneItStandsInFrontOf) {
  UsableWindow window;
  window.show();
  show();
  UsableWindow other;
  other.show();
  window.click();
  other.click();
  EXPECT_EQ(window.clicks, 0);
  EXPECT_EQ(other.clicks, 0);
}

class QtSavePanels : public QtTest {
 protected:
  QtSavePanels() {
    qputenv("HOME", folder.path().toUtf8());
    qputenv("XDG_CONFIG_HOME", folder.path().toUtf8());
    std::filesystem::create_directory(downloads);
  }

  QFileDialog& show(const std::string& name) {
    dialogs->showSavePanel(
        {"Save ZUNTO Download", name},
        [this](std::optional<std::filesystem::path> chosen) { answers.push_back(chosen); });
    return dynamic_cast<QFileDialog&>(*QApplication::activeModalWidget());
  }
  static QPushButton& saveButton(QFileDialog& dialog) {
    return *dialog.findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Save);
  }

  QTemporaryDir folder;
  std::filesystem::path downloads = folder.path().toStdString() + "/Downloads";
  std::vector<std::optional<std::filesystem::path>> answers;
  std::unique_ptr<QtDialogs> dialogs = std::make_unique<QtDialogs>(clock);
};

TEST_F(QtSavePanels, SuggestsTheNameInTheDownloadsFolder) {
  QFileDialog& panel = show("clip — ü.mp4");
  EXPECT_EQ(panel.windowTitle().toStdString(), "Save ZUNTO Download");
  EXPECT_EQ(panel.acceptMode(), QFileDialog::AcceptSave);
  EXPECT_FALSE(panel.testOption(QFileDialog::DontConfirmOverwrite));
  EXPECT_EQ(fromQString(panel.findChild<QLineEdit*>()->text()), "clip — ü.mp4");
  saveButton(panel).click();
  EXPECT_TRUE(answers.empty());
  runTurns();
  ASSERT_EQ(answers.size(), 1U);
  EXPECT_EQ(answers[0], downloads / "clip — ü.mp4");
}

TEST_F(QtSavePanels, IsWideEnoughForItsTitle) {
  const std::string title(90, 'm');
  dialogs->showSavePanel({title, "clip.mp4"}, [](const std::optional<std::filesystem::path>&) {});
  const QWidget& panel = *QApplication::activeModalWidget();
  EXPECT_GT(panel.width(), panel.fontMetrics().horizontalAdvance(toQString(title)) + 100);
}

TEST_F(QtSavePanels, AnswersNoneWhenItIsCancelled) {
  press(show("clip.mp4"), Qt::Key_Escape);
  runTurns();
  EXPECT_EQ(answers, std::vector{std::optional<std::filesystem::path>()});
}

TEST_F(QtSavePanels, TheSuggestionCannotLeadOutOfTheFolder) {
  saveButton(show("../../outside/evil.mp4")).click();
  saveButton(show("/etc/evil.mp4")).click();
  runTurns();
  ASSERT_EQ(answers.size(), 2U);
  EXPECT_EQ(answers[0], downloads / "evil.mp4");
  EXPECT_EQ(answers[1], downloads / "evil.mp4");
  EXPECT_EQ(show("..").findChild<QLineEdit*>()->text().toStdString(), "");
}

TEST_F(QtSavePanels, ASuggestionWithQuotationMarksOrATildeStaysOneNameInTheFolder) {
  saveButton(show("a\"b\"c.mp4")).click();
  saveButton(show("~root")).click();
  runTurns();
  ASSERT_EQ(answers.size(), 2U);
  EXPECT_EQ(answers[0], downloads / "a'b'c.mp4");
  EXPECT_EQ(answers[1], downloads / "_root");
}

TEST_F(QtSavePanels, RemembersTheFolderOfTheLastChoice) {
  const std::filesystem::path other = folder.path().toStdString() + "/Other";
  std::filesystem::create_directory(other);
  QFileDialog& panel = show("clip.mp4");
  panel.findChild<QLineEdit*>()->setText(QString::fromStdString(other.string() + "/named.mp4"));
  saveButton(panel).click();
  runTurns();
  EXPECT_EQ(answers[0], other / "named.mp4");
  EXPECT_EQ(show("next.mp4").directory().path().toStdString(), other.string());
}

TEST_F(QtSavePanels, AsksBeforeAnExistingFileIsChosen) {
  std::ofstream(downloads / "clip.mp4") << "kept";
  QFileDialog& panel = show("clip.mp4");
  int questions = 0;
  const auto answerNo = clock.callLater(std::chrono::milliseconds(50), [&questions] {
    auto* question = dynamic_cast<QMessageBox*>(QApplication::activeModalWidget());
    if (question == nullptr) return;
    ++questions;
    question->button(QMessageBox::No)->click();
  });
  saveButton(panel).click();
  runTurns();
  EXPECT_EQ(questions, 1);
  EXPECT_TRUE(answers.empty());
  EXPECT_TRUE(panel.isVisible());
}

TEST_F(QtSavePanels, AnAlertInFrontOfAPanelThatIsAnsweredFirstEndsWithItsFirstButton) {
  QFileDialog& panel = show("clip.mp4");
  std::vector<std::size_t> buttons;
  dialogs->showAlert({"Title", "Message", {"OK", "Show Log"}},
                     [&buttons](std::size_t button) { buttons.push_back(button); });
  // As a screen reader can, which no modal dialog holds up.
  panel.reject();
  runTurns();  // the panel is gone,
  runTurns();  // and what stood in front of it has said so
  EXPECT_EQ(answers.size(), 1U);
  EXPECT_EQ(buttons, std::vector<std::size_t>{0});
  EXPECT_EQ(QApplication::activeModalWidget(), nullptr);
}

TEST_F(QtSavePanels, BlocksAWindowThatWasMinimizedWhenItCame) {
  UsableWindow window;
  window.showMinimized();
  QFileDialog& panel = show("clip.mp4");
  window.showNormal();
  window.click();
  EXPECT_EQ(window.clicks, 0);
  panel.reject();
  runTurns();
  window.click();
  EXPECT_EQ(window.clicks, 1);
}

TEST_F(QtSavePanels, ClosesUnansweredWhenTheProgramEnds) {
  show("clip.mp4");
  dialogs.reset();
  runTurns();
  EXPECT_TRUE(answers.empty());
}

}  // namespace
}  // namespace zunto::testing
