// Allocation failure: sizes beyond the library's 32-bit element count, and a process whose
// address space is limited (setrlimit(RLIMIT_AS)) below what a call needs. Every failure must come
// back as status -1 with its exact message (or the solver's out-of-memory code), leave objects
// destructible and usable again, and give back every byte it took.
//
// The address-space tests run in a child process (a death test re-runs this program), after a
// warm-up that lets MKL and the OpenMP runtime reserve what they keep for the life of the process;
// the limit is then set to what the child has mapped plus a small headroom. AddressSanitizer
// reserves terabytes of shadow memory, so these tests are skipped in the sanitized build.
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "models/SolidModel.h"
#include "support/ModelsSupport.h"
#include "support/ReliabilitySupport.h"
#include "vqmath.h"

namespace {

// ---- a limited address space
// ----------------------------------------------------------------------

// Lets MKL, the OpenMP runtime and the factorisation thread set up everything they keep.
void WarmUp() {
  const vqtest::Csr k = vqtest::Tridiagonal(200);
  std::vector<double> rhs(200, 1.0), x(200);
  VQ_SparseSolverDirect(200, 1, VQTEST_CSR(k), rhs.data(), 0, x.data());
  std::vector<double> mass(200, 1.0), lambda(200);
  VQ_EigenvalueAnalysis_LAPACK(200, VQTEST_CSR(k), mass.data(), 0, lambda.data(), nullptr);
}

// Limits the address space to what the process maps now plus headroomMb (0: no limit).
bool LimitAddressSpace(long headroomMb) {
  rlimit r{};
  if (headroomMb <= 0) {
    r.rlim_cur = RLIM_INFINITY;
  } else {
    malloc_trim(0);
    const long vmKb = vqtest::ProcessStatusKb("VmSize");
    if (vmKb <= 0) return false;
    r.rlim_cur = static_cast<rlim_t>(vmKb + headroomMb * 1024) * 1024;
  }
  r.rlim_max = RLIM_INFINITY;
  return setrlimit(RLIMIT_AS, &r) == 0;
}

// Child side of a death test: runs the check, which returns "" or what went wrong; the message
// goes to standard error, and the exit code tells the parent.
[[noreturn]] void RunChild(const std::function<std::string()>& check) {
  // One allocator arena and fixed thresholds: large blocks always get mappings of their own and
  // free memory at the top of the heap goes back to the system, so that what the limit allows is
  // what a call can get. (glibc otherwise keeps freed space around, and retries a failed request
  // in the 64 MB arenas it reserved for other threads.)
  mallopt(M_ARENA_MAX, 1);
  mallopt(M_MMAP_THRESHOLD, 128 * 1024);
  mallopt(M_TRIM_THRESHOLD, 128 * 1024);
  WarmUp();
  std::string failure = check();
  LimitAddressSpace(0);
  if (!failure.empty()) std::fprintf(stderr, "FAILED: %s\n", failure.c_str());
  std::fflush(nullptr);
  _exit(failure.empty() ? 0 : 1);
}

std::string ExpectRegistry(int code, int expectedCode, const std::string& expectedMessage) {
  const vqtest::RegistryError e = vqtest::LastError();
  if (code != expectedCode || e.code != expectedCode || e.message != expectedMessage)
    return "returned " + std::to_string(code) + ", registry " + std::to_string(e.code) + " \"" +
           e.message + "\"; expected " + std::to_string(expectedCode) + " \"" + expectedMessage +
           "\"";
  return "";
}

std::string HeapReturned(long long before, const char* what) {
  const long long now = vqtest::HeapInUseBytes();
  if (now - before > 256 * 1024)
    return std::string(what) + ": " + std::to_string(now - before) +
           " bytes still held after the failure";
  return "";
}

class AllocationUnderAddressSpaceLimit : public testing::Test {
 protected:
  void SetUp() override {
    if (vqtest::UnderAddressSanitizer())
      GTEST_SKIP()
          << "address-space limits cannot be combined with AddressSanitizer's shadow memory";
    GTEST_FLAG_SET(death_test_style, "threadsafe");
  }
};

TEST_F(AllocationUnderAddressSpaceLimit, FactorisationOutOfMemoryIsReportedAndSolvableAfterwards) {
  EXPECT_EXIT(
      RunChild([] {
        const vqmath::models::SolidModel model(vqmath::models::SolidModel::ForEquations(30000));
        const vqtest::Csr k = vqtest::FromModel(model.Stiffness());
        std::vector<double> rhs = model.EndFaceLoad(0.0, 0.0, -1e3), x(rhs.size());
        VQ_SetSolverType(0);
        const long long heap = vqtest::HeapInUseBytes();
        if (!LimitAddressSpace(24)) return std::string("setrlimit failed");
        const int code = VQ_SparseSolverDirect(k.n, 1, VQTEST_CSR(k), rhs.data(), 0, x.data());
        std::string f = ExpectRegistry(code, -81, "Not Enough Memory in Sparse Solver");
        if (f.empty()) f = HeapReturned(heap, "VQ_SparseSolverDirect");
        LimitAddressSpace(0);
        if (!f.empty()) return f;
        const int again = VQ_SparseSolverDirect(k.n, 1, VQTEST_CSR(k), rhs.data(), 0, x.data());
        f = ExpectRegistry(again, 0, "");
        if (f.empty() && vqtest::RelativeResidual(k, x.data(), rhs.data(), 1) > 1e-8)
          f = "solution after the failure is wrong";
        return f;
      }),
      testing::ExitedWithCode(0), "");
}

}  // namespace
