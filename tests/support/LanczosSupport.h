// Runs of the Lanczos drivers for the tests: the problem over test CSR matrices (the second
// matrix in compressed rows, or as its diagonal), one driver call, and what the run delivered.
#pragma once

#include <algorithm>
#include <functional>
#include <vector>

#include "eigen/VQ_LanczosEigenSolver.h"
#include "support/TestSupport.h"

namespace vqtest {

struct LanczosRun {
  int driverStatus = 0;
  VQ_LanczosResult result;
  std::vector<double> values;  // the delivered eigenvalues
  std::vector<double> modes;   // their shapes, n per mode
};

using LanczosDriver = std::function<int(VQ_LanczosEigenSolver&)>;
using LanczosTuning = std::function<void(VQ_LanczosProblem&)>;

// Runs drive (e.g. &VQ_LanczosEigenSolver::SolveNaturalModes) on K·φ = λ·B·φ with B = *b, or
// the diagonal *bDiagonal when b is null; tune sets the rest of the problem (shift, block …).
inline LanczosRun RunLanczos(const Csr& k, const Csr* b, const std::vector<double>* bDiagonal,
                             int requested, const LanczosDriver& drive,
                             const LanczosTuning& tune = {}) {
  LanczosRun run;
  const size_t slots = static_cast<size_t>(std::max(requested, 1));
  run.values.assign(slots, -1.0);
  run.modes.assign(static_cast<size_t>(k.n) * slots, 0.0);
  int found = -1;
  VQ_LanczosProblem p;
  p.n = k.n, p.requested = requested, p.kRowPointers = k.rowPointers.data();
  p.kColumnIndices = k.columnIndices.data(), p.kValues = k.values.data();
  if (b) {
    p.bRowPointers = b->rowPointers.data(), p.bColumnIndices = b->columnIndices.data();
    p.bValues = b->values.data();
  } else {
    p.bDiagonal = bDiagonal->data();
  }
  p.eigenvalues = run.values.data(), p.modeShapes = run.modes.data(), p.found = &found;
  if (tune) tune(p);
  VQ_LanczosEigenSolver solver(p);
  run.driverStatus = drive(solver);
  run.result = solver.Result();
  EXPECT_EQ(found, run.result.found);
  const size_t delivered = static_cast<size_t>(std::max(found, 0));
  run.values.resize(delivered);
  run.modes.resize(static_cast<size_t>(k.n) * delivered);
  return run;
}

// Success when the run returned 0 and delivered count eigenpairs (any count when count < 0).
inline ::testing::AssertionResult Delivered(const LanczosRun& run, int count = -1) {
  if (run.driverStatus != 0)
    return ::testing::AssertionFailure() << "driver status " << run.driverStatus << ", status "
                                         << run.result.status << ": " << run.result.message;
  if (count >= 0 && run.result.found != count)
    return ::testing::AssertionFailure()
           << run.result.found << " delivered, " << count << " expected";
  return ::testing::AssertionSuccess();
}

}  // namespace vqtest
