// ran_: the 48-bit multiplicative congruential generator of the matrix
// generator. The seed is four base-4096 digits, most significant first;
// each call multiplies it by a fixed 48-bit multiplier modulo 2^48 and
// returns the new seed scaled into [0, 1).
#include "driver/driver.h"

namespace {
constexpr int32_t kDigitBase = 4096;
// Multiplier digits, most significant first.
constexpr int32_t kM1 = 494;
constexpr int32_t kM2 = 322;
constexpr int32_t kM3 = 2508;
constexpr int32_t kM4 = 2549;
constexpr double kDigitScale = 1.0 / kDigitBase;
}  // namespace

extern "C" double ran_(int32_t* iseed) {
  const int32_t i1 = iseed[0], i2 = iseed[1], i3 = iseed[2], i4 = iseed[3];

  // Schoolbook product digit by digit, carrying upward; the top digit is
  // reduced modulo the base, which drops everything above 2^48.
  int32_t it4 = i4 * kM4;
  int32_t it3 = it4 / kDigitBase;
  it4 -= kDigitBase * it3;
  it3 += i3 * kM4 + i4 * kM3;
  int32_t it2 = it3 / kDigitBase;
  it3 -= kDigitBase * it2;
  it2 += i2 * kM4 + i3 * kM3 + i4 * kM2;
  int32_t it1 = it2 / kDigitBase;
  it2 -= kDigitBase * it1;
  it1 += i1 * kM4 + i2 * kM3 + i3 * kM2 + i4 * kM1;
  it1 %= kDigitBase;

  iseed[0] = it1;
  iseed[1] = it2;
  iseed[2] = it3;
  iseed[3] = it4;

  // The value 1.0 cannot come out of four digits below the base, so unlike
  // the textbook routine there is no retry.
  const double r = kDigitScale;
  return r * (static_cast<double>(it1) +
              r * (static_cast<double>(it2) +
                   r * (static_cast<double>(it3) + r * static_cast<double>(it4))));
}
