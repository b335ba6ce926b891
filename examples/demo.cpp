// Sample program: links libQORKYTMathKernel the way a solver does and prints what the
// library answers about its environment, a few vector results, and a small solve: the
// 1-D Laplacian of order 6 in arrays from the memory manager, factored, solved, checked by
// a matrix product, and its eigenvalues; last, a warning block from the message catalog.
#include <cmath>
#include <cstdio>

#include "QORKytError.h"
#include "QORKytMemoryManager.h"
#include "QORKytValue.h"
#include "QORLunOctree.h"
#include "kernels.h"

namespace {

void sample_solve() {
  const qkm_int n = 6, one = 1, iorder = 1;
  QORKytMemoryManager manager(10);
  int group = 0;
  double *ap = nullptr, *x = nullptr, *full = nullptr, *r = nullptr, *d = nullptr, *z = nullptr,
         *e = nullptr, *ev = nullptr;
  QORKytTypeEncapMemory &none = QORKytTypeEncapMemory::EmptyEncapMem;
  if (manager.Allocation(group, QORKytTypeEncapMemory(ap), n * (n + 1) / 2,
                         QORKytTypeEncapMemory(x), n, QORKytTypeEncapMemory(full), n * n,
                         QORKytTypeEncapMemory(r), n, QORKytTypeEncapMemory(d), n,
                         QORKytTypeEncapMemory(z), n * n, QORKytTypeEncapMemory(e), n,
                         QORKytTypeEncapMemory(ev), n * (n + 1) / 2, none, 0, none, 0, none,
                         0) != 0) {
    std::printf("  no memory for the sample solve\n");
    return;
  }
  std::printf("Sample solve: 1-D Laplacian of order %d, packed by rows\n", n);
  std::printf("  memory manager    group %d, peak %.0f words\n", group,
              static_cast<double>(manager.GetMemoryUsed()));
  // tridiag(-1, 2, -1), packed by rows, and the same by columns for the product
  const qkm_int nn = n * n;
  e_dzero(&nn, full, &one);
  for (int i = 1; i <= n; ++i) {
    for (int j = 1; j <= i; ++j) {
      const double v = i == j ? 2.0 : (i - j == 1 ? -1.0 : 0.0);
      ap[i * (i - 1) / 2 + j - 1] = v;
      ev[i * (i - 1) / 2 + j - 1] = v;
      full[(i - 1) + (j - 1) * n] = v;
      full[(j - 1) + (i - 1) * n] = v;
    }
    x[i - 1] = 1.0;
  }
  const qkm_int k1 = 1;
  const double tol = 0.0;
  qkm_int info = 0;
  double dfail = 0.0;
  eaxfch2(nullptr, &k1, &n, &tol, ap, &info, &dfail);
  std::printf("  eaxfch2           info %d\n", info);
  e_dpptrs("U", &n, &one, ap, x, &n, &info, 1);
  std::printf("  e_dpptrs          x =");
  for (int i = 0; i < n; ++i) std::printf(" %g", x[i]);
  std::printf("   (exact: i(n+1-i)/2)\n");
  const double alpha = 1.0, beta = -1.0;
  for (int i = 0; i < n; ++i) r[i] = 1.0;
  eagemm("N", "N", &n, &one, &n, &alpha, full, &n, x, &n, &beta, r, &n, 1, 1);
  std::printf("  eagemm            |A x - b| = %g\n", e_dnrm2(&n, r, &one));
  qkm_int ierr = 0;
  const qkm_int rc = eaxeig(&n, &iorder, ev, d, z, e, &ierr);
  std::printf("  eaxeig            rc %d, eigenvalues", rc);
  double worst = 0.0;
  for (int k = 1; k <= n; ++k) {
    std::printf(" %.6f", d[k - 1]);
    const double exact = 2.0 - 2.0 * std::cos(k * M_PI / (n + 1));
    worst = std::fmax(worst, std::fabs(d[k - 1] - exact));
  }
  std::printf("\n                    largest difference from 2-2cos(k pi/7): %.3g\n", worst);
  manager.Desallocation(group);
}

// A neighbor tree over a plain point array: the application supplies the coordinates.
class PointCloud : public QORLunNeighborTree {
 public:
  explicit PointCloud(const double *xyz) : _Xyz(xyz) {}
  int GetEntityInfo(QORLunOctinfo &info) const override {
    const double *p = _Xyz + 3 * info._Number;
    info._X = p[0];
    info._Y = p[1];
    info._Z = p[2];
    return 0;
  }

 private:
  const double *_Xyz;
};

void sample_neighbors() {
  // The nodes of a 5 x 5 x 5 grid of spacing 1.
  double xyz[3 * 125];
  for (int i = 0; i < 125; ++i) {
    xyz[3 * i] = i % 5;
    xyz[3 * i + 1] = (i / 5) % 5;
    xyz[3 * i + 2] = i / 25;
  }
  PointCloud cloud(xyz);
  const int built = cloud.Build(xyz, 125, 8, nullptr, 0.5, 10);
  unsigned int found = 0, idx[4];
  double d2[4];
  const int status = cloud.GetNeighbors(1.2, 2.1, 3.0, 4, found, idx, d2, 0.0, 125, 0);
  std::printf("Octree over a 5x5x5 grid (build %d): 4 nearest to (1.2, 2.1, 3), status %d\n",
              built, status);
  for (unsigned int k = 0; k < found; ++k)
    std::printf("  node %3u  (%g, %g, %g)  squared distance %.17g\n", idx[k], xyz[3 * idx[k]],
                xyz[3 * idx[k] + 1], xyz[3 * idx[k] + 2], d2[k]);
}

}  // namespace

int main() {
  qkm_int mem = 0, limit = 0, aldb = -1, slave = 0, ncpu = 0, b1 = -1, b2 = -1, b3 = -1;
  ehumem(&mem);
  ehalmxc(&limit);
  getblas(&b1, &b2, &b3);
  ehaldb(&aldb);
  GetMaxSlaveMemory(&slave);
  ehucpu(&ncpu);

  std::printf("libQORKYTMathKernel sample program\n\n");
  std::printf("Environment\n");
  std::printf("  ehumem            usable memory      %d words (%.1f MiB)\n", mem,
              mem * 8.0 / 1048576.0);
  std::printf("  ehalmxc           allocation ceiling %d words\n", limit);
  std::printf("  getblas           external BLAS      %d %d %d\n", b1, b2, b3);
  std::printf("  ehaldb            BLAS answer        %d\n", aldb);
  std::printf("  GetMaxSlaveMemory slave ceiling      %d\n", slave);
  std::printf("  ehucpu            processors         %d\n\n", ncpu);

  const qkm_int n = 5, one = 1, two = 2;
  double x[5] = {3.0, -4.0, 12.0, 0.5, -0.25};
  double y[5] = {1.0, 1.0, 1.0, 1.0, 1.0};
  const double alpha = 2.0;
  std::printf("Vectors  x = (3, -4, 12, 0.5, -0.25), y = (1, 1, 1, 1, 1)\n");
  std::printf("  e_dnrm2(x)        %.17g\n", e_dnrm2(&n, x, &one));
  std::printf("  e_dasum(x)        %.17g\n", e_dasum(&n, x, &one));
  std::printf("  damax(x)          %.17g\n", damax(&n, x, &one));
  std::printf("  e_idamax(x)       %d\n", e_idamax(&n, x, &one));
  const qkm_int three = 3;
  std::printf("  e_idamax(x, 2)    %d  (walk 3, 12, -0.25)\n", e_idamax(&three, x, &two));
  e_daxpy(&n, &alpha, x, &one, y, &one);
  std::printf("  y + 2x            %g %g %g %g %g\n", y[0], y[1], y[2], y[3], y[4]);
  double a = 3.0, b = 4.0, c = 0.0, s = 0.0;
  e_drotg(&a, &b, &c, &s);
  std::printf("  e_drotg(3, 4)     r = %g  c = %g  s = %g  z = %.17g\n", a, c, s, b);
  qkm_int seed = 1;
  double r = 0.0;
  eaxrnd(&seed, &r);
  std::printf("  eaxrnd(seed 1)    seed = %d  r = %.17g\n", seed, r);
  std::printf("\n");
  sample_solve();
  std::printf("\n");
  sample_neighbors();

  // A warning from the catalog, printed as its block (to standard output: no listing is open).
  std::printf("\nA warning from the catalog \"QORKYTMathKernelError\":\n");
  eyflsh();
  QORKytTypeEncapError &none = QORKytTypeEncapError::EmptyEncapEr;
  QORKytErrorTools::CreateWarning(300, "QORKYTMathKernelError", QORKytTypeEncapError(2048),
                                  QORKytTypeEncapError(1024), none, none, none, none, none, none,
                                  none);
  eyflsh();
  return 0;
}
