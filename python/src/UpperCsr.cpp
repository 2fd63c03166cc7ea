#include "UpperCsr.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <utility>

namespace vqpy {

std::vector<double> UpperCsr::Diagonal() const
{
    std::vector<double> d(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) d[i] = values[rowPointers[i] - 1];
    return d;
}

namespace {

constexpr long long kMaxIndex = INT_MAX - 1;

std::string TooLarge(const char* what, long long value)
{
    return std::string("the matrix is too large for the library's 32-bit indices: ") + what + " " +
           std::to_string(value) + " exceeds " + std::to_string(kMaxIndex);
}

// Calls visit(i, j, v) for every entry (0-based) after checking its indices and value.
template <typename Index, typename Visit>
void ForEachEntry(long long n, Layout layout, const Index* first, const Index* second,
                  const double* values, long long count, Visit visit)
{
    auto check = [&](long long i, long long j, double v) {
        if (i < 0 || i >= n || j < 0 || j >= n)
            throw InputError("index (" + std::to_string(i) + ", " + std::to_string(j) +
                             ") lies outside the " + std::to_string(n) + " x " + std::to_string(n) +
                             " matrix");
        if (!std::isfinite(v))
            throw InputError("entry (" + std::to_string(i) + ", " + std::to_string(j) +
                             ") is not a finite number");
        visit(i, j, v);
    };
    if (layout == Layout::Triplets) {
        for (long long p = 0; p < count; ++p) check(first[p], second[p], values[p]);
        return;
    }
    if (first[0] != 0 || first[n] != count)
        throw InputError("the index pointers do not span the " + std::to_string(count) +
                         " stored entries");
    for (long long r = 0; r < n; ++r) {
        const long long begin = first[r], end = first[r + 1];
        if (end < begin || end > count) throw InputError("the index pointers decrease");
        for (long long p = begin; p < end; ++p) {
            if (layout == Layout::Rows)
                check(r, second[p], values[p]);
            else
                check(second[p], r, values[p]);
        }
    }
}

// Position of column j (1-based) in row i (0-based) of a finished matrix, or -1.
long long FindInRow(const UpperCsr& a, int i, int j)
{
    const int* begin = a.columnIndices.data() + a.rowPointers[i] - 1;
    const int* end = a.columnIndices.data() + a.rowPointers[i + 1] - 1;
    if (begin == end) return -1;
    if (*begin == j) return begin - a.columnIndices.data();
    const int* at = std::lower_bound(begin + 1, end, j);
    return at != end && *at == j ? at - a.columnIndices.data() : -1;
}

// Sorts the off-diagonal part of every row, sums repeated columns and closes the gaps.
void SortAndMerge(UpperCsr& a)
{
    std::vector<std::pair<int, double>> row;
    long long out = 0;
    long long begin = a.rowPointers[0] - 1;
    for (int i = 0; i < a.n; ++i) {
        const long long end = a.rowPointers[i + 1] - 1;
        row.clear();
        for (long long p = begin + 1; p < end; ++p) row.emplace_back(a.columnIndices[p], a.values[p]);
        std::sort(row.begin(), row.end(),
                  [](const auto& x, const auto& y) { return x.first < y.first; });
        a.columnIndices[out] = i + 1;
        a.values[out] = a.values[begin];
        const long long diagonal = out++;
        for (size_t q = 0; q < row.size(); ++q) {
            if (out - 1 > diagonal && a.columnIndices[out - 1] == row[q].first) {
                a.values[out - 1] += row[q].second;
            } else {
                a.columnIndices[out] = row[q].first;
                a.values[out] = row[q].second;
                ++out;
            }
        }
        begin = end;
        a.rowPointers[i + 1] = static_cast<int>(out + 1);
    }
    a.columnIndices.resize(static_cast<size_t>(out));
    a.values.resize(static_cast<size_t>(out));
    a.columnIndices.shrink_to_fit();
    a.values.shrink_to_fit();
}

}  // namespace

template <typename Index>
UpperCsr ToUpperCsr(long long n, Layout layout, const Index* first, const Index* second,
                    const double* values, long long count, double symmetryTolerance)
{
    if (n < 1) throw InputError("the matrix is empty");
    if (n > kMaxIndex) throw TooLarge("order", n);
    // Pass 1: which triangles hold entries, and how many land in each upper row.
    std::vector<long long> perRow(static_cast<size_t>(n) + 1, 0);
    long long upper = 0, lower = 0;
    double largest = 0.0;
    ForEachEntry(n, layout, first, second, values, count, [&](long long i, long long j, double v) {
        largest = std::max(largest, std::fabs(v));
        if (i < j) ++upper, ++perRow[i + 1];
        if (i > j) ++lower;
    });
    const bool full = upper > 0 && lower > 0;
    const bool lowerOnly = upper == 0 && lower > 0;
    if (lowerOnly) {
        std::fill(perRow.begin(), perRow.end(), 0);
        ForEachEntry(n, layout, first, second, values, count, [&](long long i, long long j, double) {
            if (i > j) ++perRow[j + 1];
        });
    }
    // Every row reserves one slot for its diagonal.
    long long total = 0;
    for (long long i = 0; i < n; ++i) total += perRow[i + 1] + 1;
    if (total > kMaxIndex) throw TooLarge("upper-triangle entries", total);

    UpperCsr a;
    a.n = static_cast<int>(n);
    a.rowPointers.resize(static_cast<size_t>(n) + 1);
    a.columnIndices.assign(static_cast<size_t>(total), 0);
    a.values.assign(static_cast<size_t>(total), 0.0);
    std::vector<long long> next(static_cast<size_t>(n));
    long long at = 0;
    for (long long i = 0; i < n; ++i) {
        a.rowPointers[i] = static_cast<int>(at + 1);
        a.columnIndices[at] = static_cast<int>(i + 1);
        next[i] = at + 1;
        at += perRow[i + 1] + 1;
    }
    a.rowPointers[n] = static_cast<int>(at + 1);
    perRow.clear();
    perRow.shrink_to_fit();
    // Pass 2: the entries of the triangle that defines the matrix.
    ForEachEntry(n, layout, first, second, values, count, [&](long long i, long long j, double v) {
        if (lowerOnly) std::swap(i, j);
        if (i == j) {
            a.values[a.rowPointers[i] - 1] += v;
        } else if (i < j) {
            a.columnIndices[next[i]] = static_cast<int>(j + 1);
            a.values[next[i]++] = v;
        }
    });
    next.clear();
    next.shrink_to_fit();
    SortAndMerge(a);
    if (!full) return a;

    // Both triangles given: the lower one must mirror the upper one.
    const double tolerance = symmetryTolerance * largest;
    std::vector<double> mirror(a.values.size(), 0.0);
    auto unsymmetric = [](long long i, long long j) {
        return InputError("the matrix is not symmetric: entries (" + std::to_string(i) + ", " +
                          std::to_string(j) + ") and (" + std::to_string(j) + ", " + std::to_string(i) +
                          ") differ");
    };
    ForEachEntry(n, layout, first, second, values, count, [&](long long i, long long j, double v) {
        if (i <= j) return;
        const long long p = FindInRow(a, static_cast<int>(j), static_cast<int>(i + 1));
        if (p >= 0)
            mirror[p] += v;
        else if (std::fabs(v) > tolerance)
            throw unsymmetric(i, j);
    });
    for (int i = 0; i < a.n; ++i)
        for (int p = a.rowPointers[i]; p < a.rowPointers[i + 1] - 1; ++p)
            if (std::fabs(a.values[p] - mirror[p]) > tolerance) throw unsymmetric(i, a.columnIndices[p] - 1);
    return a;
}

template UpperCsr ToUpperCsr<int32_t>(long long, Layout, const int32_t*, const int32_t*,
                                      const double*, long long, double);
template UpperCsr ToUpperCsr<int64_t>(long long, Layout, const int64_t*, const int64_t*,
                                      const double*, long long, double);

UpperCsr DenseToUpperCsr(long long n, const double* data, long long rowStride, long long colStride,
                         double symmetryTolerance)
{
    if (n < 1) throw InputError("the matrix is empty");
    if (n > kMaxIndex) throw TooLarge("order", n);
    auto at = [&](long long i, long long j) { return data[i * rowStride + j * colStride]; };
    double largest = 0.0;
    long long count = 0;
    for (long long i = 0; i < n; ++i)
        for (long long j = 0; j < n; ++j) {
            const double v = at(i, j);
            if (!std::isfinite(v))
                throw InputError("entry (" + std::to_string(i) + ", " + std::to_string(j) +
                                 ") is not a finite number");
            largest = std::max(largest, std::fabs(v));
            if (j > i && v != 0.0) ++count;
        }
    if (count + n > kMaxIndex) throw TooLarge("upper-triangle entries", count + n);
    const double tolerance = symmetryTolerance * largest;
    UpperCsr a;
    a.n = static_cast<int>(n);
    a.rowPointers.reserve(static_cast<size_t>(n) + 1);
    a.columnIndices.reserve(static_cast<size_t>(count + n));
    a.values.reserve(static_cast<size_t>(count + n));
    for (long long i = 0; i < n; ++i) {
        a.rowPointers.push_back(static_cast<int>(a.values.size() + 1));
        a.columnIndices.push_back(static_cast<int>(i + 1));
        a.values.push_back(at(i, i));
        for (long long j = i + 1; j < n; ++j) {
            const double v = at(i, j);
            if (std::fabs(v - at(j, i)) > tolerance)
                throw InputError("the matrix is not symmetric: entries (" + std::to_string(i) + ", " +
                                 std::to_string(j) + ") and (" + std::to_string(j) + ", " +
                                 std::to_string(i) + ") differ");
            if (v != 0.0) {
                a.columnIndices.push_back(static_cast<int>(j + 1));
                a.values.push_back(v);
            }
        }
    }
    a.rowPointers.push_back(static_cast<int>(a.values.size() + 1));
    return a;
}

UpperCsr FromDiagonal(const double* diagonal, long long n)
{
    if (n < 1) throw InputError("the diagonal is empty");
    if (n > kMaxIndex) throw TooLarge("order", n);
    UpperCsr a;
    a.n = static_cast<int>(n);
    a.rowPointers.resize(static_cast<size_t>(n) + 1);
    a.columnIndices.resize(static_cast<size_t>(n));
    a.values.assign(diagonal, diagonal + n);
    for (long long i = 0; i <= n; ++i) a.rowPointers[i] = static_cast<int>(i + 1);
    for (long long i = 0; i < n; ++i) {
        a.columnIndices[i] = static_cast<int>(i + 1);
        if (!std::isfinite(diagonal[i]))
            throw InputError("diagonal entry " + std::to_string(i) + " is not a finite number");
    }
    return a;
}

UpperCsr Shifted(const UpperCsr& k, const UpperCsr& b, double sigma)
{
    UpperCsr s;
    s.n = k.n;
    s.rowPointers.reserve(static_cast<size_t>(k.n) + 1);
    s.columnIndices.reserve(k.values.size() + b.values.size() - static_cast<size_t>(k.n));
    s.values.reserve(s.columnIndices.capacity());
    for (int i = 0; i < k.n; ++i) {
        s.rowPointers.push_back(static_cast<int>(s.values.size() + 1));
        int p = k.rowPointers[i] - 1, pe = k.rowPointers[i + 1] - 1;
        int q = b.rowPointers[i] - 1, qe = b.rowPointers[i + 1] - 1;
        // Both rows start with their diagonal; merge the ascending remainders.
        s.columnIndices.push_back(i + 1);
        s.values.push_back(k.values[p++] - sigma * b.values[q++]);
        while (p < pe || q < qe) {
            const int jk = p < pe ? k.columnIndices[p] : INT_MAX;
            const int jb = q < qe ? b.columnIndices[q] : INT_MAX;
            const int j = std::min(jk, jb);
            double v = 0.0;
            if (jk == j) v += k.values[p++];
            if (jb == j) v -= sigma * b.values[q++];
            s.columnIndices.push_back(j);
            s.values.push_back(v);
        }
    }
    s.rowPointers.push_back(static_cast<int>(s.values.size() + 1));
    return s;
}

}  // namespace vqpy
