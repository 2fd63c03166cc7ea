#include "CommandLine.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>

namespace vqsolve {

CommandLine::CommandLine(std::string command, std::vector<OptionInfo> options, int argc,
                         char** argv, int first)
    : command_(std::move(command)), options_(std::move(options)) {
  for (int k = first; k < argc; ++k) {
    std::string arg = argv[k];
    if (arg == "-h" || arg == "--help") {
      help_ = true;
      continue;
    }
    std::string value;
    bool inlineValue = false;
    const size_t eq = arg.find('=');
    if (arg.rfind("--", 0) == 0 && eq != std::string::npos) {
      value = arg.substr(eq + 1);
      arg = arg.substr(0, eq);
      inlineValue = true;
    }
    const OptionInfo* option = nullptr;
    for (const auto& o : options_)
      if (o.name == arg) option = &o;
    if (!option) {
      if (arg.empty() || arg[0] != '-')
        throw UsageError("vqsolve " + command_ + ": unexpected argument '" + arg +
                         "' (see vqsolve " + command_ + " --help)");
      throw UsageError("vqsolve " + command_ + ": unknown option '" + arg + "' (see vqsolve " +
                       command_ + " --help)");
    }
    if (option->valueName.empty()) {
      if (inlineValue)
        throw UsageError("vqsolve " + command_ + ": option " + arg + " takes no value");
      value = "1";
    } else if (!inlineValue) {
      if (k + 1 >= argc)
        throw UsageError("vqsolve " + command_ + ": option " + arg + " needs a value (" +
                         option->valueName + ")");
      value = argv[++k];
    }
    if (values_.count(arg))
      throw UsageError("vqsolve " + command_ + ": option " + arg + " is given twice");
    values_[arg] = value;
  }
}

std::string CommandLine::Text(const std::string& name, const std::string& fallback) const {
  auto it = values_.find(name);
  return it == values_.end() ? fallback : it->second;
}

int CommandLine::Integer(const std::string& name, int fallback, int min, int max) const {
  auto it = values_.find(name);
  if (it == values_.end()) return fallback;
  const char* text = it->second.c_str();
  char* end = nullptr;
  errno = 0;
  const long long v = std::strtoll(text, &end, 10);
  if (end == text || *end != '\0' || errno == ERANGE)
    throw UsageError("vqsolve " + command_ + ": " + name + " expects an integer, got '" +
                     it->second + "'");
  if (v < min || v > max)
    throw UsageError("vqsolve " + command_ + ": " + name + " must lie between " +
                     std::to_string(min) + " and " + std::to_string(max) + ", got " + it->second);
  return static_cast<int>(v);
}

double CommandLine::Real(const std::string& name, double fallback) const {
  auto it = values_.find(name);
  if (it == values_.end()) return fallback;
  const char* text = it->second.c_str();
  char* end = nullptr;
  const double v = std::strtod(text, &end);
  if (end == text || *end != '\0' || !std::isfinite(v))
    throw UsageError("vqsolve " + command_ + ": " + name + " expects a number, got '" + it->second +
                     "'");
  return v;
}

std::pair<double, double> CommandLine::Interval(const std::string& name) const {
  const std::string text = Text(name);
  const size_t comma = text.find(',');
  char* end = nullptr;
  const std::string a = text.substr(0, comma);
  const std::string b = comma == std::string::npos ? "" : text.substr(comma + 1);
  const double lo = std::strtod(a.c_str(), &end);
  const bool okA = !a.empty() && *end == '\0' && std::isfinite(lo);
  const double hi = std::strtod(b.c_str(), &end);
  const bool okB = !b.empty() && *end == '\0' && std::isfinite(hi);
  if (comma == std::string::npos || !okA || !okB)
    throw UsageError("vqsolve " + command_ + ": " + name + " expects two numbers a,b, got '" +
                     text + "'");
  if (!(lo < hi))
    throw UsageError("vqsolve " + command_ + ": " + name + " needs a < b, got '" + text + "'");
  return {lo, hi};
}

std::string CommandLine::Choice(const std::string& name, const std::vector<std::string>& choices,
                                const std::string& fallback) const {
  auto it = values_.find(name);
  if (it == values_.end()) return fallback;
  std::string list;
  for (const auto& c : choices) {
    if (c == it->second) return c;
    list += (list.empty() ? "" : ", ") + c;
  }
  throw UsageError("vqsolve " + command_ + ": " + name + " must be one of " + list + ", got '" +
                   it->second + "'");
}

std::string CommandLine::Usage(const std::string& synopsis) const {
  std::string out = "usage: " + synopsis + "\n\noptions:\n";
  size_t width = 0;
  for (const auto& o : options_)
    width = std::max(width, o.name.size() + (o.valueName.empty() ? 0 : o.valueName.size() + 1));
  for (const auto& o : options_) {
    std::string left = o.name + (o.valueName.empty() ? "" : " " + o.valueName);
    left.resize(width, ' ');
    out += "  " + left + "  " + o.help + "\n";
  }
  out += "  -h, --help" + std::string(width > 8 ? width - 8 : 0, ' ') + "  this text\n";
  return out;
}

}  // namespace vqsolve
