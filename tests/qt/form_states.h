// The import form in the states that its user meets, with made-up content. Plain functions; main thread only.
#pragma once

#include <array>
#include <ostream>
#include <string>

#include "import/import_form.h"

namespace zunto::testing {

enum class FormState { empty, analyzed, working, failed, finished };

inline constexpr std::array allFormStates{FormState::empty, FormState::analyzed, FormState::working,
                                          FormState::failed, FormState::finished};

[[nodiscard]] std::string nameOf(FormState state);
inline void PrintTo(FormState state, std::ostream* out) { *out << nameOf(state); }

/// Brings the form from any state into this one, as the flows would.
void show(ImportForm& form, FormState state);

/// From any state: a subtitle's lists in the place of the qualities.
void chooseSubtitles(ImportForm& form);

/// Titles and texts longer than anybody's window, 60 qualities and 200 subtitle tracks.
void fillToTheBrim(ImportForm& form);

}  // namespace zunto::testing
