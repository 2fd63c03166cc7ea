"""Repeated calls hold no references and leak no memory (numpy buffers, library arrays)."""
import gc
import sys

import numpy as np
import pytest
import scipy.sparse as sp

import vqmath

CALLS = {
    "as_matrix": lambda K, m, F: vqmath.as_matrix(K),
    "solve": lambda K, m, F: vqmath.solve(K, F),
    "modes": lambda K, m, F: vqmath.modes(K, m, 3, direction=np.ones(K.shape[0]), residual=True),
    "sturm_count": lambda K, m, F: vqmath.sturm_count(K, m, 1e6),
    "error": lambda K, m, F: _swallow(lambda: vqmath.solve(sp.csr_matrix((2, 2)), np.ones(2))),
    "bad input": lambda K, m, F: _swallow(lambda: vqmath.solve(K, F[:-1])),
}


def _swallow(call):
    try:
        call()
    except (vqmath.Error, ValueError):
        pass


def rss_kb():
    with open("/proc/self/status") as status:
        for line in status:
            if line.startswith("VmRSS:"):
                return int(line.split()[1])
    return 0


@pytest.mark.parametrize("call", CALLS)
def test_two_hundred_calls_keep_references_and_memory(solid, call):
    K, lumped, _ = solid
    F = np.ones(K.shape[0])
    arrays = (K.data, K.indices, K.indptr, lumped, F)
    for _ in range(20):   # warm up caches and allocator pools
        CALLS[call](K, lumped, F)
    gc.collect()
    refs = [sys.getrefcount(a) for a in arrays]
    before = rss_kb()
    for _ in range(200):
        CALLS[call](K, lumped, F)
    gc.collect()
    assert [sys.getrefcount(a) for a in arrays] == refs
    # One model's arrays are ~100 kB: a leak of one per call would show as 20 MB.
    assert rss_kb() - before < 2048


def test_results_own_their_buffers(solid):
    K, lumped, _ = solid
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


def test_ctrl_c_during_a_solve_raises_keyboard_interrupt():
    # The solve runs without the GIL; SIGINT must end in KeyboardInterrupt, not a crash.
    import signal
    import subprocess
    import time
    script = ("import vqmath\n"
              "K, m, _ = vqmath.solid_model(6000)\n"
              "print('ready', flush=True)\n"
              "for _ in range(50):\n"
              "    vqmath.modes(K, m, 10, verify=False)\n")
    child = subprocess.Popen([sys.executable, "-c", script], stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE, text=True)
    assert child.stdout.readline().strip() == "ready"
    time.sleep(0.5)
    child.send_signal(signal.SIGINT)
    _, err = child.communicate(timeout=300)
    # An uncaught KeyboardInterrupt ends Python by SIGINT (-2) after printing its traceback.
    assert child.returncode in (1, -signal.SIGINT) and "KeyboardInterrupt" in err
