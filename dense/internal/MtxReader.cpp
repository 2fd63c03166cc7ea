// MtxReader.cpp - tolerant MatrixMarket token reader of the dense classes.
#include "dense/internal/MtxReader.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

namespace vqdense {

MtxReader::MtxReader(const char* path) {
  if (path) in_.open(path, std::ios::in | std::ios::binary);
}

bool MtxReader::NextToken(std::string& token) {
  while (next_ >= tokens_.size()) {
    tokens_.clear();
    next_ = 0;
    std::string line;
    if (!in_.is_open() || !std::getline(in_, line)) return false;
    size_t p = line.find_first_not_of(" \t\r\v\f");
    if (p == std::string::npos || line[p] == '%') continue;
    while (p != std::string::npos) {
      const size_t e = line.find_first_of(" \t\r\v\f", p);
      tokens_.push_back(line.substr(p, e == std::string::npos ? std::string::npos : e - p));
      p = e == std::string::npos ? e : line.find_first_not_of(" \t\r\v\f", e);
    }
  }
  token = tokens_[next_++];
  return true;
}

bool MtxReader::NextInteger(long long& v) {
  std::string t;
  if (!NextToken(t)) return false;
  errno = 0;
  char* end = nullptr;
  const long long x = std::strtoll(t.c_str(), &end, 10);
  if (end == t.c_str() || *end != '\0' || errno == ERANGE) return false;
  v = x;
  return true;
}

bool MtxReader::NextDouble(double& v) {
  std::string t;
  if (!NextToken(t)) return false;
  char* end = nullptr;
  const double x = std::strtod(t.c_str(), &end);
  if (end == t.c_str() || *end != '\0') return false;
  v = x;
  return true;
}

bool MtxReader::ReadSizeLine(long long& rows, long long& cols, long long& count) {
  return NextInteger(rows) && NextInteger(cols) && NextInteger(count);
}

bool MtxReader::ReadEntry(long long& i, long long& j, double& v) {
  return NextInteger(i) && NextInteger(j) && NextDouble(v);
}

int MtxReader::ClampSize(long long v) { return (v < 0 || v > INT_MAX) ? -1 : static_cast<int>(v); }

}  // namespace vqdense
