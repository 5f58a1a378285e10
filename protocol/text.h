// The few text rules that the records, requests and forms share. UTF-8 throughout; any thread.
#pragma once

#include <string>
#include <string_view>

namespace zunto {

/// Whether `text` is well-formed UTF-8.
[[nodiscard]] bool isUtf8(std::string_view text);

/// `text` without the white space and line ends at both ends, Unicode's included: pasted links carry no-break
/// spaces and line separators.
[[nodiscard]] std::string trimmed(std::string_view text);

/// The first letter of each word in upper case, the rest in lower case. Only ASCII letters change.
[[nodiscard]] std::string capitalizedWords(std::string_view text);

}  // namespace zunto
