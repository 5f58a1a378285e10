// A control that keeps the keyboard focus while it is disabled.
//
// A control is disabled in the middle of what the user does with it, and enabled again soon. Would the focus
// go elsewhere meanwhile, a screen reader would speak of that place instead of what happens, and the user
// would have to find the way back. Keys pass a disabled control by: they reach the window, and Tab leads on
// from it. Owner: the window that it stands in. Thread: main thread only.
#pragma once

namespace zunto {

template <class Native>
class QtSteadyFocus : public Native {
 public:
  using Native::Native;

 protected:
  bool focusNextPrevChild(bool next) override {
    // Where Qt takes the focus away from a disabled control, it asks the control itself to hand it on.
    return !this->isEnabled() || Native::focusNextPrevChild(next);
  }
};

}  // namespace zunto
