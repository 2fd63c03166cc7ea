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

}  // namespace vqtest
