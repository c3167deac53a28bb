// Dates are seconds since 2001-01-01 00:00:00 UTC, held as a double.
#pragma once

namespace inkharbour {

using Date = double;

// Seconds between the Unix epoch and 2001-01-01 00:00:00 UTC.
inline constexpr double kUnixToReferenceDate = 978307200.0;

// The current time.
Date now();

}  // namespace inkharbour
