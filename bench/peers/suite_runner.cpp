// Runner of the benchmark suite: runs every measured case in its own child process and writes the
// report.
//
//   bench_suite_runner run --log LOG [--timeout S] [--raw FILE] [--tag k=v ...] [--env K=V ...]
//                          -- program args...
//       Runs the program with a time limit, takes the "@result" line it prints, adds the tags, the
//       wall time seen from here (wall_s) and the child's peak resident size from wait4
//       (maxrss_kb), and appends the line to LOG. A program that fails, crashes or runs out of
//       time still leaves a line, with status=fail and the reason. Its whole output goes to FILE.
//
//   bench_suite_runner report --log LOG [--out FILE.md] [--title T] [--meta k=v ...]
//                             [--note text ...] [--appendix FILE ...] [--with-log]
//       Reads LOG and writes the markdown report (ratios of the library to each peer in the same
//       run, the absolute figures, the machine) to standard output and to FILE.md; each appendix
//       file (another program's output) becomes a section; --with-log appends the log's lines,
//       folded, so that the figures can be recomputed.
//
//   bench_suite_runner best --log LOG --group G --case C --prog P
//       Prints the variant (settings label) of P's fastest successful run of case C.
#include "SuiteIO.h"
#include "SuiteRecord.h"

#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>

#include <cerrno>
#include <ctime>
#include <fstream>
#include <functional>
#include <iostream>
#include <set>

using namespace vqbench;

namespace {

std::string FormatLine(const Record& r, const std::vector<std::string>& order)
{
    std::string line = "@result";
    std::set<std::string> done;
    for (const auto& k : order) {
        auto it = r.f.find(k);
        if (it == r.f.end()) continue;
        line += "\t" + k + "=" + it->second;
        done.insert(k);
    }
    for (const auto& kv : r.f)
        if (!done.count(kv.first)) line += "\t" + kv.first + "=" + kv.second;
    return line;
}

// ---------------------------------------------------------------------------------------------
// run

int RunCommand(int argc, char** argv)
{
    int split = -1;
    for (int i = 2; i < argc; ++i)
        if (std::strcmp(argv[i], "--") == 0) {
            split = i;
            break;
        }
    if (split < 0 || split + 1 >= argc) {
        std::fprintf(stderr, "bench_suite_runner run: missing '-- program args'\n");
        return 2;
    }
    Options opt(split, argv);
    const std::string log = opt.Get("log");
    const double timeout = opt.GetDouble("timeout", 900.0);
    const std::string raw = opt.Get("raw");

    int out[2];
    if (pipe(out) != 0) {
        std::perror("pipe");
        return 2;
    }
    const double start = Now();
    const pid_t pid = fork();
    if (pid < 0) {
        std::perror("fork");
        return 2;
    }
    if (pid == 0) {
        setpgid(0, 0);
        dup2(out[1], 1);
        close(out[0]);
        close(out[1]);
        for (const auto& e : opt.All("env")) {
            const size_t eq = e.find('=');
            if (eq != std::string::npos) setenv(e.substr(0, eq).c_str(), e.substr(eq + 1).c_str(), 1);
        }
        execv(argv[split + 1], argv + split + 1);
        std::fprintf(stderr, "bench_suite_runner: cannot run %s: %s\n", argv[split + 1], std::strerror(errno));
        _exit(127);
    }
    setpgid(pid, pid);
    close(out[1]);
    std::string text;
    bool timedOut = false;
    char buffer[65536];
    while (true) {
        const double left = timeout - (Now() - start);
        if (left <= 0) {
            timedOut = true;
            kill(-pid, SIGKILL);
            kill(pid, SIGKILL);
            break;
        }
        pollfd p{out[0], POLLIN, 0};
        const int ready = poll(&p, 1, static_cast<int>(std::min(left, 1.0) * 1000) + 1);
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) continue;
        const ssize_t got = read(out[0], buffer, sizeof buffer);
        if (got <= 0) break;
        text.append(buffer, static_cast<size_t>(got));
    }
    close(out[0]);
    int status = 0;
    rusage usage{};
    while (wait4(pid, &status, 0, &usage) < 0 && errno == EINTR) {
    }
    const double wall = Now() - start;

    if (!raw.empty()) {
        std::ofstream rawOut(raw, std::ios::app);
        rawOut << "==== ";
        for (int i = split + 1; i < argc; ++i) rawOut << argv[i] << ' ';
        rawOut << "\n" << text << "\n";
    }

    // The last result line the program printed.
    Record r;
    std::istringstream lines(text);
    std::string line;
    bool found = false;
    while (std::getline(lines, line))
        if (line.rfind("@result", 0) == 0) {
            r = ParseLine(line);
            found = true;
        }
    if (!found) {
        std::string prog = argv[split + 1];
        const size_t slash = prog.rfind('/');
        if (slash != std::string::npos) prog = prog.substr(slash + 1);
        r.f["prog"] = prog;
    }
    if (timedOut) {
        r.f["status"] = "fail";
        r.f["reason"] = "timeout after " + std::to_string(static_cast<int>(timeout)) + " s";
    } else if (WIFSIGNALED(status)) {
        r.f["status"] = "fail";
        r.f["reason"] = std::string("killed by signal ") + std::to_string(WTERMSIG(status));
    } else if (!found) {
        r.f["status"] = "fail";
        r.f["reason"] = "no result line (exit " + std::to_string(WEXITSTATUS(status)) + ")";
    }
    for (const auto& t : opt.All("tag")) {
        const size_t eq = t.find('=');
        if (eq != std::string::npos) r.f[t.substr(0, eq)] = t.substr(eq + 1);
    }
    char number[64];
    std::snprintf(number, sizeof number, "%.3f", wall);
    r.f["wall_s"] = number;
    r.f["maxrss_kb"] = std::to_string(usage.ru_maxrss);

    const std::string formatted = FormatLine(r, {"case", "prog", "variant", "status", "reason"});
    if (!log.empty()) {
        std::ofstream logOut(log, std::ios::app);
        logOut << formatted << "\n";
    }
    std::fprintf(stderr, "  %-12s %-16s %-10s %7.1f s  %s%s\n", r.Get("case").c_str(), r.Get("prog").c_str(),
                 r.Get("variant").c_str(), wall, r.Get("status").c_str(),
                 r.Ok() ? "" : (" (" + r.Get("reason") + ")").c_str());
    return r.Ok() ? 0 : 1;
}

// best --log LOG --group G --case C --prog P: the variant with the fastest successful run.
int BestCommand(int argc, char** argv)
{
    Options opt(argc - 1, argv + 1);
    std::ifstream in(opt.Get("log"));
    std::string line, best;
    double bestTime = 1e300;
    while (std::getline(in, line)) {
        if (line.rfind("@result", 0) != 0) continue;
        const Record r = ParseLine(line);
        if (!r.Ok() || r.Get("group") != opt.Get("group") || r.Get("case") != opt.Get("case") ||
            r.Get("prog") != opt.Get("prog"))
            continue;
        const double t = r.Num("t_total");
        if (std::isfinite(t) && t < bestTime) {
            bestTime = t;
            best = r.Get("variant", "default");
        }
    }
    if (best.empty()) return 1;
    std::printf("%s\n", best.c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc >= 2 && std::strcmp(argv[1], "run") == 0) return RunCommand(argc, argv);
    if (argc >= 2 && std::strcmp(argv[1], "report") == 0) return ReportCommand(argc, argv);
    if (argc >= 2 && std::strcmp(argv[1], "best") == 0) return BestCommand(argc, argv);
    std::fprintf(stderr, "usage: bench_suite_runner run|report|best ...\n");
    return 2;
}

