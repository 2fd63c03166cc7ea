// Helpers of the eigen-solver tests: generalized problems (generated solids, the real structural
// matrices, diagonal pairs with known spectra), a scratch working directory, and a runner that
// drives VQ_SubspaceEigenSparseSolver on copies of a problem's arrays.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "dense/VQ_DiagonalMatrix.h"
#include "eigen/VQ_BandEigenSolver.h"
#include "sparse/VQ_SparseSymMatrix.h"
#include "support/TestSupport.h"

namespace vqtest {

// A generalized problem: K, and M either as a diagonal (lumped non-empty) or sparse.
struct EigenProblem {
  std::string name;
  Csr k;
  std::vector<double> lumped;
  Csr mass;
  bool diagonal() const { return !lumped.empty(); }
  Csr MassCsr() const;
};

// The generated solid block nx x ny x nz (clamped or free), lumped or consistent mass.
EigenProblem SolidProblem(int nx, int ny, int nz, bool consistentMass, bool clamped = true);
// bcsstkNN / bcsstmNN of the shared data folder (diagonal mass when the file holds only the
// diagonal). False when the files cannot be read.
bool RealProblem(const std::string& number, EigenProblem& out);
// K = diag(k), M = diag(m).
EigenProblem DiagonalProblem(const std::vector<double>& k, const std::vector<double>& m);
// K = Q diag(eigenvalues) Q' for a random orthogonal Q (stored densely as sparse), M = I.
EigenProblem RotatedProblem(const std::vector<double>& eigenvalues, unsigned seed);

// K and M of a problem as objects the test owns: M sparse (from MassCsr) or, for a lumped mass
// when sparseMass is false, diagonal.
struct ObjectPair {
  explicit ObjectPair(const EigenProblem& problem, bool sparseMass = true);
  EigenProblem e;
  Csr m;
  VQ_SparseSymMatrix K;
  std::unique_ptr<VQ_Matrix> mass;
  VQ_Matrix* M() { return mass.get(); }
};

struct SubspaceOptions {
  double shift = 0.0;
  double tolerance = 1e-12;
  bool limitActive = false;
  double limit = 0.0;
  bool allowRigidBodyModes = false;
  int maxPasses = 0;
  int oocMode = 0;
  int verbose = 0;  // verbose mode of the solver (1: progress on standard output)
};

struct SubspaceRun {
  int constructionStatus = 0;
  int status = 0;
  int found = 0;
  int warning = 0;
  std::string warningMessage;
  int instabilityDof = -1;
  std::vector<double> values;   // found eigenvalues in the order found
  std::vector<double> vectors;  // n x found, column-major
};

// Builds the solver from copies of the problem's arrays (owned K and M), runs p modes.
SubspaceRun RunSubspace(const EigenProblem& e, int p, const SubspaceOptions& options = {});

// All eigenvalues by dense LAPACK (finite ones, ascending).
std::vector<double> ReferenceEigenvalues(const EigenProblem& e);

// A run of the band entry point (VQ_EigenvalueAnalysis_Band, _Band2 for a sparse M), arrays
// sized for maxModes.
struct BandRun {
  int code = 0;
  int bandCount = -1;
  int found = -1;
  std::vector<double> values;
  std::vector<double> vectors;
};
BandRun RunBand(const EigenProblem& e, double lower, double upper, int maxModes);
// The band class's problem over the arrays of e (which must outlive it).
VQ_BandProblem BandProblemOf(const EigenProblem& e, double lower, double upper);

}  // namespace vqtest
