#include "models/CsrMatrix.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>

namespace vqmath::models {

long long CsrMatrix::Find(int i, int j) const {
  if (i > j) std::swap(i, j);
  if (i < 1 || j > n) return -1;
  const int* first = columnIndices.data() + (rowPointers[i - 1] - 1);
  const int* last = columnIndices.data() + (rowPointers[i] - 1);
  if (first == last) return -1;
  if (*first == j) return first - columnIndices.data();
  // Off-diagonal columns follow the diagonal in ascending order.
  const int* p = std::lower_bound(first + 1, last, j);
  if (p == last || *p != j) return -1;
  return p - columnIndices.data();
}

double CsrMatrix::Value(int i, int j) const {
  const long long k = Find(i, j);
  return k < 0 ? 0.0 : values[static_cast<size_t>(k)];
}

void Multiply(const CsrMatrix& a, const double* x, double* y) {
  const int n = a.n;
  std::fill(y, y + n, 0.0);
  const int* rp = a.rowPointers.data();
  const int* ci = a.columnIndices.data();
  const double* v = a.values.data();
  for (int i = 0; i < n; ++i) {
    const double xi = x[i];
    double sum = 0.0;
    for (int k = rp[i] - 1; k < rp[i + 1] - 1; ++k) {
      const int j = ci[k] - 1;
      sum += v[k] * x[j];
      if (j != i) y[j] += v[k] * xi;
    }
    y[i] += sum;
  }
}

std::vector<double> Multiply(const CsrMatrix& a, const std::vector<double>& x) {
  if (static_cast<int>(x.size()) != a.n) throw std::invalid_argument("Multiply: size mismatch");
  std::vector<double> y(static_cast<size_t>(a.n));
  Multiply(a, x.data(), y.data());
  return y;
}

std::vector<double> ToDense(const CsrMatrix& a) {
  const size_t n = static_cast<size_t>(a.n);
  std::vector<double> d(n * n, 0.0);
  for (size_t i = 0; i < n; ++i)
    for (int k = a.rowPointers[i] - 1; k < a.rowPointers[i + 1] - 1; ++k) {
      const size_t j = static_cast<size_t>(a.columnIndices[k] - 1);
      d[i + j * n] = a.values[k];
      d[j + i * n] = a.values[k];
    }
  return d;
}

CsrMatrix FromDense(int n, const double* dense, double dropTolerance) {
  CsrMatrix a;
  a.n = n;
  a.rowPointers.assign(static_cast<size_t>(n) + 1, 1);
  for (int i = 0; i < n; ++i) {
    for (int j = i; j < n; ++j) {
      const double v = dense[i + static_cast<size_t>(j) * n];
      if (j == i || std::fabs(v) > dropTolerance) {
        a.columnIndices.push_back(j + 1);
        a.values.push_back(v);
      }
    }
    a.rowPointers[i + 1] = static_cast<int>(a.values.size()) + 1;
  }
  return a;
}

std::vector<double> Diagonal(const CsrMatrix& a) {
  std::vector<double> d(static_cast<size_t>(a.n));
  for (int i = 0; i < a.n; ++i) d[i] = a.values[a.rowPointers[i] - 1];
  return d;
}

CsrMatrix FromDiagonal(const std::vector<double>& diagonal) {
  CsrMatrix a;
  a.n = static_cast<int>(diagonal.size());
  a.values = diagonal;
  a.rowPointers.resize(diagonal.size() + 1);
  a.columnIndices.resize(diagonal.size());
  for (int i = 0; i <= a.n; ++i) a.rowPointers[i] = i + 1;
  for (int i = 0; i < a.n; ++i) a.columnIndices[i] = i + 1;
  return a;
}

CsrMatrix FromTriplets(int n, const std::vector<int>& rows, const std::vector<int>& columns,
                       const std::vector<double>& values) {
  if (n < 0 || rows.size() != columns.size() || rows.size() != values.size())
    throw std::invalid_argument("FromTriplets: inconsistent input");
  const size_t m = rows.size();
  // Bucket the entries by upper-triangle row (counting sort), then sort each row by column.
  std::vector<long long> count(static_cast<size_t>(n) + 1, 0);
  for (size_t k = 0; k < m; ++k) {
    const int r = std::min(rows[k], columns[k]);
    const int c = std::max(rows[k], columns[k]);
    if (r < 1 || c > n) throw std::invalid_argument("FromTriplets: index out of range");
    ++count[static_cast<size_t>(r)];
  }
  for (int i = 0; i < n; ++i) count[i + 1] += count[i];
  std::vector<std::pair<int, double>> entries(m);
  {
    std::vector<long long> next(count.begin(), count.end() - 1);
    for (size_t k = 0; k < m; ++k) {
      const int r = std::min(rows[k], columns[k]);
      const int c = std::max(rows[k], columns[k]);
      entries[static_cast<size_t>(next[r - 1]++)] = {c, values[k]};
    }
  }
  CsrMatrix a;
  a.n = n;
  a.rowPointers.resize(static_cast<size_t>(n) + 1);
  a.rowPointers[0] = 1;
  a.columnIndices.reserve(m + static_cast<size_t>(n));
  a.values.reserve(m + static_cast<size_t>(n));
  for (int i = 1; i <= n; ++i) {
    auto first = entries.begin() + count[i - 1];
    auto last = entries.begin() + count[i];
    std::stable_sort(first, last, [](const auto& x, const auto& y) { return x.first < y.first; });
    const size_t rowStart = a.values.size();
    if (first == last || first->first != i) {
      a.columnIndices.push_back(i);  // the diagonal is always stored
      a.values.push_back(0.0);
    }
    for (auto p = first; p != last; ++p) {
      if (a.values.size() > rowStart && a.columnIndices.back() == p->first)
        a.values.back() += p->second;
      else {
        a.columnIndices.push_back(p->first);
        a.values.push_back(p->second);
      }
    }
    if (a.values.size() > 2147483646u) throw std::length_error("FromTriplets: too many entries");
    a.rowPointers[i] = static_cast<int>(a.values.size()) + 1;
  }
  return a;
}

namespace {

// Merges the rows of two matrices of the same order: result = a + s·b on the union pattern.
CsrMatrix AddScaled(const CsrMatrix& a, const CsrMatrix& b, double s) {
  if (a.n != b.n) throw std::invalid_argument("Shifted: matrices of different order");
  CsrMatrix c;
  c.n = a.n;
  c.rowPointers.resize(static_cast<size_t>(a.n) + 1);
  c.rowPointers[0] = 1;
  c.columnIndices.reserve(std::max(a.values.size(), b.values.size()));
  c.values.reserve(std::max(a.values.size(), b.values.size()));
  for (int i = 0; i < a.n; ++i) {
    int ka = a.rowPointers[i] - 1, ea = a.rowPointers[i + 1] - 1;
    int kb = b.rowPointers[i] - 1, eb = b.rowPointers[i + 1] - 1;
    // Diagonals first (both rows hold theirs first).
    c.columnIndices.push_back(i + 1);
    c.values.push_back(a.values[ka++] + s * b.values[kb++]);
    while (ka < ea || kb < eb) {
      const int ja = ka < ea ? a.columnIndices[ka] : 0x7fffffff;
      const int jb = kb < eb ? b.columnIndices[kb] : 0x7fffffff;
      if (ja == jb) {
        c.columnIndices.push_back(ja);
        c.values.push_back(a.values[ka++] + s * b.values[kb++]);
      } else if (ja < jb) {
        c.columnIndices.push_back(ja);
        c.values.push_back(a.values[ka++]);
      } else {
        c.columnIndices.push_back(jb);
        c.values.push_back(s * b.values[kb++]);
      }
    }
    if (c.values.size() > 2147483646u) throw std::length_error("Shifted: too many entries");
    c.rowPointers[i + 1] = static_cast<int>(c.values.size()) + 1;
  }
  return c;
}

}  // namespace

CsrMatrix Shifted(const CsrMatrix& k, const CsrMatrix& m, double sigma) {
  return AddScaled(k, m, -sigma);
}

CsrMatrix Shifted(const CsrMatrix& k, const std::vector<double>& m, double sigma) {
  if (static_cast<int>(m.size()) != k.n) throw std::invalid_argument("Shifted: size mismatch");
  CsrMatrix c = k;
  for (int i = 0; i < k.n; ++i) c.values[k.rowPointers[i] - 1] -= sigma * m[i];
  return c;
}

std::string CheckLayout(const CsrMatrix& a) {
  char buf[160];
  if (a.n < 0) return "negative order";
  if (a.rowPointers.size() != static_cast<size_t>(a.n) + 1)
    return "rowPointers does not hold n+1 entries";
  if (a.rowPointers[0] != 1) return "rowPointers[0] is not 1";
  if (a.columnIndices.size() != a.values.size()) return "columnIndices and values differ in length";
  if (static_cast<size_t>(a.rowPointers[a.n]) != a.values.size() + 1)
    return "rowPointers[n] is not nnz+1";
  for (int i = 1; i <= a.n; ++i) {
    const int first = a.rowPointers[i - 1] - 1, last = a.rowPointers[i] - 1;
    if (last <= first) {
      std::snprintf(buf, sizeof buf, "row %d is empty (no diagonal)", i);
      return buf;
    }
    if (a.columnIndices[first] != i) {
      std::snprintf(buf, sizeof buf, "row %d does not start with its diagonal (column %d)", i,
                    a.columnIndices[first]);
      return buf;
    }
    for (int k = first + 1; k < last; ++k) {
      const int j = a.columnIndices[k];
      if (j <= a.columnIndices[k - 1] || j <= i || j > a.n) {
        std::snprintf(buf, sizeof buf, "row %d: column %d at position %d out of order or range", i,
                      j, k + 1);
        return buf;
      }
    }
  }
  return std::string();
}

bool WriteMatrixMarket(const CsrMatrix& a, const std::string& path) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return false;
  std::setvbuf(f, nullptr, _IOFBF, 1 << 20);
  std::fprintf(f, "%%%%MatrixMarket matrix coordinate real symmetric\n");
  std::fprintf(f, "%d %d %d\n", a.n, a.n, a.Nnz());
  char line[96];
  // Row i of the upper triangle is column i of the lower one: "j i value" in that order walks
  // the lower triangle column by column, rows ascending.
  for (int i = 0; i < a.n; ++i)
    for (int k = a.rowPointers[i] - 1; k < a.rowPointers[i + 1] - 1; ++k) {
      const int len =
          std::snprintf(line, sizeof line, "%d %d %.17g\n", a.columnIndices[k], i + 1, a.values[k]);
      std::fwrite(line, 1, static_cast<size_t>(len), f);
    }
  const bool ok = !std::ferror(f);
  return (std::fclose(f) == 0) && ok;
}

std::vector<double> PackUpperByColumns(const double* dense, int order) {
  std::vector<double> packed(static_cast<size_t>(order) * (order + 1) / 2);
  size_t k = 0;
  for (int b = 0; b < order; ++b)
    for (int a = 0; a <= b; ++a) packed[k++] = dense[a + static_cast<size_t>(b) * order];
  return packed;
}

}  // namespace vqmath::models
