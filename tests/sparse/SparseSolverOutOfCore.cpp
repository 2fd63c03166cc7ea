// Out-of-core factorisation of VQ_SparseSolver: the factor of a solid larger than
// MKL_PARDISO_OOC_MAX_CORE_SIZE goes to scratch files named after each solver's GUID in the
// working directory, the solutions stay as accurate as in core, and the files are removed or kept
// as MKL_PARDISO_OOC_KEEP_FILE says.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "sparse/VQ_SparseSolver.h"
#include "support/SolverHarness.h"
#include "vqmath.h"

namespace {

using vqtest::Csr;

// A fresh scratch folder per test, removed with everything in it afterwards.
class ScratchDir {
 public:
  ScratchDir() {
    char pattern[] = "/tmp/vqmath_ooc_XXXXXX";
    const char* made = mkdtemp(pattern);
    path_ = made ? made : "";
  }
  ~ScratchDir() {
    for (const std::string& f : Files()) std::remove((path_ + "/" + f).c_str());
    rmdir(path_.c_str());
  }
  const std::string& path() const { return path_; }
  std::vector<std::string> Files() const {
    std::vector<std::string> names;
    if (DIR* d = opendir(path_.c_str())) {
      while (dirent* e = readdir(d)) {
        std::string name = e->d_name;
        if (name != "." && name != "..") names.push_back(name);
      }
      closedir(d);
    }
    return names;
  }
  // Files whose name starts with the given prefix, and their total size in bytes.
  std::vector<std::string> FilesStartingWith(const std::string& prefix, long long* bytes = nullptr) const {
    std::vector<std::string> out;
    long long total = 0;
    for (const std::string& f : Files()) {
      if (f.compare(0, prefix.size(), prefix) != 0) continue;
      out.push_back(f);
      struct stat st;
      if (stat((path_ + "/" + f).c_str(), &st) == 0) total += st.st_size;
    }
    if (bytes) *bytes = total;
    return out;
  }

 private:
  std::string path_;
};

std::string BaseName(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// 20 MB of core memory: PARDISO's out-of-core mode needs about this much for the working set of a
// 12 000-equation solid, whose factor takes about 30 MB.
constexpr int kCoreSizeMb = 20;
constexpr int kLargeSolid = 12000;

class SparseSolverOutOfCore : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(dir_.path().empty());
    VQ_InitializeLibrary();
    VQ_ResetOverrideListSparseSolverParam();
    VQ_Set_INTEL_MKL_OOC_Max_Core_Size(kCoreSizeMb);
    VQ_Set_INTEL_MKL_OOC_KEEP_FILE(1);
  }
  void TearDown() override {
    VQ_Set_INTEL_MKL_OOC_Max_Core_Size(2000);
    VQ_Set_INTEL_MKL_OOC_KEEP_FILE(1);
  }
  ScratchDir dir_;
};

// VQ_SparseSolver in out-of-core mode 2 with the scratch folder as working directory.
class OutOfCoreSolver : public vqtest::SolverUnderTest {
 public:
  OutOfCoreSolver(const std::string& dir, int mode) : dir_(dir), mode_(mode) {}
  int Factor(const Csr& k) override {
    k_ = k;
    solver_.reset(new VQ_SparseSolver(mode_, -2, false, dir_.c_str()));
    solver_->Set_Matrix(k_.n, k_.values.data(), k_.rowPointers.data(), k_.columnIndices.data());
    return solver_->Decomposition(false, true);
  }
  int Solve(int nrhs, double* b, double* x) override {
    solver_->Set_LoadVector(0, nrhs, b);
    solver_->Set_ResultVector(x);
    return solver_->Solve();
  }
  VQ_SparseSolver& solver() { return *solver_; }
  void Release() { solver_.reset(); }

 private:
  std::string dir_;
  int mode_;
  Csr k_;
  std::unique_ptr<VQ_SparseSolver> solver_;
};

TEST_F(SparseSolverOutOfCore, FactorLargerThanCoreGoesToScratchFilesAndSolvesAccurately) {
  const Csr k = vqtest::SolidStiffness(kLargeSolid);
  OutOfCoreSolver s(dir_.path(), 2);
  vqtest::HarnessOptions options;
  options.rhsCounts = {1, 6};
  vqtest::RunSolverChecks(s, k, options);
  ASSERT_TRUE(s.solver().IsFactorised());
  EXPECT_EQ(2, s.solver().Get_iParm(59));

  // The scratch files carry this solver's GUID and live in the working directory.
  const std::string path = s.solver().Get_OutOfCorePath();
  EXPECT_EQ(dir_.path() + "/", path.substr(0, dir_.path().size() + 1));
  const std::string prefix = BaseName(path);
  EXPECT_EQ(36u + 9u, prefix.size()) << prefix;  // GUID + "_ooc_file"
  // and hold more than the core size: the factor really lives on disk.
  long long bytes = 0;
  EXPECT_FALSE(dir_.FilesStartingWith(prefix, &bytes).empty());
  EXPECT_GT(bytes, kCoreSizeMb * 1000000LL);

  // Keep-file "1": gone with the solver.
  s.Release();
  EXPECT_TRUE(dir_.FilesStartingWith(prefix).empty());
}

TEST_F(SparseSolverOutOfCore, KeepFileZeroLeavesTheScratchFiles) {
  VQ_Set_INTEL_MKL_OOC_KEEP_FILE(0);
  const Csr k = vqtest::SolidStiffness(6000);
  OutOfCoreSolver s(dir_.path(), 2);
  ASSERT_EQ(0, s.Factor(k));
  const std::string prefix = BaseName(s.solver().Get_OutOfCorePath());
  s.Release();
  EXPECT_FALSE(dir_.FilesStartingWith(prefix).empty());
}

TEST_F(SparseSolverOutOfCore, EverySolverHasScratchFilesOfItsOwn) {
  const Csr k = vqtest::SolidStiffness(6000);
  OutOfCoreSolver a(dir_.path(), 2), b(dir_.path(), 2);
  ASSERT_EQ(0, a.Factor(k));
  ASSERT_EQ(0, b.Factor(k));
  const std::string pa = BaseName(a.solver().Get_OutOfCorePath());
  const std::string pb = BaseName(b.solver().Get_OutOfCorePath());
  ASSERT_NE(pa, pb);
  EXPECT_FALSE(dir_.FilesStartingWith(pa).empty());
  EXPECT_FALSE(dir_.FilesStartingWith(pb).empty());
  // Both factors stay usable side by side: the first solver still reads its own files.
  std::vector<double> f = vqtest::MakeRightHandSides(k.n, 1), x(k.n);
  std::vector<double> rhs = f;
  ASSERT_EQ(0, a.Solve(1, rhs.data(), x.data()));
  EXPECT_LE(vqtest::RelativeResidual(k, x.data(), f.data(), 1), 1e-10);
  b.Release();
  EXPECT_TRUE(dir_.FilesStartingWith(pb).empty());
  EXPECT_FALSE(dir_.FilesStartingWith(pa).empty());
}

TEST_F(SparseSolverOutOfCore, ModeOneSwitchesToOutOfCoreWhenTheFactorDoesNotFit) {
  const Csr k = vqtest::SolidStiffness(kLargeSolid);
  OutOfCoreSolver s(dir_.path(), 1);
  vqtest::HarnessOptions options;
  options.rhsCounts = {3};
  vqtest::RunSolverChecks(s, k, options);
  long long bytes = 0;
  EXPECT_FALSE(dir_.FilesStartingWith(BaseName(s.solver().Get_OutOfCorePath()), &bytes).empty());
  EXPECT_GT(bytes, kCoreSizeMb * 1000000LL);

  // With room enough the same mode stays in core and writes nothing.
  VQ_Set_INTEL_MKL_OOC_Max_Core_Size(2000);
  OutOfCoreSolver t(dir_.path(), 1);
  ASSERT_EQ(0, t.Factor(k));
  EXPECT_TRUE(dir_.FilesStartingWith(BaseName(t.solver().Get_OutOfCorePath())).empty());
}

TEST_F(SparseSolverOutOfCore, CoreTooSmallForTheWorkingSetIsAnOutOfCoreMemoryFailure) {
  VQ_Set_INTEL_MKL_OOC_Max_Core_Size(1);
  const Csr k = vqtest::SolidStiffness(kLargeSolid);
  OutOfCoreSolver s(dir_.path(), 2);
  EXPECT_EQ(-5, s.Factor(k));
  EXPECT_EQ(-9, s.solver().Get_PardisoError());
  std::string message;
  int code = 0;
  s.solver().GetSolverErrorInfo(message, code);
  EXPECT_EQ(-82, code);
  EXPECT_EQ("Not Enough Memory for OOC in Sparse Solver", message);
}

}  // namespace
