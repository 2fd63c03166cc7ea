#pragma once
// A result line of the suite's log as a map of fields (see SuiteIO.h for the line format), and
// the report writer that reads them.

#include <cmath>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>

namespace vqbench {

// ---------------------------------------------------------------------------------------------
// One record of the log: the fields of a result line.

struct Record {
    std::map<std::string, std::string> f;
    std::string Get(const std::string& k, const std::string& fallback = "") const
    {
        auto it = f.find(k);
        return it == f.end() ? fallback : it->second;
    }
    double Num(const std::string& k) const
    {
        auto it = f.find(k);
        if (it == f.end() || it->second.empty()) return NAN;
        char* end = nullptr;
        const double v = std::strtod(it->second.c_str(), &end);
        return end == it->second.c_str() ? NAN : v;
    }
    bool Ok() const { return Get("status") == "ok"; }
};

inline Record ParseLine(const std::string& line)
{
    Record r;
    std::stringstream in(line);
    std::string field;
    bool first = true;
    while (std::getline(in, field, '\t')) {
        if (first) {  // "@result"
            first = false;
            continue;
        }
        const size_t eq = field.find('=');
        if (eq != std::string::npos) r.f[field.substr(0, eq)] = field.substr(eq + 1);
    }
    return r;
}

}  // namespace vqbench

// bench_suite_runner report ...
int ReportCommand(int argc, char** argv);
