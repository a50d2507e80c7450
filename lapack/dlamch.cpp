// Machine constants of IEEE double precision, stored rather than computed:
// the answers must not depend on how the compiler evaluates a probing loop.
#include "lapack/lapack.h"

namespace {

struct DlamchEntry {
  char key;
  double value;
};

// Keyed by the upper-case first character of the query.
constexpr DlamchEntry kDlamchTable[] = {
    {'E', 0x1p-53},                   // relative machine epsilon
    {'S', 2.2250738585072014e-308},   // safe minimum: 1/S does not overflow
    {'B', 2.0},                       // base
    {'P', 0x1p-52},                   // epsilon times base
    {'N', 53.0},                      // mantissa digits
    {'R', 1.0},                       // rounding in addition
    {'M', -1021.0},                   // minimum exponent
    {'U', 2.2250738585072014e-308},   // underflow threshold
    {'L', 1024.0},                    // maximum exponent
    {'O', 1.7976931348623157e+308},   // overflow threshold
    {'T', 98.70149282610821},         // kept as data; no caller here
    {'F', 0x1p-484},                  // kept as data; no caller here
    {'X', 0x1p484},                   // kept as data; no caller here
    {'A', 0x1p-340},                  // kept as data; no caller here
    {'I', 0x1p340},                   // kept as data; no caller here
};

// Clearing bit 5 folds ASCII lower case onto upper case.
constexpr unsigned char kCaseBit = 0x20;

}  // namespace

extern "C" double tarn_lapack_dlamch(const char* cmach) {
  if (cmach == nullptr) return 0.0;
  const char key = static_cast<char>(static_cast<unsigned char>(*cmach) & ~kCaseBit);
  for (const DlamchEntry& e : kDlamchTable)
    if (e.key == key) return e.value;
  return 0.0;
}
