// The meeting place of the program's instances where there is no session bus: a socket in a private folder of
// this user, one per display.
//
// Owner: the QtSingleInstance. Thread: main thread only, the callback included.
#pragma once

#include <QByteArray>
#include <QString>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace zunto {

struct LaunchRequest;

class QtSocketChannel {
 public:
  explicit QtSocketChannel(std::function<void(const LaunchRequest&)> received);
  QtSocketChannel(const QtSocketChannel&) = delete;
  QtSocketChannel& operator=(const QtSocketChannel&) = delete;
  /// Gives the place up and removes the socket.
  ~QtSocketChannel();

  /// True: this instance holds the place and listens. False: the one that holds it has the request. Blocks
  /// at most for about `patience` when that one does not answer. Where no private folder can be had this
  /// instance stays alone, and the answer is true.
  [[nodiscard]] bool claim(const LaunchRequest& request, std::chrono::milliseconds patience);

 private:
  class Place;
  class Listener;

  std::function<void(const LaunchRequest&)> received_;
  std::unique_ptr<Place> place_;
  std::unique_ptr<Listener> listener_;
};

}  // namespace zunto
