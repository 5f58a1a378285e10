#include "platform/qt/qt_application.h"

#include <fcntl.h>
#include <unistd.h>

#include <QApplication>
#include <QEvent>
#include <QIcon>
#include <QPixmapCache>
#include <QSemaphore>
#include <QSocketNotifier>
#include <QThread>
#include <QWidget>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <utility>

#include "platform/qt/qt_pop_up.h"
#include "platform/qt/qt_progress_bar.h"
#include "platform/qt/qt_single_instance.h"
#include "platform/qt/qt_status_icon.h"
#include "platform/qt/qt_text_label.h"

namespace zunto {

namespace {

constexpr std::array<int, 3> endingSignals{SIGTERM, SIGINT, SIGHUP};

/// Where a signal handler writes to: it is given nothing but the signal, so it finds the pipe here.
std::atomic<int> signalPipe{-1};
static_assert(std::atomic<int>::is_always_lock_free);

extern "C" void noteSignal(int) {
  const int keptError = errno;
  const char note = 1;
  // A full pipe has notes enough.
  [[maybe_unused]] const ssize_t written = write(signalPipe.load(), &note, 1);
  errno = keptError;
}

}  // namespace

/// Turns the signals that end a program into a turn of the main loop.
class QtApplication::SignalTurns {
 public:
  explicit SignalTurns(std::function<void()> ended) {
    if (pipe2(pipe_.data(), O_CLOEXEC | O_NONBLOCK) != 0) throw std::runtime_error("no pipe for signals");
    signalPipe = pipe_[1];
    notifier_ = std::make_unique<QSocketNotifier>(pipe_[0], QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(),
                     [this, ended = std::move(ended)] {
                       std::array<char, 16> notes{};
                       while (read(pipe_[0], notes.data(), notes.size()) > 0) {
                       }
                       ended();
                     });
    for (std::size_t i = 0; i < endingSignals.size(); ++i) takeOver(i);
  }
  SignalTurns(const SignalTurns&) = delete;
  SignalTurns& operator=(const SignalTurns&) = delete;
  ~SignalTurns() {
    for (std::size_t i = 0; i < endingSignals.size(); ++i) sigaction(endingSignals[i], &earlier_[i], nullptr);
    signalPipe = -1;
    notifier_.reset();
    close(pipe_[0]);
    close(pipe_[1]);
  }

 private:
  void takeOver(std::size_t index) {
    sigaction(endingSignals[index], nullptr, &earlier_[index]);
    if (earlier_[index].sa_handler == SIG_IGN) return;
    struct sigaction action {};
    action.sa_handler = noteSignal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(endingSignals[index], &action, nullptr);
  }

  std::array<int, 2> pipe_{-1, -1};
  std::array<struct sigaction, endingSignals.size()> earlier_{};
  std::unique_ptr<QSocketNotifier> notifier_;
};

/// Qt ends the program by _exit() when the Wayland compositor is gone: nothing of the program runs any more.
/// It says so before, on whichever of its threads has noticed, and that is where the delegate is told.
class QtApplication::CompositorWatch {
 public:
  CompositorWatch() { earlier = qInstallMessageHandler(listen); }
  CompositorWatch(const CompositorWatch&) = delete;
  CompositorWatch& operator=(const CompositorWatch&) = delete;
  ~CompositorWatch() { qInstallMessageHandler(earlier); }

 private:
  static void listen(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    earlier.load()(type, context, message);
    if (message.startsWith(QLatin1String("The Wayland connection "))) tell();
  }
  static void tell();

  inline static std::atomic<QtMessageHandler> earlier{};
};

class QtApplication::Native final : public QApplication {
 public:
  Native(QtApplication& owner, int& argc, char** argv) : QApplication(argc, argv), owner_(owner) {}

  bool event(QEvent* event) override {
    // The end of the desktop session, or Qt's quit(). Left to Qt it would close the windows, which here means
    // no more than hiding them.
    if (event->type() == QEvent::Quit) {
      owner_.terminate();
      return true;
    }
    return QApplication::event(event);
  }

  /// The application of this process; null where it is another's or none.
  static QtApplication* running() {
    auto* native = dynamic_cast<Native*>(QCoreApplication::instance());
    return native ? &native->owner_ : nullptr;
  }

  /// Qt ends the program by exit() when the display is gone; the delegate is told all the same.
  static void endAtExit() {
    if (QtApplication* application = running()) application->endDelegate();
  }

 private:
  QtApplication& owner_;
};

void QtApplication::CompositorWatch::tell() {
  QtApplication* application = Native::running();
  if (application == nullptr) return;
  if (QThread::currentThread() == application->native_->thread()) {
    application->endDelegate();
    return;
  }
  // This thread is about to end the program. It waits for the main one, but not for a main one that is stuck.
  constexpr int patienceInMilliseconds = 2000;
  const auto told = std::make_shared<QSemaphore>();
  QMetaObject::invokeMethod(
      application->native_.get(),
      [application, told] {
        application->endDelegate();
        told->release();
      },
      Qt::QueuedConnection);
  told->tryAcquire(1, patienceInMilliseconds);
}

QtApplication::QtApplication(int argc, char** argv) : argc_(argc), argv_(argv) {
  QCoreApplication::setApplicationName(QStringLiteral("ZUNTO Helper"));
  // One name for the desktop entry, the window and the bus.
  QGuiApplication::setDesktopFileName(QString::fromLatin1(QtSingleInstance::busName));
  // Neither the last window nor the last job of the desktop's libraries ends the program.
  QGuiApplication::setQuitOnLastWindowClosed(false);
  QCoreApplication::setQuitLockEnabled(false);
  // A menu bar stays in its window: it is there where the desktop's own would hide it. Asking whether there
  // is one would wait for the bus, too.
  QCoreApplication::setAttribute(Qt::AA_DontUseNativeMenuBar);
  native_ = std::make_unique<Native>(*this, argc_, argv_);
  // Each save panel draws its controls' pictures anew under names of their own, and the cache keeps the names
  // of those that it drops, too. Controls that are drawn without it are not seen to be slower.
  QPixmapCache::setCacheLimit(0);
  QGuiApplication::setWindowIcon(makeStatusIcon(StatusMark::none));
  nameQtPopUpsForScreenReaders();
  announceQtTextLabels();
  countQtProgressBarsInPercent();
}

QtApplication::~QtApplication() = default;

void QtApplication::activateIgnoringOtherApps() {
  for (QWidget* window : QApplication::topLevelWidgets()) {
    if (!window->isVisible() || window->windowType() == Qt::Popup || window->windowType() == Qt::ToolTip) {
      continue;
    }
    window->raise();
    window->activateWindow();
  }
  // A dialog stands in front of the window that it blocks.
  if (QWidget* dialog = QApplication::activeModalWidget()) {
    dialog->raise();
    dialog->activateWindow();
  }
}

void QtApplication::terminate() {
  endDelegate();
  QCoreApplication::exit(0);
}

void QtApplication::endDelegate() {
  if (std::exchange(terminated_, true)) return;
  if (const std::shared_ptr<ApplicationDelegate> delegate = delegate_.lock()) {
    delegate->applicationWillTerminate();
  }
}

bool QtApplication::hasTerminated() {
  const QtApplication* application = Native::running();
  return application != nullptr && application->terminated_;
}

void QtApplication::setDelegate(std::weak_ptr<ApplicationDelegate> delegate) {
  delegate_ = std::move(delegate);
}

void QtApplication::setActivationPolicy(ActivationPolicy) {
  // A program with a window shows in the task bar without being asked to.
}

void QtApplication::run() {
  if (terminated_) return;
  signals_ = std::make_unique<SignalTurns>([this] { terminate(); });
  compositor_ = std::make_unique<CompositorWatch>();
  QMetaObject::invokeMethod(
      native_.get(), [this] { finishLaunching(); }, Qt::QueuedConnection);
  QCoreApplication::exec();
  endDelegate();
}

void QtApplication::finishLaunching() {
  if (terminated_) return;
  if (const std::shared_ptr<ApplicationDelegate> delegate = delegate_.lock()) {
    delegate->applicationDidFinishLaunching();
  }
  // Only now: what the launch has made of the libraries' globals is destroyed after this has run.
  std::atexit(&Native::endAtExit);
}

}  // namespace zunto
