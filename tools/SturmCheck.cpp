#include "SturmCheck.h"

#include <algorithm>
#include <cmath>

#include "vqmath.h"

// Referenced weakly, like the entry points: vqsolve also runs against a library without them.
#pragma weak VQ_SetSingularPivotRatio
#pragma weak VQ_GetSingularPivotRatio

namespace vqsolve {

using vqmath::models::CsrMatrix;

CsrMatrix ShiftedMatrix(const Pencil& pencil, double sigma)
{
    if (pencil.b) return vqmath::models::Shifted(*pencil.k, *pencil.b, sigma);
    return vqmath::models::Shifted(*pencil.k, *pencil.diagonal, sigma);
}

SturmCount CountBelow(const Pencil& pencil, double sigma, const DirectOptions& options)
{
    SturmCount c;
    c.shift = sigma;
    const CsrMatrix shifted = ShiftedMatrix(pencil, sigma);
    DirectOptions o = options;
    o.matrixType = -2;
    o.diagonals = false;
    // Only the inertia is wanted: a shift next to an eigenvalue is no failure here, so the
    // library's pivot test is off for this factorisation.
    const double ratio = VQ_SetSingularPivotRatio ? VQ_GetSingularPivotRatio() : 0.0;
    if (VQ_SetSingularPivotRatio) VQ_SetSingularPivotRatio(0.0);
    const DirectResult r = FactorForInertia(shifted, o);
    if (VQ_SetSingularPivotRatio) VQ_SetSingularPivotRatio(ratio);
    c.code = r.code;
    c.seconds = r.seconds;
    // An indefinite K − σB solves with warning -85: the counts are what we are after.
    if (r.code != 0 && r.code != -85) c.message = r.registry.message;
    c.negativePivots = r.registry.negativePivots;
    c.positivePivots = r.registry.positivePivots;
    return c;
}

double ShiftBeside(double value, int direction, double scale)
{
    // Far enough from the value to lie clear of the solver's error (converged to about 1e-6
    // or better), close enough not to reach the next eigenvalue of a well-separated spectrum.
    const double step = 1e-5 * std::max(std::fabs(value), 1e-6 * scale);
    return value + direction * step;
}

namespace {

// A size of the spectrum: the mean ratio of the diagonals of K and B over the equations with
// B's diagonal non-zero.
double SpectrumScale(const Pencil& pencil)
{
    const CsrMatrix& k = *pencil.k;
    double sum = 0.0;
    int count = 0;
    for (int i = 0; i < k.n; ++i) {
        const double kii = k.values[k.rowPointers[i] - 1];
        const double bii = pencil.b ? pencil.b->values[pencil.b->rowPointers[i] - 1] : (*pencil.diagonal)[i];
        if (bii > 0.0 && kii > 0.0) {
            sum += kii / bii;
            ++count;
        }
    }
    return count ? sum / count : 1.0;
}

}  // namespace

SturmCheck CheckFound(const Pencil& pencil, const std::vector<double>& found, bool aboveOnly,
                      const DirectOptions& options)
{
    SturmCheck s;
    if (found.empty() || !DirectSolverAvailable()) return s;
    const double scale = SpectrumScale(pencil);
    const double highest = *std::max_element(found.begin(), found.end());
    const double lowest = *std::min_element(found.begin(), found.end());
    s.shift = ShiftBeside(highest, +1, scale);
    const SturmCount above = CountBelow(pencil, s.shift, options);
    s.seconds += above.seconds;
    if (above.message.size()) {
        s.code = above.code;
        s.message = above.message;
        return s;
    }
    s.counted = above.negativePivots;
    s.found = static_cast<int>(found.size());
    if (aboveOnly) {
        s.interval = true;
        s.lowerShift = ShiftBeside(lowest, -1, scale);
        const SturmCount below = CountBelow(pencil, s.lowerShift, options);
        s.seconds += below.seconds;
        if (below.message.size()) {
            s.code = below.code;
            s.message = below.message;
            return s;
        }
        s.counted -= below.negativePivots;
    }
    s.done = true;
    s.passed = s.counted == s.found;
    return s;
}

double UpperBoundFor(const Pencil& pencil, int count, double lowerBound, const DirectOptions& options,
                     int* counted)
{
    // Start from the smallest Rayleigh quotient of a unit vector, min k_ii / b_ii, which lies
    // above the lowest eigenvalue, and grow σ geometrically until enough eigenvalues lie below.
    const CsrMatrix& k = *pencil.k;
    double sigma = 0.0;
    for (int i = 0; i < k.n; ++i) {
        const double kii = k.values[k.rowPointers[i] - 1];
        const double bii = pencil.b ? pencil.b->values[pencil.b->rowPointers[i] - 1] : (*pencil.diagonal)[i];
        if (bii > 0.0 && kii > 0.0 && (sigma == 0.0 || kii / bii < sigma)) sigma = kii / bii;
    }
    // Just above that ratio: exactly at it K − σB has a zero diagonal entry, which the library
    // reports as singular.
    sigma *= 1.0 + 1e-9;
    if (sigma <= 0.0) sigma = 1.0;
    sigma = std::max(sigma, lowerBound + std::fabs(lowerBound) * 1e-3 + 1e-12);
    double previous = lowerBound;
    for (int attempt = 0; attempt < 60; ++attempt) {
        const SturmCount c = CountBelow(pencil, sigma, options);
        if (!c.message.empty()) throw SolverError(c.code, c.message);
        if (c.negativePivots >= count) {
            if (counted) *counted = c.negativePivots;
            // Tighten when far too many lie below: FEAST's subspace must hold them all.
            if (c.negativePivots > 2 * count + 10 && attempt < 58) {
                double lo = previous, hi = sigma;
                for (int b = 0; b < 8; ++b) {
                    const double mid = 0.5 * (lo + hi);
                    const SturmCount m = CountBelow(pencil, mid, options);
                    if (!m.message.empty()) throw SolverError(m.code, m.message);
                    if (m.negativePivots >= count) {
                        hi = mid;
                        if (counted) *counted = m.negativePivots;
                        if (m.negativePivots <= count + count / 2 + 2) break;
                    } else {
                        lo = mid;
                    }
                }
                return hi;
            }
            return sigma;
        }
        previous = sigma;
        // Few eigenvalues below: the spectrum grows like λ ~ index^(2/3) in a 3D solid; step
        // by a factor that reaches the wanted count quickly without overshooting far.
        const double ratio = c.negativePivots > 0 ? static_cast<double>(count) / c.negativePivots : 4.0;
        sigma *= std::min(4.0, std::max(1.3, std::pow(ratio, 1.0) * 1.1));
    }
    throw SolverError(-4, "could not bracket the lowest " + std::to_string(count) + " eigenvalues");
}

}  // namespace vqsolve
