/*
 * frame_host.c - what a structural-analysis host does with vqmath, in plain C99.
 *
 * A plane steel frame (two bays, three storeys, clamped at the base) is assembled element by
 * element through the system-matrix handles. The host then
 *   1. solves a lateral load case and reports the roof drift and the inertia of K,
 *   2. runs a modal analysis with a lumped mass by every method of the flat interface,
 *   3. reads the registry after each call, and prints the frequencies in Hz.
 * Build: cc -std=c99 frame_host.c $(pkg-config --cflags --libs vqmath) -lm
 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <vqmath.h>

#define BAYS 2
#define STOREYS 3
#define NODES ((BAYS + 1) * (STOREYS + 1))
#define MODES 5

static const double E = 210e9;       /* Pa */
static const double AREA = 2.85e-3;  /* m^2, a medium I-section */
static const double INERTIA = 1.94e-5; /* m^4 */
static const double DENSITY = 7850.0;  /* kg/m^3 */
static const double BAY = 6.0, STOREY = 3.5; /* m */

static int equation[NODES][3]; /* 1-based equation numbers of u, v, theta; 0 = fixed */
static double x[NODES], y[NODES];

/* Upper triangle, packed by columns, of the 6x6 plane beam stiffness in global axes. */
static void BeamStiffness(int a, int b, double* packed) {
  double dx = x[b] - x[a], dy = y[b] - y[a], L = sqrt(dx * dx + dy * dy);
  double c = dx / L, s = dy / L, k[6][6], t[6][6], kg[6][6];
  double ea = E * AREA / L, ei = E * INERTIA;
  int i, j, m;
  memset(k, 0, sizeof k);
  memset(t, 0, sizeof t);
  k[0][0] = k[3][3] = ea;
  k[0][3] = k[3][0] = -ea;
  k[1][1] = k[4][4] = 12 * ei / (L * L * L);
  k[1][4] = k[4][1] = -12 * ei / (L * L * L);
  k[1][2] = k[2][1] = k[1][5] = k[5][1] = 6 * ei / (L * L);
  k[4][2] = k[2][4] = k[4][5] = k[5][4] = -6 * ei / (L * L);
  k[2][2] = k[5][5] = 4 * ei / L;
  k[2][5] = k[5][2] = 2 * ei / L;
  for (m = 0; m < 2; ++m) { /* rotation to global axes, node by node */
    t[3 * m][3 * m] = c;
    t[3 * m][3 * m + 1] = s;
    t[3 * m + 1][3 * m] = -s;
    t[3 * m + 1][3 * m + 1] = c;
    t[3 * m + 2][3 * m + 2] = 1;
  }
  for (i = 0; i < 6; ++i)
    for (j = 0; j < 6; ++j) {
      double sum = 0;
      int p, q;
      for (p = 0; p < 6; ++p)
        for (q = 0; q < 6; ++q) sum += t[p][i] * k[p][q] * t[q][j];
      kg[i][j] = sum;
    }
  for (j = 1; j <= 6; ++j)
    for (i = 1; i <= j; ++i) packed[j * (j - 1) / 2 + i - 1] = kg[i - 1][j - 1];
}

static void ElementDofs(int a, int b, int* dofs) {
  int d;
  for (d = 0; d < 3; ++d) {
    dofs[d] = equation[a][d];
    dofs[3 + d] = equation[b][d];
  }
}

static void Report(const char* what, int code) {
  char* message = VQ_GetLastErrorMessage();
  char* warning = VQ_GetLastWarningMessage();
  if (code == 0)
    printf("%-22s ok", what);
  else
    printf("%-22s code %d: %s", what, code, message);
  if (VQ_GetLastWarningID() != 0) printf(" (warning %d: %s)", VQ_GetLastWarningID(), warning);
  printf("\n");
  free(message);
  free(warning);
}

static double reference[MODES];
static int haveReference = 0, mismatches = 0;

/* Prints the frequencies and, for the exact methods, compares the eigenvalues with the dense
   LAPACK solution computed first. */
static void Check(const double* lambda, int count) {
  int q;
  if (!haveReference) return;
  if (count < MODES) ++mismatches;
  for (q = 0; q < count && q < MODES; ++q)
    if (fabs(lambda[q] - reference[q]) > 1e-6 * reference[q]) ++mismatches;
}

static void PrintFrequencies(const double* lambda, int count) {
  int q;
  printf("%22s", "");
  for (q = 0; q < count; ++q) printf(" %8.3f", sqrt(lambda[q]) / (2.0 * acos(-1.0)));
  printf("  Hz\n");
}

int main(void) {
  int members[64][2], nmembers = 0, n = 0, node, i, j, d, found, code, neg, pos;
  double packed[21], *mass, *modes, lambda[MODES], handleLambda[MODES], drift;
  int handleFound = 0;
  const int *ia, *ja;
  const double* a;
  VQ_SysMatrixHandle K;
  VQ_SysVectorHandle F, X, M;

  /* Nodes, numbering and members: columns on every grid line, beams on every floor. */
  for (i = 0; i <= BAYS; ++i)
    for (j = 0; j <= STOREYS; ++j) {
      node = i * (STOREYS + 1) + j;
      x[node] = i * BAY;
      y[node] = j * STOREY;
      for (d = 0; d < 3; ++d) equation[node][d] = j == 0 ? 0 : ++n;
      if (j > 0) {
        members[nmembers][0] = node - 1;
        members[nmembers++][1] = node;
      }
      if (i > 0 && j > 0) {
        members[nmembers][0] = node - (STOREYS + 1);
        members[nmembers++][1] = node;
      }
    }

  VQ_Set_INTEL_MKL_NumberOfThreads(2);
  VQ_InitializeLibrary();

  /* Assembly: reserve the pattern of every element, then add the element matrices. */
  K = VQ_SysMatrixBegin();
  VQ_SysMatrixDef(K, 0, n);
  for (i = 0; i < nmembers; ++i) {
    int dofs[6];
    ElementDofs(members[i][0], members[i][1], dofs);
    VQ_SysMatrixPreAssem(K, 6, dofs);
  }
  for (i = 0; i < nmembers; ++i) {
    int dofs[6];
    ElementDofs(members[i][0], members[i][1], dofs);
    BeamStiffness(members[i][0], members[i][1], packed);
    VQ_SysMatrixAssem(K, 6, dofs, packed);
  }

  /* Lumped mass: half of each member's mass (and a floor mass) on the translations of its two
     nodes, and a small rotary inertia so that the dense methods, which need a positive definite
     mass, can solve the same problem. */
  mass = calloc((size_t)n, sizeof *mass);
  modes = calloc((size_t)n * MODES, sizeof *modes);
  if (!mass || !modes) return 1;
  for (i = 0; i < nmembers; ++i) {
    int ends[2] = {members[i][0], members[i][1]}, e;
    double dx = x[ends[1]] - x[ends[0]], dy = y[ends[1]] - y[ends[0]];
    double half = 0.5 * DENSITY * AREA * sqrt(dx * dx + dy * dy) + 2000.0; /* + floor mass */
    for (e = 0; e < 2; ++e)
      for (d = 0; d < 2; ++d)
        if (equation[ends[e]][d]) mass[equation[ends[e]][d] - 1] += half;
  }
  for (node = 0; node < NODES; ++node)
    if (equation[node][2]) mass[equation[node][2] - 1] += 1.0;

  /* 1. Static: 10 kN lateral at every floor on the left column line. */
  F = VQ_SysVectorCreate(n, 0.0);
  X = VQ_SysVectorCreate(n, 0.0);
  for (j = 1; j <= STOREYS; ++j) {
    int dof = equation[j][0];
    double load = 10e3;
    VQ_SysVectorAssem(F, 1, &dof, &load);
  }
  code = VQ_SysMatrixSolve(K, F, X);
  Report("static solve", code);
  neg = VQ_GetNumberOfNegativeEigenvalues();
  pos = VQ_GetNumberOfPositiveEigenvalues();
  VQ_SysVectorGather(X, 1, &equation[STOREYS][0], &drift);
  printf("%22s roof drift %.4f mm, pivots: %d negative, %d positive of %d\n", "", drift * 1e3, neg,
         pos, n);

  /* 2. Modal analysis on the handle: the dispatcher with the process-wide eigen-solver type. */
  M = VQ_SysVectorCreate(n, 0.0);
  for (i = 0; i < n; ++i) {
    int dof = i + 1;
    VQ_SysVectorScatter(M, 1, &dof, &mass[i]);
  }
  VQ_SetEigenSolverType(0);
  code = VQ_SysMatrixEigen(K, M, MODES, &found, lambda, modes);
  Report("handle, subspace", code);
  if (code == 0) PrintFrequencies(lambda, found);
  handleFound = found;
  memcpy(handleLambda, lambda, sizeof lambda);

  /* The same model as plain compressed rows for the other entry points. */
  if (VQ_SysMatrixGetArrays(K, &n, &ia, &ja, &a) != 0) return 1;

  {
    double* all = malloc(sizeof(double) * (size_t)n);
    double* vectors = malloc(sizeof(double) * (size_t)n * (size_t)n);
    if (!all || !vectors) return 1;
    code = VQ_EigenvalueAnalysis_LAPACK(n, ia, ja, a, mass, 0, all, NULL);
    Report("dense LAPACK", code);
    if (code == 0) {
      PrintFrequencies(all, MODES);
      memcpy(reference, all, sizeof reference);
      haveReference = 1;
      Check(handleLambda, handleFound);
    }
    code = VQ_EigenvalueAnalysis_JACOBI(n, ia, ja, a, mass, all, vectors);
    Report("dense Jacobi", code);
    if (code == 0) PrintFrequencies(all, MODES);
    if (code == 0) Check(all, MODES);
    free(all);
    free(vectors);
  }

  code = VQ_EigenvalueAnalysis_SubSpaceSolver(n, MODES, ia, ja, a, mass, 0, -2, "", 0, 0.0, 0,
                                              &found, lambda, 1, modes, 0.0, 0, MODES, 1e-10);
  Report("subspace iteration", code);
  if (code >= 0) PrintFrequencies(lambda, found);
  if (code == 0) Check(lambda, found); else ++mismatches;

  code = VQ_EigenvalueAnalysis_ARPACK(n, MODES, ia, ja, a, mass, 4, 0, -1, &found, lambda,
                                      modes, 0.0, "", 0);
  Report("Lanczos (ARPACK)", code);
  if (code >= 0) PrintFrequencies(lambda, found);
  if (code == 0) Check(lambda, found); else ++mismatches;

  code = VQ_EigenvalueAnalysis(2, n, MODES, ia, ja, a, mass, 0, -2, "", 0, 0.0, 0, &found, lambda,
                               1, modes, 0.0, 0.0, 1e5, NULL);
  Report("FEAST", code);
  if (code >= 0) PrintFrequencies(lambda, found);
  if (code == 0) Check(lambda, found); else ++mismatches;

  code = VQ_EigenvalueAnalysis_RitzVectorSolver(n, MODES, ia, ja, a, mass, 0, -2, "", 0, 0.0, 0,
                                                NULL, 0, &found, lambda, 1, modes);
  Report("Ritz vectors", code);
  if (code >= 0) PrintFrequencies(lambda, found);

  VQ_SysVectorEnd(F);
  VQ_SysVectorEnd(X);
  VQ_SysVectorEnd(M);
  VQ_SysMatrixEnd(K);
  free(mass);
  free(modes);
  VQ_ReleaseLibrary();
  if (!haveReference) ++mismatches;
  printf("%s\n", mismatches == 0 ? "all exact methods agree with dense LAPACK"
                                   : "methods DISAGREE with dense LAPACK");
  return mismatches == 0 ? 0 : 2;
}
