#!/bin/sh
# Installs the Debian packages that the build needs, when they are missing.
#   install-deps.sh          build and test tools
#   install-deps.sh bench    the same, plus the benchmark anchors (OpenBLAS, Eigen 3,
#                            nanoflann)
set -e
pkgs="cmake ninja-build g++ make binutils libgtest-dev libgmock-dev libbenchmark-dev libblas-dev liblapack-dev"
# The second compiler with its sanitizer and fuzzer runtimes, coverage, the install checks.
pkgs="$pkgs clang libclang-rt-14-dev gcovr pkg-config gfortran"
# The sample solver: METIS orders its direct solve, Cairo draws its picture.
pkgs="$pkgs libmetis-dev libcairo2-dev"
[ "$1" = "bench" ] && pkgs="$pkgs libopenblas0-serial libeigen3-dev libnanoflann-dev"
missing=""
for p in $pkgs; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
[ -z "$missing" ] && exit 0
echo "installing:$missing"
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq $missing
