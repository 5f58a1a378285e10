// How the controls of a window stand: stacks of elements, described once and shown by every backend.
//
// Plain values that refer to the controls; the form that owns the controls owns the layout. Main thread only.
#pragma once

#include <functional>
#include <memory>
#include <variant>
#include <vector>

#include "platform/model/controls.h"

namespace zunto {

struct Stack;

/// A horizontal line.
struct Separator {};

using Element = std::variant<std::reference_wrapper<Label>, std::reference_wrapper<TextField>,
                             std::reference_wrapper<CheckBox>, std::reference_wrapper<PushButton>,
                             std::reference_wrapper<PopUpButton>, std::reference_wrapper<ProgressBar>,
                             Separator, std::shared_ptr<const Stack>>;

enum class ElementWidth {
  natural,  ///< as wide as its content asks
  column,   ///< as wide as the widest element of the window that is of a column: what follows them lines up
  stack     ///< as wide as the stack it stands in
};

struct StackItem {
  Element element;
  ElementWidth width = ElementWidth::natural;
};

enum class Orientation { horizontal, vertical };

/// Across the stack's orientation.
enum class StackAlignment { leading, center };

/// Elements one after another. A hidden control takes no room, its spacing included.
struct Stack {
  Orientation orientation = Orientation::vertical;
  StackAlignment alignment = StackAlignment::leading;
  double spacing = 0;  ///< points between two neighbours
  std::vector<StackItem> items;
};

/// Points between the stack and the edges of the content it stands in.
struct Insets {
  double leading = 0;
  double trailing = 0;
  double top = 0;
  double minimumBottom = 0;
};

struct Size {
  double width = 0;
  double height = 0;
};

}  // namespace zunto
