// How analysed media read in the form. Plain functions; any thread.
#pragma once

#include <optional>
#include <string>

#include "protocol/records.h"

namespace zunto {

/// The title of one subtitle track in the pop-up.
[[nodiscard]] std::string subtitleLabel(const SubtitleTrack& track);

/// Minutes and seconds of `duration` (seconds), without hours: 3725 is "62:05". A negative duration shows
/// both parts negative. One that is not finite or beyond 64 bits is a fatal error: no honest text stands for
/// it.
[[nodiscard]] std::string formatDuration(double duration);

/// The name that the save panel proposes for a file that the processor calls `filename`. The processor's word
/// is only a suggestion and must not lead out of the folder that the user sees: its last path component
/// without control characters, at most 255 bytes with the extension kept; "ZUNTO-download" when nothing is
/// left.
[[nodiscard]] std::string suggestedFileName(const std::optional<std::string>& filename);

}  // namespace zunto
