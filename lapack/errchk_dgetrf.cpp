// Argument check of the LU entry. Positions follow DGETRF's argument list;
// the array arguments (3, 5) are not tested.
#include <algorithm>

#include "lapack/lapack.h"
#include "service/messages.h"

namespace {
constexpr int kPosM = 1;
constexpr int kPosN = 2;
constexpr int kPosLda = 4;
constexpr char kName[] = "DGETRF";
constexpr int kNameLen = 6;
}  // namespace

extern "C" int tarn_lapack_errchk_dgetrf(const int* m, const int* n, const double* /*a*/,
                                         const int* lda, const int* /*ipiv*/, int* info) {
  int fault = 0;
  if (*m < 0)
    fault = kPosM;
  else if (*n < 0)
    fault = kPosN;
  else if (*lda < std::max(1, *m))
    fault = kPosLda;
  if (fault == 0) {
    *info = 0;
    return 0;
  }
  *info = -fault;
  tarn_serv_iface_xerbla(kName, &fault, kNameLen);
  return 1;
}
