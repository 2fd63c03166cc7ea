"""Input conversion: every form of a symmetric matrix gives the same library matrix, and bad
input raises ValueError before any work."""
import numpy as np
import pytest
import scipy.sparse as sp

import vqmath


def arrays(A):
    rp, ci, v = A.arrays()
    return rp.copy(), ci.copy(), v.copy()


FORMS = {
    "csr full": lambda K: K.tocsr(),
    "csc full": lambda K: K.tocsc(),
    "coo full": lambda K: K.tocoo(),
    "upper csr": lambda K: sp.triu(K).tocsr(),
    "lower csc": lambda K: sp.tril(K).tocsc(),
    "lower coo": lambda K: sp.tril(K).tocoo(),
    "int64 csr": lambda K: _int64(K.tocsr()),
    "int64 coo": lambda K: _int64_coo(sp.triu(K).tocoo()),
    "unsorted duplicates": lambda K: _split_duplicates(sp.triu(K).tocoo()),
    "dense": lambda K: K.toarray(),
    "fortran dense": lambda K: np.asfortranarray(K.toarray()),
}


def _int64(A):
    A.indptr, A.indices = A.indptr.astype(np.int64), A.indices.astype(np.int64)
    return A


def _int64_coo(A):
    return sp.coo_matrix((A.data, (A.row.astype(np.int64), A.col.astype(np.int64))), shape=A.shape)


def _split_duplicates(A):
    # Every entry given as two halves, in reversed order: they must be summed.
    order = np.arange(A.nnz)[::-1]
    r, c, v = A.row[order], A.col[order], A.data[order] / 2
    return sp.coo_matrix((np.r_[v, v], (np.r_[r, r], np.r_[c, c])), shape=A.shape)


@pytest.mark.parametrize("form", FORMS)
def test_every_form_gives_the_same_matrix(solid, form):
    K = solid[0]
    reference = arrays(vqmath.as_matrix(sp.triu(K).tocsr()))
    got = arrays(vqmath.as_matrix(FORMS[form](K)))
    np.testing.assert_array_equal(got[0], reference[0])
    np.testing.assert_array_equal(got[1], reference[1])
    np.testing.assert_allclose(got[2], reference[2], rtol=1e-15)


def test_layout_is_upper_rows_with_the_diagonal_first():
    # A zero diagonal entry missing from the input is stored all the same.
    A = sp.csr_matrix(np.array([[0.0, 2.0, 0.0], [2.0, 5.0, 1.0], [0.0, 1.0, 4.0]]))
    A.eliminate_zeros()
    rp, ci, v = vqmath.as_matrix(A).arrays()
    np.testing.assert_array_equal(rp, [1, 3, 5, 6])
    np.testing.assert_array_equal(ci, [1, 2, 2, 3, 3])
    np.testing.assert_array_equal(v, [0.0, 2.0, 5.0, 1.0, 4.0])
    assert not v.flags.writeable


def test_other_sparse_formats_warn_once_and_convert(solid):
    with pytest.warns(sp.SparseEfficiencyWarning):
        A = vqmath.as_matrix(solid[0].tolil())
    assert A.nnz == vqmath.as_matrix(solid[0]).nnz


BAD_MATRICES = {
    "not square": (sp.random(4, 5, density=0.5, format="csr"), "square"),
    "not square dense": (np.ones((3, 4)), "square"),
    "one-dimensional K": (np.ones(3), "square"),
    "unsymmetric": (sp.csr_matrix(np.array([[2.0, 1.0], [0.5, 2.0]])), "not symmetric"),
    "one-sided entry": (sp.csr_matrix(np.array([[2.0, 1.0, 0.0], [1.0, 2.0, 0.0], [5.0, 0.0, 2.0]])),
                        "not symmetric"),
    "unsymmetric dense": (np.array([[2.0, 1.0], [1.1, 2.0]]), "not symmetric"),
    "nan": (sp.csr_matrix(np.array([[np.nan, 0.0], [0.0, 1.0]])), "finite"),
    "inf dense": (np.array([[np.inf, 0.0], [0.0, 1.0]]), "finite"),
    "complex": (sp.csr_matrix(np.eye(2) * (1 + 1j)), "complex"),
    "empty": (sp.csr_matrix((0, 0)), "empty"),
}


@pytest.mark.parametrize("case", BAD_MATRICES)
def test_bad_matrices_raise_value_error(case):
    A, text = BAD_MATRICES[case]
    with pytest.raises(ValueError, match=text):
        vqmath.as_matrix(A, "K")


def test_indices_out_of_range_raise_value_error():
    A = sp.coo_matrix(([1.0], ([0], [0])), shape=(2, 2))
    A.row = np.array([5], dtype=np.int64)
    with pytest.raises(ValueError, match="outside"):
        vqmath.as_matrix(A)


K2 = sp.csr_matrix(np.array([[4.0, 1.0], [1.0, 3.0]]))
BAD_CALLS = {
    "solve F rows": lambda: vqmath.solve(K2, np.ones(3)),
    "solve F nan": lambda: vqmath.solve(K2, np.array([1.0, np.nan])),
    "solve F complex": lambda: vqmath.solve(K2, np.ones(2) * 1j),
    "modes M order": lambda: vqmath.modes(K2, np.ones(3), 1),
    "modes M nan": lambda: vqmath.modes(K2, np.array([1.0, np.nan]), 1),
    "modes k": lambda: vqmath.modes(K2, np.ones(2), 0),
    "modes method": lambda: vqmath.modes(K2, np.ones(2), 1, method="power"),
    "modes block size": lambda: vqmath.modes(K2, np.ones(2), 1, method="block", block=-1),
    "buckling block size": lambda: vqmath.buckling(K2, np.ones(2), 1, method="block", block=-1),
    "modes tol": lambda: vqmath.modes(K2, np.ones(2), 1, tol=-1.0),
    "modes interval": lambda: vqmath.modes(K2, np.ones(2), 1, interval=(2.0, 1.0)),
    "modes direction": lambda: vqmath.modes(K2, np.ones(2), 1, direction=np.ones(3)),
    "modes load": lambda: vqmath.modes(K2, np.ones(2), 1, method="ritz", load=np.ones(5)),
    "modes shift": lambda: vqmath.modes(K2, np.ones(2), 1, shift=np.nan),
    "dense limit": lambda: vqmath.modes(sp.identity(700, format="csr"), np.ones(700), 1, method="jacobi"),
    "buckling feast": lambda: vqmath.buckling(K2, np.ones(2), 1, method="feast"),
    "band bounds": lambda: vqmath.band(K2, np.ones(2), 5.0, 1.0),
    "sturm sigma": lambda: vqmath.sturm_count(K2, np.ones(2), np.inf),
    "settings out of core": lambda: vqmath.solve(K2, np.ones(2), settings=vqmath.Settings(out_of_core=3)),
    "settings threads": lambda: vqmath.solve(K2, np.ones(2), settings=vqmath.Settings(threads=0)),
    "effective mass direction": lambda: vqmath.effective_mass(np.ones((2, 1)), np.ones(2), np.zeros(2)),
}


@pytest.mark.parametrize("case", BAD_CALLS)
def test_bad_arguments_raise_value_error(case):
    with pytest.raises(ValueError):
        BAD_CALLS[case]()
