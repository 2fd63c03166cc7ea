// The report of the benchmark suite: reads the runner's log and writes markdown.
//
// Records are grouped by the tags the suite's script gives each run: group (static, modes,
// buckling, models, probe), case (solid20k, column, bcsstk06, ...), prog and variant (the library's
// PARDISO settings). Where a case was run several times the fastest successful run counts. Every
// ratio is ours / peer from the same run of the suite.
#include "SuiteIO.h"
#include "SuiteRecord.h"

#include <unistd.h>

#include <fstream>
#include <functional>
#include <iostream>
#include <set>

using namespace vqbench;

namespace {

// ---------------------------------------------------------------------------------------------
// Formatting

std::string Fmt(const char* format, double v)
{
    char text[64];
    std::snprintf(text, sizeof text, format, v);
    return text;
}

std::string Seconds(double t)
{
    if (!std::isfinite(t) || t < 0) return "–";
    if (t < 0.01) return Fmt("%.4f", t);
    if (t < 1) return Fmt("%.3f", t);
    if (t < 100) return Fmt("%.2f", t);
    return Fmt("%.1f", t);
}

std::string Megabytes(double kb)
{
    if (!std::isfinite(kb) || kb <= 0) return "–";
    const double mb = kb / 1024.0;
    return mb < 100 ? Fmt("%.1f", mb) : Fmt("%.0f", mb);
}

std::string Ratio(double r)
{
    if (!std::isfinite(r) || r <= 0) return "–";
    return r < 10 ? Fmt("%.2f×", r) : Fmt("%.1f×", r);
}

std::string Sci(double v)
{
    if (!std::isfinite(v)) return "–";
    return Fmt("%.2e", v);
}

std::string Percent(double fraction)
{
    if (!std::isfinite(fraction)) return "–";
    return Fmt("%.0f%%", 100 * fraction);
}

std::string Eigenvalue(double v)
{
    if (!std::isfinite(v)) return "–";
    return Fmt("%.7g", v);
}

std::string Slope(double v)
{
    if (!std::isfinite(v)) return "–";
    return Fmt("%.2f", v);
}

std::string Rate(double gflops)
{
    if (!std::isfinite(gflops) || gflops <= 0) return "–";
    return Fmt("%.1f", gflops);
}

double Peak(const Record& r)
{
    const double hwm = r.Num("hwm_kb");
    return hwm > 0 ? hwm : r.Num("maxrss_kb");
}

double AboveInput(const Record& r)
{
    const double p = Peak(r), in = r.Num("input_kb");
    return (p > 0 && in > 0) ? p - in : NAN;
}

// ---------------------------------------------------------------------------------------------
// The log

class Log {
public:
    explicit Log(const std::string& path)
    {
        std::ifstream in(path);
        std::string line;
        while (std::getline(in, line))
            if (line.rfind("@result", 0) == 0) records_.push_back(ParseLine(line));
    }
    const std::vector<Record>& All() const { return records_; }

    // Fastest successful run; when none succeeded, the last failed one; else null.
    const Record* Find(const std::string& group, const std::string& cas, const std::string& prog,
                       const std::string& variant = "default") const
    {
        const Record* best = nullptr;
        const Record* failed = nullptr;
        for (const auto& r : records_) {
            if (r.Get("group") != group || r.Get("case") != cas || r.Get("prog") != prog ||
                r.Get("variant", "default") != variant)
                continue;
            if (!r.Ok()) {
                failed = &r;
                continue;
            }
            if (!best || r.Num("t_total") < best->Num("t_total")) best = &r;
        }
        return best ? best : failed;
    }
    const Record* Ok(const std::string& group, const std::string& cas, const std::string& prog,
                     const std::string& variant = "default") const
    {
        const Record* r = Find(group, cas, prog, variant);
        return r && r->Ok() ? r : nullptr;
    }
    // Smallest value of a field over the successful runs (NaN when none has it).
    double Min(const std::string& group, const std::string& cas, const std::string& prog, const std::string& key,
               const std::string& variant = "default") const
    {
        double best = NAN;
        for (const auto& r : records_)
            if (r.Get("group") == group && r.Get("case") == cas && r.Get("prog") == prog &&
                r.Get("variant", "default") == variant && r.Ok() && !(r.Num(key) >= best))
                best = r.Num(key);
        return best;
    }
        int Runs(const std::string& group, const std::string& cas, const std::string& prog,
             const std::string& variant = "default") const
    {
        int count = 0;
        for (const auto& r : records_)
            if (r.Get("group") == group && r.Get("case") == cas && r.Get("prog") == prog &&
                r.Get("variant", "default") == variant && r.Ok())
                ++count;
        return count;
    }
    // Cases of a group, by increasing order n.
    std::vector<std::string> Cases(const std::string& group,
                                   const std::function<bool(const std::string&)>& keep = nullptr) const
    {
        std::map<std::string, double> n;
        for (const auto& r : records_)
            if (r.Get("group") == group && (!keep || keep(r.Get("case")))) {
                const double v = r.Num("n");
                double& slot = n[r.Get("case")];
                if (std::isfinite(v)) slot = v;
            }
        std::vector<std::string> out;
        for (const auto& kv : n) out.push_back(kv.first);
        auto key = [&](const std::string& c) { return std::isfinite(n[c]) ? n[c] : 1e300; };
        std::sort(out.begin(), out.end(), [&](const std::string& a, const std::string& b) { return key(a) < key(b); });
        return out;
    }
    double N(const std::string& cas) const
    {
        for (const auto& r : records_)
            if (r.Get("case") == cas && std::isfinite(r.Num("n"))) return r.Num("n");
        return NAN;
    }
    std::vector<std::string> Variants(const std::string& group, const std::string& cas, const std::string& prog) const
    {
        std::vector<std::string> out;
        for (const auto& r : records_)
            if (r.Get("group") == group && r.Get("case") == cas && r.Get("prog") == prog) {
                const std::string v = r.Get("variant", "default");
                if (std::find(out.begin(), out.end(), v) == out.end()) out.push_back(v);
            }
        return out;
    }
    const Record* First(const std::string& prog) const
    {
        for (const auto& r : records_)
            if (r.Get("prog") == prog && r.Ok()) return &r;
        return nullptr;
    }

private:
    std::vector<Record> records_;
};

std::vector<double> List(const Record* r, const char* key)
{
    std::vector<double> out;
    if (!r) return out;
    std::stringstream in(r->Get(key));
    std::string item;
    while (std::getline(in, item, ','))
        if (!item.empty()) out.push_back(std::atof(item.c_str()));
    std::sort(out.begin(), out.end());
    return out;
}

// How many of the reference eigenvalues (a multiset) the found ones match within a relative
// 1e-6: a solver that stops early on a repeated eigenvalue finds fewer than asked.
int Matched(const std::vector<double>& reference, std::vector<double> found)
{
    int matched = 0;
    for (double r : reference) {
        for (size_t i = 0; i < found.size(); ++i)
            if (std::fabs(found[i] - r) <= 1e-6 * std::max(std::fabs(r), 1e-300)) {
                ++matched;
                found.erase(found.begin() + static_cast<long>(i));
                break;
            }
    }
    return matched;
}

double Time(const Record* r, const char* key = "t_total") { return r && r->Ok() ? r->Num(key) : NAN; }
double Div(double a, double b) { return (std::isfinite(a) && std::isfinite(b) && b > 0) ? a / b : NAN; }

std::string ProgName(const std::string& prog)
{
    static const std::map<std::string, std::string> names = {
        {"ours", "vqmath `VQ_SparseSolverDirect`"},
        {"pardiso", "PARDISO called directly, same settings"},
        {"cholmod-mkl", "CHOLMOD at its best (MKL BLAS/LAPACK, ≤ cores OpenMP threads)"},
        {"cholmod-ref", "CHOLMOD as installed (reference BLAS, its own thread count)"},
        {"ours-lanczos", "vqmath Lanczos entry point"},
        {"ours-subspace", "vqmath subspace iteration entry point"},
        {"ours-block", "vqmath block Lanczos entry point"},
        {"ours-block-verified", "vqmath block Lanczos entry point with its Sturm count"},
        {"arpack-loop", "plain ARPACK + PARDISO loop"},
        {"spectra-cholmod", "Spectra + CHOLMOD (Eigen CholmodSupernodalLLT)"},
        {"spectra-ldlt", "Spectra + Eigen SimplicialLDLT"},
    };
    auto it = names.find(prog);
    return it == names.end() ? prog : it->second;
}

// "solid100k" → "100k"-style short label, else the case itself.
std::string Short(const std::string& cas)
{
    return cas.rfind("solid", 0) == 0 ? cas.substr(5) : cas;
}

std::string ReadFirstField(const char* path, const char* key)
{
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line))
        if (line.rfind(key, 0) == 0) {
            const size_t colon = line.find_first_of(":=");
            if (colon == std::string::npos) continue;
            std::string v = line.substr(colon + 1);
            v.erase(0, v.find_first_not_of(" \t\""));
            while (!v.empty() && (v.back() == '"' || v.back() == ' ')) v.pop_back();
            return v;
        }
    return "";
}

// ---------------------------------------------------------------------------------------------
// The report

class Report {
public:
    Report(const Log& log, const Options& opt) : log_(log), opt_(opt) {}

    std::string Write()
    {
        Header();
        Targets();
        Static();
        Overrides();
        Rates();
        Growth();
        Eigen("modes", "Natural modes K·φ = λ·M·φ (lumped M)");
        Eigen("buckling", "Buckling K·φ = λ·Kg·φ");
        Published();
        Failures();
        Appendix();
        if (opt_.Has("with-log")) RawLog();
        return out_.str();
    }

private:
    const Log& log_;
    const Options& opt_;
    std::ostringstream out_;

    std::string Meta(const std::string& key, const std::string& fallback = "") const
    {
        for (const auto& m : opt_.All("meta")) {
            const size_t eq = m.find('=');
            if (eq != std::string::npos && m.substr(0, eq) == key) return m.substr(eq + 1);
        }
        return fallback;
    }

    // The better of the dgemm measurements (at the start and at the end of the run).
    double Dgemm() const
    {
        double best = NAN;
        for (const auto& r : log_.All())
            if (r.Get("prog") == "dgemm" && r.Ok() && r.Get("variant") != "generic" && !(r.Num("gflops") <= best))
                best = r.Num("gflops");
        return best;
    }
    std::string DgemmRuns() const
    {
        std::string text;
        for (const auto& r : log_.All())
            if (r.Get("prog") == "dgemm" && r.Ok())
                text += (text.empty() ? "" : ", ") + Rate(r.Num("gflops")) + " (" + r.Get("variant") + ")";
        return text;
    }

    std::vector<std::string> Solids() const
    {
        return log_.Cases("static", [](const std::string& c) { return c.rfind("solid", 0) == 0; });
    }

    // ---- header and machine -------------------------------------------------------------------
    void Header()
    {
        const std::string title = opt_.Get("title", "vqmath benchmark suite");
        out_ << "# " << title << "\n\n";
        char host[256] = "";
        gethostname(host, sizeof host - 1);
        const std::string cpu = ReadFirstField("/proc/cpuinfo", "model name");
        const long cores = sysconf(_SC_NPROCESSORS_ONLN);
        const double memKb = std::atof(ReadFirstField("/proc/meminfo", "MemTotal").c_str());
        const std::string os = ReadFirstField("/etc/os-release", "PRETTY_NAME");
        const Record* d = nullptr;
        const Record* generic = nullptr;
        for (const auto& r : log_.All()) {
            if (r.Get("prog") != "dgemm" || !r.Ok()) continue;
            if (r.Get("variant") == "generic") {
                if (!generic) generic = &r;
            } else if (!d) {
                d = &r;
            }
        }
        out_ << "| | |\n|---|---|\n";
        out_ << "| date | " << Meta("date", "?") << " |\n";
        out_ << "| host | " << Meta("host", host) << " |\n";
        out_ << "| CPU | " << (cpu.empty() ? "?" : cpu) << " |\n";
        out_ << "| cores | " << cores << " online |\n";
        out_ << "| memory | " << Fmt("%.1f", memKb / 1024.0 / 1024.0) << " GiB |\n";
        if (!os.empty()) out_ << "| system | " << os << " |\n";
        if (d) {
            out_ << "| Intel MKL | " << d->Get("mkl_version") << ", code path: " << d->Get("mkl_path") << " |\n";
            out_ << "| dgemm rate | " << Rate(Dgemm()) << " GFlop/s (`cblas_dgemm`, n = " << d->Get("n") << ", "
                 << d->Get("threads") << " threads; the better of " << DgemmRuns() << ") |\n";
        }
        if (d && generic)
            out_ << "| MKL fast code path | dgemm " << Rate(Dgemm()) << " GFlop/s on `" << d->Get("mkl_path")
                 << "` against " << Rate(generic->Num("gflops")) << " GFlop/s on MKL's generic kernels (`"
                 << generic->Get("mkl_path") << "`, VQMATH_MKL_FAST_PATH=0): " << Ratio(Dgemm() / generic->Num("gflops"))
                 << " |\n";
        for (const auto& key : {"threads", "commit", "compiler", "mode", "duration", "load"}) {
            const std::string v = Meta(key);
            if (!v.empty()) out_ << "| " << key << " | " << v << " |\n";
        }
        out_ << "\n";
        for (const auto& note : opt_.All("note")) out_ << note << "\n\n";
    }

    // ---- targets ------------------------------------------------------------------------------
    void TargetRow(const std::string& what, const std::string& measured, const std::string& goal,
                   const std::string& verdict)
    {
        out_ << "| " << what << " | " << measured << " | " << goal << " | " << verdict << " |\n";
    }

    // Ours' fastest variant for a case (name and record).
    std::pair<std::string, const Record*> BestVariant(const std::string& cas) const
    {
        std::pair<std::string, const Record*> best{"", nullptr};
        for (const auto& v : log_.Variants("static", cas, "ours")) {
            const Record* r = log_.Ok("static", cas, "ours", v);
            if (r && (!best.second || r->Num("t_total") < best.second->Num("t_total"))) best = {v, r};
        }
        return best;
    }

    // Flop count of ours' factorisation (its own report, else the PARDISO call with the same
    // settings) and the factorisation time.
    double OursRate(const std::string& cas, const std::string& variant) const
    {
        const Record* r = log_.Ok("static", cas, "ours", variant);
        if (!r) return NAN;
        return Div(Mflop(cas, variant) / 1000.0, r->Num("t_factor"));
    }

    // The factorisation's operation count for a case and settings: ours' own report, else the
    // PARDISO call's with the same settings; PARDISO does not report it for the two-level
    // factorisation (iparm[23] = 1), whose count is that of the same ordering without it.
    double Mflop(const std::string& cas, const std::string& variant) const
    {
        for (const auto& prog : {"ours", "pardiso"})
            if (const Record* r = log_.Ok("static", cas, prog, variant))
                if (r->Num("mflop") > 0) return r->Num("mflop");
        std::string base;
        std::istringstream words(variant);
        std::string w;
        while (words >> w)
            if (w.rfind("iparm23=", 0) != 0 && w.rfind("mtype=", 0) != 0) base += (base.empty() ? "" : " ") + w;
        if (base.empty()) base = "default";
        if (base != variant) return Mflop(cas, base);
        return NAN;
    }

    void Targets()
    {
        out_ << "## Targets\n\n";
        out_ << "Ratios are ours / peer, both from this run (below 1 means we are faster or smaller).\n\n";
        out_ << "| target | measured | goal | verdict |\n|---|---|---|---|\n";
        const auto solids = Solids();

        auto perSize = [&](const std::function<double(const std::string&)>& ratio, double goal, bool reportOnly) {
            std::string measured, verdict;
            bool all = true, any = false;
            std::string worst;
            for (const auto& c : solids) {
                const double r = ratio(c);
                if (!std::isfinite(r)) continue;
                any = true;
                if (!measured.empty()) measured += ", ";
                measured += Short(c) + ": " + Ratio(r);
                if (r > goal) {
                    all = false;
                    worst += (worst.empty() ? "" : ", ") + Short(c);
                }
            }
            if (!any) return std::make_pair(std::string("not measured"), std::string("–"));
            verdict = reportOnly ? "reported" : all ? "met" : "not met at " + worst;
            return std::make_pair(measured, verdict);
        };

        auto t1 = perSize(
            [&](const std::string& c) {
                return Div(Time(log_.Ok("static", c, "ours")), Time(log_.Ok("static", c, "pardiso")));
            },
            1.03, false);
        TargetRow("static solve time, `VQ_SparseSolverDirect` / direct PARDISO call", t1.first, "≤ 1.03×", t1.second);
        auto t2 = perSize(
            [&](const std::string& c) {
                const Record* a = log_.Ok("static", c, "ours");
                const Record* b = log_.Ok("static", c, "pardiso");
                return a && b ? Div(Peak(*a), Peak(*b)) : NAN;
            },
            1.10, false);
        TargetRow("static peak memory, `VQ_SparseSolverDirect` / direct PARDISO call", t2.first, "≤ 1.10×", t2.second);
        auto tCpu = perSize(
            [&](const std::string& c) {
                return Div(log_.Min("static", c, "ours", "cpu_s"), log_.Min("static", c, "pardiso", "cpu_s"));
            },
            1.03, false);
        TargetRow("the same in processor time (all threads; robust to other work on the machine)", tCpu.first,
                  "≤ 1.03×", tCpu.second);
        auto t3 = perSize(
            [&](const std::string& c) {
                return Div(Time(log_.Ok("static", c, "ours")), Time(log_.Ok("static", c, "cholmod-mkl")));
            },
            1e9, true);
        TargetRow("static solve time, ours (library defaults) / CHOLMOD at its best", t3.first, "honest ratio",
                  t3.second);
        {
            std::string measured;
            for (const auto& c : solids) {
                const auto best = BestVariant(c);
                const Record* ch = log_.Ok("static", c, "cholmod-mkl");
                int measuredVariants = 0;
                for (const auto& v : log_.Variants("static", c, "ours"))
                    if (log_.Ok("static", c, "ours", v)) ++measuredVariants;
                if (!best.second || !ch || measuredVariants < 2) continue;
                if (!measured.empty()) measured += "; ";
                measured += Short(c) + ": " + Ratio(Div(Time(best.second), Time(ch))) + " with `" + best.first + "`";
            }
            TargetRow("static solve time, ours with the best override settings / CHOLMOD at its best",
                      measured.empty() ? "not measured" : measured, "close the gap", measured.empty() ? "–" : "reported");
        }
        if (!solids.empty()) {
            const std::string c = solids.back();
            const double dg = Dgemm();
            const double rDefault = OursRate(c, "default");
            const auto best = BestVariant(c);
            const double rBest = best.second ? OursRate(c, best.first) : NAN;
            std::string measured = Short(c) + ": " + Rate(rDefault) + " GFlop/s = " + Percent(Div(rDefault, dg)) +
                                   " of dgemm (" + Rate(dg) + ")";
            if (best.second && best.first != "default")
                measured += "; with `" + best.first + "`: " +
                            (std::isfinite(rBest) ? Rate(rBest) + " GFlop/s = " + Percent(Div(rBest, dg))
                                                  : std::string("not split (PARDISO times no phases of the two-level factorisation)"));
            std::string verdict = !std::isfinite(Div(rDefault, dg)) ? "not measured"
                                  : Div(rDefault, dg) >= 0.5        ? "met"
                                  : Div(rBest, dg) >= 0.5           ? "met with `" + best.first + "` only"
                                                                    : "not met";
            TargetRow("factorisation rate at the largest solid (PARDISO's flop count / factorisation time)", measured,
                      "≥ 50% of dgemm", verdict);
        }
        const auto modes = log_.Cases("modes", [](const std::string& c) { return c.rfind("solid", 0) == 0; });
        if (!modes.empty()) {
            const std::string c = modes.back();
            const double lanczos = Time(log_.Ok("modes", c, "ours-lanczos"));
            const double subspace = Time(log_.Ok("modes", c, "ours-subspace"));
            const double loop = Time(log_.Ok("modes", c, "arpack-loop"));
            double spectra = NAN;
            std::string spectraName;
            for (const auto& p : {"spectra-cholmod", "spectra-ldlt"}) {
                const double t = Time(log_.Ok("modes", c, p));
                if (std::isfinite(t) && !(t >= spectra)) {
                    spectra = t;
                    spectraName = p;
                }
            }
            const double r6 = Div(lanczos, loop), r7 = Div(subspace, lanczos);
            TargetRow("20 lowest modes at " + Short(c) + ": Lanczos entry point / plain ARPACK + PARDISO loop", Ratio(r6),
                      "≤ 1.05×", std::isfinite(r6) ? (r6 <= 1.05 ? "met" : "not met") : "not measured");
            TargetRow("20 lowest modes at " + Short(c) + ": subspace iteration / Lanczos entry point", Ratio(r7),
                      "≤ 1.2×", std::isfinite(r7) ? (r7 <= 1.2 ? "met" : "not met") : "not measured");
            const double c6 = Div(log_.Min("modes", c, "ours-lanczos", "cpu_s"), log_.Min("modes", c, "arpack-loop", "cpu_s"));
            const double c7 = Div(log_.Min("modes", c, "ours-subspace", "cpu_s"), log_.Min("modes", c, "ours-lanczos", "cpu_s"));
            TargetRow("the same two in processor time", "Lanczos / loop " + Ratio(c6) + ", subspace / Lanczos " + Ratio(c7),
                      "≤ 1.05×, ≤ 1.2×",
                      std::isfinite(c6) && std::isfinite(c7)
                          ? std::string(c6 <= 1.05 ? "met" : "not met") + ", " + (c7 <= 1.2 ? "met" : "not met")
                          : "not measured");
            const double a = Div(lanczos, spectra), b = Div(subspace, spectra);
            std::string measured = "Lanczos " + Ratio(a) + ", subspace " + Ratio(b) + " of " +
                                   (spectraName.empty() ? std::string("Spectra") : ProgName(spectraName)) + " (its faster variant)";
            const std::vector<double> reference = List(log_.Ok("modes", c, "arpack-loop"), "lambdas");
            if (!spectraName.empty() && !reference.empty())
                measured += ", which found " + std::to_string(Matched(reference, List(log_.Ok("modes", c, spectraName), "lambdas"))) +
                            " of the " + std::to_string(reference.size()) + " lowest eigenvalues";
            std::string verdict = "not measured";
            if (std::isfinite(a) || std::isfinite(b))
                verdict = (std::isfinite(a) && a <= 0.5 && std::isfinite(b) && b <= 0.5) ? "met" : "not met";
            TargetRow("20 lowest modes at " + Short(c) + ": ours / Spectra", measured,
                      "far ahead (read as ≤ 0.5×)", verdict);

            // Block Lanczos: against the loop, against one factorisation of the same matrix in
            // this run (the floor: the factor must be built once), against Spectra at its best.
            const double block = Time(log_.Ok("modes", c, "ours-block"));
            const double verified = Time(log_.Ok("modes", c, "ours-block-verified"));
            double factor = NAN;
            for (const auto& p : {"ours", "pardiso"}) {
                const double t = Time(log_.Ok("static", c, p), "t_factor");
                if (std::isfinite(t) && !(t >= factor)) factor = t;
            }
            const double b1 = Div(block, loop), b2 = Div(block, factor), b3 = Div(block, spectra);
            auto verdictOf = [](double r, double goal) {
                return std::isfinite(r) ? std::string(r <= goal ? "met" : "not met") : std::string("not measured");
            };
            TargetRow("20 lowest modes at " + Short(c) + ": block Lanczos / plain ARPACK + PARDISO loop (no verification)",
                      Ratio(b1), "≤ 0.6×", verdictOf(b1, 0.6));
            TargetRow("20 lowest modes at " + Short(c) + ": block Lanczos / one factorisation of K (fastest static run)",
                      Ratio(b2) + " (factorisation " + Seconds(factor) + " s)", "≤ 1.4×", verdictOf(b2, 1.4));
            TargetRow("20 lowest modes at " + Short(c) + ": block Lanczos verified by its Sturm count / (loop + one factorisation)",
                      Ratio(Div(verified, loop + factor)), "reported", std::isfinite(verified) ? "reported" : "not measured");
            TargetRow("20 lowest modes at " + Short(c) + ": block Lanczos / Spectra at its best", Ratio(b3), "≤ 0.5×",
                      verdictOf(b3, 0.5));
        }
        out_ << "\n";
    }

    // ---- static solution ----------------------------------------------------------------------
    void StaticTable(const std::string& cas)
    {
        const Record* ours = log_.Ok("static", cas, "ours");
        out_ << "| program | analysis s | factorisation s | solution s | total s | CPU s | peak MB | above input MB | "
                "GFlop/s | backward error | runs | time ours/this | CPU ours/this | memory ours/this |\n";
        out_ << "|---|---|---|---|---|---|---|---|---|---|---|---|---|---|\n";
        for (const auto& prog : {"ours", "pardiso", "cholmod-mkl", "cholmod-ref"}) {
            const Record* r = log_.Find("static", cas, prog);
            if (!r) continue;
            if (!r->Ok()) {
                out_ << "| " << ProgName(prog) << " | failed: " << r->Get("reason") << " | | | | | | | | | | | | |\n";
                continue;
            }
            const double cpu = log_.Min("static", cas, prog, "cpu_s");
            const double oursCpu = log_.Min("static", cas, "ours", "cpu_s");
            double mflop = r->Num("mflop");
            if (!(mflop > 0)) mflop = Mflop(cas, "default");
            out_ << "| " << ProgName(prog) << " | " << Seconds(r->Num("t_analysis")) << " | "
                 << Seconds(r->Num("t_factor")) << " | " << Seconds(r->Num("t_solve")) << " | "
                 << Seconds(r->Num("t_total")) << " | " << Seconds(cpu) << " | " << Megabytes(Peak(*r)) << " | "
                 << Megabytes(AboveInput(*r))
                 << " | " << Rate(Div(mflop / 1000.0, r->Num("t_factor"))) << " | " << Sci(r->Num("residual")) << " | "
                 << log_.Runs("static", cas, prog) << " | "
                 << (ours ? Ratio(Div(ours->Num("t_total"), r->Num("t_total"))) : "–") << " | "
                 << Ratio(Div(oursCpu, cpu)) << " | " << (ours ? Ratio(Div(Peak(*ours), Peak(*r))) : "–") << " |\n";
        }
        out_ << "\n";
        std::string notes;
        if (const Record* r = log_.Ok("static", cas, "ours"))
            if (r->Get("split") == "pardiso-statistics")
                notes += "vqmath's phases are PARDISO's own timers (message level 1) inside the one library call; "
                         "its total is the wall time of the call. ";
        if (const Record* r = log_.Ok("static", cas, "pardiso"))
            notes += "PARDISO settings (iparm index=value): `" + r->Get("settings") + "` matrix type " + r->Get("mtype") +
                     ", the solution refined only after perturbed pivots (as the library does; " + r->Get("refinements") +
                     " steps here), inertia " + r->Get("inertia") + ", " + r->Get("factor_nnz") + " factor entries. ";
        for (const auto& p : {"cholmod-mkl", "cholmod-ref"})
            if (const Record* r = log_.Ok("static", cas, p))
                notes += std::string(p) + ": BLAS from `" + r->Get("blas") + "`, LAPACK from `" + r->Get("lapack") +
                         "`, " + r->Get("omp_threads") + " OpenMP threads in its own loops, ordering " +
                         r->Get("ordering") + (r->Get("supernodal") == "1" ? ", supernodal" : ", simplicial") + ". ";
        if (!notes.empty()) out_ << notes << "\n\n";
    }

    void Static()
    {
        const auto cases = log_.Cases("static", [](const std::string& c) { return c.rfind("bcsstk", 0) != 0; });
        if (cases.empty()) return;
        out_ << "## Static solution K·x = F\n\n";
        out_ << "Each run is its own process; peak memory is its resident high-water mark (VmHWM), including "
                "the input arrays it read (\"above input\" leaves them out). The factorisation rate uses the "
                "program's own operation count (PARDISO's iparm[18], CHOLMOD's `Common->fl`).\n\n";
        for (const auto& c : cases) {
            out_ << "### " << c << " (n = " << Fmt("%.0f", log_.N(c)) << ")\n\n";
            StaticTable(c);
        }
    }

    // ---- override settings --------------------------------------------------------------------
    void Overrides()
    {
        std::vector<std::string> cases;
        for (const auto& c : log_.Cases("static"))
            if (log_.Variants("static", c, "ours").size() > 1) cases.push_back(c);
        if (cases.empty()) return;
        out_ << "## PARDISO settings a host can pass (override list, matrix type)\n\n";
        out_ << "`VQ_OverrideDefaultSparseSolverParam(index, value)` before the call (`iparm1=3` is "
                "`VQ_OverrideDefaultSparseSolverParam(1, 3)`); `mtype=2` is `VQ_SetSolverMatrixType(2)` "
                "(Cholesky, for SPD models). Ratios against the library's defaults and against CHOLMOD at its best.\n\n";
        for (const auto& c : cases) {
            const Record* base = log_.Ok("static", c, "ours");
            const Record* ch = log_.Ok("static", c, "cholmod-mkl");
            const auto best = BestVariant(c);
            out_ << "### " << c << "\n\n";
            out_ << "| settings | analysis s | factorisation s | solution s | total s | peak MB | GFlop/s | "
                    "vs defaults | vs CHOLMOD best |\n|---|---|---|---|---|---|---|---|---|\n";
            for (const auto& v : log_.Variants("static", c, "ours")) {
                const Record* r = log_.Find("static", c, "ours", v);
                if (!r) continue;
                const std::string name = "`" + v + "`" + (best.second && best.first == v ? " **fastest**" : "");
                if (!r->Ok()) {
                    out_ << "| " << name << " | failed: " << r->Get("reason") << " | | | | | | | |\n";
                    continue;
                }
                out_ << "| " << name << " | " << Seconds(r->Num("t_analysis")) << " | " << Seconds(r->Num("t_factor"))
                     << " | " << Seconds(r->Num("t_solve")) << " | " << Seconds(r->Num("t_total")) << " | "
                     << Megabytes(Peak(*r)) << " | " << Rate(OursRate(c, v)) << " | "
                     << Ratio(Div(r->Num("t_total"), Time(base))) << " | " << Ratio(Div(r->Num("t_total"), Time(ch)))
                     << " |\n";
            }
            out_ << "\n";
        }
    }

    // ---- factorisation rates ------------------------------------------------------------------
    void Rates()
    {
        const auto solids = Solids();
        const double dg = Dgemm();
        if (solids.empty() || !std::isfinite(dg)) return;
        out_ << "## Factorisation rate against dgemm (" << Rate(dg) << " GFlop/s)\n\n";
        out_ << "Rates are the operation count over the factorisation's wall time; a rate above the dgemm "
                "rate means the machine was busier while dgemm was measured than during that "
                "factorisation (see the load average above).\n\n";
        out_ << "| case | ours (defaults) | ours (fastest settings) | PARDISO direct | CHOLMOD at its best |\n";
        out_ << "|---|---|---|---|---|\n";
        auto cell = [&](double rate) {
            return std::isfinite(rate) ? Rate(rate) + " GFlop/s (" + Percent(rate / dg) + ")" : "–";
        };
        for (const auto& c : solids) {
            const auto best = BestVariant(c);
            const Record* p = log_.Ok("static", c, "pardiso");
            const Record* ch = log_.Ok("static", c, "cholmod-mkl");
            out_ << "| " << c << " | " << cell(OursRate(c, "default")) << " | "
                 << (best.second ? cell(OursRate(c, best.first)) + " `" + best.first + "`" : "–") << " | "
                 << cell(p ? Div(p->Num("mflop") / 1000, p->Num("t_factor")) : NAN) << " | "
                 << cell(ch ? Div(ch->Num("mflop") / 1000, ch->Num("t_factor")) : NAN) << " |\n";
        }
        out_ << "\n";
    }

    // ---- growth -------------------------------------------------------------------------------
    void Growth()
    {
        const auto solids = Solids();
        if (solids.size() < 2) return;
        out_ << "## Growth with size\n\n";
        out_ << "Slope of log(time) against log(n) between successive solids (1 = linear); the last column "
                "is the slope of the peak memory above the input over the whole range.\n\n";
        out_ << "| program | settings |";
        for (size_t i = 0; i + 1 < solids.size(); ++i) out_ << " total " << Short(solids[i]) << "→" << Short(solids[i + 1]) << " |";
        for (size_t i = 0; i + 1 < solids.size(); ++i) out_ << " factor " << Short(solids[i]) << "→" << Short(solids[i + 1]) << " |";
        out_ << " memory |\n|---|---|";
        for (size_t i = 0; i + 2 < 2 * solids.size() + 1; ++i) out_ << "---|";
        out_ << "\n";
        std::vector<std::pair<std::string, std::string>> rows;
        for (const auto& prog : {"ours", "pardiso", "cholmod-mkl", "cholmod-ref"}) {
            std::set<std::string> variants;
            for (const auto& c : solids)
                for (const auto& v : log_.Variants("static", c, prog)) variants.insert(v);
            for (const auto& v : variants) rows.emplace_back(prog, v);
        }
        auto slope = [](double t1, double t2, double n1, double n2) {
            return (t1 > 0 && t2 > 0 && n1 > 0 && n2 > n1) ? std::log(t2 / t1) / std::log(n2 / n1) : NAN;
        };
        for (const auto& row : rows) {
            int present = 0;
            for (const auto& c : solids) present += log_.Ok("static", c, row.first, row.second) ? 1 : 0;
            if (present < 2) continue;
            out_ << "| " << ProgName(row.first) << " | `" << row.second << "` |";
            for (const char* key : {"t_total", "t_factor"})
                for (size_t i = 0; i + 1 < solids.size(); ++i) {
                    const Record* a = log_.Ok("static", solids[i], row.first, row.second);
                    const Record* b = log_.Ok("static", solids[i + 1], row.first, row.second);
                    out_ << " " << (a && b ? Slope(slope(a->Num(key), b->Num(key), log_.N(solids[i]), log_.N(solids[i + 1]))) : "–")
                         << " |";
                }
            const Record* a = nullptr;
            const Record* b = nullptr;
            std::string ca, cb;
            for (const auto& c : solids)
                if (const Record* r = log_.Ok("static", c, row.first, row.second)) {
                    if (!a) {
                        a = r;
                        ca = c;
                    }
                    b = r;
                    cb = c;
                }
            out_ << " " << (a && b && a != b ? Slope(slope(AboveInput(*a), AboveInput(*b), log_.N(ca), log_.N(cb))) : "–")
                 << " |\n";
        }
        out_ << "\n";
    }

    // ---- eigenproblems ------------------------------------------------------------------------
    void Eigen(const std::string& group, const std::string& title)
    {
        const auto cases = log_.Cases(group);
        if (cases.empty()) return;
        out_ << "## " << title << "\n\n";
        for (const auto& c : cases) {
            const Record* lanczos = log_.Ok(group, c, "ours-lanczos");
            const Record* subspace = log_.Ok(group, c, "ours-subspace");
            const Record* any = nullptr;
            for (const auto& p : {"ours-lanczos", "arpack-loop", "spectra-cholmod"})
                if (!any) any = log_.Ok(group, c, p);
            out_ << "### " << c << " (n = " << Fmt("%.0f", log_.N(c)) << ", " << (any ? any->Get("nev") : "20")
                 << " modes, shift " << (any ? any->Get("sigma") : "?") << ")\n\n";
            // The reference spectrum: the plain ARPACK loop (tolerance: machine precision), else ours.
            std::string referenceName = "arpack-loop";
            std::vector<double> reference = List(log_.Ok(group, c, "arpack-loop"), "lambdas");
            if (reference.empty()) {
                referenceName = "ours-lanczos";
                reference = List(lanczos, "lambdas");
            }
            out_ << "| program | factorisation s | iterations s | vectors s | total s | CPU s | solves | peak MB | "
                    "above input MB | λ first | λ last | of the " << reference.size() << " lowest | backward error | "
                    "Lanczos/this | subspace/this |\n";
            out_ << "|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|\n";
            for (const auto& prog : {"ours-lanczos", "ours-subspace", "ours-block", "ours-block-verified", "arpack-loop",
                                     "spectra-cholmod", "spectra-ldlt"}) {
                const Record* r = log_.Find(group, c, prog);
                if (!r) continue;
                if (!r->Ok()) {
                    out_ << "| " << ProgName(prog) << " | failed: " << r->Get("reason") << " | | | | | | | | | | | | | |\n";
                    continue;
                }
                out_ << "| " << ProgName(prog) << " | " << Seconds(r->Num("t_factor")) << " | "
                     << Seconds(r->Num("t_iterations")) << " | " << Seconds(r->Num("t_vectors")) << " | "
                     << Seconds(r->Num("t_total")) << " | " << Seconds(r->Num("cpu_s")) << " | " << r->Get("solves", "–")
                     << " | " << Megabytes(Peak(*r))
                     << " | " << Megabytes(AboveInput(*r)) << " | " << Eigenvalue(r->Num("lambda_first")) << " | "
                     << Eigenvalue(r->Num("lambda_last")) << " | "
                     << (reference.empty() || !r->f.count("lambdas")
                             ? std::string("–")
                             : std::to_string(Matched(reference, List(r, "lambdas"))))
                     << " | " << Sci(r->Num("residual")) << " | "
                     << Ratio(Div(Time(lanczos), r->Num("t_total"))) << " | "
                     << Ratio(Div(Time(subspace), r->Num("t_total"))) << " |\n";
            }
            out_ << "\n";
            std::string notes;
            if (!reference.empty())
                notes += "\"Of the lowest\": how many of the " + std::to_string(reference.size()) + " eigenvalues of " +
                         referenceName + " (ARPACK at machine precision) a program found, within 1e-6; a Lanczos "
                         "process stopped early misses copies of repeated eigenvalues (the square bar bends alike "
                         "in y and z) and returns higher ones instead. ";
            for (const auto& prog : {"ours-lanczos", "ours-subspace", "ours-block", "ours-block-verified"})
                if (const Record* r = log_.Ok(group, c, prog))
                    notes += std::string(prog) + ": `" + r->Get("entry") + "`" +
                             (r->Get("partial") == "1" ? " (partial result)" : "") + ". ";
            for (const auto& prog : {"arpack-loop", "spectra-cholmod", "spectra-ldlt"})
                if (const Record* r = log_.Ok(group, c, prog))
                    notes += std::string(prog) + ": ncv " + r->Get("ncv") + ", tolerance " + r->Get("tol") + ", " +
                             r->Get("restarts") + " restarts. ";
            if (!notes.empty()) out_ << notes << "\n\n";
        }
    }

    // ---- published matrices -------------------------------------------------------------------
    void Published()
    {
        const auto cases = log_.Cases("static", [](const std::string& c) { return c.rfind("bcsstk", 0) == 0; });
        if (cases.empty()) return;
        out_ << "## Published structural matrices (static solution)\n\n";
        out_ << "Small matrices: the times show the fixed cost of a call more than the factorisation.\n\n";
        out_ << "| matrix | n | ours total s | PARDISO total s | CHOLMOD best total s | ours/PARDISO | ours/CHOLMOD | "
                "ours peak MB | PARDISO peak MB | backward error ours |\n|---|---|---|---|---|---|---|---|---|---|\n";
        for (const auto& c : cases) {
            const Record* o = log_.Ok("static", c, "ours");
            const Record* p = log_.Ok("static", c, "pardiso");
            const Record* ch = log_.Ok("static", c, "cholmod-mkl");
            out_ << "| " << c << " | " << Fmt("%.0f", log_.N(c)) << " | " << Seconds(Time(o)) << " | " << Seconds(Time(p))
                 << " | " << Seconds(Time(ch)) << " | " << Ratio(Div(Time(o), Time(p))) << " | "
                 << Ratio(Div(Time(o), Time(ch))) << " | " << (o ? Megabytes(Peak(*o)) : "–") << " | "
                 << (p ? Megabytes(Peak(*p)) : "–") << " | " << (o ? Sci(o->Num("residual")) : "–") << " |\n";
        }
        out_ << "\n";
    }

    // The other benchmark programs' own output, one section each.
    void Appendix()
    {
        const auto files = opt_.All("appendix");
        if (files.empty()) return;
        out_ << "## Other benchmark programs\n\n";
        for (const auto& path : files) {
            std::ifstream in(path);
            std::stringstream text;
            text << in.rdbuf();
            std::string name = path.substr(path.rfind('/') + 1);
            if (name.size() > 4 && name.compare(name.size() - 4, 4, ".txt") == 0) name.resize(name.size() - 4);
            out_ << "### " << name << "\n\n```\n" << text.str() << (text.str().empty() || text.str().back() == '\n' ? "" : "\n")
                 << "```\n\n";
        }
    }

    void RawLog()
    {
        out_ << "<details><summary>All result lines of this run</summary>\n\n```\n";
        for (const auto& r : log_.All()) {
            std::string line = "@result";
            for (const auto& kv : r.f) line += "\t" + kv.first + "=" + kv.second;
            out_ << line << "\n";
        }
        out_ << "```\n\n</details>\n";
    }

    void Failures()
    {
        std::vector<const Record*> failed;
        for (const auto& r : log_.All())
            if (!r.Ok()) failed.push_back(&r);
        if (failed.empty()) return;
        out_ << "## Runs that did not finish\n\n| group | case | program | settings | reason |\n|---|---|---|---|---|\n";
        for (const Record* r : failed)
            out_ << "| " << r->Get("group") << " | " << r->Get("case") << " | " << r->Get("prog") << " | `"
                 << r->Get("variant", "default") << "` | " << r->Get("reason") << " |\n";
        out_ << "\n";
    }
};

}  // namespace

int ReportCommand(int argc, char** argv)
{
    Options opt(argc - 1, argv + 1);
    const std::string logPath = opt.Get("log");
    const Log log(logPath);
    if (log.All().empty()) {
        std::fprintf(stderr, "bench_suite_runner report: no results in %s\n", logPath.c_str());
        return 1;
    }
    Report report(log, opt);
    const std::string text = report.Write();
    std::cout << text;
    if (opt.Has("out")) {
        std::ofstream out(opt.Get("out"));
        out << text;
        if (!out) {
            std::fprintf(stderr, "bench_suite_runner report: cannot write %s\n", opt.Get("out").c_str());
            return 1;
        }
    }
    return 0;
}
