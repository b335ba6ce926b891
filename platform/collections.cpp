#include "QORCollections.h"

#include <cstring>
#include <utility>

// Capacities grow by doubling; a count above INT_MAX / 2 is beyond these collections.
namespace {
int grown(int capacity, int needed) {
  int c = capacity > 0 ? capacity : 4;
  while (c < needed) c *= 2;
  return c;
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
  if (this == &other) return *this;
  RemoveAll();
  Reserve(other._Size);
  if (other._Size > 0) std::memcpy(_Data, other._Data, sizeof(int) * other._Size);
  _Size = other._Size;
  return *this;
}
QORRawCollint::~QORRawCollint() { delete[] _Data; }
void QORRawCollint::Reserve(int capacity) {
  if (capacity <= _Capacity) return;
  int *p = new int[capacity];
  if (_Size > 0) std::memcpy(p, _Data, sizeof(int) * _Size);
  delete[] _Data;
  _Data = p;
  _Capacity = capacity;
}
void QORRawCollint::Append(int value) {
  if (_Size == _Capacity) Reserve(grown(_Capacity, _Size + 1));
  _Data[_Size++] = value;
}
int QORRawCollint::Size() const { return _Size; }
void QORRawCollint::RemoveAll() { _Size = 0; }
int &QORRawCollint::operator[](int index) {
  if (index < 1 || index > _Size) {
    _Outside = 0;
    return _Outside;
  }
  return _Data[index - 1];
}
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
  if (this == &other) return *this;
  RemoveAll();
  Reserve(other._Size);
  if (other._Size > 0) std::memcpy(_Data, other._Data, sizeof(double) * other._Size);
  _Size = other._Size;
  return *this;
}
QORRawColldouble::~QORRawColldouble() { delete[] _Data; }
void QORRawColldouble::Reserve(int capacity) {
  if (capacity <= _Capacity) return;
  double *p = new double[capacity];
  if (_Size > 0) std::memcpy(p, _Data, sizeof(double) * _Size);
  delete[] _Data;
  _Data = p;
  _Capacity = capacity;
}
void QORRawColldouble::Append(double value) {
  if (_Size == _Capacity) Reserve(grown(_Capacity, _Size + 1));
  _Data[_Size++] = value;
}
int QORRawColldouble::Size() const { return _Size; }
void QORRawColldouble::RemoveAll() { _Size = 0; }
double &QORRawColldouble::operator[](int index) {
  if (index < 1 || index > _Size) {
    _Outside = 0.0;
    return _Outside;
  }
  return _Data[index - 1];
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
  Reserve(other._Size);
  for (int i = 0; i < other._Size; ++i) _Data[i] = other._Data[i];
  _Size = other._Size;
  return *this;
}
QORListValQORUnicodeString::~QORListValQORUnicodeString() { delete[] _Data; }
void QORListValQORUnicodeString::Reserve(int capacity) {
  if (capacity <= _Capacity) return;
  QORUnicodeString *p = new QORUnicodeString[capacity];
  for (int i = 0; i < _Size; ++i) p[i] = std::move(_Data[i]);
  delete[] _Data;
  _Data = p;
  _Capacity = capacity;
}
void QORListValQORUnicodeString::Append(const QORUnicodeString &value) {
  if (_Size == _Capacity) {
    QORUnicodeString copy(value);  // `value` may be an element of this list
    Reserve(grown(_Capacity, _Size + 1));
    _Data[_Size++] = std::move(copy);
    return;
  }
  _Data[_Size++] = value;
}
int QORListValQORUnicodeString::Size() const { return _Size; }
void QORListValQORUnicodeString::RemoveAll() {
  for (int i = 0; i < _Size; ++i) _Data[i] = "";
  _Size = 0;
}
QORUnicodeString &QORListValQORUnicodeString::operator[](int index) {
  if (index < 1 || index > _Size) {
    _Outside = "";
    return _Outside;
  }
  return _Data[index - 1];
}
const QORUnicodeString &QORListValQORUnicodeString::operator[](int index) const {
  return (index < 1 || index > _Size) ? _Outside : _Data[index - 1];
}
