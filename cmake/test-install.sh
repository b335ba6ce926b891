#!/bin/sh
# Installs the build tree BUILD into a scratch prefix, then builds and runs the consumers of
# examples/consumer against it: through pkg-config (C, C++ and Fortran with the module) and
# through the CMake package (C and C++).
#   test-install.sh SOURCE_DIR BUILD_DIR
set -e
src=$1
build=$2
stage=$build/install-test
rm -rf "$stage"
cmake --install "$build" --prefix "$stage/prefix" >/dev/null
export PKG_CONFIG_PATH="$(dirname "$(find "$stage/prefix" -name QORKYTMathKernel.pc)")"
lib=$(pkg-config --variable=libdir QORKYTMathKernel)
cflags=$(pkg-config --cflags QORKYTMathKernel)
libs=$(pkg-config --libs QORKYTMathKernel)
out=$stage/pc
mkdir -p "$out"
cc -std=c99 $cflags "$src/examples/consumer/consumer.c" $libs -Wl,-rpath,"$lib" -o "$out/consumer_c"
c++ -std=c++20 $cflags "$src/examples/consumer/consumer.cpp" $libs -Wl,-rpath,"$lib" -o "$out/consumer_cpp"
"$out/consumer_c"
"$out/consumer_cpp"
fmod=$(pkg-config --variable=fmoddir QORKYTMathKernel)
if command -v gfortran >/dev/null && [ -f "$fmod/qorkyt_kernels.mod" ]; then
  gfortran -I"$fmod" "$src/tests/fortran/test_module.f90" $libs -Wl,-rpath,"$lib" \
    -o "$out/consumer_f" >/dev/null
  "$out/consumer_f" >/dev/null
  echo "consumer (Fortran, module): ok"
fi
cmake -S "$src/examples/consumer" -B "$stage/cmake" -G Ninja \
  -DCMAKE_PREFIX_PATH="$stage/prefix" -DCMAKE_BUILD_RPATH="$lib" >/dev/null
cmake --build "$stage/cmake" >/dev/null
"$stage/cmake/consumer_c"
"$stage/cmake/consumer_cpp"
