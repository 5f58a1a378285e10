// Native views bound to the elements of a window's content. A view shows its model's state and tells the
// model what the user did; it keeps nothing of its own.
//
// Owner: the window's binding. Destroying a binding ends its notices and takes its target away from the
// native control, which lives on as long as its window shows it. The model must outlive the binding. Thread:
// main thread only.
#pragma once

#import <Cocoa/Cocoa.h>

#include <memory>
#include <vector>

#import "platform/appkit/retained.h"
#include "platform/model/layout.h"

namespace zunto {

class ViewBinding {
 public:
  ViewBinding() = default;
  ViewBinding(const ViewBinding&) = delete;
  ViewBinding& operator=(const ViewBinding&) = delete;
  virtual ~ViewBinding() = default;

  /// Lives at least as long as the binding.
  [[nodiscard]] virtual NSView* view() const = 0;

  /// Whether the view takes whatever width its stack has, since its text breaks into lines.
  [[nodiscard]] virtual bool fillsWidth() const { return false; }

  /// The views of a stack, at any depth, that stand in the window's column.
  [[nodiscard]] virtual std::vector<NSView*> column() const { return {}; }
};

/// A stack view with a bound view for every element, in order.
[[nodiscard]] std::unique_ptr<ViewBinding> makeStackView(const Stack& stack);

}  // namespace zunto
