// The desktop session's message bus.
#pragma once

#include <QDBusConnection>
#include <optional>

namespace zunto {

/// The program's connection to the session bus; none where the session has no bus or it does not answer. A
/// bus is never started for this: one that only this program knows would lead to nobody. Main thread only,
/// while a QtApplication lives.
[[nodiscard]] std::optional<QDBusConnection> connectToSessionBus();

}  // namespace zunto
