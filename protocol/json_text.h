// JSON text as Boost.JSON's values, with numbers that are exact.
//
// Boost's own reading of a number may be some last places off, and fails for exponents that belong to valid
// numbers. Here a number becomes the double that is nearest to it, whatever it looks like. Plain functions;
// any thread.
#pragma once

#include <boost/json/value.hpp>
#include <optional>
#include <string_view>

namespace zunto {

/// `text`, UTF-8 and the whole of it. Throws DecodingError when it is not JSON or nested deeper than 64
/// levels. The numbers in the result are for numberIn() alone.
[[nodiscard]] boost::json::value parseJson(std::string_view text);

/// The number in `value`, none when it is of another type; infinite where no double comes near.
[[nodiscard]] std::optional<double> numberIn(const boost::json::value& value);

}  // namespace zunto
