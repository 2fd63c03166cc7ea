// Running vqsolve from the tests: the program as a child process (exit code, standard output
// and error), a small JSON reader for its --json reports, an XML well-formedness check for its
// pictures, and temporary MatrixMarket files.
#pragma once

#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <ftw.h>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "models/CsrMatrix.h"

// The build passes the program's path; without it (tools not built) every test skips.
#ifndef VQSOLVE_PATH
#define VQSOLVE_PATH ""
#endif
#define VQSOLVE_REQUIRE()                                                     \
    do {                                                                      \
        if (std::string(VQSOLVE_PATH).empty()) GTEST_SKIP() << "vqsolve is not built"; \
    } while (0)

namespace vqsolve_test {

struct RunResult {
    int exitCode = -1;
    std::string out;
    std::string err;
};

inline std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

// Folders made by TempFolder, removed with their files when the test program ends.
class TempFolders {
public:
    static TempFolders& Instance()
    {
        static TempFolders folders;
        return folders;
    }
    void Add(const std::string& path) { paths_.push_back(path); }
    ~TempFolders()
    {
        for (const auto& p : paths_)
            nftw(p.c_str(), [](const char* path, const struct stat*, int, struct FTW*) { return ::remove(path), 0; }, 16,
                 FTW_DEPTH | FTW_PHYS);
    }

private:
    std::vector<std::string> paths_;
};

// A fresh folder below the test's temporary directory.
inline std::string TempFolder()
{
    std::string pattern = ::testing::TempDir() + "vqsolve-test-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (!mkdtemp(buffer.data())) return ::testing::TempDir();
    TempFolders::Instance().Add(buffer.data());
    return std::string(buffer.data()) + "/";
}

// Runs vqsolve with the arguments (each quoted for the shell); two threads, as the suite does.
// environment: further VARIABLE=value words put before the program (unquoted).
inline RunResult RunVqsolve(const std::vector<std::string>& args, const std::string& environment = "")
{
    static const std::string folder = TempFolder();
    static int counter = 0;
    const std::string out = folder + "out" + std::to_string(++counter);
    const std::string err = out + ".err";
    std::string command = "OMP_NUM_THREADS=2 MKL_NUM_THREADS=2 " + environment + " '" + std::string(VQSOLVE_PATH) + "'";
    for (const auto& a : args) {
        std::string quoted;
        for (char c : a) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
        command += " '" + quoted + "'";
    }
    command += " >'" + out + "' 2>'" + err + "' </dev/null";
    const int status = std::system(command.c_str());
    RunResult r;
    r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.out = ReadFile(out);
    r.err = ReadFile(err);
    std::remove(out.c_str());
    std::remove(err.c_str());
    return r;
}

// ---------------------------------------------------------------------------------------------
// JSON

class Json {
public:
    enum class Kind { Null, Bool, Number, String, Array, Object };
    Kind kind = Kind::Null;
    bool boolean = false;
    double number = 0.0;
    std::string text;
    std::vector<Json> items;
    std::map<std::string, Json> members;

    bool Has(const std::string& key) const { return members.count(key) != 0; }
    const Json& operator[](const std::string& key) const
    {
        static const Json null;
        auto it = members.find(key);
        return it == members.end() ? null : it->second;
    }
    const Json& operator[](size_t k) const
    {
        static const Json null;
        return k < items.size() ? items[k] : null;
    }
    size_t size() const { return items.size(); }
    std::vector<double> Numbers() const
    {
        std::vector<double> v;
        for (const auto& i : items) v.push_back(i.number);
        return v;
    }
};

class JsonParser {
public:
    explicit JsonParser(const std::string& s) : s_(s) {}
    bool Parse(Json& out)
    {
        if (!Value(out)) return false;
        Blank();
        return p_ == s_.size();
    }

private:
    void Blank()
    {
        while (p_ < s_.size() && std::isspace(static_cast<unsigned char>(s_[p_]))) ++p_;
    }
    bool Literal(const char* word)
    {
        const std::string w(word);
        if (s_.compare(p_, w.size(), w) != 0) return false;
        p_ += w.size();
        return true;
    }
    bool String(std::string& out)
    {
        if (s_[p_] != '"') return false;
        ++p_;
        while (p_ < s_.size() && s_[p_] != '"') {
            if (s_[p_] == '\\') {
                if (++p_ >= s_.size()) return false;
                const char c = s_[p_++];
                switch (c) {
                case 'n': out += '\n'; break;
                case 't': out += '\t'; break;
                case 'r': out += '\r'; break;
                case 'b': out += '\b'; break;
                case 'f': out += '\f'; break;
                case 'u': {
                    if (p_ + 4 > s_.size()) return false;
                    out += static_cast<char>(std::strtol(s_.substr(p_, 4).c_str(), nullptr, 16));
                    p_ += 4;
                    break;
                }
                default: out += c;
                }
            } else {
                out += s_[p_++];
            }
        }
        if (p_ >= s_.size()) return false;
        ++p_;
        return true;
    }
    bool Value(Json& v)
    {
        Blank();
        if (p_ >= s_.size()) return false;
        const char c = s_[p_];
        if (c == '{') {
            v.kind = Json::Kind::Object;
            ++p_;
            Blank();
            if (s_[p_] == '}') return ++p_, true;
            for (;;) {
                Blank();
                std::string key;
                if (!String(key)) return false;
                Blank();
                if (s_[p_++] != ':') return false;
                Json member;
                if (!Value(member)) return false;
                v.members[key] = member;
                Blank();
                if (s_[p_] == ',') {
                    ++p_;
                    continue;
                }
                if (s_[p_] == '}') return ++p_, true;
                return false;
            }
        }
        if (c == '[') {
            v.kind = Json::Kind::Array;
            ++p_;
            Blank();
            if (s_[p_] == ']') return ++p_, true;
            for (;;) {
                Json item;
                if (!Value(item)) return false;
                v.items.push_back(item);
                Blank();
                if (s_[p_] == ',') {
                    ++p_;
                    continue;
                }
                if (s_[p_] == ']') return ++p_, true;
                return false;
            }
        }
        if (c == '"') {
            v.kind = Json::Kind::String;
            return String(v.text);
        }
        if (Literal("true")) return v.kind = Json::Kind::Bool, v.boolean = true, true;
        if (Literal("false")) return v.kind = Json::Kind::Bool, v.boolean = false, true;
        if (Literal("null")) return v.kind = Json::Kind::Null, true;
        char* end = nullptr;
        v.number = std::strtod(s_.c_str() + p_, &end);
        if (end == s_.c_str() + p_) return false;
        v.kind = Json::Kind::Number;
        p_ = static_cast<size_t>(end - s_.c_str());
        return true;
    }
    const std::string& s_;
    size_t p_ = 0;
};

inline Json ParseJson(const std::string& text)
{
    Json j;
    JsonParser parser(text);
    EXPECT_TRUE(parser.Parse(j)) << "not JSON:\n" << text;
    return j;
}

// ---------------------------------------------------------------------------------------------
// XML: well-formed (one root, tags nested and closed, attributes quoted, entities known); the
// number of elements <g class="panel"> is counted on the way.

struct XmlCheck {
    bool wellFormed = false;
    std::string problem;
    std::string root;
    int panels = 0;
    int paths = 0;
};

inline XmlCheck CheckXml(const std::string& s)
{
    XmlCheck r;
    std::vector<std::string> open;
    size_t p = 0;
    bool rootSeen = false;
    auto fail = [&](const std::string& what) {
        r.problem = what + " at offset " + std::to_string(p);
        return r;
    };
    auto nameChar = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_' || c == ':' || c == '.'; };
    auto checkEntities = [&](const std::string& text) {
        for (size_t k = text.find('&'); k != std::string::npos; k = text.find('&', k + 1)) {
            const size_t semi = text.find(';', k);
            if (semi == std::string::npos) return false;
            const std::string e = text.substr(k + 1, semi - k - 1);
            if (e != "amp" && e != "lt" && e != "gt" && e != "quot" && e != "apos" && (e.empty() || e[0] != '#'))
                return false;
        }
        return true;
    };
    if (s.compare(0, 5, "<?xml") == 0) {
        p = s.find("?>");
        if (p == std::string::npos) return fail("unterminated XML declaration");
        p += 2;
    }
    while (p < s.size()) {
        const size_t lt = s.find('<', p);
        const std::string text = s.substr(p, lt == std::string::npos ? std::string::npos : lt - p);
        if (text.find('>') != std::string::npos) return fail("stray '>' in text");
        if (!checkEntities(text)) return fail("bad entity in text");
        if (open.empty() && text.find_first_not_of(" \t\r\n") != std::string::npos) return fail("text outside the root");
        if (lt == std::string::npos) break;
        p = lt;
        if (s.compare(p, 4, "<!--") == 0) {
            const size_t end = s.find("-->", p);
            if (end == std::string::npos) return fail("unterminated comment");
            p = end + 3;
            continue;
        }
        const bool closing = s[p + 1] == '/';
        size_t q = p + (closing ? 2 : 1);
        const size_t nameStart = q;
        while (q < s.size() && nameChar(s[q])) ++q;
        const std::string name = s.substr(nameStart, q - nameStart);
        if (name.empty()) return fail("tag without a name");
        if (closing) {
            while (q < s.size() && std::isspace(static_cast<unsigned char>(s[q]))) ++q;
            if (q >= s.size() || s[q] != '>') return fail("bad closing tag");
            if (open.empty() || open.back() != name) return fail("</" + name + "> does not close the open element");
            open.pop_back();
            p = q + 1;
            continue;
        }
        if (open.empty()) {
            if (rootSeen) return fail("a second root element");
            rootSeen = true;
            r.root = name;
        }
        std::string cls;
        for (;;) {
            while (q < s.size() && std::isspace(static_cast<unsigned char>(s[q]))) ++q;
            if (q >= s.size()) return fail("unterminated tag");
            if (s[q] == '>' || (s[q] == '/' && q + 1 < s.size() && s[q + 1] == '>')) break;
            const size_t a = q;
            while (q < s.size() && nameChar(s[q])) ++q;
            const std::string attribute = s.substr(a, q - a);
            if (attribute.empty() || q >= s.size() || s[q] != '=') return fail("bad attribute in <" + name + ">");
            ++q;
            if (q >= s.size() || (s[q] != '"' && s[q] != '\'')) return fail("unquoted attribute value");
            const char quote = s[q];
            const size_t end = s.find(quote, q + 1);
            if (end == std::string::npos) return fail("unterminated attribute value");
            const std::string value = s.substr(q + 1, end - q - 1);
            if (value.find('<') != std::string::npos || !checkEntities(value)) return fail("bad attribute value");
            if (attribute == "class") cls = value;
            q = end + 1;
        }
        if (name == "g" && cls == "panel") ++r.panels;
        if (name == "path") ++r.paths;
        if (s[q] == '/') {
            p = q + 2;
        } else {
            open.push_back(name);
            p = q + 1;
        }
    }
    if (!open.empty()) return fail("<" + open.back() + "> is never closed");
    if (!rootSeen) return fail("no root element");
    r.wellFormed = true;
    return r;
}

// ---------------------------------------------------------------------------------------------
// Files

// A dense block as "%%MatrixMarket matrix array real general".
inline void WriteArray(const std::string& path, int rows, int cols, const std::vector<double>& values)
{
    std::FILE* f = std::fopen(path.c_str(), "w");
    ASSERT_NE(f, nullptr) << path;
    std::fprintf(f, "%%%%MatrixMarket matrix array real general\n%d %d\n", rows, cols);
    for (double v : values) std::fprintf(f, "%.17g\n", v);
    std::fclose(f);
}

inline void WriteText(const std::string& path, const std::string& text)
{
    std::ofstream out(path, std::ios::binary);
    out << text;
}

// Reads back a dense array file written by vqsolve (-o).
inline std::vector<double> ReadArray(const std::string& path, int& rows, int& cols)
{
    std::ifstream in(path);
    std::string line;
    std::vector<double> values;
    rows = cols = 0;
    bool size = false;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '%') continue;
        std::istringstream s(line);
        if (!size) {
            s >> rows >> cols;
            size = true;
            continue;
        }
        double v;
        while (s >> v) values.push_back(v);
    }
    return values;
}

}  // namespace vqsolve_test
