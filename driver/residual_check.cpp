// The verdict of one trial on its residuals.
#include <cmath>

#include "driver/driver.h"

namespace {
// A normalised residual at or above this fails.
constexpr double kResidnLimit = 100.0;
}  // namespace

// residn must be a number strictly below the limit (so 100.0 and +inf
// fail); resid has no bound but must not be NaN.
bool residual_check_passes(double resid, double residn) {
  return !std::isnan(residn) && kResidnLimit > residn && !std::isnan(resid);
}
