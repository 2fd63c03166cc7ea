// Peer: the lowest modes by a plain ARPACK shift-invert loop over PARDISO, written the way the
// ARPACK examples teach it — the floor for the library's Lanczos driver.
//
//   natural modes  K·φ = λ·M·φ (M lumped):  bench_peer_arpack --K K.bin --M M.bin [--sigma s]
//   buckling       K·φ = λ·Kg·φ:            bench_peer_arpack --mode buckling --K K.bin --Kg Kg.bin --sigma s
//   common: [--nev 20] [--ncv n] [--tol 0] [--maxit n] [--iparm FILE] [--set i=v] [--mtype -2]
//
// Natural modes use ARPACK's mode 3, OP = (K − σM)⁻¹·M with B = M; buckling uses mode 4,
// OP = (K − σKg)⁻¹·K with B = K (σ must not be zero). K − σ·B is factored once by PARDISO
// (phases 11 and 22) and every operator application is one phase-33 solve, refined only when the
// factorisation perturbed pivots (as the library's solver does). Products with the
// sparse matrices use MKL's symmetric CSR kernel on the upper triangle. ncv defaults to
// min(2·nev + 1, n − 1) and the iteration limit to 100·nev, as in the library's driver.
#include "SuiteIO.h"

#include <mkl.h>

#include <fstream>

using namespace vqbench;

extern "C" {
void dsaupd_(int* ido, const char* bmat, const int* n, const char* which, const int* nev, const double* tol,
             double* resid, const int* ncv, double* v, const int* ldv, int* iparam, int* ipntr, double* workd,
             double* workl, const int* lworkl, int* info, size_t bmatLength, size_t whichLength);
void dseupd_(const int* rvec, const char* howmny, int* select, double* d, double* z, const int* ldz,
             const double* sigma, const char* bmat, const int* n, const char* which, const int* nev,
             const double* tol, double* resid, const int* ncv, double* v, const int* ldv, int* iparam, int* ipntr,
             double* workd, double* workl, const int* lworkl, int* info, size_t howmnyLength, size_t bmatLength,
             size_t whichLength);
}

namespace {

// K − σ·B on the union of both upper patterns (rows merged column by column).
Csr Shifted(const Csr& k, const Csr& b, double sigma)
{
    Csr out;
    out.n = k.n;
    out.rowPointers.resize(static_cast<size_t>(k.n) + 1);
    out.rowPointers[0] = 1;
    out.columnIndices.reserve(static_cast<size_t>(k.Nnz()));
    out.values.reserve(static_cast<size_t>(k.Nnz()));
    for (int r = 0; r < k.n; ++r) {
        int p = k.rowPointers[r] - 1, pe = k.rowPointers[r + 1] - 1;
        int q = b.rowPointers[r] - 1, qe = b.rowPointers[r + 1] - 1;
        while (p < pe || q < qe) {
            const int cp = p < pe ? k.columnIndices[p] : 1 << 30, cq = q < qe ? b.columnIndices[q] : 1 << 30;
            if (cp == cq) {
                out.columnIndices.push_back(cp);
                out.values.push_back(k.values[p++] - sigma * b.values[q++]);
            } else if (cp < cq) {
                out.columnIndices.push_back(cp);
                out.values.push_back(k.values[p++]);
            } else {
                out.columnIndices.push_back(cq);
                out.values.push_back(-sigma * b.values[q++]);
            }
        }
        out.rowPointers[r + 1] = static_cast<int>(out.values.size()) + 1;
    }
    return out;
}

// y = A·x with MKL's sparse kernel on the upper triangle (one-based CSR, symmetric view).
class Product {
public:
    explicit Product(const Csr& a)
    {
        Csr& m = const_cast<Csr&>(a);
        ok_ = mkl_sparse_d_create_csr(&handle_, SPARSE_INDEX_BASE_ONE, a.n, a.n, m.rowPointers.data(),
                                      m.rowPointers.data() + 1, m.columnIndices.data(),
                                      m.values.data()) == SPARSE_STATUS_SUCCESS;
        descr_.type = SPARSE_MATRIX_TYPE_SYMMETRIC;
        descr_.mode = SPARSE_FILL_MODE_UPPER;
        descr_.diag = SPARSE_DIAG_NON_UNIT;
    }
    ~Product()
    {
        if (ok_) mkl_sparse_destroy(handle_);
    }
    Product(const Product&) = delete;
    Product& operator=(const Product&) = delete;
    void operator()(const double* x, double* y) const
    {
        mkl_sparse_d_mv(SPARSE_OPERATION_NON_TRANSPOSE, 1.0, handle_, descr_, x, 0.0, y);
    }

private:
    sparse_matrix_t handle_ = nullptr;
    matrix_descr descr_{};
    bool ok_ = false;
};

}  // namespace

int main(int argc, char** argv)
{
    Options opt(argc, argv);
    Result result("arpack-loop");
    const bool buckling = opt.Get("mode", "modes") == "buckling";
    std::string error;
    Csr k, kg;
    std::vector<double> m;
    bool read = ReadCsr(opt.Get("K"), k, error);
    if (read) read = buckling ? ReadCsr(opt.Get("Kg"), kg, error) : ReadVector(opt.Get("M"), m, error);
    if (!read) {
        result.Fail(error);
        result.Print();
        return 1;
    }
    const int n = k.n;
    const double sigma = opt.GetDouble("sigma", 0.0);
    int nev = std::min(opt.GetInt("nev", 20), n - 1);
    int ncv = opt.GetInt("ncv", std::min(2 * nev + 1, n - 1));
    const double tol = opt.GetDouble("tol", 0.0);
    const int maxit = opt.GetInt("maxit", 100 * nev);
    result.Set("problem", buckling ? "buckling" : "modes");
    result.Set("n", n);
    result.Set("nnz", k.Nnz());
    result.Set("nev", nev);
    result.Set("ncv", ncv);
    result.Set("sigma", sigma);
    result.Set("tol", tol);
    if (buckling && sigma == 0.0) {
        result.Fail("buckling mode needs a non-zero shift");
        result.Print();
        return 1;
    }
    const long long inputKb = ProcStatusKb("VmRSS");

    int iparm[64] = {0};
    iparm[0] = 1;
    iparm[7] = 2;
    iparm[9] = 8;
    iparm[10] = 1;
    iparm[17] = -1;
    iparm[18] = -1;
    iparm[24] = 1;
    if (opt.Has("iparm")) {
        std::ifstream in(opt.Get("iparm"));
        for (int i = 0; i < 64; ++i) in >> iparm[i];
    }
    for (const auto& s : ParseSettings(opt.All("set")))
        if (s.first >= 0 && s.first < 64) iparm[s.first] = s.second;
    iparm[5] = 0;
    iparm[34] = 0;
    int mtype = opt.GetInt("mtype", -2), msglvl = 0, maxfct = 1, mnum = 1, nrhs = 1, err = 0, perm = 0, nn = n;
    void* pt[64] = {nullptr};
    double ddum = 0;

    const double t0 = Now();
    const double cpu0 = CpuSeconds();
    // The shifted matrix; σ = 0 factors K itself.
    Csr shiftedStorage;
    const Csr* a = &k;
    if (buckling) {
        shiftedStorage = Shifted(k, kg, sigma);
        a = &shiftedStorage;
    } else if (std::fabs(sigma) >= 2.220446049250313e-16) {
        shiftedStorage = k;
        for (int r = 0; r < n; ++r) shiftedStorage.values[shiftedStorage.rowPointers[r] - 1] -= sigma * m[r];
        a = &shiftedStorage;
    }
    Csr& fa = const_cast<Csr&>(*a);
    int phase = 12;
    pardiso(pt, &maxfct, &mnum, &mtype, &phase, &nn, fa.values.data(), fa.rowPointers.data(), fa.columnIndices.data(),
            &perm, &nrhs, iparm, &msglvl, &ddum, &ddum, &err);
    const double t1 = Now();
    if (err) {
        result.Fail("PARDISO error " + std::to_string(err) + " in the factorisation");
        result.Print();
        return 1;
    }
    // As the library's solver does: no iterative refinement unless pivots were perturbed.
    if (iparm[13] == 0) iparm[7] = 0;
    result.Set("mflop", iparm[18]);
    result.Set("inertia", std::to_string(iparm[21]) + "+/" + std::to_string(iparm[22]) + "-");

    auto solve = [&](double* rhs, double* x) {
        int ph = 33;
        pardiso(pt, &maxfct, &mnum, &mtype, &ph, &nn, fa.values.data(), fa.rowPointers.data(),
                fa.columnIndices.data(), &perm, &nrhs, iparm, &msglvl, rhs, x, &err);
    };
    const Product productK(k);
    auto applyB = [&](const double* x, double* y) {
        if (buckling)
            productK(x, y);
        else
            for (int i = 0; i < n; ++i) y[i] = m[i] * x[i];
    };

    // ARPACK's reverse-communication loop.
    const char bmat[] = "G", which[] = "LM";
    std::vector<double> resid(static_cast<size_t>(n), 0.0), v(static_cast<size_t>(n) * ncv, 0.0),
        workd(3 * static_cast<size_t>(n), 0.0), tmp(static_cast<size_t>(n));
    int lworkl = ncv * (ncv + 8);
    std::vector<double> workl(static_cast<size_t>(lworkl), 0.0);
    int iparam[11] = {0}, ipntr[11] = {0};
    iparam[0] = 1;
    iparam[2] = maxit;
    iparam[6] = buckling ? 4 : 3;
    int ido = 0, info = 0, ldv = n, solves = 0;
    while (true) {
        dsaupd_(&ido, bmat, &n, which, &nev, &tol, resid.data(), &ncv, v.data(), &ldv, iparam, ipntr, workd.data(),
                workl.data(), &lworkl, &info, 1, 2);
        double* x = workd.data() + ipntr[0] - 1;
        double* y = workd.data() + ipntr[1] - 1;
        if (ido == -1) {
            applyB(x, tmp.data());
            solve(tmp.data(), y);
            ++solves;
        } else if (ido == 1) {
            solve(workd.data() + ipntr[2] - 1, y);
            ++solves;
        } else if (ido == 2) {
            applyB(x, y);
        } else {
            break;
        }
        if (err) break;
    }
    const double t2 = Now();
    if (err || info < 0) {
        result.Fail(err ? "PARDISO error " + std::to_string(err) + " in a solve"
                        : "dsaupd info " + std::to_string(info));
        result.Print();
        return 1;
    }
    int rvec = 1, ldz = n;
    std::vector<int> select(static_cast<size_t>(ncv), 0);
    std::vector<double> d(static_cast<size_t>(nev), 0.0), z(static_cast<size_t>(n) * nev, 0.0);
    dseupd_(&rvec, "A", select.data(), d.data(), z.data(), &ldz, &sigma, bmat, &n, which, &nev, &tol, resid.data(),
            &ncv, v.data(), &ldv, iparam, ipntr, workd.data(), workl.data(), &lworkl, &info, 1, 1, 2);
    const double t3 = Now();
    phase = -1;
    pardiso(pt, &maxfct, &mnum, &mtype, &phase, &nn, &ddum, fa.rowPointers.data(), fa.columnIndices.data(), &perm,
            &nrhs, iparm, &msglvl, &ddum, &ddum, &err);
    const double t4 = Now();
    const double cpu = CpuSeconds() - cpu0;
    result.SetMemory(inputKb);
    if (info != 0) {
        result.Fail("dseupd info " + std::to_string(info));
        result.Print();
        return 1;
    }
    const int nconv = std::min(iparam[4], nev);
    result.Set("t_factor", t1 - t0);
    result.Set("t_iterations", t2 - t1);
    result.Set("t_vectors", t3 - t2);
    result.Set("t_total", t4 - t0);
    result.Set("cpu_s", cpu);
    result.Set("nconv", nconv);
    result.Set("restarts", iparam[2]);
    result.Set("solves", solves);
    // dseupd returns the eigenvalues in ascending order.
    if (nconv > 0) {
        result.Set("lambda_first", d[0]);
        result.Set("lambda_last", d[nconv - 1]);
        result.SetList("lambdas", d.data(), nconv);
        result.Set("residual", buckling ? WorstModeResidual(k, {}, &kg, d.data(), z.data(), nconv)
                                        : WorstModeResidual(k, m, nullptr, d.data(), z.data(), nconv));
    }
    result.Print();
    return 0;
}
