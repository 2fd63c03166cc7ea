// FEAST's info values → the message and status the FEAST solver records. Internal header.
#pragma once

#include <string>

namespace vqmath {
namespace eigen_internal {

// info → message and library status:
//   202 −60, 201 −61, 200 −62, 3 −67, 2 −68, 1 −69, −1 −1, −2 −63, −3 −64,
//   other ≥ 100 and ≤ −100 −65 (the parameter or argument named in the text), anything else −65.
// The two texts that name "Intel® Eigensolver Package" are byte strings of code page 1252, the
// registered sign being the single byte 0xAE.
void FeastInfoMessage(int info, std::string& message, int& status);

// Contour point counts FEAST accepts for fpm(2).
bool IsValidFeastContourPointCount(int points);

}  // namespace eigen_internal
}  // namespace vqmath
