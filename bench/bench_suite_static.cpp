// The library's static solution as a host runs it, one case per process, for bench/run.sh:
// K·x = F through VQ_SparseSolverDirect with the library's settings, optionally changed the way a
// host changes them (override list, matrix type).
//
//   bench_suite_static --K K.bin [--F F.bin] [--set i=v ...] [--mtype 2|-2] [--msglvl 1]
//                      [--iparm-out FILE] [--workdir DIR/]
//
// --set i=v calls VQ_OverrideDefaultSparseSolverParam(i, v); --mtype calls
// VQ_SetSolverMatrixType. The wall time of the one call is the total; with --msglvl 1 (key 1009)
// PARDISO prints its statistics, captured here, which split that call into analysis,
// factorisation and solution. --iparm-out writes the 64 parameters the library's solver was built
// with, so that the direct PARDISO peer can run exactly the same settings. Prints one result line
// (see bench/peers/SuiteIO.h).
#include "peers/SuiteIO.h"

#include "vqmath.h"

#include <fstream>

using namespace vqbench;

int main(int argc, char** argv)
{
    Options opt(argc, argv);
    Result result("ours");
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
    std::vector<double> x(static_cast<size_t>(n), 0.0);
    const long long inputKb = ProcStatusKb("VmRSS");

    // A host's order of calls: threads, initialisation, then settings and overrides.
    const char* threads = std::getenv("MKL_NUM_THREADS");
    VQ_Set_INTEL_MKL_NumberOfThreads(threads ? std::atoi(threads) : 2);
    VQ_InitializeLibrary();
    if (opt.Has("workdir")) VQ_SetWorkingDir(opt.Get("workdir").c_str());
    if (opt.Has("mtype")) VQ_SetSolverMatrixType(opt.GetInt("mtype", -2));
    for (const auto& s : ParseSettings(opt.All("set"))) VQ_OverrideDefaultSparseSolverParam(s.first, s.second);
    const int msglvl = opt.GetInt("msglvl", 0);
    if (msglvl > 0) VQ_SetParameterL(1009, msglvl);

    result.Set("n", n);
    result.Set("nnz", k.Nnz());
    result.Set("mtype", VQ_GetSolverMatrixType());

    std::string statistics;
    double t0, t1, cpu0, cpu1;
    int status;
    {
        StdoutCapture* capture = msglvl > 0 ? new StdoutCapture() : nullptr;
        cpu0 = CpuSeconds();
        t0 = Now();
        status = VQ_SparseSolverDirect(n, 1, k.rowPointers.data(), k.columnIndices.data(), k.values.data(), f.data(), 0,
                                       x.data());
        t1 = Now();
        cpu1 = CpuSeconds();
        if (capture) statistics = capture->Text();
        delete capture;
    }
    result.SetMemory(inputKb);

    int settings[64] = {0}, report[64] = {0};
    VQ_ParamsListSparseSolver(64, settings);
    VQ_GetResultsIA(1010, 64, report);
    if (opt.Has("iparm-out")) {
        std::ofstream out(opt.Get("iparm-out"));
        for (int i = 0; i < 64; ++i) out << settings[i] << (i % 16 == 15 ? '\n' : ' ');
    }
    std::string shown;
    for (int i : {1, 7, 9, 10, 12, 20, 23, 24, 59}) shown += std::to_string(i) + "=" + std::to_string(settings[i]) + " ";
    result.Set("settings", shown);

    if (status != 0) {
        char* message = VQ_GetLastErrorMessage();
        result.Fail("status " + std::to_string(status) + ": " + (message ? message : ""));
        std::free(message);
        VQ_ReleaseLibrary();
        result.Print();
        return 1;
    }
    result.Set("t_total", t1 - t0);
    result.Set("cpu_s", cpu1 - cpu0);
    if (!statistics.empty()) {
        const PardisoStatistics s = ParsePardisoStatistics(statistics);
        result.Set("t_analysis", s.analysis);
        result.Set("t_factor", s.factorization);
        result.Set("t_solve", s.solution);
        result.Set("split", "pardiso-statistics");
        if (s.threads > 0) result.Set("pardiso_threads", s.threads);
    }
    result.Set("mflop", report[18]);
    result.Set("factor_nnz", report[17]);
    result.Set("pardiso_peak_kb", static_cast<long long>(std::max(report[14], report[15] + report[16])));
    result.Set("inertia", std::to_string(VQ_GetNumberOfPositiveEigenvalues()) + "+/" +
                              std::to_string(VQ_GetNumberOfNegativeEigenvalues()) + "-");
    result.Set("residual", BackwardError(k, x.data(), f.data()));
    VQ_ReleaseLibrary();
    result.Print();
    // PARDISO's own report, for the suite's raw output file.
    if (!statistics.empty()) std::fputs(statistics.c_str(), stdout);
    return 0;
}
