// Bridges the model generator's matrices to the test support library's CSR type (the same
// layout and field names), so generated models feed the dense references directly.
#pragma once

#include "models/CsrMatrix.h"
#include "models/SolidModel.h"
#include "support/TestSupport.h"
#include "vqmath.h"

namespace vqtest {

inline Csr FromModel(const vqmath::models::CsrMatrix& a) { return a; }

// A system-matrix handle holding the model's stiffness, pre-assembled and assembled element by
// element as a host does (equations 0 of the clamped face skipped by the handle).
inline VQ_SysMatrixHandle AssembleHandle(const vqmath::models::SolidModel& model)
{
    VQ_SysMatrixHandle h = VQ_SysMatrixBegin();
    VQ_SysMatrixDef(h, 0, model.NumEquations());
    int dofs[24];
    for (int e = 0; e < model.NumElements(); ++e) {
        model.ElementEquations(e, dofs);
        VQ_SysMatrixPreAssem(h, 24, dofs);
    }
    for (int e = 0; e < model.NumElements(); ++e) {
        model.ElementEquations(e, dofs);
        const std::vector<double> packed = vqmath::models::PackUpperByColumns(model.ElementStiffness(e).data(), 24);
        VQ_SysMatrixAssem(h, 24, dofs, packed.data());
    }
    return h;
}

// A handle holding k, reserved and then assembled entry by entry as a host would (off-diagonal
// entries as two-equation elements, diagonal ones on their own).
inline VQ_SysMatrixHandle HandleFromCsr(const Csr& k)
{
    VQ_SysMatrixHandle h = VQ_SysMatrixBegin();
    VQ_SysMatrixDef(h, 0, k.n);
    for (int pass = 0; pass < 2; ++pass)
        for (int i = 1; i <= k.n; ++i)
            for (int p = k.rowPointers[i - 1] - 1; p < k.rowPointers[i] - 1; ++p) {
                int dofs[2] = {i, k.columnIndices[p]};
                const double element[3] = {0.0, k.values[p], 0.0};  // local (1,1), (1,2), (2,2)
                if (dofs[1] == i && pass == 0) VQ_SysMatrixPreAssemDiag(h, 1, dofs);
                if (dofs[1] == i && pass == 1) VQ_SysMatrixAssemDiag(h, 1, dofs, &k.values[p]);
                if (dofs[1] != i && pass == 0) VQ_SysMatrixPreAssem(h, 2, dofs);
                if (dofs[1] != i && pass == 1) VQ_SysMatrixAssem(h, 2, dofs, element);
            }
    return h;
}

// A system vector holding v[0 .. n-1], and the values a system vector holds.
inline VQ_SysVectorHandle SysVectorOf(const double* v, int n)
{
    VQ_SysVectorHandle h = VQ_SysVectorCreate(n, 0.0);
    std::vector<int> dofs(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) dofs[i] = i + 1;
    VQ_SysVectorScatter(h, n, dofs.data(), v);
    return h;
}

inline std::vector<double> SysVectorValues(VQ_SysVectorHandle v)
{
    int n = 0;
    VQ_SysVectorInq(v, &n);
    std::vector<int> dofs(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) dofs[i] = i + 1;
    std::vector<double> out(static_cast<size_t>(n));
    VQ_SysVectorGather(v, n, dofs.data(), out.data());
    return out;
}

}  // namespace vqtest
