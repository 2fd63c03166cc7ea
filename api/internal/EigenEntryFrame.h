// Shared frame of the eigenvalue analysis entry points: input checks made before anything is
// built, clearing of the caller's outputs, and the copy of results into the caller's arrays
// (never more than the count the caller sized them for).
#pragma once

#include <string>

class VQ_Matrix;

namespace vqmath {
namespace internal {

// Checks n >= 1, nev >= 1 and a well-formed finite upper CSR K; records -64 with a description
// and returns false otherwise. `what` names the matrix in the message.
bool CheckEigenInput(int n, int nev, const int* rowPointers, const int* columnIndices,
                     const double* values, const char* what);
// Checks a further sparse matrix (M or Kg) of order n.
bool CheckSparseOperand(int n, const int* rowPointers, const int* columnIndices,
                        const double* values, const char* what);
// Checks a diagonal mass of n finite values.
bool CheckDiagonalMass(int n, const double* mass);
// Checks an optional vector of n finite values (null passes).
bool CheckOptionalVector(int n, const double* v, const char* what);

// Clears nev eigenvalue slots and the count output (either may be null).
void ClearEigenOutputs(int nev, double* eigenvalues, int* found);

// Copies min(count, nev) eigenvalues and, when modeShapes is given, as many n-long columns of
// `vectors` (column-major, leading dimension its row count) into the caller's arrays.
int CopyEigenResults(int n, int nev, int count, const double* values, const VQ_Matrix* vectors,
                     double* eigenvalues, double* modeShapes);

// Records a solver status in the registry (0 records nothing), with the instability equation for
// -3; returns the status.
int RecordSolverStatus(int status, int instabilityDof);

}  // namespace internal
}  // namespace vqmath
