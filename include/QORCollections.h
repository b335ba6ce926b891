// Growing collections of the platform library. Indexing is one-based: the first element is
// [1] and the last is [Size()]. An index outside 1..Size() reads a neutral element (0, 0.0 or
// an empty string) owned by the collection instead of reaching outside it.
#ifndef QORPLATFORM_COLLECTIONS_H
#define QORPLATFORM_COLLECTIONS_H

#include "QORExport.h"
#include "QORString.h"

class QOR_API QORRawCollint {
 public:
  explicit QORRawCollint(int capacity = 0);
  QORRawCollint(const QORRawCollint &other);
  QORRawCollint &operator=(const QORRawCollint &other);
  ~QORRawCollint();

  void Append(int value);
  int Size() const;
  void RemoveAll();
  int &operator[](int index);
  int operator[](int index) const;

 private:
  void Reserve(int capacity);
  int *_Data;
  int _Size;
  int _Capacity;
  int _Outside;
};

class QOR_API QORRawColldouble {
 public:
  explicit QORRawColldouble(int capacity = 0);
  QORRawColldouble(const QORRawColldouble &other);
  QORRawColldouble &operator=(const QORRawColldouble &other);
  ~QORRawColldouble();

  void Append(double value);
  int Size() const;
  void RemoveAll();
  double &operator[](int index);
  double operator[](int index) const;

 private:
  void Reserve(int capacity);
  double *_Data;
  int _Size;
  int _Capacity;
  double _Outside;
};

class QOR_API QORListValQORUnicodeString {
 public:
  QORListValQORUnicodeString();
  QORListValQORUnicodeString(const QORListValQORUnicodeString &other);
  QORListValQORUnicodeString &operator=(const QORListValQORUnicodeString &other);
  ~QORListValQORUnicodeString();

  void Append(const QORUnicodeString &value);
  int Size() const;
  void RemoveAll();
  QORUnicodeString &operator[](int index);
  const QORUnicodeString &operator[](int index) const;

 private:
  void Reserve(int capacity);
  QORUnicodeString *_Data;
  int _Size;
  int _Capacity;
  QORUnicodeString _Outside;
};

#endif
