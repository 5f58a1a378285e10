// What task bars are told of a download job.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QDBusMessage>
#include <QObject>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/qt/form_world.h"
#include "tests/qt/private_bus.h"

namespace zunto::testing {
namespace {

using ::testing::ElementsAre;

/// A task bar of the desktop.
class TaskBar : public QObject {
  Q_OBJECT

 public:
  explicit TaskBar(QDBusConnection bus) {
    bus.connect(QString(), QString(), QStringLiteral("com.canonical.Unity.LauncherEntry"),
                QStringLiteral("Update"), this, SLOT(update(QString, QVariantMap)));
  }

  /// "ENTRY PERCENT" or "ENTRY gone" for each news.
  std::vector<std::string> seen;

 public Q_SLOTS:
  void update(const QString& entry, const QVariantMap& properties) {
    const bool isVisible = properties.value(QStringLiteral("progress-visible")).toBool();
    const double progress = properties.value(QStringLiteral("progress"), -1).toDouble();
    seen.push_back(fromQString(entry) + " " +
                   (isVisible ? std::to_string(static_cast<int>(progress * 100)) : std::string("gone")));
  }
};

class TaskProgress : public QtTest {
 protected:
  static std::string entry(const std::string& news) {
    return "application://example.zunto.Helper.desktop " + news;
  }
  bool sees(std::size_t count) {
    return runUntil([this, count] { return bar.seen.size() >= count; });
  }

  PrivateBus bus;
  TaskBar bar{bus.connect()};
  std::unique_ptr<FormWindow> window = std::make_unique<FormWindow>(bus.connect());
};

TEST_F(TaskProgress, IsShownWhileAJobRunsAndGoneAtItsEnd) {
  ImportForm& form = window->form;
  form.progress.setValue(60);
  form.progress.setValue(100);  // of an analysis
  form.cancelButton.setHidden(false);
  form.progress.setValue(0);
  form.progress.setValue(42.5);
  form.cancelButton.setHidden(true);
  form.progress.setValue(50);
  form.cancelButton.setHidden(false);
  form.progress.setValue(75);
  ASSERT_TRUE(sees(4));
  EXPECT_THAT(bar.seen, ElementsAre(entry("0"), entry("42"), entry("gone"), entry("75")));
}

TEST_F(TaskProgress, IsGoneWithItsWindow) {
  window->form.cancelButton.setHidden(false);
  window->form.progress.setValue(30);
  window.reset();
  ASSERT_TRUE(sees(2));
  EXPECT_THAT(bar.seen, ElementsAre(entry("30"), entry("gone")));
}

}  // namespace
}  // namespace zunto::testing

#include "task_progress_test.moc"
