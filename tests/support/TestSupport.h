// Shared test support: the real structural matrices of the shared data folder, a MatrixMarket
// reader into the library's sparse layout, and independent dense references (LAPACK) with the
// residual measures the solver tests compare against.
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace vqtest {

// Upper triangle in compressed rows, 1-based, diagonal first in every row, ascending columns
// after it: the layout the library takes.
struct Csr {
  int n = 0;
  std::vector<int> rowPointers;    // n + 1
  std::vector<int> columnIndices;  // nnz
  std::vector<double> values;      // nnz
  int nnz() const { return static_cast<int>(values.size()); }
};

// Folder with the real structural matrices (bcsstkNN.mtx, bcsstmNN.mtx), or "" when absent.
std::string DataDir();
// Full path of a file in that folder.
std::string DataFile(const std::string& name);

// Reads a MatrixMarket coordinate file (symmetric or general, either triangle stored, CRLF
// tolerated, duplicates summed) into upper CSR. A missing diagonal entry is stored as 0.0.
// Returns false with a message in *error on failure.
bool ReadMtx(const std::string& path, Csr& out, std::string* error = nullptr);

// Builds upper CSR from a dense column-major symmetric n x n array (entries with |a| <= drop
// left out, diagonal always kept).
Csr CsrFromDense(int n, const std::vector<double>& a, double drop = 0.0);
// Full symmetric dense (column-major n x n) form.
std::vector<double> Dense(const Csr& a);
// Diagonal of a (n values).
std::vector<double> Diagonal(const Csr& a);
// y = A x using the symmetric upper storage.
void Multiply(const Csr& a, const double* x, double* y);
// A diagonal matrix as CSR.
Csr DiagonalCsr(const std::vector<double>& d);

// ||K X - F||_F / ||F||_F over nrhs columns.
double RelativeResidual(const Csr& k, const double* x, const double* f, int nrhs);

// Lowest eigenvalues of K phi = lambda M phi by dense LAPACK (dsygv when M is positive
// definite, otherwise the inverse form M phi = mu K phi with lambda = 1/mu over the finite
// ones). Returns all finite eigenvalues in ascending order; vectors (column-major, n per mode,
// M-normalised) on request.
std::vector<double> DenseEigenvalues(int n, const std::vector<double>& k, const std::vector<double>& m,
                                     std::vector<double>* vectors = nullptr);
std::vector<double> DenseEigenvalues(const Csr& k, const Csr& m, std::vector<double>* vectors = nullptr);

// Max over the given modes of ||K phi - lambda M phi|| / ||K phi||.
double EigenResidual(const Csr& k, const Csr& m, int nmodes, const double* lambda, const double* phi);
// Max |Phi^T M Phi - I| entry.
double MOrthonormalityError(const Csr& m, int nmodes, const double* phi);

// Relative difference |a - b| / max(|b|, tiny).
double RelDiff(double a, double b);

}  // namespace vqtest

// Skips the current test when the shared data folder is not present.
#define VQTEST_REQUIRE_DATA()                                                                 \
  do {                                                                                        \
    if (vqtest::DataDir().empty())                                                            \
      GTEST_SKIP() << "shared data folder (../shared/data beside the source tree) not found; " \
                      "real-matrix tests skipped";                                            \
  } while (0)
