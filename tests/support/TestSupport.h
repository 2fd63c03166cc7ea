// Shared test support: the real structural matrices of the shared data folder, a MatrixMarket
// reader into the library's sparse layout, and independent dense references (LAPACK) with the
// residual measures the solver tests compare against.
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "models/CsrMatrix.h"

namespace vqtest {

// Upper triangle in compressed rows, 1-based, diagonal first in every row, ascending columns
// after it: the layout the library takes, shared with the model generator (y = A x, the diagonal
// and the other helpers of models/CsrMatrix.h apply).
using Csr = vqmath::models::CsrMatrix;
using vqmath::models::Diagonal;
using vqmath::models::Multiply;

// Folder with the real structural matrices (bcsstkNN.mtx, bcsstmNN.mtx), or "" when absent.
std::string DataDir();
// Full path of a file in that folder.
std::string DataFile(const std::string& name);

// Reads a MatrixMarket coordinate file into upper CSR with the model generator's reader, which
// the sparse class's own reader is checked against. Returns false with a message in *error.
bool ReadMtx(const std::string& path, Csr& out, std::string* error = nullptr);

// Builds upper CSR from a dense column-major symmetric n x n array (entries with |a| <= drop
// left out, diagonal always kept).
Csr CsrFromDense(int n, const std::vector<double>& a, double drop = 0.0);
// Full symmetric dense (column-major n x n) form.
std::vector<double> Dense(const Csr& a);
// A diagonal matrix as CSR.
Csr DiagonalCsr(const std::vector<double>& d);

// ||K X - F||_F / ||F||_F over nrhs columns.
double RelativeResidual(const Csr& k, const double* x, const double* f, int nrhs);

// Lowest eigenvalues of K phi = lambda M phi by dense LAPACK (dsygv when M is positive
// definite, otherwise the inverse form M phi = mu K phi with lambda = 1/mu over the finite
// ones). Returns all finite eigenvalues in ascending order; vectors (column-major, n per mode,
// M-normalised) on request. inverseForm uses the inverse form from the start (K positive
// definite): more accurate than dsygv's Cholesky factor of M on badly graded pairs.
std::vector<double> DenseEigenvalues(int n, const std::vector<double>& k, const std::vector<double>& m,
                                     std::vector<double>* vectors = nullptr, bool inverseForm = false);
std::vector<double> DenseEigenvalues(const Csr& k, const Csr& m, std::vector<double>* vectors = nullptr,
                                     bool inverseForm = false);

// Eigenvalues (ascending) of a dense symmetric column-major n x n matrix, by dsyev.
std::vector<double> SymmetricEigenvalues(int n, std::vector<double> a);

// Max over the given modes of ||K phi - lambda M phi|| / ||K phi||, or / (||K||_1 ||phi||) with
// byNormOfK (meaningful for zero eigenvalues too).
double EigenResidual(const Csr& k, const Csr& m, int nmodes, const double* lambda, const double* phi,
                     bool byNormOfK = false);
// a' M b.
double MDot(const Csr& m, const double* a, const double* b);
// Max |Phi^T M Phi - I| entry.
double MOrthonormalityError(const Csr& m, int nmodes, const double* phi);

// The tridiagonal matrix of order n: `diagonal` on the diagonal, `off` beside it. Positive
// definite for diagonal > 2|off|.
Csr Tridiagonal(int n, double diagonal = 4.0, double off = -1.0);

// A chain of n unit springs with unit masses, K = tridiag(-1, 2, -1) but for its free ends:
// fixed-free (K(n, n) = 1) or free-free (K(1, 1) = K(n, n) = 1, one rigid-body mode).
Csr SpringChain(int n, bool freeFree = false);
// Its k-th eigenvalue (k = 1..n): 4 sin^2((2k - 1) pi / (2 (2n + 1))) fixed-free,
// 4 sin^2((k - 1) pi / (2n)) free-free.
double SpringChainEigenvalue(int n, int k, bool freeFree = false);

// The registry's last error (code and a copy of the message, released here).
struct RegistryError {
  int code = 0;
  std::string message;
};
RegistryError LastError();
inline std::string LastMessage() { return LastError().message; }
// The registry's last warning, likewise.
RegistryError LastWarning();

// A fresh folder under the system's temporary folder, removed with everything in it at
// destruction; Path() ends with "/".
class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

// Relative difference |a - b| / max(|b|, tiny).
double RelDiff(double a, double b);

}  // namespace vqtest

// A matrix's row pointers, column indices and values, in the order the flat functions take them.
#define VQTEST_CSR(a) (a).rowPointers.data(), (a).columnIndices.data(), (a).values.data()

// Skips the current test when the shared data folder is not present.
#define VQTEST_REQUIRE_DATA()                                                                 \
  do {                                                                                        \
    if (vqtest::DataDir().empty())                                                            \
      GTEST_SKIP() << "shared data folder (../shared/data beside the source tree) not found; " \
                      "real-matrix tests skipped";                                            \
  } while (0)
