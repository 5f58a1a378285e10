// The progress of a window's job on the program's place in the desktop's task bar, where that shows one.
//
// Task bars learn of it by a signal on the session bus (com.canonical.Unity.LauncherEntry) that names the
// program's desktop entry. Owner: the window's view. Thread: main thread only.
#pragma once

#include <QDBusConnection>
#include <optional>

#include "platform/model/window.h"

namespace zunto {

class QtTaskProgress {
 public:
  /// The job's controls must outlive this object. Without a bus nothing is told.
  QtTaskProgress(std::optional<QDBusConnection> bus, const JobProgress& job);
  QtTaskProgress(const QtTaskProgress&) = delete;
  QtTaskProgress& operator=(const QtTaskProgress&) = delete;
  /// Takes the progress away again.
  ~QtTaskProgress();

 private:
  void mirrorProgress();
  void mirrorEnd();
  void tell(double percent, bool isVisible);

  std::optional<QDBusConnection> bus_;
  JobProgress job_;
  bool isShown_ = false;
  Observable::Subscription progressChanges_;
  Observable::Subscription runChanges_;
};

}  // namespace zunto
