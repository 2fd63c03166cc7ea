// Element access, queries and the sharing of arrays between shallow copies. The sharing tests are
// also the ones to run under valgrind / AddressSanitizer: every order of destruction of objects
// that share arrays must be free of leaks, double frees and use after free.

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "dense/VQ_Matrix.h"
#include "sparse/VQ_SparseSymMatrix.h"
#include "support/SparseSymMatrixSupport.h"


namespace {

// 4 x 4 with entries (1,1)=4 (1,3)=1 (2,2)=5 (2,4)=2 (3,3)=6 (4,4)=7.
class Small : public testing::Test {
 protected:
  Small() : a(4, values.data(), rowptr.data(), colidx.data()) {}
  std::vector<int> rowptr{1, 3, 5, 6, 7};
  std::vector<int> colidx{1, 3, 2, 4, 3, 4};
  std::vector<double> values{4.0, 1.0, 5.0, 2.0, 6.0, 7.0};
  VQ_SparseSymMatrix a;
};

TEST_F(Small, ValueAndFindLocAnswerBothTrianglesAndAbsentEntries) {
  struct Row {
    int i, j;
    double value;
    int position;  // -1: not stored
  };
  for (const Row& r :
       {Row{1, 1, 4, 0}, Row{1, 3, 1, 1}, Row{3, 1, 1, 1}, Row{4, 2, 2, 3}, Row{2, 4, 2, 3},
        Row{4, 4, 7, 5}, Row{1, 2, 0, -1}, Row{2, 1, 0, -1}, Row{2, 3, 0, -1}, Row{5, 5, 0, -1},
        Row{5, 1, 0, -1}, Row{1, 9, 0, -1}, Row{0, 1, 0, -1}, Row{-1, 2, 0, -1}}) {
    EXPECT_EQ(a.Value(r.i, r.j), r.value) << r.i << "," << r.j;
    if (r.i >= 1 && r.i <= 4 && r.j >= 1 && r.j <= 4) {
      EXPECT_EQ(a.Value_(r.i, r.j), r.value) << r.i << "," << r.j;
    }
    EXPECT_EQ(a.FindLoc(r.i, r.j), r.position) << r.i << "," << r.j;
  }
}

// ---- sharing ----------------------------------------------------------------------------------

// One lifecycle: copies made by construction and assignment, writes seen by every sharer, the
// maker destroyed first, a sharer released or assigned over, many sharers destroyed in a scrambled
// order, also through the base classes.
TEST_F(Small, SharersSeeOneArraySetWhateverOutlivesWhat) {
  VQ_SparseSymMatrix b;
  b = a;
  EXPECT_EQ(b.GetValuePointer(), a.GetValuePointer());
  EXPECT_EQ(b.GetRowVectorPointer(), a.GetRowVectorPointer());
  EXPECT_EQ(b.GetColumnVectorPointer(), a.GetColumnVectorPointer());
  b.Set(2, 4, 8.0);
  EXPECT_EQ(a.Value(4, 2), 8.0);
  b = b;  // self-assignment does nothing
  EXPECT_EQ(b.Value(4, 2), 8.0);

  auto first = std::make_unique<VQ_SparseSymMatrix>(4, values.data(), rowptr.data(), colidx.data());
  VQ_SparseSymMatrix second(*first), third;
  third = second;
  first.reset();  // destroyed while the arrays are in use by two others
  EXPECT_EQ(second.Value(1, 3), 1.0);
  second.ReleaseMemory();
  EXPECT_EQ(third.Value(4, 4), 7.0);
  EXPECT_EQ(third.GetNumberOfNonZeros(), 6);

  std::vector<double> d{1.0};
  std::vector<int> r{1, 2}, c{1};
  VQ_SparseSymMatrix other(1, d.data(), r.data(), c.data());
  b = other;  // drops only b's reference
  EXPECT_EQ(b.NumRows(), 1);
  EXPECT_EQ(b.GetValuePointer(), other.GetValuePointer());
  EXPECT_EQ(a.Value(2, 2), 5.0);

  std::vector<std::unique_ptr<VQ_SparseSymMatrix>> copies;
  for (int k = 0; k < 8; ++k)
    copies.push_back(std::make_unique<VQ_SparseSymMatrix>(k == 0 ? a : *copies[k - 1]));
  for (int k : {3, 0, 7, 5, 1, 6, 2, 4}) {
    copies[k]->Set(1, 1, copies[k]->Value(1, 1) + 1.0);
    copies[k].reset();
  }
  EXPECT_EQ(a.Value(1, 1), 12.0);
  VQ_Matrix* base = new VQ_SparseSymMatrix(a);
  VQ_SymMatrix* sym = new VQ_SparseSymMatrix(*static_cast<VQ_SparseSymMatrix*>(base));
  delete base;
  EXPECT_EQ(sym->Value(3, 1), 1.0);
  delete sym;
  EXPECT_EQ(a.Value(3, 1), 1.0);
}

TEST_F(Small, DeepCopyOfASharerIsIndependent) {
  VQ_SparseSymMatrix b(a), c, d(a);
  c.SetEqualTo(&b);
  c.Set(1, 1, 0.5);
  EXPECT_EQ(b.Value(1, 1), 4.0);
  b.SetEqualTo(&b);  // self copy: nothing happens
  EXPECT_EQ(b.GetValuePointer(), a.GetValuePointer());
  d.SetEqualTo(&a);  // into an object from one that shares its arrays
  EXPECT_NE(d.GetValuePointer(), a.GetValuePointer());
  EXPECT_TRUE(d.CheckSparsity(&a));
}

}  // namespace
