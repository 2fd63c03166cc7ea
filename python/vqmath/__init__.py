"""vqmath: sparse direct solution and eigen analysis of structural models.

Static solution K x = F by Intel MKL PARDISO, natural modes K phi = lambda M phi and buckling
modes K phi = lambda Kg phi by shift-invert Lanczos (ARPACK), subspace iteration, FEAST,
load-dependent Ritz vectors or dense LAPACK/Jacobi, every eigen solution checked by a Sturm
sequence count. Matrices are scipy.sparse matrices of any format or dense numpy arrays; a
symmetric matrix may be given in full or as one triangle. Results are numpy arrays.

Bad input raises ValueError (values, shapes, sizes beyond the library's 32-bit indices) or
TypeError (an argument of the wrong kind) before any work; failures of the library raise
vqmath.Error with its status code.

Examples
--------
>>> import vqmath
>>> x = vqmath.solve(K, F)
>>> r = vqmath.modes(K, M, 20)
>>> r.frequencies, r.sturm_passed
"""
from __future__ import annotations

import math
import operator
import os
import sys
import tempfile
import warnings
from dataclasses import dataclass, field
from typing import NamedTuple, Optional, Sequence, Tuple

import numpy as np

# Intel MKL loads its computational kernels at run time and resolves them against its core
# library, which must therefore be loaded into the global symbol scope: Python's default
# (RTLD_LOCAL) would leave it invisible to them.
_dlopen_flags = sys.getdlopenflags()
sys.setdlopenflags(_dlopen_flags | os.RTLD_GLOBAL)
try:
    from . import _core
finally:
    sys.setdlopenflags(_dlopen_flags)

__all__ = [
    "Error", "SturmWarning", "Settings", "Inertia", "ModesResult", "METHODS",
    "as_matrix", "solve", "modes", "band", "buckling", "sturm_count", "effective_mass",
    "solid_model",
]

#: Methods of :func:`modes` and :func:`buckling`.
METHODS = ("lanczos", "subspace", "feast", "ritz", "lapack", "jacobi", "block")
_DENSE_LIMIT = {"lapack": 6000, "jacobi": 600}
# Doubles of mode shapes band() allocates before it knows how many modes the band holds.
_SHAPES_BUDGET = 4_000_000
#: Largest |a_ij - a_ji| accepted, relative to the largest |a_ij|, when both triangles are given.
SYMMETRY_TOLERANCE = 1e-10

Matrix = _core.Matrix


class Error(RuntimeError):
    """A failure reported by the library.

    Attributes
    ----------
    code : int
        The library's status code (negative), or 1 for partial eigen results.
    message : str
        The library's message for it.
    equation : int or None
        For a singular matrix (code -3): the equation (1-based) at which it was found.
    negative_pivots, positive_pivots : int
        Inertia of the last factorisation.
    eigenvalues, eigenvectors : numpy.ndarray or None
        What an eigen solution found before it failed (partial results, code 1).
    """

    def __init__(self, code: int, message: str, equation: Optional[int] = None,
                 negative_pivots: int = 0, positive_pivots: int = 0,
                 eigenvalues: Optional[np.ndarray] = None,
                 eigenvectors: Optional[np.ndarray] = None):
        text = f"vqmath error {code}: {message}"
        if equation is not None:
            text += f" (at equation {equation})"
        super().__init__(text)
        self.code = code
        self.message = message
        self.equation = equation
        self.negative_pivots = negative_pivots
        self.positive_pivots = positive_pivots
        self.eigenvalues = eigenvalues
        self.eigenvectors = eigenvectors


class SturmWarning(UserWarning):
    """The Sturm sequence count disagrees with the number of eigenvalues found."""


@dataclass(frozen=True)
class Settings:
    """Solver settings of one call; pass as ``settings=`` to any function.

    They are applied for the call only and the library's previous values are restored after it.

    Parameters
    ----------
    threads : int, optional
        Threads of the math library (default: as it is, e.g. from MKL_NUM_THREADS).
    out_of_core : {0, 1, 2}
        PARDISO's out-of-core mode: 0 in core, 1 out of core when memory runs short, 2 always.
    core_size : int, optional
        Out-of-core memory budget in MB.
    working_dir : str or os.PathLike, optional
        Folder for work and out-of-core files (default: the system's temporary folder).

    Raises (when the settings are used)
    ------
    TypeError
        A value of the wrong kind (threads, core_size or out_of_core not an integer).
    ValueError
        A value out of range (threads or core_size below 1 or beyond 2**31 - 1).
    """

    threads: Optional[int] = None
    out_of_core: int = 0
    core_size: Optional[int] = None
    working_dir: Optional[str] = None

    def _native(self) -> "_core.CallSettings":
        out_of_core = _integer(self.out_of_core, "out_of_core")
        if out_of_core not in (0, 1, 2):
            raise ValueError("out_of_core must be 0, 1 or 2")
        s = _core.CallSettings()
        if self.threads is not None:
            s.threads = _integer(self.threads, "threads", 1)
        if self.core_size is not None:
            s.core_size = _integer(self.core_size, "core_size", 1)
        s.out_of_core = out_of_core
        folder = tempfile.gettempdir() if self.working_dir is None else self.working_dir
        if not isinstance(folder, (str, os.PathLike)):
            raise TypeError("working_dir must be a path")
        folder = os.fspath(folder)
        if not isinstance(folder, str) or not folder or "\0" in folder:
            raise ValueError("working_dir must be a non-empty path without NUL characters")
        s.working_directory = folder if folder.endswith("/") else folder + "/"
        return s


class Inertia(NamedTuple):
    """Pivot signs of a factorisation: by Sylvester's law, the eigenvalue signs of K."""

    negative: int
    positive: int


@dataclass
class ModesResult:
    """Eigen solution.

    Attributes
    ----------
    eigenvalues : ndarray, shape (m,)
        Ascending (lambda = omega^2 for natural modes, buckling factors for buckling).
    vectors : ndarray, shape (n, m) or None
        Mode shapes as columns, M-normalised (natural) or K-normalised (buckling).
    frequencies : ndarray, shape (m,)
        sqrt(lambda) / (2 pi) in Hz (0 for negative lambda; natural modes).
    sturm_count : int or None
        Eigenvalues the Sturm sequence counts in the range of those found (None: not checked).
    sturm_passed : bool or None
        No eigenvalue was missed: sturm_count equals the number found, or the extra ones equal
        the highest found (k ended inside a cluster of equal eigenvalues; see notes).
    sturm_shifts : tuple of float
        The shifts sigma whose factorisations K - sigma M gave the count.
    participation, effective_mass : ndarray or None
        For a direction vector r: Gamma_i = phi_i^T M r / phi_i^T M phi_i and the effective
        mass of each mode as a fraction of r^T M r.
    residuals : ndarray or None
        ||K phi - lambda M phi|| / ||K phi|| per mode (residual=True).
    method : str
    warning : str
        The library's warning text, if any.
    """

    eigenvalues: np.ndarray
    vectors: Optional[np.ndarray]
    frequencies: np.ndarray
    sturm_count: Optional[int] = None
    sturm_passed: Optional[bool] = None
    sturm_shifts: Tuple[float, ...] = ()
    participation: Optional[np.ndarray] = None
    effective_mass: Optional[np.ndarray] = None
    residuals: Optional[np.ndarray] = None
    method: str = ""
    warning: str = ""
    notes: list = field(default_factory=list)


# ---------------------------------------------------------------------------------------------
# Input


def _settings(settings: Optional[Settings]) -> "_core.CallSettings":
    if settings is None:
        settings = Settings()
    if not isinstance(settings, Settings):
        raise TypeError("settings must be a vqmath.Settings")
    return settings._native()


#: Largest order and number of stored entries the library's 32-bit indices can address.
_MAX_INDEX = 2**31 - 2


def _integer(value, name: str, lowest: Optional[int] = None, highest: int = 2**31 - 1) -> int:
    """An integer argument (Python or numpy integer) within [lowest, highest]."""
    if isinstance(value, (bool, np.bool_)):
        raise TypeError(f"{name} must be an integer, got {value!r}")
    try:
        value = operator.index(value)
    except TypeError:
        raise TypeError(f"{name} must be an integer, got {type(value).__name__}") from None
    if lowest is not None and value < lowest:
        raise ValueError(f"{name} must be at least {lowest}")
    if value > highest:
        raise ValueError(f"{name} must be at most {highest}")
    return value


def _real(value, name: str, finite: bool = True) -> float:
    """A real scalar argument; finite unless told otherwise."""
    if value is None or isinstance(value, (str, bytes, complex, np.complexfloating)):
        raise TypeError(f"{name} must be a real number, got {type(value).__name__}")
    try:
        value = float(value)
    except (TypeError, ValueError):
        raise TypeError(f"{name} must be a real number, got {type(value).__name__}") from None
    if finite and not math.isfinite(value):
        raise ValueError(f"{name} must be finite")
    return value


def _values(data, name: str) -> np.ndarray:
    if np.iscomplexobj(data):
        raise ValueError(f"{name} is complex; vqmath works on real matrices")
    try:
        return np.ascontiguousarray(data, dtype=np.float64)
    except (TypeError, ValueError):
        raise ValueError(f"{name} must hold real numbers") from None


def _real_vector(data, name: str, n: int) -> np.ndarray:
    """A 1-D array of n finite reals, contiguous float64 (checked before any copy)."""
    a = np.asarray(data)
    if a.shape != (n,):
        raise ValueError(f"{name} must hold {n} values, got shape {a.shape}")
    a = _values(a, name)
    if not np.all(np.isfinite(a)):
        raise ValueError(f"{name} holds values that are not finite")
    return a


def _indices(a, name: str) -> np.ndarray:
    a = np.asarray(a)
    if not np.issubdtype(a.dtype, np.integer):
        raise ValueError(f"{name} has non-integer indices")
    if a.dtype not in (np.int32, np.int64):
        a = a.astype(np.int64)
    return np.ascontiguousarray(a)


def as_matrix(A, name: str = "matrix") -> Matrix:
    """Converts a symmetric matrix to the library's layout (done once; reuse the result).

    Parameters
    ----------
    A : scipy.sparse matrix or array, numpy.ndarray, or vqmath.Matrix
        Square and symmetric, given in full or as its upper or lower triangle. CSR, CSC and
        COO are read directly with 32- or 64-bit indices; other sparse formats are converted
        to COO first, with a SparseEfficiencyWarning.
    name : str
        Used in error messages.

    Returns
    -------
    vqmath.Matrix

    Raises
    ------
    ValueError
        Not square, not symmetric beyond SYMMETRY_TOLERANCE, values not finite, complex, or
        too large for the library's 32-bit indices.
    """
    if isinstance(A, Matrix):
        return A
    try:
        import scipy.sparse as sp
    except ImportError:  # pragma: no cover - scipy is a dependency of the tests only
        sp = None
    try:
        if sp is not None and sp.issparse(A):
            if A.ndim != 2 or A.shape[0] != A.shape[1]:
                raise ValueError(f"{name} must be square, got shape {A.shape}")
            n = A.shape[0]
            if n == 0:
                raise ValueError(f"{name} is empty")
            if n > _MAX_INDEX:
                raise ValueError(f"{name}: the matrix is too large for the library's 32-bit "
                                 f"indices: order {n} exceeds {_MAX_INDEX}")
            fmt = A.format
            if fmt not in ("csr", "csc", "coo"):
                warnings.warn(f"{name}: {fmt.upper()} format converted to COO first",
                              sp.SparseEfficiencyWarning, stacklevel=3)
                A = A.tocoo()
                fmt = "coo"
            data = _values(A.data, name)
            if fmt == "coo":
                first, second = _indices(A.row, name), _indices(A.col, name)
            else:
                first, second = _indices(A.indptr, name), _indices(A.indices, name)
                if first.shape != (n + 1,):
                    raise ValueError(f"{name}: the index pointers must hold {n + 1} entries")
                if not 0 <= first[-1] <= min(len(data), len(second)):
                    raise ValueError(f"{name}: the index pointers do not match the "
                                     f"{len(data)} stored entries")
                if len(data) != first[-1]:
                    data = data[: first[-1]]
                    second = second[: first[-1]]
            return _core.from_arrays(n, first, second, data, fmt, SYMMETRY_TOLERANCE)
        a = np.asarray(A)
        if a.ndim != 2 or a.shape[0] != a.shape[1]:
            raise ValueError(f"{name} must be a square matrix, got shape {a.shape}")
        return _core.from_dense(_values(a, name), SYMMETRY_TOLERANCE)
    except ValueError as e:
        if str(e).startswith(name):
            raise
        raise ValueError(f"{name}: {e}") from None


def _as_second(B, name: str, n: Optional[int] = None) -> Matrix:
    """M or Kg: a matrix, or a 1-D array holding a diagonal (lumped mass)."""
    if not isinstance(B, Matrix) and not hasattr(B, "format"):
        b = np.asarray(B)
        if b.ndim == 1:
            if n is not None and b.shape[0] != n:
                raise ValueError(f"K is {n} x {n} but {name} is {b.shape[0]} x {b.shape[0]}")
            if b.shape[0] == 0:
                raise ValueError(f"{name}: the diagonal is empty")
            if b.shape[0] > _MAX_INDEX:
                raise ValueError(f"{name}: the diagonal is too long for the library's 32-bit indices")
            if np.iscomplexobj(b):
                raise ValueError(f"{name}: the diagonal must hold finite real numbers")
            b = _values(b, name)
            if not np.all(np.isfinite(b)):
                raise ValueError(f"{name}: the diagonal must hold finite real numbers")
            return _core.from_diagonal(b)
    return as_matrix(B, name)


def _pencil(K, M, second: str) -> Tuple[Matrix, Matrix]:
    Km = as_matrix(K, "K")
    Mm = _as_second(M, second, Km.n)
    if Mm.n != Km.n:
        raise ValueError(f"K is {Km.n} x {Km.n} but {second} is {Mm.n} x {Mm.n}")
    return Km, Mm


def _raise(o, eigenvalues=None, eigenvectors=None):
    equation = o.equation if o.code == -3 and o.equation > 0 else None
    raise Error(o.code, o.message, equation, o.negative_pivots, o.positive_pivots,
                eigenvalues, eigenvectors)


# ---------------------------------------------------------------------------------------------
# Static solution


def solve(K, F, *, definite: bool = True, return_inertia: bool = False,
          settings: Optional[Settings] = None):
    """Solves K x = F for one or many load cases (like scipy.sparse.linalg.spsolve).

    Parameters
    ----------
    K : sparse matrix or ndarray, shape (n, n)
        Symmetric stiffness matrix (full or one triangle).
    F : ndarray, shape (n,) or (n, nrhs)
        Load vector or load cases as columns.
    definite : bool
        True: K is positive definite (Cholesky; a singular K raises Error -3 with the
        equation). False: symmetric indefinite factorisation with pivoting.
    return_inertia : bool
        Also return the pivot signs of the factorisation.
    settings : Settings, optional

    Returns
    -------
    x : ndarray, shape of F
    inertia : Inertia
        Only with return_inertia.

    Raises
    ------
    ValueError
        Bad input (shapes, symmetry, values that are not finite).
    Error
        The factorisation or solution failed; ``equation`` names a singular equation.

    Examples
    --------
    >>> x = vqmath.solve(K, F)
    """
    s = _settings(settings)
    Km = as_matrix(K, "K")
    f = np.asarray(F)
    if np.iscomplexobj(f):
        raise ValueError("F is complex; vqmath works on real loads")
    if f.ndim not in (1, 2) or f.shape[0] != Km.n or f.size == 0:
        raise ValueError(f"F must have {Km.n} rows, got shape {f.shape}")
    if f.ndim == 2 and f.shape[1] > 2**31 - 1:
        raise ValueError(f"F holds {f.shape[1]} load cases; at most {2**31 - 1} in one call")
    try:
        f2 = f.reshape(Km.n, -1).astype(np.float64, copy=False)
    except (TypeError, ValueError):
        raise ValueError("F must hold real numbers") from None
    if not np.all(np.isfinite(f2)):
        raise ValueError("F holds values that are not finite")
    x, o = _core.solve(Km, f2, bool(definite), s)
    if o.code != 0:
        _raise(o)
    if f.ndim == 1:
        x = x[:, 0]
    return (x, Inertia(o.negative_pivots, o.positive_pivots)) if return_inertia else x


# ---------------------------------------------------------------------------------------------
# Sturm counts and effective mass (each behind one function)


def _count(Km: Matrix, Bm: Matrix, sigma: float, s) -> int:
    count, o = _core.sturm_count(Km, Bm, float(sigma), s)
    if o.code != 0:
        _raise(o)
    return count


def sturm_count(K, M, sigma: float, *, settings: Optional[Settings] = None) -> int:
    """Number of eigenvalues of K phi = lambda M phi below sigma.

    The negative pivots of the factorisation of K - sigma M (Sylvester's law of inertia).

    Parameters
    ----------
    K, M : sparse matrix or ndarray; M may be a 1-D diagonal
    sigma : float

    Returns
    -------
    int

    Raises
    ------
    ValueError, Error

    Examples
    --------
    >>> vqmath.sturm_count(K, M, (2 * np.pi * 100.0) ** 2)   # modes below 100 Hz
    """
    sigma = _real(sigma, "sigma")
    s = _settings(settings)
    Km, Mm = _pencil(K, M, "M")
    return _count(Km, Mm, sigma, s)


def effective_mass(vectors: np.ndarray, M, direction) -> Tuple[np.ndarray, np.ndarray]:
    """Participation factors and effective-mass fractions of mode shapes.

    Parameters
    ----------
    vectors : ndarray, shape (n, m)
    M : mass matrix or 1-D diagonal
    direction : ndarray, shape (n,)
        Rigid-body displacement of the excitation (e.g. 1 on every x dof).

    Returns
    -------
    participation : ndarray, shape (m,)
        Gamma_i = phi_i^T M r / phi_i^T M phi_i.
    fraction : ndarray, shape (m,)
        (phi_i^T M r)^2 / (phi_i^T M phi_i) / (r^T M r).
    """
    Mm = M if isinstance(M, Matrix) else _as_second(M, "M")
    r = _real_vector(direction, "direction", Mm.n)
    V = np.asarray(vectors)
    if V.ndim != 2 or V.shape[0] != Mm.n:
        raise ValueError(f"vectors must be an array of shape ({Mm.n}, m), got shape {V.shape}")
    if np.iscomplexobj(V):
        raise ValueError("vectors are complex; vqmath works on real mode shapes")
    if V.shape[1] > 2**31 - 1:
        raise ValueError(f"at most {2**31 - 1} mode shapes in one call")
    try:
        vectors = np.asfortranarray(V, dtype=np.float64)
    except (TypeError, ValueError):
        raise ValueError("vectors must hold real numbers") from None
    if not np.all(np.isfinite(vectors)):
        raise ValueError("vectors hold values that are not finite")
    Mr = Mm.multiply(r)
    total = float(r @ Mr)
    if not total > 0.0:
        raise ValueError("the direction carries no mass")
    if vectors.shape[1] == 0:
        return np.zeros(0), np.zeros(0)
    if hasattr(_core, "effective_mass"):
        participation, fraction, o = _core.effective_mass(Mm, vectors, r)
        if o.code != 0:
            _raise(o)
        return participation, fraction
    MV = Mm.multiply(vectors)
    generalized = np.einsum("ij,ij->j", vectors, MV)
    coupling = vectors.T @ Mr
    participation = coupling / generalized
    return participation, coupling * participation / total


# ---------------------------------------------------------------------------------------------
# Eigen solutions


def _scale(Km: Matrix, Bm: Matrix) -> float:
    kd, bd = Km.diagonal(), Bm.diagonal()
    ok = (kd > 0) & (bd > 0)
    return float(np.mean(kd[ok] / bd[ok])) if ok.any() else 1.0


def _beside(value: float, direction: int, scale: float) -> float:
    # Clear of the solver's error, short of the next eigenvalue of a separated spectrum.
    return value + direction * 1e-5 * max(abs(value), 1e-6 * scale)


def _upper_bound(Km, Bm, count, lower, s) -> float:
    """A sigma with at least count eigenvalues between lower and it, by Sturm counts."""
    kd, bd = Km.diagonal(), Bm.diagonal()
    ok = (kd > 0) & (bd > 0)
    sigma = float(np.min(kd[ok] / bd[ok])) if ok.any() else 1.0
    sigma = max(sigma, lower + abs(lower) * 1e-3 + 1e-12)
    below = _count(Km, Bm, lower, s) if lower > 0 else 0
    for _ in range(60):
        c = _count(Km, Bm, sigma, s) - below
        if c >= count:
            return sigma
        sigma *= min(4.0, max(1.3, 1.1 * count / c)) if c > 0 else 4.0
    raise Error(-4, f"could not bracket the lowest {count} eigenvalues")


def _buckling_shift(Km, Bm, s) -> float:
    """A positive sigma below the lowest buckling factor (no negative pivot of K - sigma Kg)."""
    kd, gd = Km.diagonal(), Bm.diagonal()
    ok = (kd > 0) & (gd > 0)
    # Below every ratio k_ii / g_ii: at one of them K - sigma Kg has a zero diagonal entry,
    # which the factorisation of the shifted matrix rejects as singular.
    sigma = 0.5 * float(np.min(kd[ok] / gd[ok])) if ok.any() else 1.0
    for _ in range(30):
        if _count(Km, Bm, sigma, s) == 0:
            break
        sigma *= 0.1
    return sigma


def _solve_eigen(method, Km, Bm, k, *, shift, tol, lower, upper, block, buckling, vectors,
                 load, load_is_force, s):
    values, shapes, o = _core.eigen(method, Km, Bm, int(k), float(shift), float(tol),
                                    float(lower), float(upper), int(block), bool(buckling),
                                    bool(vectors), load, bool(load_is_force), s)
    found = o.found
    values = values[:found]
    shapes = shapes[:, :found] if shapes is not None else None
    if o.code == 1:
        _raise(o, values, shapes)
    if o.code != 0:
        _raise(o)
    return values, shapes, o


def _finish(Km, Bm, values, shapes, *, method, o, verify, bounded, direction, residual,
            vectors_wanted, s, natural=True) -> ModesResult:
    result = ModesResult(eigenvalues=values, vectors=shapes if vectors_wanted else None,
                         frequencies=np.sqrt(np.maximum(values, 0.0)) / (2 * math.pi),
                         method=method, warning=o.warning_message.rstrip("\t"))
    if verify and len(values):
        scale = _scale(Km, Bm)
        hi = _beside(float(values[-1]), +1, scale)
        count = _count(Km, Bm, hi, s)
        shifts = (hi,)
        if bounded:
            lo = _beside(float(values[0]), -1, scale)
            count_lo = _count(Km, Bm, lo, s)
            count -= count_lo
            shifts = (lo, hi)
        passed = count == len(values)
        if count > len(values):
            # k may end inside a cluster of equal eigenvalues: the ones left out equal the
            # highest found and are not missed when none lies below the cluster.
            top = _beside(float(values[-1]), -1, scale)
            inside = int(np.sum(values < top))
            below = _count(Km, Bm, top, s) - (count_lo if bounded else 0)
            if below == inside:
                passed = True
                result.notes.append(f"{count - len(values)} more eigenvalues equal the highest found")
        result.sturm_count, result.sturm_shifts = count, shifts
        result.sturm_passed = passed
        if not result.sturm_passed:
            warnings.warn(f"Sturm check: {count} eigenvalues lie in the range of the "
                          f"{len(values)} found", SturmWarning, stacklevel=3)
    if direction is not None and shapes is not None and natural:
        result.participation, result.effective_mass = effective_mass(shapes, Bm, direction)
    if residual and shapes is not None:
        KV = Km.multiply(shapes)
        R = KV - Bm.multiply(shapes) * values
        result.residuals = np.linalg.norm(R, axis=0) / np.maximum(np.linalg.norm(KV, axis=0), 1e-300)
    return result


def _check_direction(direction, n):
    if direction is not None:
        _real_vector(direction, "direction", n)


def _check_common(method, k, n, tol, direction, block=0):
    if not isinstance(method, str) or method not in METHODS:
        raise ValueError(f"unknown method {method!r}; choose one of {', '.join(METHODS)}")
    _integer(k, "k", 1, highest=sys.maxsize)
    if method in _DENSE_LIMIT and n > _DENSE_LIMIT[method]:
        raise ValueError(f"method {method!r} works on dense n x n arrays; n = {n} exceeds "
                         f"{_DENSE_LIMIT[method]}")
    if _real(tol, "tol") < 0:
        raise ValueError("tol must be a finite number >= 0")
    _integer(block, "block", 0)
    _check_direction(direction, n)


def _select(values, shapes, k, lower, upper):
    keep = np.flatnonzero((values >= lower) & (values <= upper))[:k]
    if keep.size == 0 or keep[-1] - keep[0] + 1 == keep.size:
        # A run of columns: views of the arrays the library wrote, no copy.
        keep = slice(keep[0], keep[-1] + 1) if keep.size else slice(0, 0)
    return values[keep], (shapes[:, keep] if shapes is not None else None)


def modes(K, M, k: int = 6, *, method: str = "block", shift: Optional[float] = None,
          tol: float = 0.0, interval: Optional[Sequence[float]] = None, direction=None,
          residual: bool = False, verify: bool = True, return_eigenvectors: bool = True,
          block: int = 0, load=None, settings: Optional[Settings] = None) -> ModesResult:
    """Lowest natural modes of K phi = lambda M phi (like scipy.sparse.linalg.eigsh).

    Parameters
    ----------
    K : sparse matrix or ndarray, shape (n, n)
        Stiffness, symmetric (full or one triangle).
    M : sparse matrix, ndarray (n, n), or 1-D ndarray (n,)
        Mass; a 1-D array is a lumped (diagonal) mass.
    k : int
        Number of modes (6 by default, as for eigsh).
    method : {'block', 'lanczos', 'subspace', 'feast', 'ritz', 'lapack', 'jacobi'}
        'block' (default): block shift-invert Lanczos, one factorisation and solves with
        many right-hand sides, residuals below 1e-10. 'lanczos': shift-invert ARPACK,
        eigenvalues to machine precision.
        'subspace': subspace iteration (tolerance tol, default 1e-6). 'feast': contour
        integral on an interval (from Sturm counts when not given). 'ritz': load-dependent
        Ritz vectors (approximate). 'lapack', 'jacobi': dense, small models only.
    shift : float, optional
        Modes nearest (block, lanczos) or above (subspace) this eigenvalue.
    tol : float
        Convergence tolerance of subspace iteration (0: the library's).
    interval : (float, float), optional
        Eigenvalue bounds: FEAST's search interval; for the other methods a filter.
    direction : ndarray (n,), optional
        Excitation direction for participation factors and effective masses.
    residual : bool
        Also compute ||K phi - lambda M phi|| / ||K phi|| per mode.
    verify : bool
        Check the result by Sturm counts (default on); a mismatch warns SturmWarning.
    return_eigenvectors : bool
    block : int
        'block': the block size (0: chosen by the library); 'lanczos': passes of this
        many modes (>= 2; 0: one run).
    load : ndarray (n,), optional
        Ritz vectors: the load pattern to start from (default: ones).
    settings : Settings, optional

    Returns
    -------
    ModesResult

    Raises
    ------
    ValueError
        Bad input, detected before any work.
    Error
        The solver failed; partial results carry ``eigenvalues`` and ``eigenvectors``.

    Examples
    --------
    >>> r = vqmath.modes(K, M, 20)
    >>> print(r.frequencies, r.sturm_passed)
    """
    s = _settings(settings)
    Km, Mm = _pencil(K, M, "M")
    n = Km.n
    _check_common(method, k, n, tol, direction, block)
    lower, upper = -np.inf, np.inf
    if interval is not None:
        bounds = tuple(interval)
        if len(bounds) != 2:
            raise ValueError("interval must be (lower, upper)")
        lower, upper = (_real(v, "interval", finite=False) for v in bounds)
        if not lower < upper:
            raise ValueError("interval must be (lower, upper) with lower < upper")
    if shift is not None:
        shift = _real(shift, "shift")
    if load is not None:
        load = _real_vector(load, "load", n)
    want = return_eigenvectors or direction is not None or residual
    k = min(int(k), n)
    sigma = shift if shift is not None else (lower if np.isfinite(lower) else 0.0)
    notes = []
    if method == "feast":
        lo = lower if np.isfinite(lower) else (sigma if shift is not None else None)
        hi = upper
        if not np.isfinite(hi):
            start = lo if lo is not None else 0.0
            hi = _upper_bound(Km, Mm, k, start, s)
        if lo is None:
            lo = -1e-3 * hi
        notes.append(f"FEAST interval [{lo:.6g}, {hi:.6g}]")
        lower_call, upper_call = lo, hi
    else:
        lower_call = upper_call = 0.0
    values, shapes, o = _solve_eigen(method, Km, Mm, k, shift=sigma, tol=tol, lower=lower_call,
                                     upper=upper_call, block=block, buckling=False,
                                     vectors=want, load=load, load_is_force=True, s=s)
    low = lower if np.isfinite(lower) else (shift if shift is not None and method not in ("lanczos", "block") else -np.inf)
    values, shapes = _select(values, shapes, k, low, upper)
    bounded = np.isfinite(lower) or shift is not None
    result = _finish(Km, Mm, values, shapes, method=method, o=o, verify=verify and method != "ritz",
                     bounded=bounded, direction=direction, residual=residual,
                     vectors_wanted=return_eigenvectors, s=s)
    result.notes[:0] = notes
    return result


def band(K, M, fmin: float, fmax: float, *, lower: Optional[float] = None,
         upper: Optional[float] = None, direction=None, residual: bool = False,
         return_eigenvectors: bool = True, settings: Optional[Settings] = None) -> ModesResult:
    """Every natural mode with a frequency in [fmin, fmax] Hz, with its Sturm proof.

    The library's band search: Sturm counts at both ends give the number of modes in the band;
    a wide band is cut into slices at shifts chosen from further counts, each slice is solved
    by shift-invert Lanczos and checked against its own counts. The result's sturm_count is
    the proven number of modes in the band.

    Parameters
    ----------
    K, M : as for :func:`modes`
    fmin, fmax : float
        Band in Hz (eigenvalue bounds (2 pi f)^2). fmin <= 0 starts below the spectrum, so a
        free structure's rigid-body modes are included.
    lower, upper : float, optional
        Eigenvalue bounds instead of fmin/fmax (lower may be -inf).
    direction, residual, return_eigenvectors, settings : as for :func:`modes`

    Returns
    -------
    ModesResult

    Raises
    ------
    ValueError, Error

    Examples
    --------
    >>> r = vqmath.band(K, M, 10.0, 200.0)
    """
    s = _settings(settings)
    Km, Mm = _pencil(K, M, "M")
    n = Km.n
    fmin, fmax = _real(fmin, "fmin", finite=False), _real(fmax, "fmax", finite=False)
    lo = _real(lower, "lower", False) if lower is not None else (
        -np.inf if fmin <= 0 else (2 * math.pi * fmin) ** 2)
    hi = _real(upper, "upper", False) if upper is not None else (2 * math.pi * fmax) ** 2
    if math.isnan(lo) or not np.isfinite(hi) or lo == np.inf or not lo < hi:
        raise ValueError("the band must have bounds lower < upper, upper finite")
    _check_direction(direction, n)
    want = return_eigenvectors or direction is not None or residual
    # A first guess of the number of modes that keeps the shapes' array moderate; a band that
    # holds more is solved again with its proven count (the library only counted).
    capacity = min(n, max(1, min(64, _SHAPES_BUDGET // n)) if want else 2000)
    while True:
        values, shapes, count, o = _core.band(Km, Mm, lo, hi, capacity, bool(want), s)
        if o.code != -90 or count <= capacity:
            break
        capacity = count
    if o.code != 0:
        _raise(o)
    found = o.found
    values = values[:found]
    shapes = shapes[:, :found] if shapes is not None else None
    result = _finish(Km, Mm, values, shapes, method="band", o=o, verify=False, bounded=True,
                     direction=direction, residual=residual, vectors_wanted=return_eigenvectors, s=s)
    result.sturm_count, result.sturm_shifts = count, (lo, hi)
    result.sturm_passed = count == len(values)
    return result


def buckling(K, Kg, k: int = 6, *, method: str = "lanczos", shift: Optional[float] = None,
             tol: float = 0.0, residual: bool = False, verify: bool = True,
             return_eigenvectors: bool = True, block: int = 0,
             settings: Optional[Settings] = None) -> ModesResult:
    """Lowest buckling factors of K phi = lambda Kg phi.

    Parameters
    ----------
    K : sparse matrix or ndarray
        Positive definite stiffness.
    Kg : sparse matrix, ndarray, or 1-D diagonal
        Geometric stiffness of the reference load.
    k : int
    method : {'lanczos', 'block', 'subspace', 'lapack', 'jacobi'}
    shift : float, optional
        Lanczos: a positive sigma below the lowest factor (found by Sturm counts otherwise).
        Block: 0 by default (the factors smallest in magnitude, from K^-1 Kg).
    tol, residual, verify, return_eigenvectors, block, settings : as for :func:`modes`

    Returns
    -------
    ModesResult
        eigenvalues are the buckling factors (frequencies are not meaningful).

    Raises
    ------
    ValueError, Error

    Examples
    --------
    >>> vqmath.buckling(K, Kg, 3).eigenvalues
    """
    s = _settings(settings)
    Km, Gm = _pencil(K, Kg, "Kg")
    _check_common(method, k, Km.n, tol, None, block)
    if method in ("feast", "ritz"):
        raise ValueError(f"method {method!r} needs a positive definite second matrix; "
                         "use block, lanczos, subspace, lapack or jacobi for buckling")
    if shift is not None:
        shift = _real(shift, "shift")
    k = min(int(k), Km.n)
    sigma = shift
    if method == "lanczos" and sigma is None:
        sigma = _buckling_shift(Km, Gm, s)
    want = return_eigenvectors or residual
    values, shapes, o = _solve_eigen(method, Km, Gm, k, shift=sigma or 0.0, tol=tol, lower=0.0,
                                     upper=0.0, block=block, buckling=True, vectors=want,
                                     load=None, load_is_force=True, s=s)
    order = np.argsort(values, kind="stable")
    values = values[order]
    shapes = shapes[:, order] if shapes is not None else None
    values, shapes = _select(values, shapes, k, 0.0, np.inf)
    return _finish(Km, Gm, values, shapes, method=method, o=o, verify=verify, bounded=False,
                   direction=None, residual=residual, vectors_wanted=return_eigenvectors, s=s,
                   natural=False)


def solid_model(equations: int, consistent: bool = False):
    """A generated clamped steel bar of 8-node hexahedra with about this many equations.

    Returns
    -------
    K : vqmath.Matrix
    lumped : ndarray (n,)
        Lumped mass diagonal.
    M : vqmath.Matrix or None
        Consistent mass (consistent=True).
    """
    return _core.solid_model(_integer(equations, "equations", 1, 10_000_000), bool(consistent))


def to_scipy(A: Matrix):
    """The full symmetric scipy.sparse.csr_matrix of a vqmath.Matrix."""
    import scipy.sparse as sp
    rp, ci, v = A.arrays()
    U = sp.csr_matrix((v, ci - 1, rp - 1), shape=A.shape)
    return (U + sp.triu(U, 1).T).tocsr()
