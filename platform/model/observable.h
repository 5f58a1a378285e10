// State that views watch. A change notifies every observer, which then reads the whole state anew: setting
// what is already set notifies nobody, so a view may mirror without fear of echoes.
//
// Owner: the model is the value of whoever declares it; observers hold a Subscription. Thread: main thread
// only.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <utility>

namespace zunto {

class Observable {
 public:
  using Observer = std::function<void()>;

  /// Keeps one observer. Destroying it ends the notices; it may outlive the model.
  class [[nodiscard]] Subscription {
   public:
    Subscription() = default;
    Subscription(Subscription&&) noexcept = default;
    Subscription& operator=(Subscription&& other) noexcept;
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    ~Subscription();

   private:
    friend class Observable;
    struct Registry;
    Subscription(std::weak_ptr<Registry> registry, std::uint64_t key);
    void end();
    std::weak_ptr<Registry> registry_;
    std::uint64_t key_ = 0;
  };

  Observable();
  Observable(const Observable&) = delete;
  Observable& operator=(const Observable&) = delete;
  virtual ~Observable();

  /// Calls `observer` after every change, inside the call that changed. It may subscribe and unsubscribe.
  Subscription observe(Observer observer);

 protected:
  void notify();

  /// Sets `field` and notifies when that changes it.
  template <class T, class U>
  void assign(T& field, U&& value) {
    if (field == value) return;
    field = std::forward<U>(value);
    notify();
  }

 private:
  std::shared_ptr<Subscription::Registry> registry_;
};

}  // namespace zunto
