// Compiles the test-only malloc interposition into this test executable (support files are
// not compiled on their own). Inert until a test arms it.
#include "support/malloc_hook.cpp"
