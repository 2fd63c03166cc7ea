// L'Ecuyer generator with Bays-Durham shuffle; see VQ_RandomNumGen.h.
#include "eigen/internal/VQ_RandomNumGen.h"

namespace {

constexpr int kM1 = 2147483563;  // modulus of the first generator
constexpr int kM2 = 2147483399;  // modulus of the second generator
constexpr int kA1 = 40014;
constexpr int kA2 = 40692;
// Schrage's decomposition m = a*q + r with r < q keeps a*x mod m inside 32 bits.
constexpr int kQ1 = 53668;
constexpr int kQ2 = 52774;
constexpr int kR1 = 12211;
constexpr int kR2 = 3791;
constexpr int kTableSize = 32;
constexpr int kDiv = 1 + (kM1 - 1) / kTableSize;  // 67108862
constexpr float kScale = 4.656613e-10f;           // about 1 / kM1, single precision
constexpr float kLargest = 0.99999988f;           // 1 - single-precision epsilon

// Shared by every generator object.
int g_second = 123456789;
int g_last = 0;
int g_table[kTableSize];

inline void Step(int& x, int a, int m, int q, int r) {
  const int k = x / q;
  x = a * (x - k * q) - k * r;
  if (x < 0) x += m;
}

}  // namespace

float VQ_RandomNumGen::Next(int& seed) {
  if (seed <= 0) {
    seed = (-seed < 1) ? 1 : -seed;
    g_second = seed;
    for (int j = kTableSize + 7; j >= 0; --j) {
      Step(seed, kA1, kM1, kQ1, kR1);
      if (j < kTableSize) g_table[j] = seed;
    }
    g_last = g_table[0];
  }
  Step(seed, kA1, kM1, kQ1, kR1);
  Step(g_second, kA2, kM2, kQ2, kR2);
  const int j = g_last / kDiv;
  g_last = g_table[j] - g_second;
  g_table[j] = seed;
  if (g_last < 1) g_last += kM1 - 1;
  const float value = static_cast<float>(g_last) * kScale;
  return value > kLargest ? kLargest : value;
}
