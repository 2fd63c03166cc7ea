// The registry is what a host reads after every call: exact texts, ownership of the copies and
// the reset rule.
#include <string>

#include <gtest/gtest.h>

#include "support/TestSupport.h"
#include "vqmath.h"

namespace {

using vqtest::LastMessage;

class ErrorRegistry : public ::testing::Test {
 protected:
  void SetUp() override { VQ_ResetGlobalErrorsAndWarnings(); }
};

TEST_F(ErrorRegistry, ResetStateIsEmpty) {
  VQ_ResolveEror(-3);
  VQ_ResolveWarning(-24);
  VQ_ResetGlobalErrorsAndWarnings();
  EXPECT_EQ(VQ_GetLastErrorID(), 0);
  EXPECT_EQ(VQ_GetLastWarningID(), 0);
  EXPECT_EQ(LastMessage(), "");
  EXPECT_EQ(vqtest::LastWarning().message, "");
  EXPECT_EQ(VQ_GetInstabilityDOF(), -1);
  EXPECT_EQ(VQ_GetNumberOfNegativeEigenvalues(), 0);
  EXPECT_EQ(VQ_GetNumberOfPositiveEigenvalues(), 0);
}

TEST_F(ErrorRegistry, UnknownCodesAreKeptWithUnclassified) {
  VQ_ResolveEror(-9);
  EXPECT_EQ(VQ_GetLastErrorID(), -9);
  EXPECT_EQ(LastMessage(), "Unclassified");
  VQ_ResolveEror(12345);
  EXPECT_EQ(VQ_GetLastErrorID(), 12345);
  EXPECT_EQ(LastMessage(), "Unclassified");
  VQ_ResolveWarning(-1);
  EXPECT_EQ(VQ_GetLastWarningID(), -1);
  EXPECT_EQ(vqtest::LastWarning().message, "Unclassified");
}

TEST_F(ErrorRegistry, TableTexts) {
  struct {
    int code;
    const char* text;
  } table[] = {
      {-1, "Memory Allocation Failed"},
      {-3, "Instability Detected (Ill-conditioned or Singular Matrix Found)"},
      {-22, "Partial Results for Eigenvalue Analysis Found"},
      {-23, "Eigenvalue missed (Subspace Iteration)"},
      {-30, "LAPACK Eigenvalue Solution Failed"},
      {-35, "JACOBI Eigenvalue Solution Failed"},
      {-47, "Arnoldi-Lanczos (ARPACK) solver failed! Buckling factor is approaching zero, check model for instabilities"},
      {-66, "ERROR_INVALID_SPARSE_MATRIX_CREATION"},
      {-69, "WARNING_NO_EIGENVALUE_FOUND"},
      {-83, "Unclassified Sparse Solver Error"},
      {-85, "Pivoting Applied for Small or Zero Pivots. Solution Successfully Completed. Negative Eigenvalues Found."},
  };
  for (const auto& t : table) {
    VQ_ResolveEror(t.code);
    EXPECT_EQ(VQ_GetLastErrorID(), t.code);
    EXPECT_EQ(LastMessage(), t.text) << "code " << t.code;
  }
  VQ_ResolveEror(-21);
  std::string m21 = LastMessage();
  EXPECT_EQ(m21.rfind("Eigenvalue Solution Failed. This may be due to", 0), 0u);
  EXPECT_NE(m21.find("A solution with an shifting strategy"), std::string::npos);
}

TEST_F(ErrorRegistry, CalledBeforeDecompositionKeepsItsFormFeed) {
  VQ_ResolveEror(-84);
  std::string m = LastMessage();
  ASSERT_EQ(m.size(), 61u);
  EXPECT_EQ(m.find('\f'), 41u);  // position 42 counting from 1
  EXPECT_EQ(m.substr(0, 41), "Sparse Solver Called before Decomposition");
  EXPECT_EQ(m.substr(42), "actorization Called");
}

TEST_F(ErrorRegistry, WarningTextsEndWithTabButErrorTextDoesNot) {
  VQ_ResolveWarning(-23);
  EXPECT_EQ(vqtest::LastWarning().message, "Eigenvalue missed (Subspace Iteration)\t");
  VQ_ResolveWarning(-24);
  EXPECT_EQ(vqtest::LastWarning().message,
            "Negative shifting applied automatically to find correct Eigenvalues. (Subspace Iteration)\t");
  VQ_ResolveEror(-23);
  EXPECT_EQ(LastMessage(), "Eigenvalue missed (Subspace Iteration)");
  // Error and warning are independent slots.
  EXPECT_EQ(VQ_GetLastWarningID(), -24);
}

}  // namespace
