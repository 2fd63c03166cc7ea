// MatrixTypes.h - shared enumerations of the dense and sparse matrix classes.
//
// MATRIX_TYPE is the kind of a matrix object (set by its constructor, changed only by copying).
// STATE_STATUS is an object's sticky health: 0 is good, a negative value records the last fault
// met by an operation on (or producing) the object. Only a successful (re)allocation resets it.
#ifndef VQMATH_DENSE_MATRIXTYPES_H
#define VQMATH_DENSE_MATRIXTYPES_H

// Symbols of the exported matrix classes and free operators. The library is built with default
// visibility; the attribute keeps the classes exported if the build ever hides symbols by default.
#if defined(__GNUC__) || defined(__clang__)
#define VQMATH_DENSE_API __attribute__((visibility("default")))
#else
#define VQMATH_DENSE_API
#endif

namespace MATLIBDLLCOMMONS {

// Kind of a matrix object. GetMatrixType() gives the enumerator's name as text, "UNDETERMINED"
// for any other value (0 included).
enum MATRIX_TYPE : int {
  MATRIX = 1,
  SYM_MATRIX = 2,
  SYM_SPARSE_MATRIX = 3,
  DIAGONAL_MATRIX = 4,
  ROW_VECTOR = 5,
  COLUMN_VECTOR = 6
};

// Health of a matrix object; the numbers are those of the library's error registry.
enum STATE_STATUS : int {
  STATUS_OK = 0,
  STATUS_NO_MEMORY = -1,             // storage could not be allocated (sizes are then 0)
  STATUS_FILE_NOT_FOUND = -5,        // a file to read (or write) could not be opened
  STATUS_OFF_DIAGONAL_IGNORED = -6,  // verbose read of a diagonal matrix dropped off-diagonal terms
  STATUS_DIVISION_BY_ZERO = -7,      // division by a scalar under the class's threshold (still done)
  STATUS_DIMENSION_MISMATCH = -8     // operand sizes disagree (the operation still ran)
};

}  // namespace MATLIBDLLCOMMONS

#endif  // VQMATH_DENSE_MATRIXTYPES_H
