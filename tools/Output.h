#pragma once
// Output of vqsolve: JSON documents for scripts and aligned text tables for people.

#include <string>
#include <utility>
#include <vector>

namespace vqsolve {

// A JSON value built in order of insertion. Numbers are written with 17 significant digits
// so that a script reads back exactly the double the library produced; NaN and infinities
// are written as null.
class Json {
 public:
  Json() = default;  // null
  Json(double v);
  Json(int v);
  Json(long long v);
  Json(bool v);
  Json(const char* v);
  Json(std::string v);

  static Json Object();
  static Json Array();
  static Json Numbers(const std::vector<double>& values);

  // Object member (replaces an existing one of the same key) and array element.
  Json& Set(const std::string& key, Json value);
  Json& Push(Json value);

  // Indented text, ending without a newline.
  std::string Dump(int indent = 2) const;

 private:
  enum class Kind { Null, Number, Integer, Bool, String, Array, Object };
  void Write(std::string& out, int indent, int depth) const;

  Kind kind_ = Kind::Null;
  double number_ = 0.0;
  long long integer_ = 0;
  bool boolean_ = false;
  std::string string_;
  std::vector<Json> items_;
  std::vector<std::string> keys_;
};

// A table with a header row; columns are right-aligned (numbers) or left-aligned (text).
class TextTable {
 public:
  struct Column {
    std::string header;
    bool rightAligned = true;
  };
  explicit TextTable(std::vector<Column> columns) : columns_(std::move(columns)) {}
  void AddRow(std::vector<std::string> cells);
  // Rows joined by newlines, each line indented by the given number of blanks.
  std::string Render(int indent = 2) const;

 private:
  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;
};

// printf-style formatting into a std::string.
std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));
// A number in %.*g, or "-" when it is not finite.
std::string Number(double value, int digits = 6);
// Seconds as "0.123 s", "12.3 s".
std::string Seconds(double seconds);
// Display width of UTF-8 text (code points).
size_t DisplayWidth(const std::string& text);

}  // namespace vqsolve
