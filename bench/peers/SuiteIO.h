#pragma once
// Shared plumbing of the benchmark suite's programs (the library's own cases and the peers):
// model files, command-line options, clocks, memory high-water marks and the one result line each
// program prints for bench_suite_runner.
//
// Model files. The suite generates its models once and every measured program reads them, so
// each program starts from the same arrays and its peak memory is comparable:
//   *.bin  binary: "VQBM", int32 version 1, int32 kind (1 upper CSR, 2 vector), int32 n,
//          int64 count; then for kind 1 the row pointers (n+1 int32), column indices
//          (count int32) and values (count doubles), for kind 2 the n values.
//   *.mtx  MatrixMarket coordinate files (the published structural matrices): read into the
//          same upper CSR; a file of a diagonal matrix is also accepted where a vector is read.
// CSR here is what the library and PARDISO take: upper triangle, 1-based, diagonal first in
// every row, columns ascending after it.
//
// Result line. One line per run, "@result" followed by tab-separated key=value fields (values may
// hold blanks but no tabs). Times are seconds, memory is kilobytes.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace vqbench {

struct Csr {
    int n = 0;
    std::vector<int> rowPointers;    // n+1, 1-based
    std::vector<int> columnIndices;  // nnz, 1-based
    std::vector<double> values;      // nnz
    long long Nnz() const { return static_cast<long long>(values.size()); }
};

// ---------------------------------------------------------------------------------------------
// Clock and memory

inline double Now()
{
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

// Processor time of the whole process so far (all its threads, user and system), in seconds.
// Unlike wall time it does not grow when other work on the machine takes the processors away,
// as long as idle threads sleep (OMP_WAIT_POLICY=passive) instead of spinning.
inline double CpuSeconds()
{
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return static_cast<double>(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
           1e-6 * static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec);
}

// A field of /proc/self/status in kB ("VmHWM", "VmRSS"), or -1.
inline long long ProcStatusKb(const char* field)
{
    FILE* f = std::fopen("/proc/self/status", "r");
    if (!f) return -1;
    char line[256];
    long long kb = -1;
    const size_t len = std::strlen(field);
    while (std::fgets(line, sizeof line, f)) {
        if (std::strncmp(line, field, len) == 0 && line[len] == ':') {
            kb = std::atoll(line + len + 1);
            break;
        }
    }
    std::fclose(f);
    return kb;
}

// ---------------------------------------------------------------------------------------------
// Result line

class Result {
public:
    explicit Result(const std::string& program) { Set("prog", program); }
    void Set(const std::string& key, const std::string& value)
    {
        for (auto& kv : fields_)
            if (kv.first == key) {
                kv.second = value;
                return;
            }
        fields_.emplace_back(key, value);
    }
    void Set(const std::string& key, const char* value) { Set(key, std::string(value ? value : "")); }
    void Set(const std::string& key, double value)
    {
        char text[64];
        std::snprintf(text, sizeof text, "%.10g", value);
        Set(key, std::string(text));
    }
    void Set(const std::string& key, long long value) { Set(key, std::to_string(value)); }
    // A list of values, comma-separated, 12 significant digits (e.g. the eigenvalues found).
    void SetList(const std::string& key, const double* values, int count)
    {
        std::string text;
        char number[64];
        for (int i = 0; i < count; ++i) {
            std::snprintf(number, sizeof number, "%.12g", values[i]);
            text += (i ? "," : "") + std::string(number);
        }
        Set(key, text);
    }
    void Set(const std::string& key, int value) { Set(key, std::to_string(value)); }
    // Records the peak and the resident size now; call once the measured work is done.
    void SetMemory(long long inputRssKb)
    {
        Set("hwm_kb", ProcStatusKb("VmHWM"));
        Set("input_kb", inputRssKb);
    }
    void Fail(const std::string& reason)
    {
        Set("status", "fail");
        Set("reason", reason);
    }
    void Print() const
    {
        std::string line = "@result";
        bool hasStatus = false;
        for (const auto& kv : fields_) {
            if (kv.first == "status") hasStatus = true;
            std::string v = kv.second;
            std::replace(v.begin(), v.end(), '\t', ' ');
            std::replace(v.begin(), v.end(), '\n', ' ');
            line += "\t" + kv.first + "=" + v;
        }
        if (!hasStatus) line += "\tstatus=ok";
        std::fflush(stdout);
        std::printf("%s\n", line.c_str());
        std::fflush(stdout);
    }

private:
    std::vector<std::pair<std::string, std::string>> fields_;
};

// ---------------------------------------------------------------------------------------------
// Command line: --key value pairs; "--flag" alone stores "1". Repeated keys keep every value.

class Options {
public:
    Options(int argc, char** argv)
    {
        for (int i = 1; i < argc; ++i) {
            std::string a = argv[i];
            if (a.rfind("--", 0) != 0) {
                positional_.push_back(a);
                continue;
            }
            a = a.substr(2);
            std::string v = "1";
            const size_t eq = a.find('=');
            if (eq != std::string::npos) {
                v = a.substr(eq + 1);
                a = a.substr(0, eq);
            } else if (i + 1 < argc && std::strncmp(argv[i + 1], "--", 2) != 0) {
                v = argv[++i];
            }
            values_.emplace_back(a, v);
        }
    }
    bool Has(const std::string& key) const
    {
        for (const auto& kv : values_)
            if (kv.first == key) return true;
        return false;
    }
    std::string Get(const std::string& key, const std::string& fallback = "") const
    {
        for (auto it = values_.rbegin(); it != values_.rend(); ++it)
            if (it->first == key) return it->second;
        return fallback;
    }
    double GetDouble(const std::string& key, double fallback) const
    {
        return Has(key) ? std::atof(Get(key).c_str()) : fallback;
    }
    int GetInt(const std::string& key, int fallback) const
    {
        return Has(key) ? std::atoi(Get(key).c_str()) : fallback;
    }
    std::vector<std::string> All(const std::string& key) const
    {
        std::vector<std::string> out;
        for (const auto& kv : values_)
            if (kv.first == key) out.push_back(kv.second);
        return out;
    }
    const std::vector<std::string>& Positional() const { return positional_; }

private:
    std::vector<std::pair<std::string, std::string>> values_;
    std::vector<std::string> positional_;
};

// "i=v" pairs of PARDISO parameters (zero-based index), e.g. from --set 1=3 --set 23=1.
inline std::vector<std::pair<int, int>> ParseSettings(const std::vector<std::string>& items)
{
    std::vector<std::pair<int, int>> out;
    for (const auto& s : items) {
        std::stringstream in(s);
        std::string part;
        while (std::getline(in, part, ',')) {
            const size_t eq = part.find('=');
            if (eq == std::string::npos) continue;
            out.emplace_back(std::atoi(part.substr(0, eq).c_str()), std::atoi(part.substr(eq + 1).c_str()));
        }
    }
    return out;
}

// ---------------------------------------------------------------------------------------------
// Files

namespace detail {
struct Header {
    char magic[4];
    int32_t version, kind, n;
    int64_t count;
};
inline bool EndsWith(const std::string& s, const std::string& tail)
{
    return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}
}  // namespace detail

inline bool WriteCsr(const std::string& path, int n, const int* rowPointers, const int* columnIndices,
                     const double* values)
{
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    const int64_t nnz = static_cast<int64_t>(rowPointers[n]) - 1;
    detail::Header h{{'V', 'Q', 'B', 'M'}, 1, 1, n, nnz};
    bool ok = std::fwrite(&h, sizeof h, 1, f) == 1 &&
              std::fwrite(rowPointers, sizeof(int), static_cast<size_t>(n) + 1, f) == static_cast<size_t>(n) + 1 &&
              std::fwrite(columnIndices, sizeof(int), static_cast<size_t>(nnz), f) == static_cast<size_t>(nnz) &&
              std::fwrite(values, sizeof(double), static_cast<size_t>(nnz), f) == static_cast<size_t>(nnz);
    ok = (std::fclose(f) == 0) && ok;
    return ok;
}

inline bool WriteVector(const std::string& path, const std::vector<double>& v)
{
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    detail::Header h{{'V', 'Q', 'B', 'M'}, 1, 2, static_cast<int32_t>(v.size()), static_cast<int64_t>(v.size())};
    bool ok = std::fwrite(&h, sizeof h, 1, f) == 1 && std::fwrite(v.data(), sizeof(double), v.size(), f) == v.size();
    ok = (std::fclose(f) == 0) && ok;
    return ok;
}

// Builds the upper CSR (diagonal first, columns ascending, duplicates summed, missing diagonals
// stored as zero) from 1-based triplets of either triangle.
inline void CsrFromTriplets(int n, const std::vector<int>& ri, const std::vector<int>& ci,
                            const std::vector<double>& vi, Csr& out)
{
    std::vector<int> count(static_cast<size_t>(n) + 1, 0);
    for (size_t k = 0; k < ri.size(); ++k) {
        const int i = std::min(ri[k], ci[k]);
        if (ri[k] != ci[k]) ++count[static_cast<size_t>(i)];
    }
    out.n = n;
    out.rowPointers.assign(static_cast<size_t>(n) + 1, 0);
    out.rowPointers[0] = 1;
    for (int i = 1; i <= n; ++i) out.rowPointers[i] = out.rowPointers[i - 1] + 1 + count[i];
    const size_t nnzMax = static_cast<size_t>(out.rowPointers[n]) - 1;
    std::vector<int> col(nnzMax, 0);
    std::vector<double> val(nnzMax, 0.0);
    std::vector<int> next(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        const int start = out.rowPointers[i] - 1;
        col[start] = i + 1;
        next[i] = start + 1;
    }
    for (size_t k = 0; k < ri.size(); ++k) {
        const int i = std::min(ri[k], ci[k]), j = std::max(ri[k], ci[k]);
        if (i == j) {
            val[out.rowPointers[i - 1] - 1] += vi[k];
        } else {
            col[next[i - 1]] = j;
            val[next[i - 1]++] = vi[k];
        }
    }
    // Sort each row's off-diagonal part and merge duplicates.
    out.columnIndices.clear();
    out.values.clear();
    out.columnIndices.reserve(nnzMax);
    out.values.reserve(nnzMax);
    std::vector<std::pair<int, double>> row;
    std::vector<int> rp(static_cast<size_t>(n) + 1);
    rp[0] = 1;
    for (int i = 0; i < n; ++i) {
        const int start = out.rowPointers[i] - 1, end = out.rowPointers[i + 1] - 1;
        out.columnIndices.push_back(i + 1);
        out.values.push_back(val[start]);
        row.clear();
        for (int p = start + 1; p < end; ++p) row.emplace_back(col[p], val[p]);
        std::sort(row.begin(), row.end(),
                  [](const std::pair<int, double>& a, const std::pair<int, double>& b) { return a.first < b.first; });
        for (size_t p = 0; p < row.size(); ++p) {
            if (p > 0 && row[p].first == row[p - 1].first) {
                out.values.back() += row[p].second;
            } else {
                out.columnIndices.push_back(row[p].first);
                out.values.push_back(row[p].second);
            }
        }
        rp[i + 1] = static_cast<int>(out.values.size()) + 1;
    }
    out.rowPointers.swap(rp);
}

inline bool ReadMatrixMarket(const std::string& path, Csr& out, std::string& error)
{
    FILE* f = std::fopen(path.c_str(), "r");
    if (!f) {
        error = "cannot open " + path;
        return false;
    }
    char line[1024];
    bool symmetric = false, pattern = false, first = true;
    int rows = 0, cols = 0;
    long long entries = -1;
    std::vector<int> ri, ci;
    std::vector<double> vi;
    while (std::fgets(line, sizeof line, f)) {
        if (first) {
            first = false;
            std::string h = line;
            std::transform(h.begin(), h.end(), h.begin(), [](unsigned char c) { return std::tolower(c); });
            if (h.find("%%matrixmarket") != 0 || h.find("coordinate") == std::string::npos) {
                std::fclose(f);
                error = "not a MatrixMarket coordinate file: " + path;
                return false;
            }
            symmetric = h.find("symmetric") != std::string::npos;
            pattern = h.find("pattern") != std::string::npos;
            continue;
        }
        if (line[0] == '%') continue;
        if (entries < 0) {
            if (std::sscanf(line, "%d %d %lld", &rows, &cols, &entries) != 3) continue;
            ri.reserve(static_cast<size_t>(entries));
            ci.reserve(static_cast<size_t>(entries));
            vi.reserve(static_cast<size_t>(entries));
            continue;
        }
        int i = 0, j = 0;
        double v = 1.0;
        const int got = std::sscanf(line, "%d %d %lf", &i, &j, &v);
        if (got < 2 || (!pattern && got < 3)) continue;
        if (i < 1 || j < 1 || i > rows || j > cols) {
            std::fclose(f);
            error = "index out of range in " + path;
            return false;
        }
        if (!symmetric && i > j) continue;  // a general file: the upper triangle only
        ri.push_back(i);
        ci.push_back(j);
        vi.push_back(v);
    }
    std::fclose(f);
    if (rows <= 0 || rows != cols) {
        error = "not a square matrix: " + path;
        return false;
    }
    CsrFromTriplets(rows, ri, ci, vi, out);
    return true;
}

inline bool ReadCsr(const std::string& path, Csr& out, std::string& error)
{
    if (detail::EndsWith(path, ".mtx")) return ReadMatrixMarket(path, out, error);
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) {
        error = "cannot open " + path;
        return false;
    }
    detail::Header h{};
    bool ok = std::fread(&h, sizeof h, 1, f) == 1 && std::memcmp(h.magic, "VQBM", 4) == 0 && h.kind == 1 && h.n > 0;
    if (ok) {
        out.n = h.n;
        out.rowPointers.resize(static_cast<size_t>(h.n) + 1);
        out.columnIndices.resize(static_cast<size_t>(h.count));
        out.values.resize(static_cast<size_t>(h.count));
        ok = std::fread(out.rowPointers.data(), sizeof(int), out.rowPointers.size(), f) == out.rowPointers.size() &&
             std::fread(out.columnIndices.data(), sizeof(int), out.columnIndices.size(), f) == out.columnIndices.size() &&
             std::fread(out.values.data(), sizeof(double), out.values.size(), f) == out.values.size();
    }
    std::fclose(f);
    if (!ok) error = "not a sparse matrix file: " + path;
    return ok;
}

// A vector file, or the diagonal of a matrix file (a lumped mass given as a matrix).
inline bool ReadVector(const std::string& path, std::vector<double>& out, std::string& error)
{
    if (detail::EndsWith(path, ".mtx")) {
        Csr m;
        if (!ReadMatrixMarket(path, m, error)) return false;
        out.resize(static_cast<size_t>(m.n));
        for (int i = 0; i < m.n; ++i) out[i] = m.values[m.rowPointers[i] - 1];
        return true;
    }
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) {
        error = "cannot open " + path;
        return false;
    }
    detail::Header h{};
    bool ok = std::fread(&h, sizeof h, 1, f) == 1 && std::memcmp(h.magic, "VQBM", 4) == 0;
    if (ok && h.kind == 2) {
        out.resize(static_cast<size_t>(h.n));
        ok = std::fread(out.data(), sizeof(double), out.size(), f) == out.size();
    } else if (ok && h.kind == 1) {  // a diagonal matrix: take its diagonal
        std::vector<int> rp(static_cast<size_t>(h.n) + 1), ci(static_cast<size_t>(h.count));
        std::vector<double> v(static_cast<size_t>(h.count));
        ok = std::fread(rp.data(), sizeof(int), rp.size(), f) == rp.size() &&
             std::fread(ci.data(), sizeof(int), ci.size(), f) == ci.size() &&
             std::fread(v.data(), sizeof(double), v.size(), f) == v.size();
        out.resize(static_cast<size_t>(h.n));
        for (int i = 0; ok && i < h.n; ++i) out[i] = v[rp[i] - 1];
    } else {
        ok = false;
    }
    std::fclose(f);
    if (!ok) error = "not a vector file: " + path;
    return ok;
}

// ---------------------------------------------------------------------------------------------
// Checks

// y = A·x for the symmetric matrix whose upper triangle A stores.
inline void SymMultiply(const Csr& a, const double* x, double* y)
{
    std::fill(y, y + a.n, 0.0);
    for (int i = 0; i < a.n; ++i) {
        double s = 0.0;
        for (int p = a.rowPointers[i] - 1; p < a.rowPointers[i + 1] - 1; ++p) {
            const int j = a.columnIndices[p] - 1;
            s += a.values[p] * x[j];
            if (j != i) y[j] += a.values[p] * x[i];
        }
        y[i] += s;
    }
}

// ||A||∞ of the symmetric matrix whose upper triangle A stores (largest absolute row sum).
inline double NormInf(const Csr& a)
{
    std::vector<double> rows(static_cast<size_t>(a.n), 0.0);
    for (int i = 0; i < a.n; ++i)
        for (int p = a.rowPointers[i] - 1; p < a.rowPointers[i + 1] - 1; ++p) {
            const int j = a.columnIndices[p] - 1;
            rows[i] += std::fabs(a.values[p]);
            if (j != i) rows[j] += std::fabs(a.values[p]);
        }
    return rows.empty() ? 0.0 : *std::max_element(rows.begin(), rows.end());
}

inline double NormInf(const double* x, size_t n)
{
    double m = 0.0;
    for (size_t i = 0; i < n; ++i) m = std::max(m, std::fabs(x[i]));
    return m;
}

// Normwise backward error of a solution: ||K·x − f||∞ / (||K||∞·||x||∞ + ||f||∞). Round-off level
// (about 1e-16 times a small factor) for a backward-stable solve, whatever K's condition.
inline double BackwardError(const Csr& k, const double* x, const double* f)
{
    const size_t n = static_cast<size_t>(k.n);
    std::vector<double> r(n);
    SymMultiply(k, x, r.data());
    for (size_t i = 0; i < n; ++i) r[i] -= f[i];
    const double den = NormInf(k) * NormInf(x, n) + NormInf(f, n);
    return den > 0.0 ? NormInf(r.data(), n) / den : NormInf(r.data(), n);
}

// Largest normwise backward error of eigenpairs (λ, φ) of K·φ = λ·B·φ over the given modes:
// ||K·φ − λ·B·φ||∞ / ((||K||∞ + |λ|·||B||∞)·||φ||∞), B diagonal when `bDiagonal` is not empty,
// else the CSR `b`.
inline double WorstModeResidual(const Csr& k, const std::vector<double>& bDiagonal, const Csr* b,
                                const double* lambda, const double* modes, int count)
{
    const size_t n = static_cast<size_t>(k.n);
    const double normK = NormInf(k), normB = bDiagonal.empty() ? NormInf(*b) : NormInf(bDiagonal.data(), n);
    std::vector<double> kx(n), bx(n);
    double worst = 0.0;
    for (int m = 0; m < count; ++m) {
        const double* x = modes + n * m;
        SymMultiply(k, x, kx.data());
        if (!bDiagonal.empty())
            for (size_t i = 0; i < n; ++i) bx[i] = bDiagonal[i] * x[i];
        else
            SymMultiply(*b, x, bx.data());
        double r = 0.0;
        for (size_t i = 0; i < n; ++i) r = std::max(r, std::fabs(kx[i] - lambda[m] * bx[i]));
        const double den = (normK + std::fabs(lambda[m]) * normB) * NormInf(x, n);
        worst = std::max(worst, den > 0.0 ? r / den : r);
    }
    return worst;
}

// ---------------------------------------------------------------------------------------------
// PARDISO's statistics (message level 1) as printed to standard output: the "Total time spent"
// of each phase and the factorisation's operation count. Used to split a single library call
// into analysis, factorisation and solution.

struct PardisoStatistics {
    double analysis = -1, factorization = -1, solution = -1;
    double gflop = -1;  // "gflop for the numerical factorization"
    int threads = -1;
};

inline PardisoStatistics ParsePardisoStatistics(const std::string& text)
{
    PardisoStatistics s;
    std::istringstream in(text);
    std::string line;
    double* current = nullptr;
    while (std::getline(in, line)) {
        if (line.find("Summary:") != std::string::npos) {
            if (line.find("reordering") != std::string::npos)
                current = &s.analysis;
            else if (line.find("factorization") != std::string::npos)
                current = &s.factorization;
            else if (line.find("solution") != std::string::npos)
                current = &s.solution;
            else
                current = nullptr;
        }
        size_t p;
        if (current && (p = line.find("Total time spent")) != std::string::npos) {
            const size_t colon = line.find(':', p);
            if (colon != std::string::npos) {
                const double t = std::atof(line.c_str() + colon + 1);
                *current = (*current < 0 ? 0.0 : *current) + t;
            }
        }
        if ((p = line.find("gflop   for the numerical factorization")) != std::string::npos ||
            (p = line.find("gflop for the numerical factorization")) != std::string::npos) {
            const size_t colon = line.find(':', p);
            if (colon != std::string::npos) s.gflop = std::atof(line.c_str() + colon + 1);
        }
        if ((p = line.find("Parallel Direct Factorization is running on")) != std::string::npos)
            s.threads = std::atoi(line.c_str() + p + std::strlen("Parallel Direct Factorization is running on"));
    }
    return s;
}

// Redirects standard output (file descriptor 1) into a scratch file while alive; Text() ends the
// capture and returns what was written. Used to read the statistics that PARDISO prints.
class StdoutCapture {
public:
    StdoutCapture()
    {
        std::fflush(stdout);
        char name[] = "/tmp/vqbench-stdout-XXXXXX";
        fd_ = mkstemp(name);
        if (fd_ < 0) return;
        unlink(name);
        saved_ = dup(1);
        if (saved_ < 0 || dup2(fd_, 1) < 0) {
            close(fd_);
            fd_ = -1;
        }
    }
    ~StdoutCapture() { Text(); }
    std::string Text()
    {
        if (fd_ < 0) return text_;
        std::fflush(stdout);
        dup2(saved_, 1);
        close(saved_);
        std::string out;
        char buffer[4096];
        lseek(fd_, 0, SEEK_SET);
        ssize_t got;
        while ((got = read(fd_, buffer, sizeof buffer)) > 0) out.append(buffer, static_cast<size_t>(got));
        close(fd_);
        fd_ = -1;
        text_ = out;
        return text_;
    }

private:
    int fd_ = -1, saved_ = -1;
    std::string text_;
};

}  // namespace vqbench
