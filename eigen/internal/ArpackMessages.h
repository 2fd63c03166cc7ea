// Texts and status codes of the Lanczos (ARPACK) driver.
//
// Two tables: ARPACK's own info values (one table for dsaupd and dseupd, whose codes overlap)
// and the driver's statuses. Both give the message recorded for the host together with the
// library status code (registry numbering) chosen for it. Internal header.
#pragma once

#include <string>

namespace vqmath {
namespace eigen_internal {

// Driver statuses (the negative values the Lanczos routines return).
enum LanczosDriverStatus : int {
  kLanczosOk = 0,
  kLanczosInstability = -1,    // factorisation met a zero pivot
  kLanczosCancelled = -3,      // factorisation cancelled
  kLanczosNoMemory = -4,       // in-core memory exhausted
  kLanczosNoMemoryOoc = -5,    // out-of-core memory exhausted
  kLanczosFactorFailed = -9,   // any factorisation failure (record already set)
  kLanczosBadRequest = -10,    // ARPACK asked for an ido the driver does not serve
  kLanczosPartial = -11,       // fewer converged eigenpairs than requested, at least one
  kLanczosArpackFailed = -12,  // dsaupd/dseupd failed (record holds the info text)
  kLanczosOutOfMemoryInCore = -81,
  kLanczosOutOfMemoryOoc = -82,
  kLanczosNotAllFound = -99,
  kLanczosBucklingWithoutShift = -101,
  kLanczosMacFailed = -201,
  kLanczosBlockTooSmall = -202,
  kLanczosBucklingMacFailed = -301,
  kLanczosBucklingFactorNearZero = -302,
};

// Library status codes the driver records.
constexpr int kStatusNoMemory = -1;
constexpr int kStatusCancelled = -2;
constexpr int kStatusInstability = -3;
constexpr int kStatusPartial = -22;
constexpr int kStatusArpackFailed = -45;
constexpr int kStatusArpackInvalidInput = -46;
constexpr int kStatusBucklingFactorNearZero = -47;

extern const char* const kTextNoMemory;         // "Memory Allocation Error (insuffcient memory)"
extern const char* const kTextNotAllFound;      // "Not all required EigenValues were found"
extern const char* const kTextShiftFailedMass;  // "Failed to shift matrix K with -sigma*M"
extern const char* const kTextShiftFailedGeometric;  // "Failed to shift matrix K with -sigma*Kg"

// ARPACK's info value → text; false (and text untouched) for a value outside the table.
bool ArpackInfoText(int info, std::string& text);
// The library status recorded for an ARPACK info value: −46 for the values that report invalid
// input (−1…−7, −10…−13, −15, −16), −45 for every other failure.
int ArpackInfoStatus(int info);

// Driver status → library status code and text, as the driver-status table gives them.
// Status 0 gives code 0 and an empty text.
void LanczosDriverStatusText(int driverStatus, int& code, std::string& text);

}  // namespace eigen_internal
}  // namespace vqmath
