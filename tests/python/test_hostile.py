"""Hostile input on every public function: ValueError for bad values and shapes, TypeError for
arguments of the wrong kind, vqmath.Error for what the library rejects, never a crash; input
that is merely unusual (read-only, strided, other dtypes, 64-bit indices) gives the result of
plain input."""
import os

import numpy as np
import pytest
import scipy.sparse as sp

import vqmath

K2 = sp.csr_matrix(np.array([[4.0, 1.0], [1.0, 3.0]]))
M2 = np.ones(2)
F2 = np.ones(2)
V2 = np.eye(2)
BEYOND = 2**31 + 5          # an order or count that 32-bit indices cannot hold
NAN, INF = float("nan"), float("inf")


def coo(rows, cols, n=2, dtype=np.int64):
    """A 1-entry COO matrix whose index arrays are replaced afterwards (past scipy's checks)."""
    A = sp.coo_matrix(([1.0] * len(rows), ([0] * len(rows), [0] * len(rows))), shape=(n, n))
    A.row, A.col = np.array(rows, dtype=dtype), np.array(cols, dtype=dtype)
    return A


def csr(**replace):
    A = K2.copy()
    for name, value in replace.items():
        setattr(A, name, value)
    return A


def with_indptr(values, dtype=np.int64):
    return csr(indptr=np.array(values, dtype=dtype))


def strings(shape):
    return np.full(shape, "x")


# (call, exception, part of the message or None)
CASES = {
    # matrices
    "K strings": (lambda: vqmath.as_matrix(strings((2, 2))), ValueError, "real numbers"),
    "K objects": (lambda: vqmath.as_matrix(np.array([[None, 1.0], [1.0, None]])), ValueError, None),
    "K 3-D": (lambda: vqmath.as_matrix(np.ones((2, 2, 2))), ValueError, "square"),
    "K 0 x 0 dense": (lambda: vqmath.as_matrix(np.zeros((0, 0))), ValueError, "empty"),
    "K 0 x 3 dense": (lambda: vqmath.as_matrix(np.zeros((0, 3))), ValueError, "square"),
    "K inf COO": (lambda: vqmath.as_matrix(sp.coo_matrix(np.diag([1.0, INF]))), ValueError, "finite"),
    "K row index beyond 32 bits": (lambda: vqmath.as_matrix(coo([2**32 + 1], [0])), ValueError, "outside"),
    "K column index wrapping 32 bits": (lambda: vqmath.as_matrix(coo([0], [-(2**32) + 1])), ValueError,
                                        "outside"),
    "K uint64 index": (lambda: vqmath.as_matrix(coo([2**64 - 1], [0], dtype=np.uint64)), ValueError, "outside"),
    "K float indices": (lambda: vqmath.as_matrix(coo([0.0], [0.0], dtype=np.float64)), ValueError, "integer"),
    "K order beyond 32 bits": (lambda: vqmath.as_matrix(coo([0], [0], n=BEYOND)), ValueError, "too large"),
    "K pointers beyond 32 bits": (lambda: vqmath.as_matrix(with_indptr([0, 2, 2**33])), ValueError, "pointers"),
    "K pointers decreasing": (lambda: vqmath.as_matrix(with_indptr([0, 3, 2], np.int32)), ValueError, None),
    "K pointers not from 0": (lambda: vqmath.as_matrix(with_indptr([1, 2, 3], np.int32)), ValueError, "span"),
    "K pointers empty": (lambda: vqmath.as_matrix(with_indptr([], np.int32)), ValueError, "pointers"),
    "K indices too short": (lambda: vqmath.as_matrix(csr(indices=K2.indices[:-1])), ValueError, None),
    # a diagonal second matrix
    "M wrong order": (lambda: vqmath.modes(K2, np.ones(3), 1), ValueError, "2 x 2"),
    "M empty": (lambda: vqmath.sturm_count(K2, np.zeros(0), 1.0), ValueError, None),
    "M strings": (lambda: vqmath.sturm_count(K2, strings(2), 1.0), ValueError, "real"),
    "M complex": (lambda: vqmath.sturm_count(K2, np.ones(2) * 1j, 1.0), ValueError, "real"),
    "M inf": (lambda: vqmath.sturm_count(K2, np.array([1.0, -INF]), 1.0), ValueError, "finite"),
    "M 3-D": (lambda: vqmath.sturm_count(K2, np.ones((2, 2, 2)), 1.0), ValueError, "square"),
    "M diagonal beyond 32 bits": (lambda: vqmath.sturm_count(coo([0], [0], n=3), np.broadcast_to(1.0, (BEYOND,)),
                                                             1.0), ValueError, None),
    # solve
    "F 3-D": (lambda: vqmath.solve(K2, np.ones((2, 1, 1))), ValueError, "rows"),
    "F no cases": (lambda: vqmath.solve(K2, np.ones((2, 0))), ValueError, "rows"),
    "F scalar": (lambda: vqmath.solve(K2, 1.0), ValueError, "rows"),
    "F None": (lambda: vqmath.solve(K2, None), ValueError, "rows"),
    "F strings": (lambda: vqmath.solve(K2, strings(2)), ValueError, "real"),
    "F objects": (lambda: vqmath.solve(K2, np.array([None, 1.0])), ValueError, None),
    "F inf": (lambda: vqmath.solve(K2, np.array([INF, 1.0])), ValueError, "finite"),
    "F cases beyond 32 bits": (lambda: vqmath.solve(K2, np.broadcast_to(1.0, (2, BEYOND))), ValueError,
                               "load cases"),
    "singular K": (lambda: vqmath.solve(sp.csr_matrix(np.diag([1.0, 0.0])), F2), vqmath.Error, "Instability"),
    # modes
    "k zero": (lambda: vqmath.modes(K2, M2, 0), ValueError, "k must"),
    "k float": (lambda: vqmath.modes(K2, M2, 1.5), TypeError, "k must"),
    "k text": (lambda: vqmath.modes(K2, M2, "3"), TypeError, "k must"),
    "k None": (lambda: vqmath.modes(K2, M2, None), TypeError, "k must"),
    "method None": (lambda: vqmath.modes(K2, M2, 1, method=None), ValueError, "method"),
    "shift text": (lambda: vqmath.modes(K2, M2, 1, shift="0"), TypeError, "shift"),
    "shift inf": (lambda: vqmath.modes(K2, M2, 1, shift=INF), ValueError, "shift"),
    "tol nan": (lambda: vqmath.modes(K2, M2, 1, tol=NAN), ValueError, "tol"),
    "tol None": (lambda: vqmath.modes(K2, M2, 1, tol=None), TypeError, "tol"),
    "interval nan": (lambda: vqmath.modes(K2, M2, 1, interval=(NAN, 1.0)), ValueError, "interval"),
    "interval of one": (lambda: vqmath.modes(K2, M2, 1, interval=(1.0,)), ValueError, "interval"),
    "block beyond int": (lambda: vqmath.modes(K2, M2, 1, block=2**40), ValueError, "block"),
    "block float": (lambda: vqmath.modes(K2, M2, 1, block=2.0), TypeError, "block"),
    "direction nan": (lambda: vqmath.modes(K2, M2, 1, direction=np.array([NAN, 1.0])), ValueError, "direction"),
    "direction strings": (lambda: vqmath.modes(K2, M2, 1, direction=strings(2)), ValueError, "direction"),
    "direction 2-D": (lambda: vqmath.modes(K2, M2, 1, direction=np.ones((2, 1))), ValueError, "direction"),
    "load inf": (lambda: vqmath.modes(K2, M2, 1, method="ritz", load=np.array([1.0, INF])), ValueError, "load"),
    "settings of another kind": (lambda: vqmath.modes(K2, M2, 1, settings={"threads": 1}), TypeError, "Settings"),
    # band
    "band fmin nan": (lambda: vqmath.band(K2, M2, NAN, 1.0), ValueError, "band"),
    "band fmax inf": (lambda: vqmath.band(K2, M2, 0.0, INF), ValueError, "band"),
    "band lower inf": (lambda: vqmath.band(K2, M2, 0.0, 1.0, lower=INF, upper=1.0), ValueError, "band"),
    "band reversed": (lambda: vqmath.band(K2, M2, 0.0, 1.0, lower=2.0, upper=1.0), ValueError, "band"),
    "band fmax text": (lambda: vqmath.band(K2, M2, 0.0, "1"), TypeError, "fmax"),
    "band direction": (lambda: vqmath.band(K2, M2, 0.0, 1.0, direction=np.ones(3)), ValueError, "direction"),
    "band M nan": (lambda: vqmath.band(K2, np.array([NAN, 1.0]), 0.0, 1.0), ValueError, "finite"),
    # buckling
    "buckling shift nan": (lambda: vqmath.buckling(K2, M2, 1, shift=NAN), ValueError, "shift"),
    "buckling Kg empty": (lambda: vqmath.buckling(K2, np.zeros(0), 1), ValueError, None),
    "buckling Kg wrong order": (lambda: vqmath.buckling(K2, sp.identity(3, format="csr"), 1), ValueError,
                                "3 x 3"),
    "buckling k negative": (lambda: vqmath.buckling(K2, M2, -1), ValueError, "k must"),
    # sturm_count
    "sigma nan": (lambda: vqmath.sturm_count(K2, M2, NAN), ValueError, "sigma"),
    "sigma None": (lambda: vqmath.sturm_count(K2, M2, None), TypeError, "sigma"),
    "sigma complex": (lambda: vqmath.sturm_count(K2, M2, 1j), TypeError, "sigma"),
    # effective_mass
    "vectors 1-D": (lambda: vqmath.effective_mass(np.ones(2), M2, F2), ValueError, "vectors"),
    "vectors wrong rows": (lambda: vqmath.effective_mass(np.ones((3, 1)), M2, F2), ValueError, "vectors"),
    "vectors nan": (lambda: vqmath.effective_mass(np.array([[NAN], [1.0]]), M2, F2), ValueError, "finite"),
    "vectors strings": (lambda: vqmath.effective_mass(strings((2, 1)), M2, F2), ValueError, "real"),
    "vectors complex": (lambda: vqmath.effective_mass(V2 * 1j, M2, F2), ValueError, "complex"),
    "direction without mass": (lambda: vqmath.effective_mass(V2, np.array([1.0, 0.0]), np.array([0.0, 1.0])),
                               ValueError, "mass"),
    "direction inf": (lambda: vqmath.effective_mass(V2, M2, np.array([INF, 0.0])), ValueError, "direction"),
    "massless mode": (lambda: vqmath.effective_mass(np.array([[0.0], [1.0]]), np.array([1.0, 0.0]), F2),
                      vqmath.Error, None),
    # Settings
    "threads zero": (lambda: vqmath.solve(K2, F2, settings=vqmath.Settings(threads=0)), ValueError, "threads"),
    "threads beyond int": (lambda: vqmath.solve(K2, F2, settings=vqmath.Settings(threads=2**40)), ValueError,
                           "threads"),
    "threads text": (lambda: vqmath.solve(K2, F2, settings=vqmath.Settings(threads="2")), TypeError, "threads"),
    "core size beyond int": (lambda: vqmath.solve(K2, F2, settings=vqmath.Settings(core_size=2**40)),
                             ValueError, "core_size"),
    "core size negative": (lambda: vqmath.solve(K2, F2, settings=vqmath.Settings(core_size=-5)), ValueError,
                           "core_size"),
    "out of core 3": (lambda: vqmath.solve(K2, F2, settings=vqmath.Settings(out_of_core=3)), ValueError,
                      "out_of_core"),
    "out of core text": (lambda: vqmath.solve(K2, F2, settings=vqmath.Settings(out_of_core="1")), TypeError,
                         "out_of_core"),
    "working dir number": (lambda: vqmath.solve(K2, F2, settings=vqmath.Settings(working_dir=5)), TypeError,
                           "working_dir"),
    "working dir NUL": (lambda: vqmath.solve(K2, F2, settings=vqmath.Settings(working_dir="/tmp\0x")),
                        ValueError, "working_dir"),
    "solid model too large": (lambda: vqmath.solid_model(2**40), ValueError, "equations"),
}


@pytest.mark.parametrize("case", CASES)
def test_hostile_input_raises_the_documented_exception(case):
    call, exception, text = CASES[case]
    with pytest.raises(exception) as caught:
        call()
    if text:
        assert text in str(caught.value)
    # The library is still in order afterwards.
    np.testing.assert_allclose(vqmath.solve(K2, F2), np.linalg.solve(K2.toarray(), F2), rtol=1e-12)


def read_only(a):
    a = np.array(a)
    a.setflags(write=False)
    return a


def strided(a):
    """The same values as a view that is not contiguous."""
    a = np.asarray(a)
    wide = np.zeros(a.shape[:-1] + (2 * a.shape[-1],), dtype=a.dtype) if a.ndim else a
    wide[..., ::2] = a
    return wide[..., ::2]


def read_only_sparse(K):
    K = K.tocsr(copy=True)
    for name in ("data", "indices", "indptr"):
        getattr(K, name).setflags(write=False)
    return K


UNUSUAL = {
    "read-only": dict(K=read_only_sparse, F=read_only, M=read_only, d=read_only),
    "strided": dict(K=lambda K: strided(K.toarray()), F=strided, M=strided, d=strided),
    "Fortran loads": dict(F=np.asfortranarray),
    "float32 and dense": dict(K=lambda K: K.toarray(), F=lambda F: F.astype(np.float32),
                              M=lambda M: M.astype(np.float32)),
    "integer loads": dict(F=lambda F: F.astype(np.int64)),
    "int64 indices": dict(K=lambda K: sp.csr_matrix((K.data, K.indices.astype(np.int64),
                                                      K.indptr.astype(np.int64)), shape=K.shape)),
    "lists": dict(F=lambda F: F.tolist(), M=lambda M: M.tolist(), d=lambda d: d.tolist()),
}


@pytest.fixture(scope="module")
def small():
    K, lumped, _ = vqmath.solid_model(150)
    K = vqmath.to_scipy(K)
    n = K.shape[0]
    F = np.arange(2.0 * n).reshape(n, 2) % 7 - 3.0     # exact in float32 too
    lumped = np.round(lumped * 2**10) / 2**10          # likewise
    return K, lumped, F, np.tile([1.0, 0.0, 0.0], n // 3)


def every_function(K, M, F, d):
    r = vqmath.modes(K, M, 4, direction=d)
    w = r.eigenvalues
    return {
        "solve": vqmath.solve(K, F),
        "modes": w,
        "participation": r.participation,
        "band": vqmath.band(K, M, 0.0, 0.0, lower=0.5 * w[0], upper=w[3] * 1.0001).eigenvalues,
        "buckling": vqmath.buckling(K, M, 2, method="block").eigenvalues,
        "sturm": vqmath.sturm_count(K, M, 0.5 * (w[2] + w[3])),
        "effective mass": vqmath.effective_mass(r.vectors, M, d)[1],
    }


@pytest.mark.parametrize("form", UNUSUAL)
def test_unusual_but_valid_input_gives_the_plain_result(small, form):
    K, M, F, d = small
    plain = every_function(K, M, F, d)
    change = UNUSUAL[form]
    got = every_function(*(change.get(key, lambda x: x)(value)
                           for key, value in zip("KMFd", (K, M, F, d))))
    for key in plain:
        np.testing.assert_allclose(got[key], plain[key], rtol=1e-9, err_msg=key)


def test_effective_mass_of_no_modes_and_of_strided_shapes(small):
    K, M, _, d = small
    r = vqmath.modes(K, M, 3)
    p, f = vqmath.effective_mass(r.vectors[:, :0], M, d)
    assert p.shape == f.shape == (0,)
    reversed_view = r.vectors[::-1, ::-1][::-1]          # negative column stride
    p2, f2 = vqmath.effective_mass(reversed_view, M, d)
    p1, f1 = vqmath.effective_mass(r.vectors[:, ::-1], M, d)
    np.testing.assert_allclose(p2, p1, rtol=1e-12)
    np.testing.assert_allclose(f2, f1, rtol=1e-12)


def test_working_dir_as_a_path_object(small, tmp_path):
    K, M, F, _ = small
    s = vqmath.Settings(out_of_core=2, working_dir=tmp_path)
    np.testing.assert_allclose(vqmath.solve(K, F, settings=s), vqmath.solve(K, F), rtol=1e-10)
    assert os.listdir(tmp_path) == []
