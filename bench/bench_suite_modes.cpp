// The library's eigenvalue entry points as a host runs them, one case per process, for
// bench/run.sh.
//
//   natural modes, lumped mass:
//     bench_suite_modes --method lanczos|subspace|block --K K.bin --M M.bin [--sigma 0] [--nev 20]
//   buckling (K·φ = λ·Kg·φ, shift non-zero for lanczos):
//     bench_suite_modes --method lanczos|block --mode buckling --K K.bin --Kg Kg.bin --sigma s
//   common: [--set i=v ...] [--mtype 2|-2] [--workdir DIR/]
//
// lanczos runs VQ_EigenvalueAnalysis_ARPACK (diagonal mass) or, for buckling,
// VQ_EigenvalueAnalysis_ARPACK2 (sparse Kg); subspace runs VQ_EigenvalueAnalysis_SubSpaceSolver
// with its default tolerance; block runs VQ_EigenvalueAnalysis_BlockLanczos (diagonal mass) or
// VQ_EigenvalueAnalysis_BlockLanczos2 (sparse Kg), verifying by a Sturm count when
// VQMATH_EIGEN_VERIFICATION=1 in its environment, which it passes to VQ_SetEigenVerification (the record then says "verified" and gives the count). Mode shapes are requested (a host wants them) and checked by their
// residuals. Prints one result line (see bench/peers/SuiteIO.h).
#include "peers/SuiteIO.h"

#include "vqmath.h"

using namespace vqbench;

int main(int argc, char** argv)
{
    Options opt(argc, argv);
    const std::string method = opt.Get("method", "lanczos");
    const bool buckling = opt.Get("mode", "modes") == "buckling";
    const char* verification = std::getenv("VQMATH_EIGEN_VERIFICATION");
    const bool verified = method == "block" && verification && std::string(verification) == "1";
    VQ_SetEigenVerification(verified ? 1 : 0);
    Result result(method == "subspace" ? "ours-subspace"
                  : method == "block"  ? (verified ? "ours-block-verified" : "ours-block")
                                       : "ours-lanczos");
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
    const int n = k.n;
    const int nev = std::min(opt.GetInt("nev", 20), n - 1);
    const double sigma = opt.GetDouble("sigma", 0.0);
    std::vector<double> eigenvalues(static_cast<size_t>(nev), 0.0), modes(static_cast<size_t>(n) * nev, 0.0);
    const long long inputKb = ProcStatusKb("VmRSS");

    const char* threads = std::getenv("MKL_NUM_THREADS");
    VQ_Set_INTEL_MKL_NumberOfThreads(threads ? std::atoi(threads) : 2);
    VQ_InitializeLibrary();
    const std::string workdir = opt.Get("workdir", "./");
    VQ_SetWorkingDir(workdir.c_str());
    if (opt.Has("mtype")) VQ_SetSolverMatrixType(opt.GetInt("mtype", -2));
    for (const auto& s : ParseSettings(opt.All("set"))) VQ_OverrideDefaultSparseSolverParam(s.first, s.second);

    result.Set("n", n);
    result.Set("nnz", k.Nnz());
    result.Set("nev", nev);
    result.Set("sigma", sigma);
    result.Set("entry", method == "subspace" ? "VQ_EigenvalueAnalysis_SubSpaceSolver"
                        : method == "block"  ? (buckling ? "VQ_EigenvalueAnalysis_BlockLanczos2"
                                                         : "VQ_EigenvalueAnalysis_BlockLanczos")
                        : buckling           ? "VQ_EigenvalueAnalysis_ARPACK2"
                                             : "VQ_EigenvalueAnalysis_ARPACK");
    int found = 0, status = 0, sturm = -1;
    const double t0 = Now();
    const double cpu0 = CpuSeconds();
    if (method == "subspace") {
        if (buckling) {
            result.Fail("subspace iteration is run for natural modes only");
            result.Print();
            return 1;
        }
        status = VQ_EigenvalueAnalysis_SubSpaceSolver(n, nev, k.rowPointers.data(), k.columnIndices.data(),
                                                      k.values.data(), m.data(), VQ_GetSolverType(),
                                                      VQ_GetSolverMatrixType(), workdir.c_str(), 0, 0.0, 0, &found,
                                                      eigenvalues.data(), 1, modes.data(), sigma, 0, 0, 0.0);
    } else if (method == "block" && buckling) {
        status = VQ_EigenvalueAnalysis_BlockLanczos2(n, nev, k.rowPointers.data(), k.columnIndices.data(),
                                                     k.values.data(), kg.rowPointers.data(), kg.columnIndices.data(),
                                                     kg.values.data(), 1, 0, 0, &found, eigenvalues.data(),
                                                     modes.data(), sigma, 0, 0.0, workdir.c_str(), &sturm);
    } else if (method == "block") {
        status = VQ_EigenvalueAnalysis_BlockLanczos(n, nev, k.rowPointers.data(), k.columnIndices.data(),
                                                    k.values.data(), m.data(), 0, 0, &found, eigenvalues.data(),
                                                    modes.data(), sigma, 0, 0.0, workdir.c_str(), &sturm);
    } else if (buckling) {
        status = VQ_EigenvalueAnalysis_ARPACK2(n, nev, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
                                               kg.rowPointers.data(), kg.columnIndices.data(), kg.values.data(), 4, 1,
                                               -1, &found, eigenvalues.data(), modes.data(), sigma, workdir.c_str(), 0);
    } else {
        status = VQ_EigenvalueAnalysis_ARPACK(n, nev, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
                                              m.data(), 4, 0, -1, &found, eigenvalues.data(), modes.data(), sigma,
                                              workdir.c_str(), 0);
    }
    const double t1 = Now();
    const double cpu = CpuSeconds() - cpu0;
    result.SetMemory(inputKb);
    if (status < 0 || found < 1) {
        char* message = VQ_GetLastErrorMessage();
        result.Fail("status " + std::to_string(status) + ": " + (message ? message : ""));
        std::free(message);
        VQ_ReleaseLibrary();
        result.Print();
        return 1;
    }
    result.Set("t_total", t1 - t0);
    result.Set("cpu_s", cpu);
    result.Set("nconv", found);
    if (status == 1) result.Set("partial", 1);
    if (method == "block") result.Set("sturm_count", sturm);
    result.Set("lambda_first", eigenvalues[0]);
    result.Set("lambda_last", eigenvalues[found - 1]);
    result.SetList("lambdas", eigenvalues.data(), found);
    result.Set("residual", buckling ? WorstModeResidual(k, {}, &kg, eigenvalues.data(), modes.data(), found)
                                    : WorstModeResidual(k, m, nullptr, eigenvalues.data(), modes.data(), found));
    VQ_ReleaseLibrary();
    result.Print();
    return 0;
}
