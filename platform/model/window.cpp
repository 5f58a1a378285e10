#include "platform/model/window.h"

namespace zunto {

void Window::show() {
  visible_ = true;
  ++showRequests_;
  notify();
}

void Window::center() {
  ++centerRequests_;
  notify();
}

void Window::userClosed() {
  if (!visible_) return;
  if (willClose_) willClose_();
  visible_ = false;
  notify();
}

}  // namespace zunto
