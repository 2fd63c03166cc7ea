// Running vqsolve from the tests: the program as a child process (exit code, standard output
// and error), a small JSON reader for its --json reports, an XML well-formedness check for its
// pictures, and temporary MatrixMarket files (other files through the dense test support).
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "models/CsrMatrix.h"
#include "support/DenseSupport.h"
#include "support/SolverHarness.h"
#include "support/TestSupport.h"

// The build passes the program's path; without it (tools not built) every test skips.
#ifndef VQSOLVE_PATH
#define VQSOLVE_PATH ""
#endif
#define VQSOLVE_REQUIRE()                                                          \
  do {                                                                             \
    if (std::string(VQSOLVE_PATH).empty()) GTEST_SKIP() << "vqsolve is not built"; \
  } while (0)

namespace vqsolve_test {

struct RunResult {
  int exitCode = -1;
  std::string out;
  std::string err;
};

// A fresh folder, removed with its files when the test program ends.
inline std::string TempFolder() {
  static std::vector<std::unique_ptr<vqtest::ScratchDir>> folders;
  folders.push_back(std::make_unique<vqtest::ScratchDir>());
  return folders.back()->Path();
}

// Runs vqsolve with the arguments (each quoted for the shell); two threads, as the suite does.
// environment: further VARIABLE=value words put before the program (unquoted).
inline RunResult RunVqsolve(const std::vector<std::string>& args,
                            const std::string& environment = "") {
  static const std::string folder = TempFolder();
  static int counter = 0;
  const std::string out = folder + "out" + std::to_string(++counter);
  const std::string err = out + ".err";
  std::string command =
      "OMP_NUM_THREADS=2 MKL_NUM_THREADS=2 " + environment + " '" + std::string(VQSOLVE_PATH) + "'";
  for (const auto& a : args) {
    std::string quoted;
    for (char c : a) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    command += " '" + quoted + "'";
  }
  command += " >'" + out + "' 2>'" + err + "' </dev/null";
  const int status = std::system(command.c_str());
  RunResult r;
  r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  r.out = vqtest::FileBytes(out);
  r.err = vqtest::FileBytes(err);
  std::remove(out.c_str());
  std::remove(err.c_str());
  return r;
}

// ---------------------------------------------------------------------------------------------
// JSON

class Json {
 public:
  bool boolean = false;
  double number = 0.0;
  std::string text;
  std::vector<Json> items;
  std::map<std::string, Json> members;

  const Json& operator[](const std::string& key) const {
    static const Json null;
    auto it = members.find(key);
    return it == members.end() ? null : it->second;
  }
  const Json& operator[](size_t k) const {
    static const Json null;
    return k < items.size() ? items[k] : null;
  }
  size_t size() const { return items.size(); }
  std::vector<double> Numbers() const {
    std::vector<double> v;
    for (const auto& i : items) v.push_back(i.number);
    return v;
  }
};

// A strict reader of the JSON vqsolve writes: objects, arrays, strings with the common escapes,
// numbers, true, false and null. Returns false where the text is not that.
inline bool ReadJson(const std::string& s, size_t& p, Json& v) {
  const auto take = [&](char c) {
    while (p < s.size() && std::isspace(static_cast<unsigned char>(s[p]))) ++p;
    return p < s.size() && s[p] == c ? (++p, true) : false;
  };
  const auto string = [&](std::string& out) {
    static const std::string from = "ntrbf", to = "\n\t\r\b\f";
    if (!take('"')) return false;
    for (; p < s.size() && s[p] != '"'; ++p) {
      char c = s[p];
      if (c == '\\' && ++p < s.size()) {
        c = s[p];
        if (c == 'u') {
          c = static_cast<char>(std::strtol(s.substr(p + 1, 4).c_str(), nullptr, 16));
          p += 4;
        } else if (from.find(c) != std::string::npos) {
          c = to[from.find(c)];
        }
      }
      out += c;
    }
    return p < s.size() && s[p++] == '"';
  };
  while (p < s.size() && std::isspace(static_cast<unsigned char>(s[p]))) ++p;
  const bool object = take('{');
  if (object || take('[')) {
    const char close = object ? '}' : ']';
    if (take(close)) return true;
    do {
      std::string key;
      Json item;
      if ((object && (!string(key) || !take(':'))) || !ReadJson(s, p, item)) return false;
      if (object) v.members[key] = item;
      else v.items.push_back(item);
    } while (take(','));
    return take(close);
  }
  if (p < s.size() && s[p] == '"') return string(v.text);
  for (const char* word : {"true", "false", "null"})
    if (s.compare(p, std::strlen(word), word) == 0)
      return p += std::strlen(word), v.boolean = *word == 't', true;
  const char* begin = s.c_str() + p;
  char* end = nullptr;
  v.number = std::strtod(begin, &end);
  p += static_cast<size_t>(end - begin);
  return end != begin;
}

inline Json ParseJson(const std::string& text) {
  Json j;
  size_t p = 0;
  const bool ok = ReadJson(text, p, j) && text.find_first_not_of(" \t\r\n", p) == std::string::npos;
  EXPECT_TRUE(ok) << "not JSON:\n" << text;
  return j;
}

// Runs vqsolve with --json added, expects the exit code and returns the report.
inline Json RunJson(std::vector<std::string> args, int expectedExit = 0,
                    const std::string& environment = "") {
  args.push_back("--json");
  const RunResult r = RunVqsolve(args, environment);
  EXPECT_EQ(r.exitCode, expectedExit) << r.err;
  return ParseJson(r.out);
}

// ---------------------------------------------------------------------------------------------
// XML: one root, every tag closed in order, attribute values quoted; elements <g class="panel">
// are counted on the way.

struct XmlCheck {
  bool wellFormed = false;
  std::string problem;
  int panels = 0;
};

inline XmlCheck CheckXml(const std::string& s) {
  XmlCheck r;
  std::vector<std::string> open;
  int roots = 0;
  size_t p = s.compare(0, 5, "<?xml") == 0 ? s.find("?>") : 0;
  while ((p = s.find('<', p)) != std::string::npos) {
    const size_t end = s.find('>', p);
    const std::string tag = s.substr(p + 1, end - p - 1);
    if (end == std::string::npos || tag.empty()) return r.problem = "unterminated tag", r;
    p = end + 1;
    if (tag.compare(0, 3, "!--") == 0) continue;
    if (std::count(tag.begin(), tag.end(), '"') % 2 != 0)
      return r.problem = "unquoted attribute in <" + tag + ">", r;
    const size_t closing = tag[0] == '/';
    const std::string name = tag.substr(closing, tag.find_first_of(" \t\n/", closing) - closing);
    if (closing && (open.empty() || open.back() != name))
      return r.problem = "</" + name + "> closes nothing open", r;
    if (closing) {
      open.pop_back();
      continue;
    }
    roots += open.empty();
    r.panels += name == "g" && tag.find("class=\"panel\"") != std::string::npos;
    if (tag.back() != '/') open.push_back(name);
  }
  r.wellFormed = roots == 1 && open.empty();
  if (!open.empty()) r.problem = "<" + open.back() + "> is never closed";
  if (roots != 1) r.problem = std::to_string(roots) + " root elements";
  return r;
}

// ---------------------------------------------------------------------------------------------
// Files

// A dense block as "%%MatrixMarket matrix array real general".
inline void WriteArray(const std::string& path, int rows, int cols,
                       const std::vector<double>& values) {
  std::FILE* f = std::fopen(path.c_str(), "w");
  ASSERT_NE(f, nullptr) << path;
  std::fprintf(f, "%%%%MatrixMarket matrix array real general\n%d %d\n", rows, cols);
  for (double v : values) std::fprintf(f, "%.17g\n", v);
  std::fclose(f);
}

// Reads back a dense array file written by vqsolve (-o).
inline std::vector<double> ReadArray(const std::string& path, int& rows, int& cols) {
  std::istringstream in(vqtest::FileBytes(path));
  std::string line;
  while (std::getline(in, line) && (line.empty() || line[0] == '%')) continue;
  rows = cols = 0;
  std::istringstream(line) >> rows >> cols;
  std::vector<double> values;
  for (double v; in >> v;) values.push_back(v);
  return values;
}

// ---------------------------------------------------------------------------------------------
// Checks

inline int CountBelow(const std::vector<double>& spectrum, double sigma) {
  return static_cast<int>(
      std::count_if(spectrum.begin(), spectrum.end(), [&](double v) { return v < sigma; }));
}

inline double MaxAbs(const double* begin, const double* end) {
  double largest = 0.0;
  for (const double* v = begin; v != end; ++v) largest = std::max(largest, std::fabs(*v));
  return largest;
}

// A test with its own folder for the files it gives vqsolve; skips when vqsolve is not built.
class VqsolveTest : public ::testing::Test {
 protected:
  void SetUp() override {
    VQSOLVE_REQUIRE();
    folder_ = TempFolder();
  }
  std::string File(const std::string& name) const { return folder_ + name; }
  std::string folder_;
};

}  // namespace vqsolve_test
