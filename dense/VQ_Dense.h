// VQ_Dense.h - convenience header: every class and free operator of the dense matrix family.
#ifndef VQMATH_DENSE_VQ_DENSE_H
#define VQMATH_DENSE_VQ_DENSE_H

#include "dense/MatrixTypes.h"
#include "dense/VQ_ColVector.h"
#include "dense/VQ_DiagonalMatrix.h"
#include "dense/VQ_Matrix.h"
#include "dense/VQ_MatrixAux.h"
#include "dense/VQ_RowVector.h"
#include "dense/VQ_SymMatrix.h"

#endif  // VQMATH_DENSE_VQ_DENSE_H
