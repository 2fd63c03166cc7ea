#pragma once
// Command-line options of one vqsolve command: declared up front, parsed strictly (an unknown
// option, a missing value or a value of the wrong kind is a usage error, exit code 2).

#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace vqsolve {

class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct OptionInfo {
  std::string name;       // "-K", "--ooc", "--json"
  std::string valueName;  // "FILE", "N"; empty for a flag
  std::string help;
};

class CommandLine {
 public:
  // Parses argv[first …] against the options of the command. "--name=value" is accepted for
  // options with a value; "-h"/"--help" is always known.
  CommandLine(std::string command, std::vector<OptionInfo> options, int argc, char** argv,
              int first);

  const std::string& Command() const { return command_; }
  bool Help() const { return help_; }
  bool Has(const std::string& name) const { return values_.count(name) != 0; }
  std::string Text(const std::string& name, const std::string& fallback = "") const;
  int Integer(const std::string& name, int fallback, int min, int max) const;
  double Real(const std::string& name, double fallback) const;
  // "a,b" with a < b.
  std::pair<double, double> Interval(const std::string& name) const;
  // One of the given words.
  std::string Choice(const std::string& name, const std::vector<std::string>& choices,
                     const std::string& fallback) const;

  // Usage text listing the options.
  std::string Usage(const std::string& synopsis) const;

 private:
  std::string command_;
  std::vector<OptionInfo> options_;
  std::map<std::string, std::string> values_;
  bool help_ = false;
};

}  // namespace vqsolve
