#include "support/MpiTestSupport.h"

#include "vqmath.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace mpitest {

vqmath::models::RowRange MyRows(int n) { return vqmath::models::BalancedRows(n, Size(), Rank()); }

vqmath::models::CsrRows SliceRows(const vqmath::models::CsrMatrix& a, vqmath::models::RowRange range)
{
    vqmath::models::CsrRows r;
    r.n = a.n;
    r.rows = range;
    const int begin = a.rowPointers[range.first - 1] - 1, end = a.rowPointers[range.last] - 1;
    for (int i = range.first - 1; i <= range.last; ++i) r.rowPointers.push_back(a.rowPointers[i] - begin);
    r.columnIndices.assign(a.columnIndices.begin() + begin, a.columnIndices.begin() + end);
    r.values.assign(a.values.begin() + begin, a.values.begin() + end);
    return r;
}

std::vector<double> SliceVectors(const std::vector<double>& whole, int n, int nvec, vqmath::models::RowRange range)
{
    std::vector<double> part;
    for (int v = 0; v < nvec; ++v)
        part.insert(part.end(), whole.begin() + static_cast<long>(v) * n + range.first - 1,
                    whole.begin() + static_cast<long>(v) * n + range.last);
    return part;
}

std::vector<double> GatherVectors(const std::vector<double>& local, int n, int nvec, vqmath::models::RowRange range)
{
    std::vector<double> whole(static_cast<size_t>(n) * nvec, 0.0);
    const int rows = range.Count();
    for (int v = 0; v < nvec; ++v)
        for (int i = 0; i < rows; ++i)
            whole[static_cast<size_t>(v) * n + range.first - 1 + i] = local[static_cast<size_t>(v) * rows + i];
    MPI_Allreduce(MPI_IN_PLACE, whole.data(), static_cast<int>(whole.size()), MPI_DOUBLE, MPI_SUM, MPI_COMM_WORLD);
    return whole;
}

double RelativeDifference(const std::vector<double>& a, const std::vector<double>& b)
{
    double diff = 0.0, scale = 0.0;
    for (size_t i = 0; i < b.size(); ++i) {
        diff = std::max(diff, std::fabs(a[i] - b[i]));
        scale = std::max(scale, std::fabs(b[i]));
    }
    return a.size() == b.size() ? diff / std::max(scale, 1e-300) : INFINITY;
}

std::string LastMessage()
{
    char* text = VQ_GetLastErrorMessage();
    std::string s = text ? text : "";
    std::free(text);
    return s;
}

std::vector<std::string> GatherStrings(const std::string& mine)
{
    char buffer[512] = {};
    std::strncpy(buffer, mine.c_str(), sizeof buffer - 1);
    std::vector<char> all(sizeof buffer * static_cast<size_t>(Size()));
    MPI_Allgather(buffer, sizeof buffer, MPI_CHAR, all.data(), sizeof buffer, MPI_CHAR, MPI_COMM_WORLD);
    std::vector<std::string> out;
    for (int p = 0; p < Size(); ++p) out.emplace_back(&all[sizeof buffer * p]);
    return out;
}

bool ReadShared(const std::string& name, vqmath::models::CsrMatrix& out)
{
    const std::string path = std::string(VQMATH_SHARED_DATA_DIR) + "/" + name;
    if (!std::ifstream(path)) return false;
    return vqmath::models::ReadMatrixMarket(path, out);
}

int SingleProcessNegativePivots(const vqmath::models::CsrMatrix& a)
{
    std::vector<double> b(static_cast<size_t>(a.n), 0.0), x(b.size());
    int params[64];
    VQ_DirectSparseSolver(a.n, 1, a.rowPointers.data(), a.columnIndices.data(), a.values.data(), b.data(), 0, -2,
                          params, 0, "", 1, 0, x.data(), 0, nullptr, nullptr, 0, 0);
    return VQ_GetNumberOfNegativeEigenvalues();
}

}  // namespace mpitest
