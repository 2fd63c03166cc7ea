"""Shared models of the Python tests: small generated solids and the structural pairs of the
shared data folder (tests that need those skip when it is absent)."""
import os
import pathlib

import numpy as np
import pytest
import scipy.io
import scipy.sparse as sp

import vqmath

DATA = pathlib.Path(os.environ.get(
    "VQMATH_SHARED_DATA_DIR",
    pathlib.Path(__file__).resolve().parents[3] / "shared" / "data"))


def shared_pair(number):
    k, m = DATA / f"bcsstk{number:02d}.mtx", DATA / f"bcsstm{number:02d}.mtx"
    if not (k.exists() and m.exists()):
        pytest.skip(f"shared structural matrices not found in {DATA}")
    return scipy.io.mmread(str(k)).tocsr(), scipy.io.mmread(str(m)).tocsr()


@pytest.fixture(scope="session")
def solid():
    """A clamped bar of about 300 equations: full K (scipy CSR), lumped mass, consistent mass."""
    K, lumped, M = vqmath.solid_model(300, consistent=True)
    return vqmath.to_scipy(K), lumped, vqmath.to_scipy(M)


def dense_eigh(K, M):
    import scipy.linalg
    A = K.toarray() if sp.issparse(K) else np.asarray(K)
    B = M.toarray() if sp.issparse(M) else (np.diag(M) if np.ndim(M) == 1 else np.asarray(M))
    return scipy.linalg.eigh(A, B)
