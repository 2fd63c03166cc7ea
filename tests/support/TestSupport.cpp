#include "support/TestSupport.h"

#include <stdlib.h>

#include <cstdlib>
#include <filesystem>

#include "vqmath.h"

#include <algorithm>
#include <cmath>
#include <sys/stat.h>

#include <mkl.h>

namespace vqtest {

std::string DataDir() {
  const char* env = std::getenv("VQMATH_SHARED_DATA_DIR");
  std::string dir = env && *env ? env : VQMATH_SHARED_DATA_DIR;
  struct stat st;
  if (stat((dir + "/bcsstk01.mtx").c_str(), &st) != 0) return "";
  return dir;
}

std::string DataFile(const std::string& name) { return DataDir() + "/" + name; }

bool ReadMtx(const std::string& path, Csr& out, std::string* error) {
  return vqmath::models::ReadMatrixMarket(path, out, error);
}

Csr CsrFromDense(int n, const std::vector<double>& a, double drop) {
  return vqmath::models::FromDense(n, a.data(), drop);
}

std::vector<double> Dense(const Csr& a) { return vqmath::models::ToDense(a); }

Csr DiagonalCsr(const std::vector<double>& d) { return vqmath::models::FromDiagonal(d); }

double RelativeResidual(const Csr& k, const double* x, const double* f, int nrhs) {
  std::vector<double> y(k.n);
  double num = 0.0, den = 0.0;
  for (int c = 0; c < nrhs; ++c) {
    Multiply(k, x + static_cast<size_t>(c) * k.n, y.data());
    for (int i = 0; i < k.n; ++i) {
      double fi = f[static_cast<size_t>(c) * k.n + i];
      num += (y[i] - fi) * (y[i] - fi);
      den += fi * fi;
    }
  }
  return std::sqrt(num) / (den > 0 ? std::sqrt(den) : 1.0);
}

std::vector<double> DenseEigenvalues(int n, const std::vector<double>& k, const std::vector<double>& m,
                                     std::vector<double>* vectors, bool inverseForm) {
  std::vector<double> a = k, b = m, w(n);
  lapack_int info = inverseForm ? 1
                                : LAPACKE_dsygv(LAPACK_COL_MAJOR, 1, vectors ? 'V' : 'N', 'U', n, a.data(),
                                                n, b.data(), n, w.data());
  if (info == 0) {
    if (vectors) *vectors = a;
    return w;
  }
  // M is not positive definite (massless dofs), or asked for: M phi = mu K phi, lambda = 1 / mu.
  a = m;
  b = k;
  info = LAPACKE_dsygv(LAPACK_COL_MAJOR, 1, vectors ? 'V' : 'N', 'U', n, a.data(), n, b.data(), n, w.data());
  if (info != 0) return {};
  double mumax = 0.0;
  for (double mu : w) mumax = std::max(mumax, std::fabs(mu));
  std::vector<std::pair<double, int>> finite;
  for (int q = 0; q < n; ++q)
    if (w[q] > 1e-12 * mumax) finite.push_back({1.0 / w[q], q});
  std::sort(finite.begin(), finite.end());
  std::vector<double> lambda;
  if (vectors) vectors->clear();
  for (auto& f : finite) {
    lambda.push_back(f.first);
    if (vectors) {
      // K-normalised phi: phi^T M phi = mu, rescale to M-normalised.
      double s = 1.0 / std::sqrt(w[f.second]);
      for (int i = 0; i < n; ++i) vectors->push_back(a[static_cast<size_t>(f.second) * n + i] * s);
    }
  }
  return lambda;
}

std::vector<double> DenseEigenvalues(const Csr& k, const Csr& m, std::vector<double>* vectors, bool inverseForm) {
  return DenseEigenvalues(k.n, Dense(k), Dense(m), vectors, inverseForm);
}

std::vector<double> SymmetricEigenvalues(int n, std::vector<double> a) {
  std::vector<double> w(static_cast<size_t>(n));
  EXPECT_EQ(LAPACKE_dsyev(LAPACK_COL_MAJOR, 'N', 'U', n, a.data(), n, w.data()), 0);
  return w;
}

double EigenResidual(const Csr& k, const Csr& m, int nmodes, const double* lambda, const double* phi,
                     bool byNormOfK) {
  double kNorm = 0.0;  // ||K||_1: largest absolute column sum of the symmetric matrix
  if (byNormOfK) {
    std::vector<double> sums(static_cast<size_t>(k.n), 0.0);
    for (int i = 0; i < k.n; ++i)
      for (int p = k.rowPointers[i] - 1; p < k.rowPointers[i + 1] - 1; ++p) {
        sums[i] += std::fabs(k.values[p]);
        if (k.columnIndices[p] - 1 != i) sums[k.columnIndices[p] - 1] += std::fabs(k.values[p]);
      }
    kNorm = *std::max_element(sums.begin(), sums.end());
  }
  std::vector<double> kp(k.n), mp(k.n);
  double worst = 0.0;
  for (int q = 0; q < nmodes; ++q) {
    const double* v = phi + static_cast<size_t>(q) * k.n;
    Multiply(k, v, kp.data());
    Multiply(m, v, mp.data());
    double num = 0.0, den = 0.0;
    for (int i = 0; i < k.n; ++i) {
      double r = kp[i] - lambda[q] * mp[i];
      num += r * r;
      den += byNormOfK ? v[i] * v[i] : kp[i] * kp[i];
    }
    den = byNormOfK ? kNorm * std::sqrt(den) : std::sqrt(den);
    worst = std::max(worst, std::sqrt(num) / (den > 0 ? den : 1.0));
  }
  return worst;
}

double MDot(const Csr& m, const double* a, const double* b) {
  std::vector<double> mb(m.n);
  Multiply(m, b, mb.data());
  double s = 0.0;
  for (int i = 0; i < m.n; ++i) s += a[i] * mb[i];
  return s;
}

double MOrthonormalityError(const Csr& m, int nmodes, const double* phi) {
  std::vector<double> mp(static_cast<size_t>(m.n) * nmodes);
  for (int q = 0; q < nmodes; ++q) Multiply(m, phi + static_cast<size_t>(q) * m.n, mp.data() + static_cast<size_t>(q) * m.n);
  double worst = 0.0;
  for (int a = 0; a < nmodes; ++a)
    for (int b = 0; b < nmodes; ++b) {
      double s = 0.0;
      for (int i = 0; i < m.n; ++i) s += phi[static_cast<size_t>(a) * m.n + i] * mp[static_cast<size_t>(b) * m.n + i];
      worst = std::max(worst, std::fabs(s - (a == b ? 1.0 : 0.0)));
    }
  return worst;
}

Csr Tridiagonal(int n, double diagonal, double off) {
  std::vector<int> rows, columns;
  std::vector<double> values;
  for (int i = 1; i <= n; ++i) {
    rows.push_back(i), columns.push_back(i), values.push_back(diagonal);
    if (i < n) rows.push_back(i), columns.push_back(i + 1), values.push_back(off);
  }
  return vqmath::models::FromTriplets(n, rows, columns, values);
}

Csr SpringChain(int n, bool freeFree) {
  Csr k = Tridiagonal(n, 2.0, -1.0);
  k.values.back() = 1.0;
  if (freeFree) k.values.front() = 1.0;
  return k;
}

double SpringChainEigenvalue(int n, int k, bool freeFree) {
  const double s = freeFree ? std::sin((k - 1.0) * M_PI / (2.0 * n))
                            : std::sin((2.0 * k - 1.0) * M_PI / (2.0 * (2.0 * n + 1.0)));
  return 4.0 * s * s;
}

// The code and a copy of the message the registry handed over (which the caller frees).
static RegistryError Entry(int code, char* message) {
  RegistryError e{code, message ? message : ""};
  std::free(message);
  return e;
}

RegistryError LastError() { return Entry(VQ_GetLastErrorID(), VQ_GetLastErrorMessage()); }

RegistryError LastWarning() { return Entry(VQ_GetLastWarningID(), VQ_GetLastWarningMessage()); }

ScratchDir::ScratchDir() {
  std::string pattern = std::filesystem::temp_directory_path().string() + "/vqmath-test-XXXXXX";
  if (mkdtemp(pattern.data())) path_ = pattern + "/";
}

ScratchDir::~ScratchDir() {
  std::error_code ignored;
  if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

double RelDiff(double a, double b) { return std::fabs(a - b) / std::max(std::fabs(b), 1e-300); }

}  // namespace vqtest
