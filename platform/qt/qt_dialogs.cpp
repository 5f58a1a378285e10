#include "platform/qt/qt_dialogs.h"

#include <QApplication>
#include <QDialog>
#include <QFile>
#include <QFileDialog>
#include <QFont>
#include <QFontMetrics>
#include <QLabel>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QStandardPaths>
#include <algorithm>
#include <list>
#include <utility>

#include "platform/qt/qt_text.h"

namespace zunto {

namespace {

/// What a dialog stands in front of: the dialog that is open already, else the program's window, if it can be
/// seen.
QWidget* frontWindow() {
  if (QWidget* dialog = QApplication::activeModalWidget()) return dialog;
  for (QWidget* window : QApplication::topLevelWidgets()) {
    if (window->windowType() == Qt::Window && window->isVisible() && !window->isMinimized()) return window;
  }
  return nullptr;
}

/// Blocks every window of the program, also one that is shown later. QDialog::open() would block no more than
/// the dialog's parent, which it need not have.
void runModal(QDialog& dialog) {
  dialog.setWindowModality(Qt::ApplicationModal);
  dialog.show();
  dialog.raise();
  dialog.activateWindow();
}

std::filesystem::path asPath(const QString& text) { return QFile::encodeName(text).toStdString(); }

QString asQString(const std::filesystem::path& path) {
  return QFile::decodeName(QByteArray::fromStdString(path.native()));
}

bool isFolder(const std::filesystem::path& path) {
  std::error_code ignored;
  return std::filesystem::is_directory(path, ignored);
}

/// A name within the folder that is shown, or an empty one. Qt's dialog takes quotation marks for separators
/// of several names and a tilde at the start for somebody's home.
QString nameWithin(const std::string& suggested) {
  QString name = toQString(suggested).section(QLatin1Char('/'), -1);
  name.replace(QLatin1Char('"'), QLatin1Char('\''));
  if (name.startsWith(QLatin1Char('~'))) name.replace(0, 1, QLatin1Char('_'));
  return name == QLatin1String(".") || name == QLatin1String("..") ? QString() : name;
}

}  // namespace

/// The dialogs that wait for an answer. A dialog is the child of the window it stands in front of, which may
/// end before it is answered, takes it along, and so dismisses it.
class QtDialogs::OpenDialogs {
 public:
  OpenDialogs() = default;
  OpenDialogs(const OpenDialogs&) = delete;
  OpenDialogs& operator=(const OpenDialogs&) = delete;
  ~OpenDialogs() {
    for (const QPointer<QDialog>& dialog : dialogs_) {
      if (dialog) const std::unique_ptr<QDialog> ended(dialog.data());
    }
  }

  void add(QDialog& dialog) { dialogs_.emplace_back(&dialog); }

  void remove(QDialog& dialog) {
    dialogs_.remove_if([&dialog](const QPointer<QDialog>& each) { return each.isNull() || each == &dialog; });
    dialog.deleteLater();
  }

 private:
  std::list<QPointer<QDialog>> dialogs_;
};

/// Calls back once, on a later turn, with the first answer that it is given; never once the dialogs are gone.
template <class Value>
class QtDialogs::Answer {
 public:
  Answer(const QtDialogs& dialogs, std::function<void(Value)> callback)
      : clock_(dialogs.clock_), open_(dialogs.open_), callback_(std::move(callback)) {}

  void give(Value value) {
    if (std::exchange(isGiven_, true) || open_.expired()) return;
    clock_.post([open = open_, callback = std::move(callback_), value = std::move(value)] {
      if (!open.expired()) callback(value);
    });
  }

 private:
  Clock& clock_;
  std::weak_ptr<OpenDialogs> open_;
  std::function<void(Value)> callback_;
  bool isGiven_ = false;
};

QtDialogs::QtDialogs(Clock& clock) : clock_(clock), open_(std::make_shared<OpenDialogs>()) {}

QtDialogs::~QtDialogs() = default;

namespace {

std::unique_ptr<QMessageBox> makeMessageBox(const Alert& alert) {
  auto box = std::make_unique<QMessageBox>(frontWindow());
  box->setIcon(QMessageBox::Warning);
  box->setWindowTitle(QGuiApplication::applicationDisplayName());
  box->setTextFormat(Qt::PlainText);
  box->setText(toQString(alert.messageText));
  box->setInformativeText(toQString(alert.informativeText));
  // The message may be the system's: no markup in it counts.
  if (auto* message = box->findChild<QLabel*>(QStringLiteral("qt_msgbox_informativelabel"))) {
    message->setTextFormat(Qt::PlainText);
  }
  if (auto* title = box->findChild<QLabel*>(QStringLiteral("qt_msgbox_label"))) {
    QFont font = title->font();
    font.setBold(true);
    title->setFont(font);
  }
  return box;
}

/// In the given order: buttons of one role are not rearranged.
QList<QAbstractButton*> addButtons(QMessageBox& box, const std::vector<std::string>& titles) {
  QList<QAbstractButton*> buttons;
  for (const std::string& title : titles) {
    buttons.append(box.addButton(withoutMnemonic(title), QMessageBox::ActionRole));
  }
  if (buttons.isEmpty()) return buttons;
  box.setDefaultButton(qobject_cast<QPushButton*>(buttons.front()));
  box.setEscapeButton(buttons.front());
  return buttons;
}

}  // namespace

void QtDialogs::showAlert(const Alert& alert, std::function<void(std::size_t button)> answered) {
  QMessageBox& box = *makeMessageBox(alert).release();
  open_->add(box);
  const QList<QAbstractButton*> buttons = addButtons(box, alert.buttons);
  const auto answer = std::make_shared<Answer<std::size_t>>(*this, std::move(answered));
  const auto finish = [&box, buttons, answer, open = std::weak_ptr<OpenDialogs>(open_)] {
    const qsizetype index = std::max<qsizetype>(0, buttons.indexOf(box.clickedButton()));
    if (const std::shared_ptr<OpenDialogs> dialogs = open.lock()) dialogs->remove(box);
    answer->give(static_cast<std::size_t>(index));
  };
  QObject::connect(&box, &QDialog::finished, &box, finish);
  QObject::connect(&box, &QObject::destroyed, [answer] { answer->give(0); });
  runModal(box);
}

namespace {

std::filesystem::path downloadsFolder() {
  const std::filesystem::path downloads =
      asPath(QStandardPaths::writableLocation(QStandardPaths::DownloadLocation));
  return isFolder(downloads) ? downloads
                             : asPath(QStandardPaths::writableLocation(QStandardPaths::HomeLocation));
}

/// So wide that the desktop's frame, of which the font is unknown here, can show the whole title between its
/// icon and its buttons.
int widthOfTitle(const QDialog& dialog) {
  constexpr int iconAndButtons = 160;
  QFont font = dialog.font();
  font.setBold(true);
  return QFontMetrics(font).horizontalAdvance(dialog.windowTitle()) + iconAndButtons;
}

std::unique_ptr<QFileDialog> makeFileDialog(const SavePanel& panel, const std::filesystem::path& folder) {
  auto dialog = std::make_unique<QFileDialog>(frontWindow());
  dialog->setAcceptMode(QFileDialog::AcceptSave);
  dialog->setFileMode(QFileDialog::AnyFile);
  dialog->setWindowTitle(toQString(panel.title));
  dialog->setMinimumWidth(widthOfTitle(*dialog));
  dialog->setOption(QFileDialog::ReadOnly, !panel.canCreateFolders);
  dialog->setDirectory(asQString(folder));
  const QString name = nameWithin(panel.suggestedName);
  if (!name.isEmpty()) dialog->selectFile(asQString(folder) + QLatin1Char('/') + name);
  return dialog;
}

}  // namespace

void QtDialogs::showSavePanel(const SavePanel& panel,
                              std::function<void(std::optional<std::filesystem::path>)> chosen) {
  if (!isFolder(saveFolder_)) saveFolder_ = downloadsFolder();
  QFileDialog& dialog = *makeFileDialog(panel, saveFolder_).release();
  open_->add(dialog);
  const auto answer =
      std::make_shared<Answer<std::optional<std::filesystem::path>>>(*this, std::move(chosen));
  const auto finish = [this, &dialog, answer, open = std::weak_ptr<OpenDialogs>(open_)](int result) {
    std::optional<std::filesystem::path> location;
    if (result == QDialog::Accepted && !dialog.selectedFiles().isEmpty()) {
      location = asPath(dialog.selectedFiles().front());
      saveFolder_ = location->parent_path();
    }
    if (const std::shared_ptr<OpenDialogs> dialogs = open.lock()) dialogs->remove(dialog);
    answer->give(std::move(location));
  };
  QObject::connect(&dialog, &QDialog::finished, &dialog, finish);
  QObject::connect(&dialog, &QObject::destroyed, [answer] { answer->give(std::nullopt); });
  runModal(dialog);
}

}  // namespace zunto
