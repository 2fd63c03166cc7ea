// Endurance: a host runs hundreds of analyses in one process. After a warm-up, 200 block Lanczos
// analyses, 200 band analyses and 1000 Sturm counts on a small solid must not make the heap
// (mallinfo2) or the resident memory (/proc/self/statm) grow, and must leave no scratch file in the
// working directory, which is also the current directory. The last result of each run is checked
// against the others' (the band count against a Sturm count), so a fix that broke them shows.
// Under AddressSanitizer the memory figures are not compared (its quarantine holds freed memory).
#include <gtest/gtest.h>
#include <unistd.h>

#include <cfloat>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "models/SolidModel.h"
#include "support/ModelsSupport.h"
#include "support/ReliabilitySupport.h"
#include "vqmath.h"

namespace {

long ResidentKb() {
  long pages = 0, resident = 0;
  if (std::FILE* f = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
    std::fclose(f);
  }
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

struct Model {
  vqtest::Csr k;
  std::vector<double> mass;
  int n = 0;
};

TEST(Endurance, RepeatedAnalysesKeepMemoryAndFilesFlat) {
  vqtest::ScratchDir dir;
  char cwd[4096];
  ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
  ASSERT_EQ(0, chdir(dir.Path().c_str()));
  VQ_SetWorkingDir(dir.Path().c_str());
  const vqmath::models::SolidModel solid(vqmath::models::SolidModel::ForEquations(300));
  Model m{vqtest::FromModel(solid.Stiffness()), solid.LumpedMass(), solid.NumEquations()};
  const int nev = 6;

  std::vector<double> values(nev), shapes(static_cast<size_t>(m.n) * nev);
  int found = 0, sturm = 0;
  // A band edge between two distinct eigenvalues (the bar's come in pairs), from a first run.
  std::vector<double> first(nev + 2);
  ASSERT_EQ(0, VQ_EigenvalueAnalysis_BlockLanczos(m.n, nev + 2, m.k.rowPointers.data(), m.k.columnIndices.data(),
                                     m.k.values.data(), m.mass.data(), 0, 0, &found, first.data(), nullptr, 0.0, 0,
                                     0.0, nullptr, nullptr));
  int edge = nev - 2;
  while (edge + 1 < nev + 2 && first[edge + 1] < first[edge] * (1 + 1e-6)) ++edge;
  const double upper = 0.5 * (first[edge] + first[edge + 1]);
  int bandCount = 0, counted = 0;

  struct Run {
    const char* what;
    int calls;
    std::function<int()> call;
  };
  const std::vector<Run> runs = {
      {"block Lanczos", 200,
       [&] {
         return VQ_EigenvalueAnalysis_BlockLanczos(m.n, nev, m.k.rowPointers.data(), m.k.columnIndices.data(),
                                                   m.k.values.data(), m.mass.data(), 0, 0, &found, values.data(),
                                                   shapes.data(), 0.0, 0, 0.0, dir.Path().c_str(), &sturm);
       }},
      {"band", 200,
       [&] {
         return VQ_EigenvalueAnalysis_Band(m.n, m.k.rowPointers.data(), m.k.columnIndices.data(), m.k.values.data(),
                                           m.mass.data(), -DBL_MAX, upper, nev, &bandCount, &found, values.data(),
                                           shapes.data(), dir.Path().c_str());
       }},
      {"Sturm count", 1000,
       [&] {
         return VQ_SturmCount(m.n, m.k.rowPointers.data(), m.k.columnIndices.data(), m.k.values.data(),
                              m.mass.data(), upper, &counted);
       }},
  };
  for (const Run& run : runs) {
    SCOPED_TRACE(run.what);
    const int warmUp = 20;
    long long heap = 0;
    long resident = 0, halfway = 0;
    for (int c = 0; c < run.calls + warmUp; ++c) {
      if (c == warmUp) heap = vqtest::HeapInUseBytes(), resident = ResidentKb();
      if (c == warmUp + run.calls / 2) halfway = ResidentKb();
      ASSERT_EQ(0, run.call()) << "call " << c << ": " << vqtest::LastError().message;
    }
    const long long heapGrowth = vqtest::HeapInUseBytes() - heap;
    const long residentGrowth = ResidentKb() - resident;
    const long secondHalfGrowth = ResidentKb() - halfway;
    std::printf("[ memory   ] %s: %d calls, heap %+lld bytes, resident %+ld kB (%+ld kB in the second half)\n",
                run.what, run.calls, heapGrowth, residentGrowth, secondHalfGrowth);
    EXPECT_EQ(std::vector<std::string>(), vqtest::ListDirectory(dir.Path()));
    if (vqtest::UnderAddressSanitizer()) continue;
    // A leak of 100 bytes per call would exceed the first bound; a model-sized array (~40 kB)
    // per call the others by far. The allocator's pages settle in the first half (up to 2 MB when
    // the machine is busy); a leak keeps growing through the second.
    EXPECT_LT(heapGrowth, 16 * 1024);
    EXPECT_LT(residentGrowth, 4 * 1024);
    EXPECT_LT(secondHalfGrowth, 1024);
  }
  EXPECT_EQ(edge + 1, bandCount);
  EXPECT_EQ(bandCount, counted);
  EXPECT_EQ(found, bandCount);
  ASSERT_EQ(0, chdir(cwd));
}

}  // namespace
