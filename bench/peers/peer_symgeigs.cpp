// Peer: the lowest modes with Spectra, the header-only Lanczos library a C++ developer reaches for,
// over Eigen's sparse matrices: SymGEigsShiftSolver in shift-invert mode (natural modes,
// B = M lumped) or buckling mode (B = K), with K − σ·B factored by CHOLMOD's supernodal
// Cholesky (Eigen's CholmodSupport) or by Eigen's own sparse LDLᵀ (SimplicialLDLT, AMD order).
//
//   bench_peer_symgeigs --K K.bin --M M.bin [--sigma 0] [--factor cholmod|ldlt]
//   bench_peer_symgeigs --mode buckling --K K.bin --Kg Kg.bin --sigma s [--factor ...]
//   common: [--nev 20] [--ncv n] [--tol 1e-10] [--maxit 1000]
//
// The host's upper-triangle CSR is the lower triangle in compressed columns, which is how the
// Eigen matrices are built (zero-based copy of the indices, values shared by copy once).
#include "SuiteIO.h"

#include <Eigen/CholmodSupport>
#include <Eigen/SparseCholesky>
#include <Eigen/SparseCore>
#include <Spectra/SymGEigsShiftSolver.h>

using namespace vqbench;

namespace {

using SpMat = Eigen::SparseMatrix<double, Eigen::ColMajor, int>;

SpMat ToEigenLower(const Csr& a)
{
    SpMat m(a.n, a.n);
    std::vector<Eigen::Triplet<double, int>> t;
    t.reserve(static_cast<size_t>(a.Nnz()));
    for (int r = 0; r < a.n; ++r)
        for (int p = a.rowPointers[r] - 1; p < a.rowPointers[r + 1] - 1; ++p)
            t.emplace_back(a.columnIndices[p] - 1, r, a.values[p]);  // (j, i): lower triangle
    m.setFromTriplets(t.begin(), t.end());
    m.makeCompressed();
    return m;
}

// (A − σ·B)⁻¹·x by a sparse factorisation, the interface Spectra's generalized solvers call.
template <class Factorization>
class ShiftInvert {
public:
    using Scalar = double;
    ShiftInvert(const SpMat& a, const SpMat& b) : a_(a), b_(b) {}
    Eigen::Index rows() const { return a_.rows(); }
    Eigen::Index cols() const { return a_.cols(); }
    void set_shift(const double& sigma)
    {
        const double t0 = Now();
        if (sigma == 0.0) {
            solver_.compute(a_);
        } else {
            const SpMat shifted = a_ - sigma * b_;
            solver_.compute(shifted);
        }
        ok_ = solver_.info() == Eigen::Success;
        factorTime_ = Now() - t0;
    }
    void perform_op(const double* x, double* y) const
    {
        Eigen::Map<const Eigen::VectorXd> in(x, a_.rows());
        Eigen::Map<Eigen::VectorXd> out(y, a_.rows());
        out = solver_.solve(in);
        ++solves_;
    }
    bool Ok() const { return ok_; }
    double FactorTime() const { return factorTime_; }
    long long Solves() const { return solves_; }

private:
    const SpMat& a_;
    const SpMat& b_;
    Factorization solver_;
    bool ok_ = false;
    double factorTime_ = 0.0;
    mutable long long solves_ = 0;
};

// y = B·x for a symmetric B stored as its lower triangle.
class SymProduct {
public:
    using Scalar = double;
    explicit SymProduct(const SpMat& b) : b_(b) {}
    Eigen::Index rows() const { return b_.rows(); }
    Eigen::Index cols() const { return b_.cols(); }
    void perform_op(const double* x, double* y) const
    {
        Eigen::Map<const Eigen::VectorXd> in(x, b_.rows());
        Eigen::Map<Eigen::VectorXd> out(y, b_.rows());
        out.noalias() = b_.selfadjointView<Eigen::Lower>() * in;
    }

private:
    const SpMat& b_;
};

template <class Factorization>
int Run(const Options& opt, Result& result, const Csr& k, const Csr* kg, const std::vector<double>& m,
        long long inputKb)
{
    const bool buckling = kg != nullptr;
    const int n = k.n;
    const double sigma = opt.GetDouble("sigma", 0.0);
    const int nev = std::min(opt.GetInt("nev", 20), n - 1);
    const int ncv = opt.GetInt("ncv", std::min(2 * nev + 1, n));
    const double tol = opt.GetDouble("tol", 1e-10);
    const int maxit = opt.GetInt("maxit", 1000);
    result.Set("nev", nev);
    result.Set("ncv", ncv);
    result.Set("sigma", sigma);
    result.Set("tol", tol);

    const double t0 = Now();
    const double cpu0 = CpuSeconds();
    const SpMat K = ToEigenLower(k);
    SpMat B;
    if (buckling) {
        B = ToEigenLower(*kg);
    } else {
        B.resize(n, n);
        B.reserve(Eigen::VectorXi::Constant(n, 1));
        for (int i = 0; i < n; ++i) B.insert(i, i) = m[i];
        B.makeCompressed();
    }
    const double tBuild = Now() - t0;
    ShiftInvert<Factorization> op(K, B);
    Eigen::VectorXd evalues;
    Eigen::MatrixXd evecs;
    int nconv = 0;
    bool ok = false;
    long long niter = 0;
    double tFactor = 0, tIterations = 0, tVectors = 0;
    if (buckling) {
        SymProduct bop(K);  // buckling mode: B is K
        Spectra::SymGEigsShiftSolver<ShiftInvert<Factorization>, SymProduct, Spectra::GEigsMode::Buckling> eigs(
            op, bop, nev, ncv, sigma);
        tFactor = op.FactorTime();
        const double t2 = Now();
        eigs.init();
        nconv = static_cast<int>(eigs.compute(Spectra::SortRule::LargestMagn, maxit, tol, Spectra::SortRule::SmallestAlge));
        const double t3 = Now();
        ok = op.Ok() && eigs.info() == Spectra::CompInfo::Successful;
        niter = eigs.num_iterations();
        if (ok) {
            evalues = eigs.eigenvalues();
            evecs = eigs.eigenvectors();
        }
        tIterations = t3 - t2;
        tVectors = Now() - t3;
    } else {
        SymProduct bop(B);
        Spectra::SymGEigsShiftSolver<ShiftInvert<Factorization>, SymProduct, Spectra::GEigsMode::ShiftInvert> eigs(
            op, bop, nev, ncv, sigma);
        tFactor = op.FactorTime();
        const double t2 = Now();
        eigs.init();
        nconv = static_cast<int>(eigs.compute(Spectra::SortRule::LargestMagn, maxit, tol, Spectra::SortRule::SmallestAlge));
        const double t3 = Now();
        ok = op.Ok() && eigs.info() == Spectra::CompInfo::Successful;
        niter = eigs.num_iterations();
        if (ok) {
            evalues = eigs.eigenvalues();
            evecs = eigs.eigenvectors();
        }
        tIterations = t3 - t2;
        tVectors = Now() - t3;
    }
    const double tTotal = Now() - t0;
    const double cpu = CpuSeconds() - cpu0;
    result.SetMemory(inputKb);
    if (!ok) {
        result.Fail(op.Ok() ? "Spectra did not converge (" + std::to_string(nconv) + " of " + std::to_string(nev) + ")"
                            : "factorisation of the shifted matrix failed");
        result.Print();
        return 1;
    }
    result.Set("t_build", tBuild);
    result.Set("t_factor", tFactor);
    result.Set("t_iterations", tIterations);
    result.Set("t_vectors", tVectors);
    result.Set("t_total", tTotal);
    result.Set("cpu_s", cpu);
    result.Set("nconv", nconv);
    result.Set("restarts", niter);
    result.Set("solves", op.Solves());
    if (nconv > 0) {
        result.Set("lambda_first", evalues[0]);
        result.Set("lambda_last", evalues[nconv - 1]);
        result.SetList("lambdas", evalues.data(), nconv);
        result.Set("residual", buckling ? WorstModeResidual(k, {}, kg, evalues.data(), evecs.data(), nconv)
                                        : WorstModeResidual(k, m, nullptr, evalues.data(), evecs.data(), nconv));
    }
    result.Print();
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    Options opt(argc, argv);
    const std::string factor = opt.Get("factor", "cholmod");
    Result result(factor == "ldlt" ? "spectra-ldlt" : "spectra-cholmod");
    const bool buckling = opt.Get("mode", "modes") == "buckling";
    result.Set("problem", buckling ? "buckling" : "modes");
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
    result.Set("n", k.n);
    result.Set("nnz", k.Nnz());
    const long long inputKb = ProcStatusKb("VmRSS");
    if (factor == "ldlt")
        return Run<Eigen::SimplicialLDLT<SpMat, Eigen::Lower>>(opt, result, k, buckling ? &kg : nullptr, m, inputKb);
    return Run<Eigen::CholmodSupernodalLLT<SpMat, Eigen::Lower>>(opt, result, k, buckling ? &kg : nullptr, m, inputKb);
}
