// Value vocabulary of the services: kinds of values and matrices, their names, and the
// encapsulations that carry a value with its kind across an untyped interface.
#ifndef QORKYTMATHKERNEL_VALUE_H
#define QORKYTMATHKERNEL_VALUE_H

#include "QORExport.h"
#include "QORCollections.h"
#include "QORString.h"


enum QORKytValue {
  QORKytValueInteger4,
  QORKytValueReal4,
  QORKytValueReal8,
  QORKytValueChar4,
  QORKytValueChar1,
  QORKytValueString,
  QORKytValueInteger4Ptr,
  QORKytValueReal4Ptr,
  QORKytValueReal8Ptr,
  QORKytValueChar1Ptr,
  QORKytValueChar1PtrPtr,
  QORKytValueQORMathComplexf,
  QORKytValueQORMathComplex,
  QORKytValueLast
};

enum QORKytMatrixType { DenseMatrix, SparseMatrix, ByBlocMatrix, MatrixTypeLast };

enum QORKytMatrixProperty {
  PropertySymmetric,
  PropertyAntiSymmetric,
  PropertyHermitian,
  PropertyAntiHermitian,
  PropertyAny,
  PropertyLast
};

enum QORKytMatrixShape {
  ShapeRectangular,
  ShapeSquare,
  ShapeUpperTriangular,
  ShapeLowerTriangular,
  ShapeDiagonal,
  ShapeLast
};

enum QORKytMatrixStorageType { StorageFrontal, StorageSkyline, StorageLast };

enum QORKytPreproCategory {
  PreproCategoryMesh,
  PreproCategoryAxis,
  PreproCategoryMaterial,
  PreproCategoryProperty,
  PreproCategoryRestraint,
  PreproCategoryLoad,
  PreproCategoryMass,
  PreproCategoryLast
};

// Names. The argument indexes the table directly: a value outside the enumeration is the
// caller's mistake.
QOR_API const char *QORKytEnumString(QORKytValue value);
QOR_API const char *QORKytMatrixTypeName(QORKytMatrixType value);
QOR_API const char *QORKytMatrixPropertyName(QORKytMatrixProperty value);
QOR_API const char *QORKytMatrixShapeName(QORKytMatrixShape value);
QOR_API const char *QORKytMatrixStorageTypeName(QORKytMatrixStorageType value);
QOR_API const char *QORKytEnumString(QORKytPreproCategory value);
QOR_API const char *QORKytPreproCategoryName(QORKytPreproCategory value);  // display name

// 0 when `name` is the name of a member (the "Last" one excepted), 0x80004005 otherwise.
// The enumeration argument is neither read nor written.
QOR_API int QORKytValueEnum(QORUnicodeString name, QORKytValue value);
QOR_API int QORKytMatrixTypeEnum(QORUnicodeString name, QORKytMatrixType value);
QOR_API int QORKytMatrixPropertyEnum(QORUnicodeString name, QORKytMatrixProperty value);
QOR_API int QORKytMatrixShapeEnum(QORUnicodeString name, QORKytMatrixShape value);
QOR_API int QORKytMatrixStorageTypeEnum(QORUnicodeString name,
                                           QORKytMatrixStorageType value);

// Size in bytes of a value of that kind (0 outside the table), and the kind it points to
// (QORKytValueLast for kinds that are no pointers).
QOR_API int GetKytaniSizeOf(QORKytValue value);
QOR_API QORKytValue GetPointedType(QORKytValue value);

// The kinds and properties of one matrix version.
class QOR_API QORKytMatrixVersion {
 public:
  QORKytMatrixVersion();
  QORKytMatrixVersion(QORKytMatrixVersion &other);
  virtual ~QORKytMatrixVersion();
  QORKytMatrixVersion &operator=(QORKytMatrixVersion &other);

  QORKytValue _ValueType;
  QORKytMatrixStorageType _StorageType;
  QORKytMatrixShape _Shape;
  QORKytMatrixProperty _Property;
  QORKytMatrixType _MatrixType;
};

// A value and its kind. Only a string (kind QORKytValueString) owns memory: a private copy
// of the text. The pointer kinds hold the address of the caller's pointer variable, which
// must outlive the object. Kind QORKytValueLast with a zero value is the empty state.
class QOR_API QORKytTypeEncap {
 public:
  QORKytTypeEncap();
  QORKytTypeEncap(const QORKytTypeEncap &other);
  QORKytTypeEncap(int value);
  QORKytTypeEncap(float value);
  QORKytTypeEncap(double value);
  QORKytTypeEncap(const char *text);
  QORKytTypeEncap(int *&pointer);
  QORKytTypeEncap(float *&pointer);
  QORKytTypeEncap(double *&pointer);
  QORKytTypeEncap(char *&pointer);
  QORKytTypeEncap(char **&pointer);
  ~QORKytTypeEncap();

  QORKytTypeEncap &operator=(const QORKytTypeEncap &other);
  bool IsEmpty() const;
  void PrintType() const;
  void PrintValue() const;
  void Dump() const;

  static QORKytTypeEncap EmptyEncap;

  union Value {
    int i;
    float f;
    double d;
    char *s;
    void *p;  // pointer kinds: the address of the caller's pointer variable
  };
  Value _Value;
  QORKytValue _Type;
};

// A message parameter: an integer, a real or a text.
class QOR_API QORKytTypeEncapError : public QORKytTypeEncap {
 public:
  QORKytTypeEncapError();
  QORKytTypeEncapError(const QORKytTypeEncapError &other);
  QORKytTypeEncapError(int value);
  QORKytTypeEncapError(double value);
  QORKytTypeEncapError(const char *text);
  ~QORKytTypeEncapError();

  // Adds the value to the list of its kind: integers, double reals and texts; other kinds
  // and the empty state add nothing.
  void AddParameterInList(QORRawCollint &ints, QORRawColldouble &reals,
                          QORListValQORUnicodeString &strings) const;

  static QORKytTypeEncapError EmptyEncapEr;
};

// A typed pointer variable handed to the memory manager.
class QOR_API QORKytTypeEncapMemory : public QORKytTypeEncap {
 public:
  QORKytTypeEncapMemory();
  QORKytTypeEncapMemory(const QORKytTypeEncapMemory &other);
  QORKytTypeEncapMemory(int *&pointer);
  QORKytTypeEncapMemory(float *&pointer);
  QORKytTypeEncapMemory(double *&pointer);
  QORKytTypeEncapMemory(char *&pointer);
  QORKytTypeEncapMemory(char **&pointer);
  ~QORKytTypeEncapMemory();

  // The address of the caller's pointer variable.
  operator char **() const;
  // Size of one pointed-to item: 4, 4, 8, 1 and 8 for the five pointer kinds, else 0.
  int GetKytaniSizeOfPointedType() const;
  // Self-check of the typed allocation path through the memory manager.
  static int Test();

  static QORKytTypeEncapMemory EmptyEncapMem;
};

#endif
