// The program's entry, the same on every platform: what stands before it builds the backends.
#pragma once

#include <functional>
#include <memory>

#include "app/helper_delegate.h"
#include "platform/application.h"

namespace zunto {

using DelegateFactory = std::function<std::shared_ptr<HelperDelegate>(FixedAddresses)>;

/// Parses the fixed addresses, makes the one delegate, runs the event loop until the application terminates,
/// and answers the program's exit status: 0. Main thread.
[[nodiscard]] int runHelper(ApplicationLoop& application, const DelegateFactory& makeDelegate);

}  // namespace zunto
