// Peer: K·x = F by a direct call of Intel MKL PARDISO, the floor for the library's overhead.
//
//   bench_peer_pardiso --K K.bin --F F.bin [--iparm FILE] [--set i=v ...] [--mtype -2]
//                      [--msglvl 1] [--analysis-only]
//
// --iparm names a file of 64 integers (the parameters the library's solver was built with, so
// that both run the same settings); without it the library's documented defaults are used.
// --set overrides single parameters (zero-based index). Phases 11, 22, 33 and the release (-1)
// are timed separately; the total includes the release because the library's call frees its
// factor before returning too. Like the library, the solution is refined only when the
// factorisation perturbed pivots.
#include "SuiteIO.h"

#include <mkl.h>

#include <fstream>

using namespace vqbench;

namespace {

void LibraryDefaults(int* iparm)
{
    std::fill(iparm, iparm + 64, 0);
    iparm[0] = 1;    // parameters supplied
    iparm[1] = 0;    // minimum-degree ordering
    iparm[7] = 2;    // up to 2 refinement steps
    iparm[9] = 8;    // pivot perturbation 1e-8
    iparm[10] = 1;   // scaling
    iparm[17] = -1;  // report nnz(L)
    iparm[18] = -1;  // report the factorisation's operation count
    iparm[24] = 1;   // parallel substitution
}

}  // namespace

int main(int argc, char** argv)
{
    Options opt(argc, argv);
    Result result("pardiso");
    std::string error;
    Csr k;
    std::vector<double> f;
    if (!ReadCsr(opt.Get("K"), k, error) || (opt.Has("F") && !ReadVector(opt.Get("F"), f, error))) {
        result.Fail(error);
        result.Print();
        return 1;
    }
    const int n = k.n;
    if (f.empty()) {  // F = K·1, so that x = 1
        std::vector<double> ones(static_cast<size_t>(n), 1.0);
        f.resize(static_cast<size_t>(n));
        SymMultiply(k, ones.data(), f.data());
    }
    std::vector<double> x(static_cast<size_t>(n), 0.0);
    const long long inputKb = ProcStatusKb("VmRSS");

    int iparm[64];
    LibraryDefaults(iparm);
    if (opt.Has("iparm")) {
        std::ifstream in(opt.Get("iparm"));
        for (int i = 0; i < 64; ++i)
            if (!(in >> iparm[i])) {
                result.Fail("cannot read 64 parameters from " + opt.Get("iparm"));
                result.Print();
                return 1;
            }
    }
    for (const auto& s : ParseSettings(opt.All("set")))
        if (s.first >= 0 && s.first < 64) iparm[s.first] = s.second;
    iparm[5] = 0;  // separate solution array, as the library does when given one
    iparm[34] = 0; // one-based indices
    int mtype = opt.GetInt("mtype", -2);
    int msglvl = opt.GetInt("msglvl", 0);
    int maxfct = 1, mnum = 1, nrhs = 1, err = 0, nn = n;
    void* pt[64] = {nullptr};
    int perm = 0;
    double ddum = 0;

    std::string settings;
    for (int i : {1, 7, 9, 10, 12, 20, 23, 24, 59}) settings += std::to_string(i) + "=" + std::to_string(iparm[i]) + " ";
    result.Set("settings", settings);
    result.Set("mtype", mtype);
    result.Set("n", n);
    result.Set("nnz", k.Nnz());
    result.Set("threads", mkl_get_max_threads());

    StdoutCapture* capture = msglvl > 0 ? new StdoutCapture() : nullptr;
    const double t0 = Now();
    const double cpu0 = CpuSeconds();
    int phase = 11;
    pardiso(pt, &maxfct, &mnum, &mtype, &phase, &nn, k.values.data(), k.rowPointers.data(), k.columnIndices.data(),
            &perm, &nrhs, iparm, &msglvl, &ddum, &ddum, &err);
    const double t1 = Now();
    int failedPhase = err ? 11 : 0;
    if (!err && opt.Has("analysis-only")) {  // planning aid: the operation count and memory forecast
        result.Set("t_analysis", t1 - t0);
        result.Set("mflop", iparm[18]);
        result.Set("factor_nnz", iparm[17]);
        result.Set("pardiso_peak_kb", static_cast<long long>(std::max(iparm[14], iparm[15] + iparm[16])));
        result.Print();
        return 0;
    }
    if (!err) {
        phase = 22;
        pardiso(pt, &maxfct, &mnum, &mtype, &phase, &nn, k.values.data(), k.rowPointers.data(), k.columnIndices.data(),
                &perm, &nrhs, iparm, &msglvl, &ddum, &ddum, &err);
        if (err) failedPhase = 22;
    }
    const double t2 = Now();
    // The library's solver refines a solution only when the factorisation perturbed pivots
    // (iparm[13] > 0); otherwise it sets iparm[7] to 0 before solving, and so does this call, so
    // that both do the same work.
    if (!err && iparm[13] == 0) iparm[7] = 0;
    if (!err) {
        phase = 33;
        pardiso(pt, &maxfct, &mnum, &mtype, &phase, &nn, k.values.data(), k.rowPointers.data(), k.columnIndices.data(),
                &perm, &nrhs, iparm, &msglvl, f.data(), x.data(), &err);
        if (err) failedPhase = 33;
    }
    const double t3 = Now();
    const int inertiaPos = iparm[21], inertiaNeg = iparm[22];
    const int peakAnalysisKb = iparm[14], permanentKb = iparm[15], factorKb = iparm[16];
    const int factorNnz = iparm[17], mflop = iparm[18];
    int release = -1, err2 = 0;
    pardiso(pt, &maxfct, &mnum, &mtype, &release, &nn, &ddum, k.rowPointers.data(), k.columnIndices.data(), &perm,
            &nrhs, iparm, &msglvl, &ddum, &ddum, &err2);
    const double t4 = Now();
    const double cpu = CpuSeconds() - cpu0;
    std::string statistics = capture ? capture->Text() : std::string();
    delete capture;
    result.SetMemory(inputKb);

    if (err) {
        result.Fail("PARDISO error " + std::to_string(err) + " in phase " + std::to_string(failedPhase));
        result.Print();
        return 1;
    }
    result.Set("t_analysis", t1 - t0);
    result.Set("t_factor", t2 - t1);
    result.Set("t_solve", t3 - t2);
    result.Set("t_release", t4 - t3);
    result.Set("t_total", t4 - t0);
    result.Set("cpu_s", cpu);
    result.Set("mflop", mflop);
    result.Set("factor_nnz", factorNnz);
    result.Set("pardiso_peak_kb", static_cast<long long>(std::max(peakAnalysisKb, permanentKb + factorKb)));
    result.Set("inertia", std::to_string(inertiaPos) + "+/" + std::to_string(inertiaNeg) + "-");
    result.Set("refinements", iparm[6]);
    result.Set("residual", BackwardError(k, x.data(), f.data()));
    if (!statistics.empty()) {
        const PardisoStatistics s = ParsePardisoStatistics(statistics);
        result.Set("p_analysis", s.analysis);
        result.Set("p_factor", s.factorization);
        result.Set("p_solve", s.solution);
        if (s.threads > 0) result.Set("pardiso_threads", s.threads);
    }
    result.Print();
    // PARDISO's own report, for the suite's raw output file.
    if (!statistics.empty()) std::fputs(statistics.c_str(), stdout);
    return 0;
}
