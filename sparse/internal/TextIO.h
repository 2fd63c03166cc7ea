// Small text helpers of the sparse matrix files: a line reader that accepts any line length and
// both LF and CRLF endings, locale-independent number parsing, and a buffered number writer.
//
// The swap files and MatrixMarket files hold millions of numbers, so parsing and formatting go
// through std::from_chars / std::to_chars (no locale, no per-number library call overhead). The
// text produced is the same as printf's "%.16e" / "%.18f" / "%d".
//
// Internal header: hosts never include it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace vqmath {
namespace internal {

// Reads a stream line by line. The line handed out excludes the line end ("\n" or "\r\n").
class LineReader {
 public:
  explicit LineReader(std::FILE* f) : f_(f) {}
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  // Next line; false at end of file or on a read error.
  bool Next(const char*& begin, const char*& end);
  // Next line that is neither blank nor a '%' comment.
  bool NextData(const char*& begin, const char*& end);

 private:
  std::FILE* f_;
  char* buf_ = nullptr;
  std::size_t cap_ = 0;
};

// Parse one number at p (leading blanks and tabs skipped, an explicit '+' accepted); p moves past
// it. False when no number starts there or the integer does not fit.
bool ParseInt64(const char*& p, const char* end, std::int64_t& v);
bool ParseDouble(const char*& p, const char* end, double& v);
// True when only blanks, tabs or carriage returns remain.
bool OnlyBlanks(const char* p, const char* end);

// Buffered writer onto an open stream. Reports failure of any underlying write.
class NumberWriter {
 public:
  explicit NumberWriter(std::FILE* f) : f_(f) {}
  ~NumberWriter() { Flush(); }
  NumberWriter(const NumberWriter&) = delete;
  NumberWriter& operator=(const NumberWriter&) = delete;

  void Text(const char* s);
  void Int(std::int64_t v, bool plusSign);
  // printf("%.16e") form, optionally with a '+' in front of non-negative values.
  void Scientific16(double v, bool plusSign);
  // printf("%.18f") form (which is also what "%10.18f" gives: it is never shorter than 10).
  void Fixed18(double v);
  bool Flush();
  bool Ok() const { return ok_; }

 private:
  void Reserve(std::size_t n);
  std::FILE* f_;
  char buf_[1 << 16];
  std::size_t used_ = 0;
  bool ok_ = true;
};

}  // namespace internal
}  // namespace vqmath
