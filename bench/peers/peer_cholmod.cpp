// Peer: K·x = F by CHOLMOD (SuiteSparse), the sparse Cholesky a user would take instead.
//
//   bench_peer_cholmod         CHOLMOD with its BLAS and LAPACK calls bound to Intel MKL
//   bench_peer_cholmod_refblas CHOLMOD as Debian installs it (the system's reference BLAS)
//   args: --K K.bin [--F F.bin] [--ordering default|metis|amd|nesdis|best]
//
// The upper-triangle CSR that hosts hold is, read by columns, the lower triangle in compressed
// columns, so CHOLMOD takes the same arrays (made zero-based) without a copy. Analysis
// (cholmod_analyze), factorisation (cholmod_factorize), solution (cholmod_solve) and the release
// of the factor are timed separately. The result line tells which library supplied dgemm_ and
// dpotrf_ in this process (the symbols CHOLMOD's supernodal factorisation calls), CHOLMOD's own
// operation count and the number of OpenMP threads it may use.
#include "SuiteIO.h"

#include <cholmod.h>
#include <climits>
#include <dlfcn.h>
#include <omp.h>

using namespace vqbench;

namespace {

// The shared object that the dynamic linker resolves `symbol` to for this process (what CHOLMOD's
// undefined references bind to, since the executable's libraries come first in the search).
std::string Provider(const char* symbol)
{
    void* address = dlsym(RTLD_DEFAULT, symbol);
    Dl_info info;
    if (!address || !dladdr(address, &info) || !info.dli_fname) return "none";
    // The file behind the name (Debian's BLAS goes through update-alternatives links).
    char resolved[PATH_MAX];
    std::string path = realpath(info.dli_fname, resolved) ? resolved : info.dli_fname;
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

const char* OrderingName(int ordering)
{
    switch (ordering) {
        case CHOLMOD_NATURAL: return "natural";
        case CHOLMOD_GIVEN: return "given";
        case CHOLMOD_AMD: return "amd";
        case CHOLMOD_METIS: return "metis";
        case CHOLMOD_NESDIS: return "nesdis";
        case CHOLMOD_COLAMD: return "colamd";
        case CHOLMOD_POSTORDERED: return "postordered";
        default: return "?";
    }
}

}  // namespace

int main(int argc, char** argv)
{
    Options opt(argc, argv);
#ifdef VQBENCH_CHOLMOD_MKL
    Result result("cholmod-mkl");
#else
    Result result("cholmod-ref");
#endif
    std::string error;
    Csr k;
    std::vector<double> f;
    if (!ReadCsr(opt.Get("K"), k, error) || (opt.Has("F") && !ReadVector(opt.Get("F"), f, error))) {
        result.Fail(error);
        result.Print();
        return 1;
    }
    const int n = k.n;
    if (f.empty()) {
        std::vector<double> ones(static_cast<size_t>(n), 1.0);
        f.resize(static_cast<size_t>(n));
        SymMultiply(k, ones.data(), f.data());
    }
    // Zero-based copy of the indices for CHOLMOD; K itself stays for the residual check.
    std::vector<int> p(k.rowPointers), i(k.columnIndices);
    for (int& v : p) --v;
    for (int& v : i) --v;
    const long long inputKb = ProcStatusKb("VmRSS");

    cholmod_common c;
    cholmod_start(&c);
    const std::string ordering = opt.Get("ordering", "default");
    if (ordering == "metis" || ordering == "amd" || ordering == "nesdis") {
        c.nmethods = 1;
        c.method[0].ordering = ordering == "metis" ? CHOLMOD_METIS : ordering == "amd" ? CHOLMOD_AMD : CHOLMOD_NESDIS;
        c.postorder = 1;
    } else if (ordering == "best") {
        c.nmethods = 9;  // tries every ordering, keeps the one with the least fill
    }

    cholmod_sparse a{};
    a.nrow = a.ncol = static_cast<size_t>(n);
    a.nzmax = static_cast<size_t>(k.Nnz());
    a.p = p.data();
    a.i = i.data();
    a.x = k.values.data();
    a.stype = -1;  // lower triangle stored
    a.itype = CHOLMOD_INT;
    a.xtype = CHOLMOD_REAL;
    a.dtype = CHOLMOD_DOUBLE;
    a.sorted = 1;
    a.packed = 1;

    cholmod_dense b{};
    b.nrow = static_cast<size_t>(n);
    b.ncol = 1;
    b.nzmax = static_cast<size_t>(n);
    b.d = static_cast<size_t>(n);
    b.x = f.data();
    b.xtype = CHOLMOD_REAL;
    b.dtype = CHOLMOD_DOUBLE;

    result.Set("n", n);
    result.Set("nnz", k.Nnz());
    result.Set("blas", Provider("dgemm_"));
    result.Set("lapack", Provider("dpotrf_"));
    // CHOLMOD's parallel loops ask for CHOLMOD_OMP_NUM_THREADS threads whatever OMP_NUM_THREADS
    // says; only OMP_THREAD_LIMIT caps them.
    result.Set("omp_threads", std::min(CHOLMOD_OMP_NUM_THREADS, omp_get_thread_limit()));

    const double t0 = Now();
    const double cpu0 = CpuSeconds();
    cholmod_factor* l = cholmod_analyze(&a, &c);
    const double t1 = Now();
    bool ok = l != nullptr && c.status >= CHOLMOD_OK;
    if (ok) ok = cholmod_factorize(&a, l, &c) && c.status == CHOLMOD_OK;
    const double t2 = Now();
    cholmod_dense* x = ok ? cholmod_solve(CHOLMOD_A, l, &b, &c) : nullptr;
    const double t3 = Now();
    const double flop = c.fl, lnz = c.lnz;
    const int selected = c.selected;
    const bool super = l && l->is_super;
    cholmod_free_factor(&l, &c);
    const double t4 = Now();
    const double cpu = CpuSeconds() - cpu0;
    result.SetMemory(inputKb);

    if (!ok || !x) {
        result.Fail("CHOLMOD status " + std::to_string(c.status));
        cholmod_finish(&c);
        result.Print();
        return 1;
    }
    result.Set("t_analysis", t1 - t0);
    result.Set("t_factor", t2 - t1);
    result.Set("t_solve", t3 - t2);
    result.Set("t_release", t4 - t3);
    result.Set("t_total", t4 - t0);
    result.Set("cpu_s", cpu);
    result.Set("mflop", flop / 1e6);
    result.Set("factor_nnz", lnz);
    result.Set("ordering", selected >= 0 && selected < CHOLMOD_MAXMETHODS ? OrderingName(c.method[selected].ordering)
                                                                        : "?");
    result.Set("supernodal", super ? 1 : 0);
    result.Set("cholmod_peak_kb", static_cast<double>(c.memory_usage) / 1024.0);
    result.Set("residual", BackwardError(k, static_cast<const double*>(x->x), f.data()));
    cholmod_free_dense(&x, &c);
    cholmod_finish(&c);
    result.Print();
    return 0;
}
