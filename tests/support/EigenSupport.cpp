// Helpers of the eigen-solver tests; see EigenSupport.h.
#include "support/EigenSupport.h"
#include "support/ModelsSupport.h"

#include <mkl_lapacke.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <random>

#include "eigen/VQ_SubspaceEigenSparseSolver.h"
#include "models/SolidModel.h"
#include "vqmath.h"

namespace vqtest {


Csr EigenProblem::MassCsr() const { return diagonal() ? DiagonalCsr(lumped) : mass; }

ObjectPair::ObjectPair(const EigenProblem& problem, bool sparseMass)
    : e(problem),
      m(e.MassCsr()),
      K(e.k.n, e.k.values.data(), e.k.rowPointers.data(), e.k.columnIndices.data()) {
  if (sparseMass || !e.diagonal())
    mass = std::make_unique<VQ_SparseSymMatrix>(m.n, m.values.data(), m.rowPointers.data(),
                                                m.columnIndices.data());
  else
    mass = std::make_unique<VQ_DiagonalMatrix>(m.n, e.lumped.data());
}

EigenProblem SolidProblem(int nx, int ny, int nz, bool consistentMass, bool clamped) {
  vqmath::models::SolidParameters p;
  p.nx = nx, p.ny = ny, p.nz = nz, p.consistentMass = consistentMass, p.clamped = clamped;
  vqmath::models::SolidModel model(p);
  EigenProblem e;
  e.name = "solid", e.k = FromModel(model.Stiffness());
  if (consistentMass)
    e.mass = FromModel(model.ConsistentMass());
  else
    e.lumped = model.LumpedMass();
  return e;
}

bool RealProblem(const std::string& number, EigenProblem& out) {
  std::string error;
  Csr m;
  if (!ReadMtx(DataFile("bcsstk" + number + ".mtx"), out.k, &error)) return false;
  if (!ReadMtx(DataFile("bcsstm" + number + ".mtx"), m, &error)) return false;
  out.name = "bcsstk" + number;
  if (m.Nnz() == m.n)
    out.lumped = Diagonal(m);
  else
    out.mass = m;
  return true;
}

EigenProblem DiagonalProblem(const std::vector<double>& k, const std::vector<double>& m) {
  EigenProblem e;
  e.name = "diagonal", e.k = DiagonalCsr(k), e.lumped = m;
  return e;
}

EigenProblem RotatedProblem(const std::vector<double>& eigenvalues, unsigned seed) {
  const int n = static_cast<int>(eigenvalues.size());
  std::mt19937 rng(seed);
  std::normal_distribution<double> g(0.0, 1.0);
  std::vector<double> q(static_cast<size_t>(n) * n), tau(n);
  for (double& v : q) v = g(rng);
  LAPACKE_dgeqrf(LAPACK_COL_MAJOR, n, n, q.data(), n, tau.data());
  LAPACKE_dorgqr(LAPACK_COL_MAJOR, n, n, n, q.data(), n, tau.data());
  std::vector<double> k(static_cast<size_t>(n) * n, 0.0);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) {
      double s = 0.0;
      for (int c = 0; c < n; ++c)
        s += q[static_cast<size_t>(c) * n + i] * eigenvalues[c] * q[static_cast<size_t>(c) * n + j];
      k[static_cast<size_t>(j) * n + i] = s;
    }
  EigenProblem e;
  e.name = "rotated";
  e.k = CsrFromDense(n, k);
  e.lumped.assign(n, 1.0);
  return e;
}

SubspaceRun RunSubspace(const EigenProblem& e, int p, const SubspaceOptions& o) {
  ScratchDir dir;
  Csr k = e.k, m = e.MassCsr();
  std::vector<double> lumped = e.lumped;
  std::unique_ptr<VQ_SubspaceEigenSparseSolver> solver;
  if (e.diagonal())
    solver.reset(new VQ_SubspaceEigenSparseSolver(k.n, VQTEST_CSR(k), lumped.data(), o.oocMode, -2,
                                                  p, dir.Path().c_str(), o.limitActive, o.limit));
  else
    solver.reset(new VQ_SubspaceEigenSparseSolver(k.n, VQTEST_CSR(k), VQTEST_CSR(m), o.oocMode, -2,
                                                  p, dir.Path().c_str(), o.limitActive, o.limit));
  SubspaceRun r;
  r.constructionStatus = solver->GetStatus();
  if (r.constructionStatus != 0) return r;
  solver->SetConvergenceTolerance(o.tolerance);
  solver->SetRigidBodyModesCheck(o.allowRigidBodyModes);
  solver->SetVerboseMode(o.verbose);
  r.status = solver->SolveSystemIncrementally(p, o.shift, o.maxPasses);
  r.found = solver->GetNumFoundEigen();
  solver->GetSolverWarningInfo(r.warningMessage, r.warning);
  r.instabilityDof = solver->Get_DOFNumForInstability();
  for (int i = 1; i <= r.found; ++i) r.values.push_back(solver->GetEigenValue(i));
  const VQ_Matrix* v = solver->GetAllEigenVectors();
  if (v->NumRows() == k.n && v->NumCols() >= r.found)
    r.vectors.assign(v->GetDataPointer(), v->GetDataPointer() + static_cast<size_t>(k.n) * r.found);
  return r;
}

std::vector<double> ReferenceEigenvalues(const EigenProblem& e) {
  return DenseEigenvalues(e.k, e.MassCsr());
}

BandRun RunBand(const EigenProblem& e, double lower, double upper, int maxModes) {
  BandRun r;
  const int n = e.k.n;
  const Csr m = e.MassCsr();
  r.values.assign(std::max(maxModes, 1), 0.0);
  r.vectors.assign(static_cast<size_t>(n) * std::max(maxModes, 1), 0.0);
  if (e.diagonal())
    r.code = VQ_EigenvalueAnalysis_Band(n, VQTEST_CSR(e.k), e.lumped.data(), lower, upper, maxModes,
                                        &r.bandCount, &r.found, r.values.data(), r.vectors.data(),
                                        nullptr);
  else
    r.code = VQ_EigenvalueAnalysis_Band2(n, VQTEST_CSR(e.k), VQTEST_CSR(m), lower, upper, maxModes,
                                         &r.bandCount, &r.found, r.values.data(), r.vectors.data(),
                                         nullptr);
  return r;
}

VQ_BandProblem BandProblemOf(const EigenProblem& e, double lower, double upper) {
  VQ_BandProblem p;
  p.n = e.k.n, p.kRowPointers = e.k.rowPointers.data(), p.kColumnIndices = e.k.columnIndices.data();
  p.kValues = e.k.values.data();
  if (e.diagonal()) {
    p.mDiagonal = e.lumped.data();
  } else {
    p.mRowPointers = e.mass.rowPointers.data(), p.mColumnIndices = e.mass.columnIndices.data();
    p.mValues = e.mass.values.data();
  }
  p.lower = lower, p.upper = upper;
  return p;
}

}  // namespace vqtest
