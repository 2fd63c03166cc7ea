"""Results against independent truth: numpy.linalg.solve, scipy.linalg.eigh, Sturm counts of
the dense spectrum, closed forms of the effective mass."""
import numpy as np
import pytest
import scipy.linalg
import scipy.sparse as sp

import vqmath
from conftest import dense_eigh, shared_pair


def gaps(w, count):
    """Indices i with w[i] clearly below w[i + 1] (the bar has pairs of equal eigenvalues)."""
    return [i for i in range(len(w) - 1) if w[i + 1] > w[i] * (1 + 1e-6)][:count]


@pytest.mark.parametrize("nrhs", [None, 1, 3])
@pytest.mark.parametrize("definite", [True, False])
def test_solve_matches_numpy(solid, nrhs, definite):
    K = solid[0]
    rng = np.random.default_rng(1)
    F = rng.standard_normal(K.shape[0] if nrhs is None else (K.shape[0], nrhs))
    x, inertia = vqmath.solve(K, F, definite=definite, return_inertia=True)
    assert x.shape == F.shape
    np.testing.assert_allclose(x, np.linalg.solve(K.toarray(), F), rtol=1e-8, atol=1e-14)
    assert inertia == (0, K.shape[0])


def test_solve_indefinite_reports_the_inertia():
    A = np.diag([4.0, -2.0, 3.0, -1.0]) + 0.1 * (np.eye(4, k=1) + np.eye(4, k=-1))
    x, inertia = vqmath.solve(A, np.ones(4), definite=False, return_inertia=True)
    np.testing.assert_allclose(A @ x, np.ones(4), atol=1e-12)
    assert inertia == (2, 2)


def test_singular_model_raises_error_with_the_equation():
    A = sp.csr_matrix(np.diag([2.0, 3.0, 0.0, 1.0]))
    with pytest.raises(vqmath.Error) as caught:
        vqmath.solve(A, np.ones(4))
    e = caught.value
    assert isinstance(e, RuntimeError)
    assert e.code == -3 and e.equation == 3
    assert e.message and str(e).startswith("vqmath error -3: ")


@pytest.mark.parametrize("method", ["block", "lanczos", "subspace", "feast", "lapack", "jacobi"])
@pytest.mark.parametrize("mass", ["lumped", "consistent"])
def test_modes_match_eigh(solid, method, mass):
    K, lumped, M = solid
    B = lumped if mass == "lumped" else M
    w, _ = dense_eigh(K, B)
    r = vqmath.modes(K, B, 6, method=method, residual=True)
    rtol = 1e-6 if method == "subspace" else 1e-9
    np.testing.assert_allclose(r.eigenvalues, w[:6], rtol=rtol)
    np.testing.assert_allclose(r.frequencies, np.sqrt(w[:6]) / (2 * np.pi), rtol=rtol)
    assert r.vectors.shape == (K.shape[0], 6) and r.vectors.flags.f_contiguous
    assert r.sturm_passed and r.sturm_count == 6
    assert np.all(r.residuals < (1e-4 if method == "subspace" else 1e-8))
    # M-orthonormal mode shapes.
    MV = (np.diag(B) if B.ndim == 1 else B) @ r.vectors
    np.testing.assert_allclose(r.vectors.T @ MV, np.eye(6), atol=1e-6)


def test_ritz_vectors_bound_the_lowest_eigenvalue(solid):
    K, lumped, _ = solid
    w, _ = dense_eigh(K, lumped)
    r = vqmath.modes(K, lumped, 6, method="ritz")
    assert len(r.eigenvalues) == 6 and r.eigenvalues[0] >= w[0] * (1 - 1e-9)
    assert r.sturm_passed is None


@pytest.mark.parametrize("number", [1, 5, 7, 22])
def test_modes_of_shared_structural_pairs(number):
    K, M = shared_pair(number)
    # M may have massless equations: the inverse form M x = mu K x gives lambda = 1 / mu.
    mu = scipy.linalg.eigh(M.toarray(), K.toarray(), eigvals_only=True)
    w = np.sort(1.0 / mu[mu > 1e-12 * mu.max()])
    r = vqmath.modes(K, M, 8)
    np.testing.assert_allclose(r.eigenvalues, w[:8], rtol=1e-8)
    assert r.sturm_passed


def test_shift_and_interval_select_the_right_modes(solid):
    K, lumped, _ = solid
    w, _ = dense_eigh(K, lumped)
    i, j = gaps(w, 6)[2], gaps(w, 6)[5]
    r = vqmath.modes(K, lumped, 4, shift=0.5 * (w[i] + w[i + 1]))
    assert all(np.isclose(w, v, rtol=1e-9).any() for v in r.eigenvalues)
    assert r.sturm_passed and len(r.sturm_shifts) == 2
    lo, hi = 0.5 * (w[i] + w[i + 1]), 0.5 * (w[j] + w[j + 1])
    f = vqmath.modes(K, lumped, j - i, method="feast", interval=(lo, hi))
    np.testing.assert_allclose(f.eigenvalues, w[i + 1:j + 1], rtol=1e-9)


@pytest.mark.parametrize("mass", ["lumped", "consistent"])
@pytest.mark.parametrize("width", [8, 60])   # 60 modes: the library cuts the band into slices
def test_band_finds_every_mode_with_its_sturm_proof(solid, mass, width):
    K, lumped, M = solid
    B = lumped if mass == "lumped" else M
    w, V = dense_eigh(K, B)
    f = np.sqrt(w) / (2 * np.pi)
    cuts = gaps(w, width + 2)
    i, j = cuts[1], cuts[width + 1]
    fmin, fmax = 0.5 * (f[i] + f[i + 1]), 0.5 * (f[j] + f[j + 1])
    r = vqmath.band(K, B, fmin, fmax, residual=True)
    np.testing.assert_allclose(r.eigenvalues, w[i + 1:j + 1], rtol=1e-9)
    assert r.sturm_count == j - i and r.sturm_passed and r.method == "band"
    assert np.all(r.residuals < 1e-8)
    MV = (np.diag(B) if B.ndim == 1 else B) @ r.vectors
    np.testing.assert_allclose(r.vectors.T @ MV, np.eye(j - i), atol=1e-8)
    empty = vqmath.band(K, B, 0.0, 0.5 * f[0])
    assert len(empty.eigenvalues) == 0 and empty.sturm_count == 0 and empty.sturm_passed
    values_only = vqmath.band(K, B, fmin, fmax, return_eigenvectors=False)
    assert values_only.vectors is None
    np.testing.assert_allclose(values_only.eigenvalues, r.eigenvalues, rtol=1e-9)


def test_band_from_zero_holds_the_rigid_body_mode():
    # A free-free chain of springs: lambda = 4 sin^2(k pi / 2n), k = 0 the rigid-body mode.
    n = 120
    K = sp.diags([-np.ones(n - 1), np.r_[1.0, 2.0 * np.ones(n - 2), 1.0], -np.ones(n - 1)],
                 [-1, 0, 1]).tocsr()
    w = 4 * np.sin(np.arange(n) * np.pi / (2 * n)) ** 2
    r = vqmath.band(K, np.ones(n), 0.0, np.sqrt(w[5]) / (2 * np.pi) * 1.001)
    assert r.sturm_count == 6 and r.sturm_passed
    np.testing.assert_allclose(r.eigenvalues, w[:6], atol=1e-10)


@pytest.mark.parametrize("method", ["block", "lanczos", "lapack", "subspace"])
def test_buckling_matches_eigh(solid, method):
    K, _, Kg = solid   # the consistent mass serves as a positive definite geometric stiffness
    w, _ = dense_eigh(K, Kg)
    r = vqmath.buckling(K, Kg, 5, method=method)
    np.testing.assert_allclose(r.eigenvalues, w[:5], rtol=1e-6 if method == "subspace" else 1e-9)
    assert r.sturm_passed


@pytest.mark.parametrize("method", ["block", "lanczos"])
def test_buckling_of_a_diagonal_pencil(method):
    # K - sigma Kg has a zero diagonal at sigma = k_ii / g_ii: no shift may sit there.
    K, G = sp.diags([4.0, 6.0, 9.0]).tocsr(), np.array([2.0, 1.0, 1.0])
    r = vqmath.buckling(K, G, 2, method=method)
    np.testing.assert_allclose(r.eigenvalues, [2.0, 6.0], rtol=1e-12)
    assert r.sturm_passed


def test_sturm_count_counts_the_dense_spectrum(solid):
    K, lumped, M = solid
    for B in (lumped, M):
        w, _ = dense_eigh(K, B)
        for index in gaps(w, 40)[::13]:
            sigma = 0.5 * (w[index] + w[index + 1])
            assert vqmath.sturm_count(K, B, sigma) == index + 1


def test_effective_mass_of_all_modes_sums_to_one(solid):
    K, lumped, _ = solid
    n = K.shape[0]
    direction = np.tile([1.0, 0.0, 0.0], n // 3)
    r = vqmath.modes(K, lumped, n, method="lapack", direction=direction)
    assert r.effective_mass.sum() == pytest.approx(1.0, rel=1e-9)
    # Bending modes of the bar in y and z carry no mass along x.
    assert r.effective_mass[0] < 1e-12
    w, V = dense_eigh(K, lumped)
    gamma = V.T @ (lumped * direction)
    np.testing.assert_allclose(np.abs(r.participation), np.abs(gamma), atol=1e-9 * np.abs(gamma).max())


def test_solver_failure_raises_error_with_the_registry_code():
    # Subspace iteration above every eigenvalue of the model finds nothing.
    K = sp.csr_matrix(np.diag([1.0, 2.0]))
    with pytest.raises(vqmath.Error) as caught:
        vqmath.modes(K, np.ones(2), 2, method="subspace", shift=5.0, verify=False)
    assert caught.value.code == -21
    assert caught.value.message.startswith("Eigenvalue Solution Failed.")
    assert caught.value.eigenvalues is None


def test_sturm_check_accepts_k_ending_inside_a_pair(solid):
    K, lumped, _ = solid
    r = vqmath.modes(K, lumped, 1)   # the lowest eigenvalue of the square bar is double
    assert r.sturm_count == 2 and r.sturm_passed and r.notes


@pytest.mark.parametrize("settings", [
    vqmath.Settings(threads=1),
    vqmath.Settings(out_of_core=1),
    vqmath.Settings(out_of_core=2, core_size=64),
], ids=["one thread", "out of core when needed", "always out of core"])
def test_settings_of_a_call_give_the_same_results(solid, settings, tmp_path):
    K, lumped, _ = solid
    settings = vqmath.Settings(settings.threads, settings.out_of_core, settings.core_size,
                               str(tmp_path))
    F = np.arange(K.shape[0], dtype=float)
    np.testing.assert_allclose(vqmath.solve(K, F, settings=settings), vqmath.solve(K, F), rtol=1e-10)
    r = vqmath.modes(K, lumped, 3, settings=settings)
    np.testing.assert_allclose(r.eigenvalues, vqmath.modes(K, lumped, 3).eigenvalues, rtol=1e-10)


@pytest.mark.parametrize("problem", ["modes", "buckling"])
def test_lanczos_in_passes_matches_eigh(solid, problem):
    K, lumped, M = solid
    B = lumped if problem == "modes" else M
    w, _ = dense_eigh(K, B)
    r = getattr(vqmath, problem)(K, B, 5, block=2)
    np.testing.assert_allclose(r.eigenvalues, w[:5], rtol=1e-6)
    assert r.sturm_passed
