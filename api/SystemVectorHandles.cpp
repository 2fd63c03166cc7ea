// System-vector handles: a dense column per handle, with the element-level gather, scatter and
// assembly of finite-element codes. Equation numbers are 1-based; 0 and numbers beyond the
// vector's length are skipped, so nothing is read or written outside the vector. None of these
// functions reports through the registry.
#include <cmath>
#include <new>

#include "api/internal/SystemHandles.h"
#include "vqmath.h"

namespace {

int Length(const VQ_SysVector* v) { return v ? v->vector.GetSize() : 0; }

double* Data(VQ_SysVector* v) { return v ? v->vector.GetDataPointer() : nullptr; }

}  // namespace

extern "C" {

VQ_SysVectorHandle VQ_SysVectorBegin(void) { return VQ_SysVectorCreate(1, 0.0); }

VQ_SysVectorHandle VQ_SysVectorCreate(int n, double value) {
  try {
    VQ_SysVector* v = new VQ_SysVector();
    if (n > 0) {
      v->vector.Redimension(n, 1, value);
      if (v->vector.MatrixStatus() != 0 || Length(v) != n) {
        delete v;
        return nullptr;
      }
    }
    return v;
  } catch (...) {
    return nullptr;
  }
}

void VQ_SysVectorEnd(VQ_SysVectorHandle v) { delete v; }

void VQ_SysVectorDef(VQ_SysVectorHandle v, int n) {
  if (!v || n < 0) return;
  try {
    v->vector.Redimension(n, 1, 0.0);
  } catch (...) {
  }
}

int VQ_SysVectorInq(VQ_SysVectorHandle v, int* n) {
  int length = Length(v);
  if (n) *n = length;
  return length;
}

void VQ_SysVectorInit(VQ_SysVectorHandle v, double value) {
  double* d = Data(v);
  for (int i = 0, m = Length(v); i < m; ++i) d[i] = value;
}

void VQ_SysVectorCopy(VQ_SysVectorHandle target, VQ_SysVectorHandle source) {
  if (!target || !source || target == source) return;
  try {
    target->vector = source->vector;
  } catch (...) {
  }
}

void VQ_SysVectorAdd(VQ_SysVectorHandle v, VQ_SysVectorHandle a, double factor, VQ_SysVectorHandle b) {
  if (!v || !a || !b) return;
  double* out = Data(v);
  const double* x = Data(a);
  const double* y = Data(b);
  // v's length governs; shorter operands limit the loop rather than being read past their end.
  int m = Length(v);
  if (Length(a) < m) m = Length(a);
  if (Length(b) < m) m = Length(b);
  for (int i = 0; i < m; ++i) out[i] = x[i] + factor * y[i];
}

void VQ_SysVectorNorm(VQ_SysVectorHandle v, int, double* norm) {
  if (!norm) return;
  *norm = v ? v->vector.Norm() : 0.0;
}

void VQ_SysVectorLInfNorm(VQ_SysVectorHandle v, int, double* norm) {
  if (!norm) return;
  double largest = 0.0;
  const double* d = Data(v);
  for (int i = 0, m = Length(v); i < m; ++i) largest = std::fmax(largest, std::fabs(d[i]));
  *norm = largest;
}

void VQ_SysVectorGather(VQ_SysVectorHandle v, int count, const int* dofs, double* out) {
  if (!v || !dofs || !out) return;
  const double* d = Data(v);
  const int m = Length(v);
  for (int k = 0; k < count; ++k)
    if (dofs[k] >= 1 && dofs[k] <= m) out[k] = d[dofs[k] - 1];
}

void VQ_SysVectorScatter(VQ_SysVectorHandle v, int count, const int* dofs, const double* in) {
  if (!v || !dofs || !in) return;
  double* d = Data(v);
  const int m = Length(v);
  for (int k = 0; k < count; ++k)
    if (dofs[k] >= 1 && dofs[k] <= m) d[dofs[k] - 1] = in[k];
}

void VQ_SysVectorAssem(VQ_SysVectorHandle v, int count, const int* dofs, const double* values) {
  if (!v || !dofs || !values) return;
  double* d = Data(v);
  const int m = Length(v);
  for (int k = 0; k < count; ++k)
    if (dofs[k] >= 1 && dofs[k] <= m) d[dofs[k] - 1] += values[k];
}

int VQ_SysVectorError(void) { return 0; }

}  // extern "C"
