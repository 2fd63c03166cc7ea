#include "sparse/internal/TextIO.h"

#include <sys/types.h>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace vqmath {
namespace internal {

LineReader::~LineReader() { std::free(buf_); }

bool LineReader::Next(const char*& begin, const char*& end) {
  const ssize_t got = ::getline(&buf_, &cap_, f_);
  if (got < 0) return false;
  std::size_t len = static_cast<std::size_t>(got);
  while (len > 0 && (buf_[len - 1] == '\n' || buf_[len - 1] == '\r')) --len;
  begin = buf_;
  end = buf_ + len;
  return true;
}

bool LineReader::NextData(const char*& begin, const char*& end) {
  while (Next(begin, end)) {
    const char* p = begin;
    while (p < end && (*p == ' ' || *p == '\t')) ++p;
    if (p == end || *p == '%') continue;
    return true;
  }
  return false;
}

namespace {
const char* SkipBlanks(const char* p, const char* end) {
  while (p < end && (*p == ' ' || *p == '\t' || *p == '\r')) ++p;
  return p;
}
}  // namespace

bool OnlyBlanks(const char* p, const char* end) { return SkipBlanks(p, end) == end; }

bool ParseInt64(const char*& p, const char* end, std::int64_t& v) {
  const char* q = SkipBlanks(p, end);
  if (q < end && *q == '+') ++q;
  const auto r = std::from_chars(q, end, v);
  if (r.ec != std::errc()) return false;
  p = r.ptr;
  return true;
}

bool ParseDouble(const char*& p, const char* end, double& v) {
  const char* q = SkipBlanks(p, end);
  if (q < end && *q == '+') ++q;
  const auto r = std::from_chars(q, end, v, std::chars_format::general);
  if (r.ec == std::errc::result_out_of_range) {
    // Denormal or overflowing text: fall back to strtod's rounding (0 or +-inf) rather than fail.
    std::string s(q, static_cast<std::size_t>(r.ptr - q));
    v = std::strtod(s.c_str(), nullptr);
    p = r.ptr;
    return true;
  }
  if (r.ec != std::errc()) return false;
  p = r.ptr;
  return true;
}

void NumberWriter::Reserve(std::size_t n) {
  if (used_ + n > sizeof(buf_)) Flush();
}

bool NumberWriter::Flush() {
  if (used_ > 0) {
    if (std::fwrite(buf_, 1, used_, f_) != used_) ok_ = false;
    used_ = 0;
  }
  return ok_;
}

void NumberWriter::Text(const char* s) {
  const std::size_t n = std::strlen(s);
  if (n > sizeof(buf_)) {
    Flush();
    if (std::fwrite(s, 1, n, f_) != n) ok_ = false;
    return;
  }
  Reserve(n);
  std::memcpy(buf_ + used_, s, n);
  used_ += n;
}

void NumberWriter::Int(std::int64_t v, bool plusSign) {
  Reserve(32);
  char* p = buf_ + used_;
  if (plusSign && v >= 0) *p++ = '+';
  p = std::to_chars(p, buf_ + sizeof(buf_), v).ptr;
  used_ = static_cast<std::size_t>(p - buf_);
}

void NumberWriter::Scientific16(double v, bool plusSign) {
  Reserve(48);
  char* p = buf_ + used_;
  if (plusSign && !std::signbit(v)) *p++ = '+';
  p = std::to_chars(p, buf_ + sizeof(buf_), v, std::chars_format::scientific, 16).ptr;
  used_ = static_cast<std::size_t>(p - buf_);
}

void NumberWriter::Fixed18(double v) {
  Reserve(400);  // 309 integer digits + point + 18 decimals + sign at most
  char* p = buf_ + used_;
  p = std::to_chars(p, buf_ + sizeof(buf_), v, std::chars_format::fixed, 18).ptr;
  used_ = static_cast<std::size_t>(p - buf_);
}

}  // namespace internal
}  // namespace vqmath
