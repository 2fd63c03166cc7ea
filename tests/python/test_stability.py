"""Long runs: a thousand calls of every function hold no references and leak no memory (numpy
buffers, library arrays, exceptions); Ctrl-C during a long solve is a KeyboardInterrupt."""
import gc
import os
import signal
import sys
import threading
import time

import numpy as np
import pytest
import scipy.sparse as sp

import vqmath
from vqmath import _core


def _under_address_sanitizer():
    with open("/proc/self/maps") as maps:
        return "libasan" in maps.read()


# Under AddressSanitizer (sanitizer builds preload it) freed memory waits in its quarantine:
# fewer calls, and resident memory is not compared; reference counts still are.
ASAN = _under_address_sanitizer()
CALLS = 200 if ASAN else 1000
SETTINGS = vqmath.Settings(threads=1, out_of_core=0)

CALL = {
    "as_matrix": lambda K, m, F: vqmath.as_matrix(K),
    "solve": lambda K, m, F: vqmath.solve(K, F, settings=SETTINGS),
    "modes": lambda K, m, F: vqmath.modes(K, m, 3, direction=F, residual=True),
    "band": lambda K, m, F: vqmath.band(K, m, 0.0, 0.0, lower=1e7, upper=7e7),
    "buckling": lambda K, m, F: vqmath.buckling(K, m, 2, method="block"),
    "sturm_count": lambda K, m, F: vqmath.sturm_count(K, m, 1e7),
    "effective_mass": lambda K, m, F: vqmath.effective_mass(np.eye(K.shape[0], 4), m, F),
    "library error": lambda K, m, F: _swallow(lambda: vqmath.solve(sp.csr_matrix((2, 2)), np.ones(2))),
    "bad value": lambda K, m, F: _swallow(lambda: vqmath.solve(K, F[:-1])),
    "bad kind": lambda K, m, F: _swallow(lambda: vqmath.modes(K, m, "3")),
}


def _swallow(call):
    try:
        call()
    except (vqmath.Error, ValueError, TypeError) as e:
        return e


def rss_kb():
    with open("/proc/self/statm") as statm:
        return int(statm.read().split()[1]) * os.sysconf("SC_PAGE_SIZE") // 1024


def arrays_in(result):
    if isinstance(result, tuple):
        return [a for a in result if isinstance(a, np.ndarray)]
    if isinstance(result, vqmath.ModesResult):
        return [a for a in vars(result).values() if isinstance(a, np.ndarray)]
    return []


@pytest.fixture(scope="module")
def tiny():
    K, lumped, _ = vqmath.solid_model(60)
    K = vqmath.to_scipy(K)
    return K, lumped, np.tile([1.0, 0.0, 0.0], K.shape[0] // 3)


@pytest.mark.parametrize("call", CALL)
def test_a_thousand_calls_keep_references_and_memory(tiny, call):
    K, lumped, F = tiny
    inputs = (K.data, K.indices, K.indptr, lumped, F)
    for _ in range(50):   # warm up caches and allocator pools
        CALL[call](K, lumped, F)
    gc.collect()
    refs = [sys.getrefcount(a) for a in inputs]
    before = rss_kb()
    for _ in range(CALLS):
        result = CALL[call](K, lumped, F)
    # Nothing but this frame holds the last result and the arrays in it.
    if not isinstance(result, int):
        assert sys.getrefcount(result) == 2
    for a in arrays_in(result):
        assert sys.getrefcount(a) == 4   # the result, the list, a and the argument
    del result
    gc.collect()
    grown = rss_kb() - before
    print(f"{call}: resident memory {grown:+d} kB over {CALLS} calls")
    assert [sys.getrefcount(a) for a in inputs] == refs
    # The model's arrays are ~20 kB: a leak of one of them per call would show as 20 MB.
    assert ASAN or grown < 4096


def test_results_own_their_buffers(tiny):
    K, lumped, _ = tiny
    r = vqmath.modes(K, lumped, 2)
    # The vectors are a view of the one array the library wrote into: no second copy.
    owner = r.vectors
    while owner.base is not None:
        owner = owner.base
    assert owner is not r.vectors and owner.nbytes == r.vectors.nbytes
    A = vqmath.as_matrix(K)
    rp, _, _ = A.arrays()
    del A
    gc.collect()
    assert rp[0] == 1   # the view keeps its matrix alive


def test_ctrl_c_during_a_long_solve_raises_keyboard_interrupt(tiny):
    # SIGINT arrives while the library runs without the GIL: the call ends normally inside, and
    # KeyboardInterrupt comes out of the native function once it returns. A profile hook sees
    # the native call begin (the signal is sent only then, from another thread) and end.
    K, m, _ = vqmath.solid_model(20000)   # a call of seconds
    events, entered = [], threading.Event()

    def profile(frame, event, arg):
        if arg is _core.eigen and event in ("c_call", "c_return", "c_exception"):
            events.append(event)
            entered.set()

    def interrupt():
        if entered.wait(120):
            time.sleep(0.1)   # well inside the call, even on a loaded machine
            os.kill(os.getpid(), signal.SIGINT)

    sender = threading.Thread(target=interrupt)
    sender.start()
    sys.setprofile(profile)
    try:
        with pytest.raises(KeyboardInterrupt):
            vqmath.modes(K, m, 12, method="lanczos", verify=False)
    finally:
        sys.setprofile(None)
        sender.join()
    assert events == ["c_call", "c_exception"]
    # The settings of the interrupted call were restored and the library works on.
    K, m, _ = tiny
    np.testing.assert_allclose(vqmath.modes(K, m, 4, method="lanczos").eigenvalues,
                               vqmath.modes(K, m, 4, method="lapack").eigenvalues, rtol=1e-9)
