// The eigenvalue dispatcher VQ_EigenvalueAnalysis (subspace iteration, Ritz vectors, FEAST, and
// unknown method numbers) fed arbitrary compressed rows, masses, counts (nev above n included),
// shifts, bounds and flags at small orders. Promises checked: a code equal to the registry's (1
// with -22 recorded), at most nev eigenvalues delivered and the rest of the caller's slots left
// cleared, NaN or infinite K or mass always rejected as malformed, and nothing written past the
// eigenvalue and mode-shape arrays (AddressSanitizer).
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>

#include "FuzzDense.h"
#include "vqmath.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string workDir = vqfuzz::ScratchFolder("eigen-work");
  FuzzedDataProvider in(data, size);
  const int type =
      in.ConsumeBool() ? in.ConsumeIntegralInRange<int>(0, 2) : in.ConsumeIntegral<int>();
  const int nevChoice = in.ConsumeIntegralInRange<int>(-1, 14);
  const int oocMode = in.ConsumeIntegralInRange<int>(0, 1);
  const int matrixType = in.ConsumeBool() ? 2 : -2;
  const int limitActive = in.ConsumeBool();
  const double limit = vqfuzz::PickValue(in);
  const int allowRigid = in.ConsumeBool();
  const int wantModes = in.ConsumeIntegralInRange<int>(0, 2);
  const double shift = in.ConsumeBool() ? 0.0 : vqfuzz::PickValue(in);
  const double emin = in.ConsumeBool() ? 0.0 : vqfuzz::PickValue(in);
  const double emax = in.ConsumeBool() ? 1e3 : vqfuzz::PickValue(in);
  const bool withLoad = in.ConsumeBool();
  const bool nullMass = in.ConsumeIntegralInRange<int>(0, 15) == 0;
  const bool nullModes = in.ConsumeBool();
  vqfuzz::Csr c = vqfuzz::BuildCsr(in, 10);
  const int n = c.n;
  const int nev = nevChoice;

  std::vector<double> mass(n > 0 ? static_cast<size_t>(n) : 0);
  const bool positiveMass = in.ConsumeBool();
  for (double& m : mass)
    m = positiveMass ? 1.0 + in.ConsumeIntegralInRange<int>(0, 3) : vqfuzz::PickValue(in);
  std::vector<double> load(withLoad ? mass.size() : 0);
  for (double& l : load) l = vqfuzz::PickValue(in);

  const size_t slots = nev > 0 ? static_cast<size_t>(nev) : 0;
  std::vector<double> eigenvalues(slots, -77.0);
  std::vector<double> modes(n > 0 && nev > 0 ? static_cast<size_t>(n) * nev : 0, -55.0);
  int found = -1;

  const int code = VQ_EigenvalueAnalysis(
      type, n, nev, c.rowPointers.empty() ? nullptr : c.rowPointers.data(),
      vqfuzz::DataOrNull(c.columnIndices), vqfuzz::DataOrNull(c.values),
      nullMass ? nullptr : vqfuzz::DataOrNull(mass), oocMode, matrixType, workDir.c_str(),
      limitActive, limit, allowRigid, &found, vqfuzz::DataOrNull(eigenvalues), wantModes,
      nullModes ? nullptr : vqfuzz::DataOrNull(modes), shift, emin, emax,
      withLoad ? vqfuzz::DataOrNull(load) : nullptr);

  const int registry = VQ_GetLastErrorID();
  char* message = VQ_GetLastErrorMessage();
  VQFUZZ_CHECK(message != nullptr);
  if (code < 0) VQFUZZ_CHECK(message[0] != '\0');
  std::free(message);
  VQFUZZ_CHECK(code <= 1);
  if (code == 1)
    VQFUZZ_CHECK(registry == -22);
  else
    VQFUZZ_CHECK(registry == code);
  if (type < 0 || type > 2) VQFUZZ_CHECK(code == -9999);
  VQFUZZ_CHECK(found >= 0 && found <= std::max(nev, 0));
  // Slots beyond what was delivered stay cleared.
  for (size_t k = static_cast<size_t>(found); k < eigenvalues.size(); ++k)
    VQFUZZ_CHECK(eigenvalues[k] == 0.0);
  if (type >= 0 && type <= 2 && n >= 1 && nev >= 1 && !nullMass && !c.rowPointers.empty()) {
    // Every stored value lies inside the compressed rows (the arrays are as long as they say), so
    // a NaN or an infinity there is malformed input whatever else is wrong.
    if (!vqfuzz::AllFinite(c.values) || !vqfuzz::AllFinite(mass)) VQFUZZ_CHECK(code == -64);
  }
  return 0;
}
