// Mesh graphs: the inverse of an element list (elements of each node) and the nodal graph
// (neighbours of each node), built in a counting pass and a filling pass so that the caller
// allocates every array. Lists are in pointer form: list i at positions ptr(i)+1 to ptr(i+1).
#include <algorithm>

#include "frame/wrap.h"
#include "kernels.h"

namespace {

// Visits the nodes of the elements e = 1..ne in order. Element 1 starts at position 1 whatever
// eptr(1) holds; every other element at eptr(e)+1.
template <class F>
inline void for_each_position(qkm_int ne, const qkm_int *eptr, const qkm_int *econn, F &&f) {
  for (qkm_int e = 1; e <= ne; ++e) {
    const qkm_int first = e == 1 ? 0 : eptr[e - 1];
    const qkm_int last = eptr[e];
    for (qkm_int p = first; p < last; ++p) f(e, econn[p]);
  }
}

// Calls f(j) for every node j of every element of node i, element list in its stored order.
template <class F>
inline void for_each_reached(qkm_int i, const qkm_int *eptr, const qkm_int *econn,
                             const qkm_int *nptr, const qkm_int *nlist, F &&f) {
  const qkm_int s_end = nptr[i];
  for (qkm_int s = nptr[i - 1]; s < s_end; ++s) {
    const qkm_int e = nlist[s];
    const qkm_int p_end = eptr[e];
    for (qkm_int p = eptr[e - 1]; p < p_end; ++p) f(econn[p]);
  }
}

}  // namespace

extern "C" {

// Counting sort of the element list by node: nptr(v+1) counts the degree of v, becomes the
// start of list v, and is moved to its end by the second walk, which stores the elements in
// ascending order.
void eaunle(const qkm_int *nn, const qkm_int *ne, const void * /*ignored*/, const qkm_int *eptr,
            const qkm_int *econn, qkm_int *nptr, qkm_int *nlist) {
  const qkm_int n = *nn;
  if (n >= 0) std::fill(nptr, nptr + n + 1, 0);
  for_each_position(*ne, eptr, econn, [nptr](qkm_int, qkm_int v) { ++nptr[v]; });
  if (n > 0) {
    qkm_int sum = 0;
    for (qkm_int v = 1; v <= n; ++v) {
      const qkm_int degree = nptr[v];
      nptr[v] = sum;
      sum += degree;
    }
  }
  for_each_position(*ne, eptr, econn, [nptr, nlist](qkm_int e, qkm_int v) {
    nlist[nptr[v]++] = e;
  });
}

// Counting pass: the inverse list, then the neighbour count of each node, stamped in `mark`
// with the current node so that `mark` needs no clearing between nodes.
void eaupnn(const qkm_int *nn, const qkm_int *ne, const void *ignored, const qkm_int *eptr,
            const qkm_int *econn, qkm_int *nptr, qkm_int *nlist, qkm_int *mark, qkm_int *aptr,
            qkm_int *nadj) {
  static const qkm_int one = 1;
  const qkm_int n = *nn;
  if (n >= 0) std::fill(aptr, aptr + n + 1, 0);
  eaunle(nn, ne, ignored, eptr, econn, nptr, nlist);
  e_izero(nn, mark, &one);
  for (qkm_int i = 1; i <= n; ++i) {
    qkm_int count = 0;
    mark[i - 1] = i;
    for_each_reached(i, eptr, econn, nptr, nlist, [&](qkm_int j) {
      if (mark[j - 1] != i) {
        mark[j - 1] = i;
        ++count;
      }
    });
    aptr[i] = aptr[i - 1] + count;
  }
  *nadj = aptr[n];
}

// Filling pass. link(j+1) marks the nodes already taken for the current node (the node itself
// is marked -1 when it has elements); the neighbours are gathered in the order met and put in
// ascending order in place. The result, and what is left in `link` (link(2..nn+1) all 0,
// link(1) the smallest neighbour of the last node or nn+1), are those of a sorted linked list
// threaded through `link` with head link(1); the array form spares the pointer walk.
void eaunln(const qkm_int *nn, const void * /*ignored*/, const void * /*ignored*/,
            const qkm_int *eptr, const qkm_int *econn, const qkm_int *nptr,
            const qkm_int *nlist, qkm_int *link, qkm_int *adj) {
  static const qkm_int one = 1;
  const qkm_int n = *nn;
  e_izero(nn, link + 1, &one);
  if (n < 1) return;
  qkm_int out = 0;
  qkm_int *taken = link + 1;  // taken[j-1] is link(j+1)
  for (qkm_int i = 1; i <= n; ++i) {
    link[0] = n + 1;
    if (nptr[i] > nptr[i - 1]) taken[i - 1] = -1;
    qkm_int *list = adj + out;
    qkm_int count = 0;
    for_each_reached(i, eptr, econn, nptr, nlist, [&](qkm_int j) {
      if (taken[j - 1] != 0) return;
      taken[j - 1] = 1;
      // insertion into the ascending list gathered so far
      qkm_int k = count++;
      while (k > 0 && list[k - 1] > j) {
        list[k] = list[k - 1];
        --k;
      }
      list[k] = j;
    });
    for (qkm_int k = 0; k < count; ++k) taken[list[k] - 1] = 0;
    if (count > 0) link[0] = list[0];
    out += count;
    taken[i - 1] = 0;
  }
}

// Pointers from keys sorted within two segments: entries 1..nfirst name rows 1..mfirst,
// entries nfirst+1..ntotal name rows mfirst+1..mtotal by their offset past mfirst. Each row
// takes the last position of its key; a row with no entry takes the pointer of the row before.
void eaupne(const qkm_int *ntotal, const qkm_int *nfirst, const qkm_int *mfirst,
            const qkm_int *mtotal, const qkm_int *key, qkm_int *ptr) {
  static const qkm_int code = 3;
  const qkm_int count = qkm::wrap_add(*mtotal, 1);
  eaxraz(&code, ptr, &count);
  const qkm_int n1 = *nfirst, m1 = *mfirst;
  for (qkm_int k = 1; k <= n1; ++k) ptr[key[k - 1]] = k;
  for (qkm_int r = 1; r <= m1; ++r)
    if (ptr[r] == 0) ptr[r] = ptr[r - 1];
  if (*ntotal > n1)
    for (qkm_int k = n1 + 1; k <= *ntotal; ++k) ptr[m1 + key[k - 1]] = k;
  if (*mtotal > m1)
    for (qkm_int r = m1 + 1; r <= *mtotal; ++r)
      if (ptr[r] == 0) ptr[r] = ptr[r - 1];
}

}  // extern "C"
