#include "QORCollections.h"

#include <utility>

// The three collections share one growable one-based array; the helpers below work on their
// members. Capacities grow by doubling; a count above INT_MAX / 2 is beyond these collections.
namespace {

int grown(int capacity, int needed) {
  int c = capacity > 0 ? capacity : 4;
  while (c < needed) c *= 2;
  return c;
}

template <class T>
void reserve(T *&data, int size, int &capacity, int wanted) {
  if (wanted <= capacity) return;
  T *p = new T[wanted];
  for (int i = 0; i < size; ++i) p[i] = std::move(data[i]);
  delete[] data;
  data = p;
  capacity = wanted;
}

template <class T>
void assign(T *&data, int &size, int &capacity, const T *from, int count) {
  reserve(data, size, capacity, count);
  for (int i = 0; i < count; ++i) data[i] = from[i];
  size = count;
}

template <class T>
void append(T *&data, int &size, int &capacity, const T &value) {
  if (size == capacity) {
    T copy(value);  // `value` may be an element of this collection
    reserve(data, size, capacity, grown(capacity, size + 1));
    data[size++] = std::move(copy);
    return;
  }
  data[size++] = value;
}

// Element `index` counted from 1; outside the collection, `outside` reset to `empty`.
template <class T>
T &element(T *data, int size, T &outside, int index, const T &empty) {
  if (index < 1 || index > size) {
    outside = empty;
    return outside;
  }
  return data[index - 1];
}

}  // namespace

// ---------------------------------------------------------------- QORRawCollint

QORRawCollint::QORRawCollint(int capacity) : _Data(nullptr), _Size(0), _Capacity(0), _Outside(0) {
  if (capacity > 0) Reserve(capacity);
}
QORRawCollint::QORRawCollint(const QORRawCollint &other)
    : _Data(nullptr), _Size(0), _Capacity(0), _Outside(0) {
  *this = other;
}
QORRawCollint &QORRawCollint::operator=(const QORRawCollint &other) {
  if (this != &other) assign(_Data, _Size, _Capacity, other._Data, other._Size);
  return *this;
}
QORRawCollint::~QORRawCollint() { delete[] _Data; }
void QORRawCollint::Reserve(int capacity) { reserve(_Data, _Size, _Capacity, capacity); }
void QORRawCollint::Append(int value) { append(_Data, _Size, _Capacity, value); }
int QORRawCollint::Size() const { return _Size; }
void QORRawCollint::RemoveAll() { _Size = 0; }
int &QORRawCollint::operator[](int index) { return element(_Data, _Size, _Outside, index, 0); }
int QORRawCollint::operator[](int index) const {
  return (index < 1 || index > _Size) ? 0 : _Data[index - 1];
}

// ---------------------------------------------------------------- QORRawColldouble

QORRawColldouble::QORRawColldouble(int capacity)
    : _Data(nullptr), _Size(0), _Capacity(0), _Outside(0.0) {
  if (capacity > 0) Reserve(capacity);
}
QORRawColldouble::QORRawColldouble(const QORRawColldouble &other)
    : _Data(nullptr), _Size(0), _Capacity(0), _Outside(0.0) {
  *this = other;
}
QORRawColldouble &QORRawColldouble::operator=(const QORRawColldouble &other) {
  if (this != &other) assign(_Data, _Size, _Capacity, other._Data, other._Size);
  return *this;
}
QORRawColldouble::~QORRawColldouble() { delete[] _Data; }
void QORRawColldouble::Reserve(int capacity) { reserve(_Data, _Size, _Capacity, capacity); }
void QORRawColldouble::Append(double value) { append(_Data, _Size, _Capacity, value); }
int QORRawColldouble::Size() const { return _Size; }
void QORRawColldouble::RemoveAll() { _Size = 0; }
double &QORRawColldouble::operator[](int index) {
  return element(_Data, _Size, _Outside, index, 0.0);
}
double QORRawColldouble::operator[](int index) const {
  return (index < 1 || index > _Size) ? 0.0 : _Data[index - 1];
}

// ---------------------------------------------------------------- QORListValQORUnicodeString

QORListValQORUnicodeString::QORListValQORUnicodeString()
    : _Data(nullptr), _Size(0), _Capacity(0) {}
QORListValQORUnicodeString::QORListValQORUnicodeString(const QORListValQORUnicodeString &other)
    : _Data(nullptr), _Size(0), _Capacity(0) {
  *this = other;
}
QORListValQORUnicodeString &QORListValQORUnicodeString::operator=(
    const QORListValQORUnicodeString &other) {
  if (this == &other) return *this;
  RemoveAll();
  assign(_Data, _Size, _Capacity, other._Data, other._Size);
  return *this;
}
QORListValQORUnicodeString::~QORListValQORUnicodeString() { delete[] _Data; }
void QORListValQORUnicodeString::Reserve(int capacity) {
  reserve(_Data, _Size, _Capacity, capacity);
}
void QORListValQORUnicodeString::Append(const QORUnicodeString &value) {
  append(_Data, _Size, _Capacity, value);
}
int QORListValQORUnicodeString::Size() const { return _Size; }
void QORListValQORUnicodeString::RemoveAll() {
  for (int i = 0; i < _Size; ++i) _Data[i] = "";
  _Size = 0;
}
QORUnicodeString &QORListValQORUnicodeString::operator[](int index) {
  return element(_Data, _Size, _Outside, index, QORUnicodeString(""));
}
const QORUnicodeString &QORListValQORUnicodeString::operator[](int index) const {
  return (index < 1 || index > _Size) ? _Outside : _Data[index - 1];
}
