// Dense generalized eigen entry points: VQ_EigenvalueAnalysis_LAPACK, _LAPACK2, _LAPACK3 (MKL's
// LAPACKE_dsygv) and _JACOBI, _JACOBI2, _JACOBI3 (the library's generalized Jacobi method).
//
// Frame of every function: reset the registry, check the input (-64 with a description), clear
// the n eigenvalue slots, run the solver, and turn any solver failure into -30 "LAPACK Eigenvalue
// Solution Failed" (the Jacobi paths deliberately report the LAPACK text too, never -35). Dense
// n x n work copies are allocated here; their allocation failure gives -1. Nothing is thrown
// across the boundary and nothing is written past the n (and n x n) output slots.
#include <mkl_lapacke.h>

#include <climits>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "api/internal/CsrValidation.h"
#include "eigen/internal/GeneralizedJacobi.h"
#include "vqmath.h"

namespace {

using vqmath::internal::RecordInvalidInput;
using vqmath::internal::ValidateUpperCsr;

constexpr int kSolutionFailed = -30;
constexpr int kNoMemory = -1;

// Elements of an n x n work array. The library counts elements in 32 bits: a larger array is
// reported as an allocation failure (-1) at once instead of being attempted, which on a 64-bit
// host could commit tens of gigabytes before failing.
std::size_t Square(int n) {
  const std::size_t count = static_cast<std::size_t>(n) * static_cast<std::size_t>(n);
  if (count > static_cast<std::size_t>(INT_MAX)) throw std::bad_alloc();
  return count;
}
// Every path that packs a matrix also needs an n x n array later: an order too large for that is
// refused before the packed copies are made.
std::size_t Packed(int n) {
  (void)Square(n);
  return static_cast<std::size_t>(n) * (static_cast<std::size_t>(n) + 1) / 2;
}

// Packed upper position (column by column) of 1-based i <= j.
inline std::size_t PackedAt(int i, int j) {
  return static_cast<std::size_t>(j - 1) * j / 2 + static_cast<std::size_t>(i - 1);
}

bool AllFinite(const double* v, std::size_t count) {
  for (std::size_t k = 0; k < count; ++k)
    if (!std::isfinite(v[k])) return false;
  return true;
}

// Checks sparse K (or M) and records the problem under the matrix's name.
bool CheckSparse(const char* name, int n, const int* ia, const int* ja, const double* a) {
  std::string problem;
  if (!ValidateUpperCsr(n, ia, ja, a, &problem)) {
    RecordInvalidInput(std::string(name) + ": " + problem);
    return false;
  }
  if (!AllFinite(a, static_cast<std::size_t>(ia[n] - 1))) {
    RecordInvalidInput(std::string(name) + ": a value is not finite");
    return false;
  }
  return true;
}

bool AllFiniteOrRecord(const char* name, const double* v, int n) {
  if (!AllFinite(v, static_cast<std::size_t>(n))) {
    RecordInvalidInput(std::string(name) + ": a value is not finite");
    return false;
  }
  return true;
}

bool CheckOrder(int n) {
  if (n < 1) {
    RecordInvalidInput("order n = " + std::to_string(n) + " is not positive");
    return false;
  }
  return true;
}

bool CheckPointer(const void* p, const char* what) {
  if (!p) {
    RecordInvalidInput(std::string(what) + " is null");
    return false;
  }
  return true;
}

// The upper triangle of a dense n x n array (the part the solvers read): column-major, or the
// upper triangle of the row-major form.
bool CheckDenseUpper(const char* name, const double* v, int n, bool rowMajor) {
  const std::size_t nn = static_cast<std::size_t>(n);
  for (std::size_t j = 0; j < nn; ++j) {
    for (std::size_t i = 0; i <= j; ++i) {
      if (!std::isfinite(rowMajor ? v[i * nn + j] : v[j * nn + i])) {
        RecordInvalidInput(std::string(name) + ": a value is not finite");
        return false;
      }
    }
  }
  return true;
}

void ClearEigenvalues(int n, double* eigenvalues) {
  if (n > 0 && eigenvalues)
    std::memset(eigenvalues, 0, sizeof(double) * static_cast<std::size_t>(n));
}

int Fail(int code) {
  VQ_ResolveEror(code);
  return code;
}

// Full symmetric column-major form of a sparse upper triangle (validated input: every stored
// entry has i <= j and appears once).
void SparseToFull(int n, const int* ia, const int* ja, const double* a, double* full) {
  std::memset(full, 0, sizeof(double) * Square(n));
  const std::size_t nn = static_cast<std::size_t>(n);
  for (int i = 1; i <= n; ++i) {
    for (int k = ia[i - 1]; k < ia[i]; ++k) {
      const int j = ja[k - 1];
      full[static_cast<std::size_t>(j - 1) * nn + (i - 1)] = a[k - 1];
      full[static_cast<std::size_t>(i - 1) * nn + (j - 1)] = a[k - 1];
    }
  }
}

// Packed upper triangle of a sparse upper triangle.
void SparseToPacked(int n, const int* ia, const int* ja, const double* a, double* packed) {
  std::memset(packed, 0, sizeof(double) * Packed(n));
  for (int i = 1; i <= n; ++i)
    for (int k = ia[i - 1]; k < ia[i]; ++k) packed[PackedAt(i, ja[k - 1])] = a[k - 1];
}

// Packed upper triangle of a dense column-major matrix (its lower triangle is ignored).
void DenseToPacked(int n, const double* full, double* packed) {
  const std::size_t nn = static_cast<std::size_t>(n);
  for (int j = 1; j <= n; ++j)
    for (int i = 1; i <= j; ++i)
      packed[PackedAt(i, j)] = full[static_cast<std::size_t>(j - 1) * nn + (i - 1)];
}

void DiagonalToPacked(int n, const double* d, double* packed) {
  std::memset(packed, 0, sizeof(double) * Packed(n));
  for (int i = 1; i <= n; ++i) packed[PackedAt(i, i)] = d[i - 1];
}

void DiagonalToFull(int n, const double* d, double* full) {
  std::memset(full, 0, sizeof(double) * Square(n));
  const std::size_t nn = static_cast<std::size_t>(n);
  for (int i = 0; i < n; ++i) full[static_cast<std::size_t>(i) * nn + i] = d[i];
}

// dsygv on the dense copies; the vectors (left in k by LAPACK) go to `vectors` when wanted.
int RunLapack(int n, std::vector<double>& k, std::vector<double>& m, bool wantVectors,
              double* eigenvalues, double* vectors) {
  const lapack_int info = LAPACKE_dsygv(LAPACK_COL_MAJOR, 1, wantVectors ? 'V' : 'N', 'U', n,
                                        k.data(), n, m.data(), n, eigenvalues);
  if (info != 0) return Fail(kSolutionFailed);
  if (wantVectors && vectors) std::memcpy(vectors, k.data(), sizeof(double) * Square(n));
  return 0;
}

// Generalized Jacobi on packed copies; outputs written only on success.
int RunJacobi(int n, std::vector<double>& k, std::vector<double>& m, double* eigenvalues,
              double* vectors) {
  std::vector<double> x(Square(n));
  std::vector<double> lambda(static_cast<std::size_t>(n));
  if (vqmath::internal::GeneralizedJacobi(n, k.data(), m.data(), x.data(), lambda.data()) != 0)
    return Fail(kSolutionFailed);
  std::memcpy(eigenvalues, lambda.data(), sizeof(double) * static_cast<std::size_t>(n));
  if (vectors) std::memcpy(vectors, x.data(), sizeof(double) * Square(n));
  return 0;
}

// Runs `body` with the allocation and exception guard of the flat boundary.
template <class Body>
int Guarded(Body body) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return Fail(kNoMemory);
  } catch (...) {
    return Fail(kSolutionFailed);
  }
}

// The frame of every entry point: registry reset, order and output checks, cleared eigenvalue
// slots, the input checks of the variant, then its solver; nothing is thrown across.
template <class Check, class Solve>
int Frame(int n, double* eigenvalues, Check inputsValid, Solve solve) {
  return Guarded([&]() -> int {
    VQ_ResetGlobalErrorsAndWarnings();
    if (!CheckOrder(n) || !CheckPointer(eigenvalues, "eigenvalue array"))
      return VQ_GetLastErrorID();
    ClearEigenvalues(n, eigenvalues);
    if (!inputsValid()) return VQ_GetLastErrorID();
    return solve();
  });
}

bool CheckDiagonalMass(int n, const double* d) {
  return CheckPointer(d, "mass diagonal") && AllFiniteOrRecord("M", d, n);
}

bool CheckDensePair(int n, const double* K, const double* M, bool rowMajor) {
  return CheckPointer(K, "K") && CheckPointer(M, "M") && CheckDenseUpper("K", K, n, rowMajor) &&
         CheckDenseUpper("M", M, n, rowMajor);
}

}  // namespace

extern "C" {

int VQ_EigenvalueAnalysis_LAPACK(int n, const int* kRowPointers, const int* kColumnIndices,
                                 const double* kValues, const double* massDiagonal, int wantVectors,
                                 double* eigenvalues, double* vectors) {
  return Frame(
      n, eigenvalues,
      [&] {
        return CheckSparse("K", n, kRowPointers, kColumnIndices, kValues) &&
               CheckDiagonalMass(n, massDiagonal);
      },
      [&] {
        std::vector<double> k(Square(n)), m(Square(n));
        SparseToFull(n, kRowPointers, kColumnIndices, kValues, k.data());
        DiagonalToFull(n, massDiagonal, m.data());
        return RunLapack(n, k, m, wantVectors != 0, eigenvalues, vectors);
      });
}

int VQ_EigenvalueAnalysis_LAPACK2(int n, const int* kRowPointers, const int* kColumnIndices,
                                  const double* kValues, const int* mRowPointers,
                                  const int* mColumnIndices, const double* mValues, int wantVectors,
                                  double* eigenvalues, double* vectors) {
  return Frame(
      n, eigenvalues,
      [&] {
        return CheckSparse("K", n, kRowPointers, kColumnIndices, kValues) &&
               CheckSparse("M", n, mRowPointers, mColumnIndices, mValues);
      },
      [&] {
        std::vector<double> k(Square(n)), m(Square(n));
        SparseToFull(n, kRowPointers, kColumnIndices, kValues, k.data());
        SparseToFull(n, mRowPointers, mColumnIndices, mValues, m.data());
        return RunLapack(n, k, m, wantVectors != 0, eigenvalues, vectors);
      });
}

int VQ_EigenvalueAnalysis_LAPACK3(int n, double* K, double* M, int wantVectors,
                                  double* eigenvalues) {
  return Frame(
      n, eigenvalues, [&] { return CheckDensePair(n, K, M, true); },
      [&] {
        // Straight on the caller's arrays, row-major: the upper triangle of the row-major form is
        // read, and the vectors stay in K.
        const lapack_int info = LAPACKE_dsygv(LAPACK_ROW_MAJOR, 1, wantVectors != 0 ? 'V' : 'N',
                                              'U', n, K, n, M, n, eigenvalues);
        return info != 0 ? Fail(kSolutionFailed) : 0;
      });
}

int VQ_EigenvalueAnalysis_JACOBI(int n, const int* kRowPointers, const int* kColumnIndices,
                                 const double* kValues, const double* massDiagonal,
                                 double* eigenvalues, double* vectors) {
  return Frame(
      n, eigenvalues,
      [&] {
        return CheckSparse("K", n, kRowPointers, kColumnIndices, kValues) &&
               CheckDiagonalMass(n, massDiagonal);
      },
      [&] {
        std::vector<double> k(Packed(n)), m(Packed(n));
        SparseToPacked(n, kRowPointers, kColumnIndices, kValues, k.data());
        DiagonalToPacked(n, massDiagonal, m.data());
        return RunJacobi(n, k, m, eigenvalues, vectors);
      });
}

int VQ_EigenvalueAnalysis_JACOBI2(int n, const int* kRowPointers, const int* kColumnIndices,
                                  const double* kValues, const int* mRowPointers,
                                  const int* mColumnIndices, const double* mValues,
                                  double* eigenvalues, double* vectors) {
  return Frame(
      n, eigenvalues,
      [&] {
        return CheckSparse("K", n, kRowPointers, kColumnIndices, kValues) &&
               CheckSparse("M", n, mRowPointers, mColumnIndices, mValues);
      },
      [&] {
        std::vector<double> k(Packed(n)), m(Packed(n));
        SparseToPacked(n, kRowPointers, kColumnIndices, kValues, k.data());
        SparseToPacked(n, mRowPointers, mColumnIndices, mValues, m.data());
        return RunJacobi(n, k, m, eigenvalues, vectors);
      });
}

int VQ_EigenvalueAnalysis_JACOBI3(int n, const double* K, const double* M, double* eigenvalues,
                                  double* vectors) {
  return Frame(
      n, eigenvalues, [&] { return CheckDensePair(n, K, M, false); },
      [&] {
        std::vector<double> k(Packed(n)), m(Packed(n));
        DenseToPacked(n, K, k.data());
        DenseToPacked(n, M, m.data());
        return RunJacobi(n, k, m, eigenvalues, vectors);
      });
}

}  // extern "C"
