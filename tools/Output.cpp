#include "Output.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace vqsolve {

Json::Json(double v) : kind_(Kind::Number), number_(v) {}
Json::Json(int v) : kind_(Kind::Integer), integer_(v) {}
Json::Json(long long v) : kind_(Kind::Integer), integer_(v) {}
Json::Json(bool v) : kind_(Kind::Bool), boolean_(v) {}
Json::Json(const char* v) : kind_(Kind::String), string_(v ? v : "") {}
Json::Json(std::string v) : kind_(Kind::String), string_(std::move(v)) {}

Json Json::Object() {
  Json j;
  j.kind_ = Kind::Object;
  return j;
}

Json Json::Array() {
  Json j;
  j.kind_ = Kind::Array;
  return j;
}

Json Json::Numbers(const std::vector<double>& values) {
  Json j = Array();
  for (double v : values) j.Push(v);
  return j;
}

Json& Json::Set(const std::string& key, Json value) {
  kind_ = Kind::Object;
  for (size_t k = 0; k < keys_.size(); ++k)
    if (keys_[k] == key) {
      items_[k] = std::move(value);
      return *this;
    }
  keys_.push_back(key);
  items_.push_back(std::move(value));
  return *this;
}

Json& Json::Push(Json value) {
  kind_ = Kind::Array;
  items_.push_back(std::move(value));
  return *this;
}

namespace {

void Quote(std::string& out, const std::string& s) {
  out += '"';
  for (unsigned char c : s) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      case '\b': out += "\\b"; break;
      case '\f': out += "\\f"; break;
      default:
        if (c < 0x20) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\u%04x", c);
          out += buf;
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  out += '"';
}

}  // namespace

void Json::Write(std::string& out, int indent, int depth) const {
  auto newline = [&](int d) {
    if (indent <= 0) return;
    out += '\n';
    out.append(static_cast<size_t>(indent * d), ' ');
  };
  switch (kind_) {
    case Kind::Null: out += "null"; break;
    case Kind::Bool: out += boolean_ ? "true" : "false"; break;
    case Kind::Integer: out += std::to_string(integer_); break;
    case Kind::Number:
      if (std::isfinite(number_)) {
        char buf[40];
        std::snprintf(buf, sizeof buf, "%.17g", number_);
        out += buf;
      } else {
        out += "null";
      }
      break;
    case Kind::String: Quote(out, string_); break;
    case Kind::Array: {
      // Arrays of scalars stay on one line.
      bool flat = std::all_of(items_.begin(), items_.end(), [](const Json& j) {
        return j.kind_ != Kind::Array && j.kind_ != Kind::Object;
      });
      out += '[';
      for (size_t k = 0; k < items_.size(); ++k) {
        if (k) out += flat ? ", " : ",";
        if (!flat) newline(depth + 1);
        items_[k].Write(out, indent, depth + 1);
      }
      if (!flat && !items_.empty()) newline(depth);
      out += ']';
      break;
    }
    case Kind::Object:
      out += '{';
      for (size_t k = 0; k < items_.size(); ++k) {
        if (k) out += ',';
        newline(depth + 1);
        Quote(out, keys_[k]);
        out += indent > 0 ? ": " : ":";
        items_[k].Write(out, indent, depth + 1);
      }
      if (!items_.empty()) newline(depth);
      out += '}';
      break;
  }
}

std::string Json::Dump(int indent) const {
  std::string out;
  Write(out, indent, 0);
  return out;
}

size_t DisplayWidth(const std::string& text) {
  size_t w = 0;
  for (unsigned char c : text)
    if ((c & 0xC0) != 0x80) ++w;
  return w;
}

void TextTable::AddRow(std::vector<std::string> cells) {
  cells.resize(columns_.size());
  rows_.push_back(std::move(cells));
}

std::string TextTable::Render(int indent) const {
  std::vector<size_t> width(columns_.size(), 0);
  for (size_t c = 0; c < columns_.size(); ++c) {
    width[c] = DisplayWidth(columns_[c].header);
    for (const auto& row : rows_) width[c] = std::max(width[c], DisplayWidth(row[c]));
  }
  std::string out;
  auto line = [&](const std::vector<std::string>& cells) {
    std::string text(static_cast<size_t>(indent), ' ');
    for (size_t c = 0; c < cells.size(); ++c) {
      if (c) text += "  ";
      const size_t pad = width[c] - DisplayWidth(cells[c]);
      const bool right = columns_[c].rightAligned;
      if (right) text.append(pad, ' ');
      text += cells[c];
      if (!right && c + 1 < cells.size()) text.append(pad, ' ');
    }
    while (!text.empty() && text.back() == ' ') text.pop_back();
    out += text;
    out += '\n';
  };
  std::vector<std::string> header;
  for (const auto& col : columns_) header.push_back(col.header);
  line(header);
  std::vector<std::string> rule;
  for (size_t c = 0; c < columns_.size(); ++c) {
    std::string r;
    for (size_t k = 0; k < width[c]; ++k) r += "-";
    rule.push_back(r);
  }
  line(rule);
  for (const auto& row : rows_) line(row);
  return out;
}

std::string Format(const char* format, ...) {
  va_list args;
  va_start(args, format);
  va_list copy;
  va_copy(copy, args);
  const int size = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  std::string out(size > 0 ? static_cast<size_t>(size) : 0, '\0');
  if (size > 0) std::vsnprintf(&out[0], out.size() + 1, format, args);
  va_end(args);
  return out;
}

std::string Number(double value, int digits) {
  if (!std::isfinite(value)) return "-";
  return Format("%.*g", digits, value);
}

std::string Seconds(double seconds) {
  if (seconds < 10.0) return Format("%.3f s", seconds);
  return Format("%.1f s", seconds);
}

}  // namespace vqsolve
