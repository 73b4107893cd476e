// Conversions of numbers that may not fit.
#pragma once

#include <cmath>
#include <limits>

// Truncates to a signed integer, held to the ends of its range; NaN gives 0.
template <typename Integer, typename Real>
Integer saturated(Real value) {
    using Limits = std::numeric_limits<Integer>;
    // The ends as the real type has them: the upper one is the first value that does not fit.
    const Real beyond = -static_cast<Real>(Limits::min());
    if (std::isnan(value)) {
        return 0;
    }
    if (value >= beyond) {
        return Limits::max();
    }
    return value < -beyond ? Limits::min() : static_cast<Integer>(value);
}
