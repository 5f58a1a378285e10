#include "platform/model/observable.h"

#include <vector>

namespace zunto {

struct Observable::Subscription::Registry {
  std::uint64_t nextKey = 1;
  std::map<std::uint64_t, std::shared_ptr<Observer>> observers;
};

Observable::Subscription::Subscription(std::weak_ptr<Registry> registry, std::uint64_t key)
    : registry_(std::move(registry)), key_(key) {}

Observable::Subscription& Observable::Subscription::operator=(Subscription&& other) noexcept {
  if (this != &other) {
    end();
    registry_ = std::move(other.registry_);
    key_ = other.key_;
  }
  return *this;
}

Observable::Subscription::~Subscription() { end(); }

void Observable::Subscription::end() {
  if (const std::shared_ptr<Registry> registry = registry_.lock()) registry->observers.erase(key_);
}

Observable::Observable() : registry_(std::make_shared<Subscription::Registry>()) {}

Observable::~Observable() = default;

Observable::Subscription Observable::observe(Observer observer) {
  const std::uint64_t key = registry_->nextKey++;
  registry_->observers.emplace(key, std::make_shared<Observer>(std::move(observer)));
  return {registry_, key};
}

void Observable::notify() {
  // An observer may end its own or another's subscription, or this object: only a copy is safe to walk.
  const std::shared_ptr<Subscription::Registry> registry = registry_;
  std::vector<std::uint64_t> keys;
  keys.reserve(registry->observers.size());
  for (const auto& entry : registry->observers) keys.push_back(entry.first);
  for (const std::uint64_t key : keys) {
    const auto found = registry->observers.find(key);
    if (found == registry->observers.end()) continue;
    const std::shared_ptr<Observer> observer = found->second;
    (*observer)();
  }
}

}  // namespace zunto
