#include "platform/qt/qt_task_progress.h"

#include <QDBusMessage>
#include <QVariantMap>
#include <utility>

#include "platform/qt/qt_single_instance.h"

namespace zunto {

QtTaskProgress::QtTaskProgress(std::optional<QDBusConnection> bus, const JobProgress& job)
    : bus_(std::move(bus)), job_(job) {
  if (!bus_ || job_.progress == nullptr) return;
  progressChanges_ = job_.progress->observe([this] { mirrorProgress(); });
  runChanges_ = job_.runsWhileShown->observe([this] { mirrorEnd(); });
}

QtTaskProgress::~QtTaskProgress() {
  if (isShown_) tell(0, false);
}

/// What the bar holds when a job begins is left from earlier work, so the first change begins.
void QtTaskProgress::mirrorProgress() {
  if (!job_.runsWhileShown->isHidden()) tell(job_.progress->value(), true);
}

void QtTaskProgress::mirrorEnd() {
  if (isShown_ && job_.runsWhileShown->isHidden()) tell(0, false);
}

void QtTaskProgress::tell(double percent, bool isVisible) {
  isShown_ = isVisible;
  QDBusMessage update = QDBusMessage::createSignal(QLatin1String(QtSingleInstance::objectPath),
                                                   QStringLiteral("com.canonical.Unity.LauncherEntry"),
                                                   QStringLiteral("Update"));
  update << QStringLiteral("application://%1.desktop").arg(QLatin1String(QtSingleInstance::busName))
         << QVariantMap{{QStringLiteral("progress"), percent / ProgressBar::maximum},
                        {QStringLiteral("progress-visible"), isVisible}};
  bus_->send(update);
}

}  // namespace zunto
