// Tuned answers of ILAENV for DGETRF: the recursive block width (ispec 1)
// and the cross-over between the sequential LU and the parallel driver
// (ispec 3), by processor branch and shape.
#pragma once

namespace tarn_lapack_tuning {

// Block width for an m by n factorization. `sequential` is the "S" option
// of the sequential recursive LU; otherwise `nthreads` is the number of
// threads the caller will run (n3 of the query). Always at least 1.
int getrf_block_width(int branch, bool sequential, int m, int n, int nthreads);

// 0 when the parallel driver should take the matrix, non-zero for shapes
// too narrow for thread teams. Depends on the shape alone.
int getrf_crossover(int m, int n);

}  // namespace tarn_lapack_tuning
