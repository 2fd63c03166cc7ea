#include "DistributedProblem.h"

#include <cstdlib>
#include <stdexcept>

#include "CommandLine.h"
#include "GeneratedModel.h"
#include "MatrixMarketInput.h"
#include "MpiRank.h"
#include "Output.h"

namespace vqsolve_mpi {

using vqmath::models::CsrMatrix;
using vqmath::models::CsrRows;
using vqmath::models::RowRange;

namespace {

// Rows `range` of a whole matrix, as a process holds them.
CsrRows Slice(const CsrMatrix& a, RowRange range) {
  CsrRows r;
  r.n = a.n;
  r.rows = range;
  const int begin = a.rowPointers[range.first - 1] - 1, end = a.rowPointers[range.last] - 1;
  for (int i = range.first - 1; i <= range.last; ++i)
    r.rowPointers.push_back(a.rowPointers[i] - begin);
  r.columnIndices.assign(a.columnIndices.begin() + begin, a.columnIndices.begin() + end);
  r.values.assign(a.values.begin() + begin, a.values.begin() + end);
  return r;
}

void SendRows(MPI_Comm comm, const CsrMatrix& a, RowRange range, int to) {
  const CsrRows r = Slice(a, range);
  const int nnz = static_cast<int>(r.values.size());
  MPI_Send(&nnz, 1, MPI_INT, to, 1, comm);
  MPI_Send(r.rowPointers.data(), range.Count() + 1, MPI_INT, to, 2, comm);
  MPI_Send(r.columnIndices.data(), nnz, MPI_INT, to, 3, comm);
  MPI_Send(r.values.data(), nnz, MPI_DOUBLE, to, 4, comm);
}

CsrRows ReceiveRows(MPI_Comm comm, int n, RowRange range) {
  CsrRows r;
  r.n = n;
  r.rows = range;
  int nnz = 0;
  MPI_Recv(&nnz, 1, MPI_INT, 0, 1, comm, MPI_STATUS_IGNORE);
  r.rowPointers.resize(static_cast<size_t>(range.Count()) + 1);
  r.columnIndices.resize(static_cast<size_t>(nnz));
  r.values.resize(static_cast<size_t>(nnz));
  MPI_Recv(r.rowPointers.data(), range.Count() + 1, MPI_INT, 0, 2, comm, MPI_STATUS_IGNORE);
  MPI_Recv(r.columnIndices.data(), nnz, MPI_INT, 0, 3, comm, MPI_STATUS_IGNORE);
  MPI_Recv(r.values.data(), nnz, MPI_DOUBLE, 0, 4, comm, MPI_STATUS_IGNORE);
  return r;
}

// A vector of n values on process 0 → every process's slice.
std::vector<double> ScatterVector(MPI_Comm comm, const std::vector<double>& whole, RowRange mine) {
  const int size = Size(comm);
  std::vector<int> counts(static_cast<size_t>(size)), displacements(static_cast<size_t>(size));
  const int count = mine.Count(), first = mine.first - 1;
  MPI_Gather(&count, 1, MPI_INT, counts.data(), 1, MPI_INT, 0, comm);
  MPI_Gather(&first, 1, MPI_INT, displacements.data(), 1, MPI_INT, 0, comm);
  std::vector<double> part(static_cast<size_t>(count));
  MPI_Scatterv(whole.data(), counts.data(), displacements.data(), MPI_DOUBLE, part.data(), count,
               MPI_DOUBLE, 0, comm);
  return part;
}

// The same failure on every process: process 0's message, or none.
void AgreeOnError(MPI_Comm comm, std::string message) {
  int length = static_cast<int>(message.size());
  MPI_Bcast(&length, 1, MPI_INT, 0, comm);
  if (length == 0) return;
  message.resize(static_cast<size_t>(length));
  MPI_Bcast(&message[0], length, MPI_CHAR, 0, comm);
  throw vqsolve::InputError(message);
}

}  // namespace

DistributedProblem GenerateSolid(MPI_Comm comm, const std::string& model, bool geometric) {
  const size_t colon = model.find(':');
  if (model.substr(0, colon) != "solid")
    throw vqsolve::UsageError("--model must be solid or solid:EQUATIONS, got '" + model + "'");
  int equations = 30000;
  if (colon != std::string::npos) {
    const std::string count = model.substr(colon + 1);
    char* end = nullptr;
    const long v = std::strtol(count.c_str(), &end, 10);
    if (count.empty() || *end != '\0' || v < 50 || v > 200000000)
      throw vqsolve::UsageError(
          "--model solid:N needs a number of equations between 50 and 200000000, got '" + count +
          "'");
    equations = static_cast<int>(v);
  }
  const vqmath::models::SolidParameters p = vqsolve::BarParameters(equations);
  DistributedProblem d;
  d.n = vqmath::models::DistributedSolid::EquationsOf(p);
  if (d.n < Size(comm))
    throw vqsolve::UsageError(
        vqsolve::Format("%d equations cannot be shared by %d processes", d.n, Size(comm)));
  d.rows = vqmath::models::BalancedRows(d.n, Size(comm), Rank(comm));
  vqmath::models::DistributedSolid solid(p, d.rows);
  d.k = solid.Stiffness();
  if (geometric) d.b = solid.GeometricStiffness();
  d.lumpedMass = solid.LumpedMass();
  d.load = solid.EndFaceLoad(0.0, 0.0, -1.0e6);
  d.kName = "model solid";
  d.bName =
      geometric ? "geometric stiffness of a unit axial compression" : "lumped mass of the model";
  d.loadName = "1 MN downwards (-z) on the free end face";
  d.description = vqsolve::Format(
      "clamped steel bar %.2f x %.2f x %.2f m, %d x %d x %d hexahedra, %d equations", p.nx * p.hx,
      p.ny * p.hy, p.nz * p.hz, p.nx, p.ny, p.nz, d.n);
  return d;
}

DistributedProblem ReadAndScatter(MPI_Comm comm, const std::string& kFile, const std::string& bFile,
                                  const std::string& lumpedFile, const std::string& loadFile) {
  const int rank = Rank(comm), size = Size(comm);
  CsrMatrix k, b;
  std::vector<double> lumped, load;
  std::string error;
  if (rank == 0) {
    try {
      k = vqsolve::ReadSymmetricMatrix(kFile);
      if (!bFile.empty()) {
        b = vqsolve::ReadSymmetricMatrix(bFile);
        if (b.n != k.n)
          throw vqsolve::InputError(
              vqsolve::Format("size mismatch: %s is %d x %d but %s is %d x %d", kFile.c_str(), k.n,
                              k.n, bFile.c_str(), b.n, b.n));
      }
      if (!lumpedFile.empty()) {
        lumped = vqsolve::ReadDiagonal(lumpedFile);
        if (static_cast<int>(lumped.size()) != k.n)
          throw vqsolve::InputError(
              vqsolve::Format("size mismatch: %s has %d values for %d equations",
                              lumpedFile.c_str(), static_cast<int>(lumped.size()), k.n));
      }
      if (!loadFile.empty()) {
        const vqsolve::DenseBlock f = vqsolve::ReadDenseBlock(loadFile);
        if (f.rows != k.n)
          throw vqsolve::InputError(vqsolve::Format(
              "size mismatch: %s has %d rows for %d equations", loadFile.c_str(), f.rows, k.n));
        load.assign(f.values.begin(), f.values.begin() + k.n);
      } else {
        load.assign(static_cast<size_t>(k.n), 1.0);
      }
      if (k.n < size)
        throw vqsolve::InputError(
            vqsolve::Format("%d equations cannot be shared by %d processes", k.n, size));
    } catch (const std::exception& e) {
      error = e.what();
      if (error.empty()) error = "cannot read the input";
    }
  }
  AgreeOnError(comm, error);
  DistributedProblem d;
  d.n = k.n;
  MPI_Bcast(&d.n, 1, MPI_INT, 0, comm);
  int haveB = b.n > 0, haveLumped = !lumped.empty();
  MPI_Bcast(&haveB, 1, MPI_INT, 0, comm);
  MPI_Bcast(&haveLumped, 1, MPI_INT, 0, comm);
  d.rows = vqmath::models::BalancedRows(d.n, size, rank);
  if (rank == 0) {
    for (int p = 1; p < size; ++p) {
      SendRows(comm, k, vqmath::models::BalancedRows(d.n, size, p), p);
      if (haveB) SendRows(comm, b, vqmath::models::BalancedRows(d.n, size, p), p);
    }
    d.k = Slice(k, d.rows);
    if (haveB) d.b = Slice(b, d.rows);
  } else {
    d.k = ReceiveRows(comm, d.n, d.rows);
    if (haveB) d.b = ReceiveRows(comm, d.n, d.rows);
  }
  if (haveLumped) d.lumpedMass = ScatterVector(comm, lumped, d.rows);
  d.load = ScatterVector(comm, load, d.rows);
  d.kName = kFile;
  d.bName = !bFile.empty() ? bFile : lumpedFile;
  d.loadName = loadFile.empty() ? "all ones" : loadFile;
  return d;
}

}  // namespace vqsolve_mpi
