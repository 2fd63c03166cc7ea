// System-matrix handles: creation, pattern reservation, element assembly, products and the keyed
// parameters. A handle owns one VQ_SparseSymMatrix (upper triangle, compressed rows).
//
// Pattern life cycle: VQ_SysMatrixDef sets the order; VQ_SysMatrixPreAssem(Diag) reserves
// entries in the matrix's assembly buffer; the first call that needs compressed rows (assembly,
// Init, Sum, products, solves, Clone, Column, Diag) closes the buffer into them, adding the
// diagonal of every equation so that each row is well formed. Pre-assembling again later reopens
// the pattern and keeps the values assembled so far.
//
// Nothing here reports through the registry; invalid handles, equation numbers outside 1..n and
// entries outside the reserved pattern are skipped.
#include <new>
#include <utility>
#include <vector>

#include "core/GlobalState.h"
#include "api/internal/SystemHandles.h"
#include "vqmath.h"

namespace vi = vqmath::internal;

namespace vqmath {
namespace internal {

void SystemMatrixChanged(VQ_SysMatrix* h) {
  if (h) h->resolveSolver.reset();
}

bool CloseSystemPattern(VQ_SysMatrix* h) {
  if (!h) return false;
  VQ_SparseSymMatrix& m = h->matrix;
  const int n = m.NumRows();
  if (!h->patternOpen) {
    // Already in compressed rows; or never pre-assembled, in which case the pattern is the
    // diagonal.
    if (m.GetRowVectorPointer()) return n >= 1;
    if (n < 1) return false;
    m.BeginMatrix();
  }
  for (int d = 1; d <= n; ++d) m.Add(d, d, 0.0);
  h->patternOpen = false;
  SystemMatrixChanged(h);
  return m.EndMatrix();
}

bool SystemMatrixArrays(VQ_SysMatrix* h, int& n, double*& values, int*& rowPointers,
                        int*& columnIndices) {
  if (!CloseSystemPattern(h)) return false;
  n = h->matrix.NumRows();
  values = h->matrix.GetDataPointer();
  rowPointers = h->matrix.GetRowVectorPointer();
  columnIndices = h->matrix.GetColumnVectorPointer();
  return n >= 1 && values && rowPointers && columnIndices;
}

}  // namespace internal
}  // namespace vqmath

namespace {

// Opens the pattern for more reservations, carrying over what compressed rows already hold.
bool OpenPattern(VQ_SysMatrix* h) {
  VQ_SparseSymMatrix& m = h->matrix;
  const int n = m.NumRows();
  if (n < 1) return false;
  if (h->patternOpen) return true;
  vi::SystemMatrixChanged(h);
  const int* rp = m.GetRowVectorPointer();
  const int* ci = m.GetColumnVectorPointer();
  const double* v = m.GetDataPointer();
  if (rp && ci && v) {
    // The assembly buffer is rebuilt from the held rows, values included.
    struct Entry {
      int i, j;
      double v;
    };
    std::vector<Entry> held;
    held.reserve(static_cast<size_t>(rp[n] - 1));
    for (int i = 1; i <= n; ++i)
      for (int k = rp[i - 1] - 1; k < rp[i] - 1; ++k) held.push_back({i, ci[k], v[k]});
    m.ReleaseMemory();
    m.SetBounds(n);
    m.BeginMatrix();
    for (const Entry& e : held) m.Add(e.i, e.j, e.v);
  } else {
    m.BeginMatrix();
  }
  h->patternOpen = true;
  return true;
}

bool ValidDof(int d, int n) { return d >= 1 && d <= n; }

}  // namespace

extern "C" {

VQ_SysMatrixHandle VQ_SysMatrixBegin(void) { return new (std::nothrow) VQ_SysMatrix(); }

void VQ_SysMatrixEnd(VQ_SysMatrixHandle h) { delete h; }

VQ_SysMatrixHandle VQ_SysMatrixClone(VQ_SysMatrixHandle h) {
  try {
    int n = 0;
    double* values = nullptr;
    int* rowPointers = nullptr;
    int* columnIndices = nullptr;
    if (!vi::SystemMatrixArrays(h, n, values, rowPointers, columnIndices)) return nullptr;
    VQ_SysMatrix* c = new VQ_SysMatrix();
    c->matrix.SetEqualTo(&h->matrix);
    if (c->matrix.MatrixStatus() != 0 || c->matrix.NumRows() != n) {
      delete c;
      return nullptr;
    }
    return c;
  } catch (...) {
    return nullptr;
  }
}

void VQ_SysMatrixDef(VQ_SysMatrixHandle h, int, int n) {
  if (!h || n < 0) return;
  try {
    vi::SystemMatrixChanged(h);
    h->matrix.ReleaseMemory();
    h->matrix.SetBounds(n);
    h->matrix.BeginMatrix();
    h->patternOpen = false;
  } catch (...) {
  }
}

int VQ_SysMatrixInq(VQ_SysMatrixHandle h, int, int* n) {
  int order = h ? h->matrix.NumRows() : 0;
  if (n) *n = order;
  return order;
}

void VQ_SysMatrixPreAssem(VQ_SysMatrixHandle h, int count, const int* dofs) {
  if (!h || !dofs || count < 1) return;
  try {
    if (!OpenPattern(h)) return;
    const int n = h->matrix.NumRows();
    for (int a = 0; a < count; ++a) {
      const int i = dofs[a];
      if (!ValidDof(i, n)) continue;
      for (int b = 0; b < count; ++b) {
        const int j = dofs[b];
        if (ValidDof(j, n) && i <= j) h->matrix.Add(i, j, 0.0);
      }
    }
  } catch (...) {
  }
}

void VQ_SysMatrixPreAssemDiag(VQ_SysMatrixHandle h, int count, const int* dofs) {
  if (!h || !dofs || count < 1) return;
  try {
    if (!OpenPattern(h)) return;
    const int n = h->matrix.NumRows();
    for (int a = 0; a < count; ++a)
      if (ValidDof(dofs[a], n)) h->matrix.Add(dofs[a], dofs[a], 0.0);
  } catch (...) {
  }
}

void VQ_SysMatrixAssem(VQ_SysMatrixHandle h, int count, const int* dofs, const double* elementMatrix) {
  if (!h || !dofs || !elementMatrix || count < 1) return;
  try {
    int n = 0;
    double* values = nullptr;
    int* rp = nullptr;
    int* ci = nullptr;
    if (!vi::SystemMatrixArrays(h, n, values, rp, ci)) return;
    vi::SystemMatrixChanged(h);
    for (int a = 1; a <= count; ++a) {
      const int i = dofs[a - 1];
      if (!ValidDof(i, n)) continue;
      for (int b = 1; b <= count; ++b) {
        const int j = dofs[b - 1];
        if (!ValidDof(j, n) || i > j) continue;
        // Local (lo, hi), lo <= hi, sits at 1-based position hi(hi-1)/2 + lo of the packed upper
        // triangle.
        const long long lo = a < b ? a : b;
        const long long hi = a < b ? b : a;
        const double v = elementMatrix[hi * (hi - 1) / 2 + lo - 1];
        const auto loc = h->matrix.FindLoc(i, j);
        if (loc >= 0) values[loc] += v;
      }
    }
  } catch (...) {
  }
}

void VQ_SysMatrixAssemDiag(VQ_SysMatrixHandle h, int count, const int* dofs, const double* values) {
  if (!h || !dofs || !values || count < 1) return;
  try {
    int n = 0;
    double* v = nullptr;
    int* rp = nullptr;
    int* ci = nullptr;
    if (!vi::SystemMatrixArrays(h, n, v, rp, ci)) return;
    vi::SystemMatrixChanged(h);
    for (int k = 0; k < count; ++k) {
      const int d = dofs[k];
      if (!ValidDof(d, n)) continue;
      const auto loc = h->matrix.FindLoc(d, d);
      if (loc >= 0) v[loc] += values[k];
    }
  } catch (...) {
  }
}

void VQ_SysMatrixInit(VQ_SysMatrixHandle h, double value) {
  try {
    if (!vi::CloseSystemPattern(h)) return;
    vi::SystemMatrixChanged(h);
    h->matrix.SetValue(value);
  } catch (...) {
  }
}

void VQ_SysMatrixSum(VQ_SysMatrixHandle h, double factor, VQ_SysMatrixHandle other) {
  try {
    if (!other || !vi::CloseSystemPattern(h) || !vi::CloseSystemPattern(other)) return;
    vi::SystemMatrixChanged(h);
    h->matrix.AddSparseMatrix(&other->matrix, factor, true);
  } catch (...) {
  }
}

void VQ_SysMatrixProd2(VQ_SysMatrixHandle h, const double* x, double* y, int method) {
  if (!x || !y) return;
  try {
    int n = 0;
    double* values = nullptr;
    int* rp = nullptr;
    int* ci = nullptr;
    if (!vi::SystemMatrixArrays(h, n, values, rp, ci)) return;
    if (method == 0)
      VQ_SparseSymmMatrixVectorMultiplication_NATIVE(n, values, rp, ci, x, y);
    else
      VQ_SparseSymmMatrixVectorMultiplication_MKL(n, values, rp, ci, x, y);
  } catch (...) {
  }
}

void VQ_SysMatrixProd(VQ_SysMatrixHandle h, VQ_SysVectorHandle x, VQ_SysVectorHandle y, int method) {
  if (!h || !x || !y || x == y) return;
  try {
    int n = 0;
    double* values = nullptr;
    int* rp = nullptr;
    int* ci = nullptr;
    if (!vi::SystemMatrixArrays(h, n, values, rp, ci)) return;
    if (x->vector.GetSize() != n) return;
    if (y->vector.GetSize() != n) {
      y->vector.Redimension(n, 1, 0.0);
      if (y->vector.GetSize() != n) return;
    }
    VQ_SysMatrixProd2(h, x->vector.GetDataPointer(), y->vector.GetDataPointer(), method);
  } catch (...) {
  }
}

void VQ_SysMatrixSetParami(VQ_SysMatrixHandle, int key, int value) {
  vi::Settings& s = vi::settings();
  switch (key) {
    case 18:  // out-of-core core size in megabytes
      VQ_Set_INTEL_MKL_OOC_Max_Core_Size(value);
      break;
    case 23:  // out-of-core mode into the global PARDISO array
      if (value == 1 || value == 2) {
        s.sparseParams[59] = value;
        s.sparseParamsSetByHost = true;
      }
      break;
    case 93:  // eigen-solver type by the host's method code
      if (value == 5)
        s.eigenSolverType = 0;  // subspace iteration
      else if (value == 10)
        s.eigenSolverType = 2;  // FEAST
      else if (value != 6)
        s.eigenSolverType = 1;  // load-dependent Ritz vectors
      break;
    default:
      break;
  }
}

void VQ_SysMatrixSetParamd(VQ_SysMatrixHandle, int key, double value) {
  if (key == 6) VQ_SetSubspaceEigenvalueLimits(1, value);
}

void VQ_SysMatrixSetFunction(VQ_SysMatrixHandle h, int key, VQ_SysMatrixFunction function, void* argument) {
  if (key == 1 && function) function(h, argument);
}

void VQ_SysMatrixGetInteger(VQ_SysMatrixHandle, int key, int* value) {
  if (!value) return;
  const vi::Settings& s = vi::settings();
  switch (key) {
    case 4: *value = s.sparseParams[17]; break;  // non-zeros in the factor
    case 7: *value = s.sparseParams[29]; break;
    case 15: *value = 1; break;
    default: *value = 0; break;
  }
}

void VQ_SysMatrixGetDouble(VQ_SysMatrixHandle, int, double* value) {
  if (value) *value = 0.0;
}

void VQ_SysMatrixGetLong(VQ_SysMatrixHandle, int, long long* value) {
  if (value) *value = 0;
}

int VQ_SysMatrixError(void) { return 0; }
void VQ_SysMatrixAbort(VQ_SysMatrixHandle) {}
void VQ_SysMatrixFactor(VQ_SysMatrixHandle) {}
void VQ_SysMatrixProcess(VQ_SysMatrixHandle) {}
void VQ_SysMatrixSetOocFile(VQ_SysMatrixHandle, const char*) {}
void VQ_SysMatrixEigenFree(VQ_SysMatrixHandle) {}

int VQ_SysMatrixColumn(VQ_SysMatrixHandle h, int column, VQ_SysVectorHandle out) {
  try {
    int n = 0;
    double* values = nullptr;
    int* rp = nullptr;
    int* ci = nullptr;
    if (!out || !vi::SystemMatrixArrays(h, n, values, rp, ci)) return -64;
    if (column < 1 || column > n) return -64;
    if (out->vector.GetSize() != n) out->vector.Redimension(n, 1, 0.0);
    if (out->vector.GetSize() != n) return -1;
    double* d = out->vector.GetDataPointer();
    for (int i = 1; i <= n; ++i) d[i - 1] = h->matrix.Value(i, column);
    return 0;
  } catch (...) {
    return -1;
  }
}

int VQ_SysMatrixDiag(VQ_SysMatrixHandle h, VQ_SysVectorHandle out) {
  try {
    int n = 0;
    double* values = nullptr;
    int* rp = nullptr;
    int* ci = nullptr;
    if (!out || !vi::SystemMatrixArrays(h, n, values, rp, ci)) return -64;
    if (out->vector.GetSize() != n) out->vector.Redimension(n, 1, 0.0);
    if (out->vector.GetSize() != n) return -1;
    double* d = out->vector.GetDataPointer();
    // Every row stores its diagonal first.
    for (int i = 0; i < n; ++i) d[i] = values[rp[i] - 1];
    return 0;
  } catch (...) {
    return -1;
  }
}

}  // extern "C"
