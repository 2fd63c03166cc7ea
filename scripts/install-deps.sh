#!/usr/bin/env bash
# Installs the build dependencies of vqmath on Debian 12 (bookworm) when they are missing:
# Intel oneMKL (non-free), ARPACK-NG, GoogleTest, CMake, a C/C++ toolchain, and for the Python
# module python3-dev, numpy, scipy, pybind11 and pytest.
# A second run finds everything in place and returns in a second or two.
set -euo pipefail

# --mpi: also what the distributed build needs (libvqmath_mpi, vqsolve-mpi and their tests):
# Open MPI, MKL's cluster sparse solver with its Open MPI BLACS layer, and PARPACK. On the
# project machine these took 69 s to install on top of the rest.
extra=()
for a in "$@"; do
  if [ "$a" = --mpi ]; then
    extra+=(openmpi-bin libopenmpi-dev libmkl-cluster-dev libmkl-blacs-openmpi-lp64 libparpack2-dev)
  else
    extra+=("$a")
  fi
done

need=()
have() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }
# The Python module and its tests: Debian's python3 with numpy, scipy, pybind11 and pytest.
python_packages=(python3-dev python3-numpy python3-scipy python3-pybind11 pybind11-dev python3-pytest)
for p in cmake g++ make pkg-config libgtest-dev libarpack2-dev libmkl-dev "${python_packages[@]}" "${extra[@]}"; do
  have "$p" || need+=("$p")
done
[ ${#need[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
  echo "install-deps: missing packages (${need[*]}) and not root; install them or rerun as root" >&2
  exit 1
fi

# libmkl-dev lives in Debian's non-free component: add a deb822 source that enables it.
src=/etc/apt/sources.list.d/vqmath-non-free.sources
if printf '%s\n' "${need[@]}" | grep -q '^libmkl' && [ ! -f "$src" ]; then
  cat > "$src" <<'SRC'
Types: deb
URIs: http://deb.debian.org/debian
Suites: bookworm bookworm-updates
Components: non-free
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
SRC
fi

export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
# MKL's package asks whether to make MKL the system BLAS/LAPACK alternative; answer no so that
# other programs on the machine keep the BLAS they had.
echo "libmkl-rt libmkl-rt/use-as-default-blas-lapack boolean false" | debconf-set-selections || true
apt-get install -y -qq --no-install-recommends "${need[@]}" >/dev/null
echo "install-deps: installed ${need[*]}"
