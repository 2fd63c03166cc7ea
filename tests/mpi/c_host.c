/* A C99 host of vqmath_mpi: a tridiagonal system (2 on the diagonal, -1 beside it) split over
   the processes, solved, and checked against its closed form. Exits 0 when the solution is
   right on every process. */
#include "vqmath.h"
#include "vqmath_mpi.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char** argv)
{
    int rank = 0, size = 1, first, last, rows, r, code, failed = 0, anyFailed = 0;
    const int n = 40;
    int* pointers;
    int* columns;
    double *values, *load, *x;
    MPI_Init(&argc, &argv);
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    MPI_Comm_size(MPI_COMM_WORLD, &size);
    first = 1 + rank * (n / size);
    last = rank == size - 1 ? n : (rank + 1) * (n / size);
    rows = last - first + 1;
    pointers = malloc(sizeof(int) * (rows + 1));
    columns = malloc(sizeof(int) * 2 * rows);
    values = malloc(sizeof(double) * 2 * rows);
    load = malloc(sizeof(double) * rows);
    x = malloc(sizeof(double) * rows);
    pointers[0] = 1;
    for (r = 0; r < rows; ++r) {
        const int i = first + r;
        int p = pointers[r] - 1;
        columns[p] = i;
        values[p++] = 2.0;
        if (i < n) {
            columns[p] = i + 1;
            values[p++] = -1.0;
        }
        pointers[r + 1] = p + 1;
        load[r] = i == n ? (double)(n + 1) : 0.0; /* x_i = i solves it */
    }
    code = VQ_MpiDirectSparseSolver(MPI_COMM_WORLD, n, first, last, pointers, columns, values, 1, load, x, 2, 0);
    if (code != 0) {
        fprintf(stderr, "process %d: code %d\n", rank, code);
        failed = 1;
    }
    for (r = 0; r < rows && !failed; ++r)
        if (fabs(x[r] - (first + r)) > 1e-10 * n) failed = 1;
    MPI_Allreduce(&failed, &anyFailed, 1, MPI_INT, MPI_MAX, MPI_COMM_WORLD);
    free(pointers);
    free(columns);
    free(values);
    free(load);
    free(x);
    MPI_Finalize();
    return anyFailed;
}
