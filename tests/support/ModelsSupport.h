// Bridges the model generator's matrices to the test support library's CSR type (the same
// layout and field names), so generated models feed the dense references directly.
#pragma once

#include "models/CsrMatrix.h"
#include "support/TestSupport.h"

namespace vqtest {

inline Csr FromModel(const vqmath::models::CsrMatrix& a)
{
    Csr c;
    c.n = a.n;
    c.rowPointers = a.rowPointers;
    c.columnIndices = a.columnIndices;
    c.values = a.values;
    return c;
}

}  // namespace vqtest
