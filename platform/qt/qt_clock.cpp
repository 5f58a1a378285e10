#include "platform/qt/qt_clock.h"

#include <QCoreApplication>
#include <QEvent>
#include <QObject>
#include <QTimer>
#include <algorithm>
#include <utility>

#include "platform/qt/qt_application.h"

namespace zunto {

namespace {

class TurnEvent final : public QEvent {
 public:
  explicit TurnEvent(Clock::Turn turn) : QEvent(QEvent::User), turn_(std::move(turn)) {}
  [[nodiscard]] const Clock::Turn& turn() const { return turn_; }

 private:
  Clock::Turn turn_;
};

/// Whole milliseconds that are no shorter than `duration`, within what a native timer can wait in one go.
std::chrono::milliseconds nativeDelay(std::chrono::nanoseconds duration) {
  constexpr std::chrono::hours longest(24);
  if (duration > longest) return longest;
  return std::max(std::chrono::ceil<std::chrono::milliseconds>(duration), std::chrono::milliseconds::zero());
}

}  // namespace

/// Receives one native event per turn. Qt keeps them in order, takes them from any thread, and drops those
/// that wait when the receiver is destroyed.
class QtClock::TurnQueue final : public QObject {
 public:
  void customEvent(QEvent* event) override {
    // A turn may run a nested event loop, and only this event keeps its function alive: it does until return.
    const auto* turn = dynamic_cast<TurnEvent*>(event);
    if (turn && !QtApplication::hasTerminated()) turn->turn()();
  }
};

class QtClock::PendingTimer final : public Timer {
 public:
  PendingTimer(const QtClock& clock, std::chrono::nanoseconds delay, Turn turn)
      : clock_(clock),
        due_(clock.now() + std::max(delay, std::chrono::nanoseconds::zero())),
        turn_(std::move(turn)) {
    native_.setSingleShot(true);
    native_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&native_, &QTimer::timeout, &native_, [this] { fire(); });
    native_.start(nativeDelay(delay));
  }

 private:
  void fire() {
    if (QtApplication::hasTerminated()) return;
    const std::chrono::nanoseconds left = due_ - clock_.now();
    if (left > std::chrono::nanoseconds::zero()) {
      native_.start(nativeDelay(left));
      return;
    }
    // The turn may destroy this timer.
    const Turn turn = std::move(turn_);
    turn();
  }

  const QtClock& clock_;
  std::chrono::nanoseconds due_;
  Turn turn_;
  QTimer native_;
};

QtClock::QtClock() : turns_(std::make_unique<TurnQueue>()) {}

QtClock::~QtClock() = default;

std::chrono::nanoseconds QtClock::now() const { return std::chrono::steady_clock::now().time_since_epoch(); }

std::unique_ptr<Timer> QtClock::callLater(std::chrono::nanoseconds delay, Turn turn) {
  return std::make_unique<PendingTimer>(*this, delay, std::move(turn));
}

void QtClock::post(Turn turn) {
  QCoreApplication::postEvent(turns_.get(), std::make_unique<TurnEvent>(std::move(turn)).release());
}

}  // namespace zunto
