// VQ_RandomNumGen.h - uniform random numbers for the trial vectors of subspace iteration.
//
// L'Ecuyer's combined multiplicative congruential generator (moduli 2147483563 and 2147483399)
// with a 32-entry Bays-Durham shuffle, returning single-precision values in (0, 1). The caller
// owns the first seed and passes it by reference; the second generator value, the last output and
// the shuffle table are process-wide and shared by every generator object. A seed <= 0 on entry
// re-seeds everything from |seed| (at least 1), so setting the seed to -1 before a fill restarts
// the same sequence and makes runs repeatable.
//
// Internal header: hosts never include it.
#pragma once

class VQ_RandomNumGen {
 public:
  VQ_RandomNumGen() = default;

  // Next value in (0, 1); seed <= 0 re-seeds first. Values above 0.99999988 are returned as
  // 0.99999988 so that 1.0 is never produced.
  float Next(int& seed);

  // Same, with the seed held by this object.
  float Next() { return Next(seed_); }
  void SetSeed(int seed) { seed_ = seed; }
  int Seed() const { return seed_; }

 private:
  int seed_ = -1;
};
