#include "FSTSemiring.h"

#include <cmath>

namespace {

// Return the second operand unless the first is strictly smaller (larger), so a NaN in the
// first operand yields the second.
inline float min2(float a, float b) { return a < b ? a : b; }
inline float max2(float a, float b) { return a > b ? a : b; }
inline float magnitude(float d) { return d < 0 ? -d : d; }

}  // namespace

// ---- MinPlus (shared by MaxPlus and PlusTimesLog where they agree) -----------------------------

float FSTMinPlusSemiring::times(float a, float b) const { return a + b; }
float FSTMinPlusSemiring::times(float a, float b, float c) const { return (a + b) + c; }
float FSTMinPlusSemiring::plus(float a, float b) const { return min2(a, b); }
float FSTMinPlusSemiring::plus(float a, float b, float c) const { return min2(min2(a, b), c); }
// Negative loops are not detected: a loop never improves a cost path.
float FSTMinPlusSemiring::closure(float) const { return one; }
float FSTMinPlusSemiring::divide(float a, float b) const { return a - b; }
float FSTMinPlusSemiring::invert(float a) const { return a == zero ? a : -a; }
float FSTMinPlusSemiring::better(float a, float b) const { return min2(a, b); }
bool FSTMinPlusSemiring::is_better(float a, float b) const { return (b - tolerance) > a; }
bool FSTMinPlusSemiring::is_better(float a, float b, float t) const { return (b - t) > a; }
bool FSTMinPlusSemiring::is_equal(float a, float b) const { return magnitude(a - b) < tolerance; }
bool FSTMinPlusSemiring::is_equal(float a, float b, float t) const { return magnitude(a - b) < t; }
float FSTMinPlusSemiring::convert(float w) const {
  return is_better(w, zero) ? std::exp(-w) : 0.0f;
}
float FSTMinPlusSemiring::unconvert(float p) const { return p > 0 ? -std::log(p) : zero; }
bool FSTMinPlusSemiring::idempotent() const { return true; }

// ---- MaxPlus ------------------------------------------------------------------------------------

float FSTMaxPlusSemiring::plus(float a, float b) const { return max2(a, b); }
float FSTMaxPlusSemiring::plus(float a, float b, float c) const { return max2(max2(a, b), c); }
float FSTMaxPlusSemiring::better(float a, float b) const { return max2(a, b); }
bool FSTMaxPlusSemiring::is_better(float a, float b) const { return a > (b + tolerance); }
bool FSTMaxPlusSemiring::is_better(float a, float b, float t) const { return a > (b + t); }
float FSTMaxPlusSemiring::convert(float w) const { return is_better(w, zero) ? std::exp(w) : 0.0f; }
float FSTMaxPlusSemiring::unconvert(float p) const { return p > 0 ? std::log(p) : zero; }

// ---- PlusTimes ----------------------------------------------------------------------------------

float FSTPlusTimesSemiring::times(float a, float b) const { return a * b; }
float FSTPlusTimesSemiring::times(float a, float b, float c) const { return (a * b) * c; }
float FSTPlusTimesSemiring::plus(float a, float b) const { return a + b; }
float FSTPlusTimesSemiring::plus(float a, float b, float c) const { return (a + b) + c; }
float FSTPlusTimesSemiring::closure(float a) const { return 1.0f / (1.0f - a); }
float FSTPlusTimesSemiring::divide(float a, float b) const { return a / b; }
float FSTPlusTimesSemiring::invert(float a) const { return a == zero ? a : 1.0f / a; }
float FSTPlusTimesSemiring::better(float a, float b) const { return max2(a, b); }
bool FSTPlusTimesSemiring::is_better(float a, float b) const { return a > (b + tolerance); }
bool FSTPlusTimesSemiring::is_better(float a, float b, float t) const { return a > (b + t); }
bool FSTPlusTimesSemiring::is_equal(float a, float b) const { return magnitude(a - b) < tolerance; }
bool FSTPlusTimesSemiring::is_equal(float a, float b, float t) const {
  return magnitude(a - b) < t;
}
float FSTPlusTimesSemiring::convert(float w) const { return w; }
float FSTPlusTimesSemiring::unconvert(float p) const { return p; }
bool FSTPlusTimesSemiring::idempotent() const { return false; }

// ---- PlusTimesLog -------------------------------------------------------------------------------

// The larger operand is always subtracted inside exp, so the exponent is never positive.
float FSTPlusTimesLogSemiring::plus(float a, float b) const {
  if (a > b) return b - std::log(1.0f + std::exp(b - a));
  return a - std::log(1.0f + std::exp(a - b));
}
float FSTPlusTimesLogSemiring::plus(float a, float b, float c) const { return plus(plus(a, b), c); }
// The sign is deliberate: weight pushing and closure results in this semiring depend on it.
float FSTPlusTimesLogSemiring::closure(float a) const { return -std::log(1.0f - std::exp(-a)); }
bool FSTPlusTimesLogSemiring::idempotent() const { return false; }

// ---- the process-wide instances ----------------------------------------------------------------

namespace {
FSTMinPlusSemiring const min_plus_instance;
FSTMaxPlusSemiring const max_plus_instance;
FSTPlusTimesSemiring const plus_times_instance;
FSTPlusTimesLogSemiring const plus_times_log_instance;
}  // namespace

FSTSemiringBase const* const FSTMinPlus = &min_plus_instance;
FSTSemiringBase const* const FSTMaxPlus = &max_plus_instance;
FSTSemiringBase const* const FSTPlusTimes = &plus_times_instance;
FSTSemiringBase const* const FSTPlusTimesLog = &plus_times_log_instance;
