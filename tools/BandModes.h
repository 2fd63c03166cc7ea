#pragma once
// vqsolve modes --band F1,F2 / --band-eig A,B: every mode in a band with the Sturm proof of each
// slice, and with --residual the residual (missing-mass) mode of the effective-mass direction.
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"
#include "EigenMethods.h"

namespace vqsolve {

// The options of the band search, added to those of vqsolve modes.
std::vector<OptionInfo> BandOptionSpecs();
// True when the command line asks for a band.
bool BandRequested(const CommandLine& line);

struct BandInput {
  const Pencil* pencil = nullptr;
  const std::vector<double>* direction = nullptr;  // effective-mass direction
  std::string directionName, kName, mName, description;
  std::string workingDirectory;
  int threads = 0;
};

// Runs the band search and writes the report; returns the exit code.
int RunBandModes(const CommandLine& line, const CommonOptions& common, const BandInput& input,
                 Progress& progress);

}  // namespace vqsolve
