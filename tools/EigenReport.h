#pragma once
// What the modes and buckling commands share after the solver has run: the failure check, the
// Sturm-sequence verification, the mode-shape file and picture, and the parts of the report
// (JSON objects and text lines) that read the same for natural modes and buckling.

#include <functional>
#include <string>
#include <vector>

#include "Commands.h"
#include "EigenMethods.h"
#include "GeneratedModel.h"
#include "SturmCheck.h"

namespace vqsolve {

// Throws SolverError (with the instability equation of a singular K) when the run failed.
void ThrowIfFailed(const EigenOutcome& outcome);

// The Sturm check of the eigenvalues found (nothing when none was found or skip is set);
// `activity` names the factorisation on the progress line.
SturmCheck VerifyBySturm(const Pencil& pencil, const EigenOutcome& outcome, bool aboveOnly,
                         bool skip, const CommonOptions& common, const LibrarySession& session,
                         Progress& progress, const std::string& activity);

// True when the outcome holds a vector of n entries for every eigenvalue found.
bool HasModeShapes(const EigenOutcome& outcome, int n);

// The mode shapes as a MatrixMarket array, one column per mode.
void WriteModeShapes(const std::string& path, const EigenOutcome& outcome, int n,
                     const std::string& comment);

// A picture of the first modes (12 at most) of a generated model, one panel per mode titled by
// title(mode index, eigenvalue).
void DrawModeShapes(const std::string& path, const GeneratedModel& model,
                    const EigenOutcome& outcome, int n,
                    const std::function<std::string(int, double)>& title,
                    const std::string& heading);

// The natural modes of the JSON report: mode, eigenvalue, omega, frequency, period and, where
// ratios has an entry, the cumulative effective mass ratio.
Json ModesJson(const std::vector<double>& eigenvalues, const std::vector<double>& ratios);
// The columns of the modes table (with the cumulative mass when withMass) and the first five
// cells of a row: label, eigenvalue, omega, frequency, period.
std::vector<TextTable::Column> ModeColumns(bool withMass);
std::vector<std::string> ModeRow(const std::string& label, double lambda);

// The "sturm", "status" and "seconds" objects of the JSON report.
Json SturmJson(const SturmCheck& sturm);
Json StatusJson(const EigenOutcome& outcome);
Json SecondsJson(const EigenOutcome& outcome, const SturmCheck& sturm, double totalSeconds);

// The closing lines of the text report: the registry's warning, partial results ("%d of the %d
// <what> requested were found" when short of modes) and the times.
std::string ClosingLines(const EigenOutcome& outcome, const SturmCheck& sturm, bool shortOfModes,
                         int requested, const char* what, double totalSeconds);

}  // namespace vqsolve
