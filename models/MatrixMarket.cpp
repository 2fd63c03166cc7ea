#include "models/MatrixMarket.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace vqmath::models {

namespace {

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

// The whole file in memory, walked line by line with the line number kept for messages.
class MtxReader {
 public:
  explicit MtxReader(const std::string& path) : path_(path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) Fail(0, std::string("cannot open the file (") + std::strerror(errno) + ")");
    std::ostringstream buffer;
    buffer << in.rdbuf();
    if (in.bad()) Fail(0, "cannot read the file");
    text_ = buffer.str();
    ReadBanner();
    ReadSize();
  }

  bool Coordinate() const { return coordinate_; }
  bool Symmetric() const { return symmetric_; }
  long long Rows() const { return rows_; }
  long long Cols() const { return cols_; }
  long long Entries() const { return entries_; }
  long long SizeLine() const { return sizeLine_; }
  long long Line() const { return line_; }
  const std::string& Path() const { return path_; }

  [[noreturn]] void Fail(long long line, const std::string& what) const {
    if (line > 0) throw InputError(path_ + ":" + std::to_string(line) + ": " + what);
    throw InputError(path_ + ": " + what);
  }

  // Next coordinate entry (1-based indices, checked against the size line). False at the end
  // of the data; a file that ends early or holds more entries than declared is an error.
  bool NextEntry(int& row, int& col, double& value) {
    const char* p;
    if (read_ == entries_) {
      if (NextDataLine(p))
        Fail(line_, "more entries than the " + std::to_string(entries_) + " declared on line " +
                        std::to_string(sizeLine_));
      return false;
    }
    if (!NextDataLine(p))
      Fail(line_, "the file ends after " + std::to_string(read_) + " of the " +
                      std::to_string(entries_) + " entries declared on line " +
                      std::to_string(sizeLine_));
    const long long i = ParseIndex(p, "row index");
    const long long j = ParseIndex(p, "column index");
    value = ParseValue(p);
    ExpectLineEnd(p, "three fields (row column value)");
    if (i > rows_ || j > cols_)
      Fail(line_, "entry (" + std::to_string(i) + ", " + std::to_string(j) + ") lies outside the " +
                      std::to_string(rows_) + " x " + std::to_string(cols_) +
                      " matrix declared on line " + std::to_string(sizeLine_));
    row = static_cast<int>(i);
    col = static_cast<int>(j);
    ++read_;
    return true;
  }

  // Next value of an array file (several values per line are tolerated).
  bool NextArrayValue(double& value) {
    const char* p = pending_;
    if (!p || !*SkipBlank(p)) {
      if (read_ == entries_) {
        if (NextDataLine(p))
          Fail(line_, "more values than the " + std::to_string(entries_) + " declared on line " +
                          std::to_string(sizeLine_));
        return false;
      }
      if (!NextDataLine(p))
        Fail(line_, "the file ends after " + std::to_string(read_) + " of the " +
                        std::to_string(entries_) + " values declared on line " +
                        std::to_string(sizeLine_));
    } else if (read_ == entries_) {
      Fail(line_, "more values than the " + std::to_string(entries_) + " declared on line " +
                      std::to_string(sizeLine_));
    }
    value = ParseValue(p);
    pending_ = p;
    ++read_;
    return true;
  }

 private:
  static const char* SkipBlank(const char* p) {
    while (*p == ' ' || *p == '\t' || *p == '\r') ++p;
    return p;
  }

  // Moves to the next line that is neither blank nor a comment; p points at its first field.
  // The buffer is NUL-terminated line by line (the '\n' is overwritten).
  bool NextDataLine(const char*& p) {
    while (pos_ < text_.size()) {
      const size_t end = text_.find('\n', pos_);
      const size_t stop = end == std::string::npos ? text_.size() : end;
      char* begin = &text_[pos_];
      if (end != std::string::npos) text_[end] = '\0';
      pos_ = end == std::string::npos ? text_.size() : end + 1;
      ++line_;
      if (std::strlen(begin) != stop - static_cast<size_t>(begin - text_.data()))
        Fail(line_, "the line holds a NUL byte: not a text file");
      const char* q = SkipBlank(begin);
      if (*q == '\0' || *q == '%') continue;
      p = q;
      return true;
    }
    return false;
  }

  long long ParseIndex(const char*& p, const char* what) {
    p = SkipBlank(p);
    if (*p == '\0') Fail(line_, std::string("missing ") + what);
    char* end = nullptr;
    errno = 0;
    const long long v = std::strtoll(p, &end, 10);
    if (end == p || (*end != '\0' && *end != ' ' && *end != '\t' && *end != '\r'))
      Fail(line_, std::string(what) + " '" + Token(p) + "' is not an integer");
    if (errno == ERANGE || v < 1 || v > INT_MAX)
      Fail(line_, std::string(what) + " " + Token(p) + " is out of range (1 to " +
                      std::to_string(INT_MAX) + ")");
    p = end;
    return v;
  }

  double ParseValue(const char*& p) {
    p = SkipBlank(p);
    if (*p == '\0') Fail(line_, "missing value");
    char* end = nullptr;
    const double v = std::strtod(p, &end);
    if (end == p || (*end != '\0' && *end != ' ' && *end != '\t' && *end != '\r'))
      Fail(line_, "value '" + Token(p) + "' is not a number");
    if (!std::isfinite(v)) Fail(line_, "value '" + Token(p) + "' is not a finite number");
    p = end;
    return v;
  }

  void ExpectLineEnd(const char* p, const char* expected) {
    p = SkipBlank(p);
    if (*p != '\0')
      Fail(line_, std::string("unexpected text '") + Token(p) + "': expected " + expected);
  }

  static std::string Token(const char* p) {
    std::string t;
    while (*p && *p != ' ' && *p != '\t' && *p != '\r' && t.size() < 40) t += *p++;
    return t;
  }

  void ReadBanner() {
    if (text_.empty()) Fail(0, "the file is empty");
    const size_t end = text_.find('\n');
    std::string banner = text_.substr(0, end);
    if (!banner.empty() && banner.back() == '\r') banner.pop_back();
    pos_ = end == std::string::npos ? text_.size() : end + 1;
    line_ = 1;
    std::istringstream in(banner);
    std::string tag, object, format, field, symmetry;
    in >> tag >> object >> format >> field >> symmetry;
    if (Lower(tag) != "%%matrixmarket")
      Fail(1, "not a MatrixMarket file: the first line must begin with %%MatrixMarket");
    if (Lower(object) != "matrix")
      Fail(1, "object '" + object + "' is not supported (expected 'matrix')");
    format = Lower(format);
    field = Lower(field);
    symmetry = Lower(symmetry);
    if (format == "coordinate")
      coordinate_ = true;
    else if (format == "array")
      coordinate_ = false;
    else
      Fail(1, "format '" + format + "' is not supported (expected 'coordinate' or 'array')");
    if (field != "real" && field != "integer" && field != "double")
      Fail(1, "field '" + field + "' is not supported (expected 'real' or 'integer')");
    if (symmetry == "symmetric")
      symmetric_ = true;
    else if (symmetry == "general")
      symmetric_ = false;
    else
      Fail(1, "symmetry '" + symmetry + "' is not supported (expected 'symmetric' or 'general')");
  }

  void ReadSize() {
    const char* p;
    if (!NextDataLine(p)) Fail(line_, "the size line is missing");
    sizeLine_ = line_;
    rows_ = ParseIndex(p, "number of rows");
    cols_ = ParseIndex(p, "number of columns");
    if (coordinate_) {
      p = SkipBlank(p);
      char* end = nullptr;
      errno = 0;
      entries_ = std::strtoll(p, &end, 10);
      if (end == p || errno == ERANGE || entries_ < 0 ||
          (*end != '\0' && *end != ' ' && *end != '\t' && *end != '\r'))
        Fail(line_, "the size line must give rows, columns and the number of entries");
      p = end;
      ExpectLineEnd(p, "three integers (rows columns entries)");
    } else {
      ExpectLineEnd(p, "two integers (rows columns)");
      entries_ = symmetric_ ? rows_ * (rows_ + 1) / 2 : rows_ * cols_;
    }
    if (symmetric_ && rows_ != cols_)
      Fail(sizeLine_, "a symmetric matrix must be square, the size line gives " +
                          std::to_string(rows_) + " x " + std::to_string(cols_));
  }

  std::string path_;
  std::string text_;
  size_t pos_ = 0;
  long long line_ = 0;
  bool coordinate_ = true;
  bool symmetric_ = false;
  long long rows_ = 0, cols_ = 0, entries_ = 0, sizeLine_ = 0, read_ = 0;
  const char* pending_ = nullptr;
};

// One entry of the upper triangle as read, with the line it came from.
struct Entry {
  int row, col;   // upper triangle: row <= col
  bool mirrored;  // stored below the diagonal in a general file
  double value;
  long long line;
};

// The coordinate entries moved into the upper triangle, sorted by position (an entry of the
// upper triangle before its mirror image).
std::vector<Entry> ReadUpperEntries(MtxReader& in) {
  std::vector<Entry> entries;
  entries.reserve(static_cast<size_t>(std::min<long long>(in.Entries(), 1LL << 28)));
  int i, j;
  double v;
  while (in.NextEntry(i, j, v)) {
    const bool lower = i > j;
    entries.push_back({lower ? j : i, lower ? i : j, lower && !in.Symmetric(), v, in.Line()});
  }
  std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
    if (a.row != b.row) return a.row < b.row;
    if (a.col != b.col) return a.col < b.col;
    return a.mirrored < b.mirrored;
  });
  return entries;
}

// The value stored at the position of entries[first, last) (one position): repeated entries
// are summed; a general file must agree with itself across the diagonal.
double MergedValue(const MtxReader& in, const std::vector<Entry>& entries, size_t first,
                   size_t last) {
  double upper = 0.0, lower = 0.0;
  bool hasUpper = false, hasLower = false;
  long long upperLine = 0, lowerLine = 0;
  for (size_t e = first; e < last; ++e) {
    if (entries[e].mirrored) {
      lower += entries[e].value;
      if (!hasLower) lowerLine = entries[e].line;
      hasLower = true;
    } else {
      upper += entries[e].value;
      if (!hasUpper) upperLine = entries[e].line;
      hasUpper = true;
    }
  }
  if (hasUpper && hasLower) {
    const double scale = std::max(std::fabs(upper), std::fabs(lower));
    if (std::fabs(upper - lower) > 1e-10 * scale) {
      const Entry& at = entries[first];
      char text[320];
      std::snprintf(text, sizeof text,
                    "the matrix is not symmetric: entry (%d, %d) is %.17g on line %lld "
                    "but (%d, %d) is %.17g on line %lld",
                    at.row, at.col, upper, upperLine, at.col, at.row, lower, lowerLine);
      in.Fail(0, text);
    }
  }
  return hasUpper ? upper : lower;
}

// Compressed rows of one value per position, the diagonal first (0.0 when the file has none).
CsrMatrix CompressRows(const MtxReader& in, int n, const std::vector<Entry>& entries) {
  std::vector<int> rows, cols;
  std::vector<double> vals;
  rows.reserve(entries.size());
  cols.reserve(entries.size());
  vals.reserve(entries.size());
  for (size_t k = 0; k < entries.size();) {
    size_t e = k;
    while (e < entries.size() && entries[e].row == entries[k].row &&
           entries[e].col == entries[k].col)
      ++e;
    rows.push_back(entries[k].row);
    cols.push_back(entries[k].col);
    vals.push_back(MergedValue(in, entries, k, e));
    k = e;
  }
  try {
    return FromTriplets(n, rows, cols, vals);
  } catch (const std::length_error&) {
    in.Fail(0, "too many stored entries for 32-bit indices");
  }
}

// The off-diagonal non-zero that makes a file unfit for a lumped mass.
[[noreturn]] void FailOffDiagonal(const MtxReader& in, long long i, long long j) {
  in.Fail(in.Line(), "entry (" + std::to_string(i) + ", " + std::to_string(j) +
                         ") lies off the diagonal: a lumped mass is diagonal "
                         "(give a consistent mass with -M)");
}

// The diagonal of a square file, which must hold no off-diagonal non-zero.
std::vector<double> ReadSquareDiagonal(MtxReader& in) {
  if (in.Rows() != in.Cols())
    in.Fail(in.SizeLine(),
            "a lumped mass must be a vector or a square diagonal matrix, "
            "the size line gives " +
                std::to_string(in.Rows()) + " x " + std::to_string(in.Cols()));
  std::vector<double> d(static_cast<size_t>(in.Rows()), 0.0);
  if (in.Coordinate()) {
    int i, j;
    double v;
    while (in.NextEntry(i, j, v)) {
      if (i != j && v != 0.0) FailOffDiagonal(in, i, j);
      if (i == j) d[i - 1] += v;
    }
    return d;
  }
  double v;
  for (long long j = 1; j <= in.Cols(); ++j)
    for (long long i = in.Symmetric() ? j : 1; i <= in.Rows(); ++i) {
      in.NextArrayValue(v);
      if (i == j)
        d[i - 1] = v;
      else if (v != 0.0)
        FailOffDiagonal(in, i, j);
    }
  return d;
}

}  // namespace

CsrMatrix ReadSymmetricMatrix(const std::string& path) {
  MtxReader in(path);
  if (!in.Coordinate()) in.Fail(1, "a dense (array) file: matrices are read in coordinate form");
  if (in.Rows() != in.Cols())
    in.Fail(in.SizeLine(), "the matrix must be square, the size line gives " +
                               std::to_string(in.Rows()) + " x " + std::to_string(in.Cols()));
  return CompressRows(in, static_cast<int>(in.Rows()), ReadUpperEntries(in));
}

DenseBlock ReadDenseBlock(const std::string& path) {
  MtxReader in(path);
  DenseBlock b;
  const long long size = in.Rows() * in.Cols();
  if (size > (1LL << 31))
    in.Fail(in.SizeLine(), "a dense " + std::to_string(in.Rows()) + " x " +
                               std::to_string(in.Cols()) + " block is too large");
  b.rows = static_cast<int>(in.Rows());
  b.cols = static_cast<int>(in.Cols());
  b.values.assign(static_cast<size_t>(size), 0.0);
  auto at = [&](long long i, long long j) -> double& {
    return b.values[static_cast<size_t>((j - 1) * in.Rows() + (i - 1))];
  };
  if (in.Coordinate()) {
    int i, j;
    double v;
    while (in.NextEntry(i, j, v)) {
      at(i, j) += v;
      if (in.Symmetric() && i != j) at(j, i) += v;
    }
  } else {
    double v;
    if (in.Symmetric()) {
      // The lower triangle, column by column.
      for (long long j = 1; j <= in.Cols(); ++j)
        for (long long i = j; i <= in.Rows(); ++i) {
          in.NextArrayValue(v);
          at(i, j) = v;
          at(j, i) = v;
        }
    } else {
      for (double& x : b.values) in.NextArrayValue(x);
    }
    if (in.NextArrayValue(v)) in.Fail(in.Line(), "more values than declared");
  }
  return b;
}

std::vector<double> ReadDiagonal(const std::string& path) {
  {
    MtxReader in(path);
    const bool vector = in.Rows() == 1 || in.Cols() == 1;
    if (!vector || in.Rows() == in.Cols()) return ReadSquareDiagonal(in);
  }
  return ReadDenseBlock(path).values;
}

void WriteDenseBlock(const std::string& path, const DenseBlock& block, const std::string& comment) {
  std::FILE* f = std::fopen(path.c_str(), "w");
  if (!f) throw InputError(path + ": cannot write the file (" + std::strerror(errno) + ")");
  std::fprintf(f, "%%%%MatrixMarket matrix array real general\n");
  if (!comment.empty()) std::fprintf(f, "%% %s\n", comment.c_str());
  std::fprintf(f, "%d %d\n", block.rows, block.cols);
  for (double v : block.values) std::fprintf(f, "%.17g\n", v);
  const bool failed = std::ferror(f) != 0;
  if (std::fclose(f) != 0 || failed)
    throw InputError(path + ": cannot write the file (" + std::strerror(errno) + ")");
}

bool ReadMatrixMarket(const std::string& path, CsrMatrix& out, std::string* error) {
  try {
    out = ReadSymmetricMatrix(path);
    return true;
  } catch (const std::exception& e) {
    if (error) *error = e.what();
    return false;
  }
}

}  // namespace vqmath::models
