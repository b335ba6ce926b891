#include <cstring>

#include "common/text_copy.h"
#include "QORKytValue.h"

namespace {

constexpr int kFail = static_cast<int>(0x80004005u);

const char *const kValueNames[] = {
    "QORKytValueInteger4",     "QORKytValueReal4",           "QORKytValueReal8",
    "QORKytValueChar4",        "QORKytValueChar1",           "QORKytValueString",
    "QORKytValueInteger4Ptr",  "QORKytValueReal4Ptr",        "QORKytValueReal8Ptr",
    "QORKytValueChar1Ptr",     "QORKytValueChar1PtrPtr",     "QORKytValueQORMathComplexf",
    "QORKytValueQORMathComplex", "QORKytValueLast"};

// Size and pointed type of each kind. The zero sizes of three pointer kinds beside the 8 of
// the two others are the vocabulary's own values.
const int kSizes[] = {4, 4, 8, 4, 1, 0, 8, 0, 0, 8, 0, 8, 16, 0};
const QORKytValue kPointed[] = {
    QORKytValueLast,     QORKytValueLast,      QORKytValueLast,     QORKytValueLast,
    QORKytValueLast,     QORKytValueLast,      QORKytValueInteger4, QORKytValueReal4,
    QORKytValueReal8,    QORKytValueChar1,     QORKytValueChar1Ptr, QORKytValueLast,
    QORKytValueLast,     QORKytValueLast};

const char *const kMatrixTypeNames[] = {"DenseMatrix", "SparseMatrix", "ByBlocMatrix",
                                        "MatrixTypeLast"};
const char *const kPropertyNames[] = {"PropertySymmetric",     "PropertyAntiSymmetric",
                                      "PropertyHermitian",     "PropertyAntiHermitian",
                                      "PropertyAny",           "PropertyLast"};
const char *const kShapeNames[] = {"ShapeRectangular",     "ShapeSquare",
                                   "ShapeUpperTriangular", "ShapeLowerTriangular",
                                   "ShapeDiagonal",        "ShapeLast"};
const char *const kStorageNames[] = {"StorageFrontal", "StorageSkyline", "StorageLast"};
const char *const kPreproNames[] = {"PreproCategoryMesh",     "PreproCategoryAxis",
                                    "PreproCategoryMaterial", "PreproCategoryProperty",
                                    "PreproCategoryRestraint", "PreproCategoryLoad",
                                    "PreproCategoryMass",     "PreproCategoryLast"};
const char *const kPreproDisplay[] = {"mesh",       "axes",  "materials", "properties",
                                      "restraints", "loads", "masses",    "unknown set"};

int match_first(const QORUnicodeString &name, const char *const *names, int count) {
  for (int i = 0; i < count; ++i)
    if (name == QORUnicodeString(names[i])) return 0;
  return kFail;
}

using qor::copy_text;

}  // namespace

// ---------------------------------------------------------------- names

const char *QORKytEnumString(QORKytValue value) { return kValueNames[value]; }
const char *QORKytMatrixTypeName(QORKytMatrixType value) { return kMatrixTypeNames[value]; }
const char *QORKytMatrixPropertyName(QORKytMatrixProperty value) {
  return kPropertyNames[value];
}
const char *QORKytMatrixShapeName(QORKytMatrixShape value) { return kShapeNames[value]; }
const char *QORKytMatrixStorageTypeName(QORKytMatrixStorageType value) {
  return kStorageNames[value];
}
const char *QORKytEnumString(QORKytPreproCategory value) { return kPreproNames[value]; }
const char *QORKytPreproCategoryName(QORKytPreproCategory value) {
  return kPreproDisplay[value];
}

int QORKytValueEnum(QORUnicodeString name, QORKytValue) {
  return match_first(name, kValueNames, 13);
}
int QORKytMatrixTypeEnum(QORUnicodeString name, QORKytMatrixType) {
  return match_first(name, kMatrixTypeNames, 3);
}
int QORKytMatrixPropertyEnum(QORUnicodeString name, QORKytMatrixProperty) {
  return match_first(name, kPropertyNames, 5);
}
int QORKytMatrixShapeEnum(QORUnicodeString name, QORKytMatrixShape) {
  return match_first(name, kShapeNames, 5);
}
int QORKytMatrixStorageTypeEnum(QORUnicodeString name, QORKytMatrixStorageType) {
  return match_first(name, kStorageNames, 2);
}

int GetKytaniSizeOf(QORKytValue value) {
  const unsigned v = static_cast<unsigned>(value);
  return v <= 13u ? kSizes[v] : 0;
}

QORKytValue GetPointedType(QORKytValue value) {
  const unsigned v = static_cast<unsigned>(value);
  return (v >= 6u && v <= 13u) ? kPointed[v] : QORKytValueLast;
}

// ---------------------------------------------------------------- QORKytMatrixVersion

QORKytMatrixVersion::QORKytMatrixVersion()
    : _ValueType(QORKytValueLast),
      _StorageType(StorageLast),
      _Shape(ShapeLast),
      _Property(PropertyAny),
      _MatrixType(MatrixTypeLast) {}

QORKytMatrixVersion::QORKytMatrixVersion(QORKytMatrixVersion &other)
    : _ValueType(other._ValueType),
      _StorageType(other._StorageType),
      _Shape(other._Shape),
      _Property(other._Property),
      _MatrixType(other._MatrixType) {}

// The stores of a destructor are dead to the compiler; they are made through volatile so that
// the object really holds the defaults again when it is gone.
template <typename T>
static void store_kept(T &field, T value) {
  *const_cast<volatile T *>(&field) = value;
}

QORKytMatrixVersion::~QORKytMatrixVersion() {
  store_kept(_ValueType, QORKytValueLast);
  store_kept(_StorageType, StorageLast);
  store_kept(_Shape, ShapeLast);
  store_kept(_Property, PropertyAny);
  store_kept(_MatrixType, MatrixTypeLast);
}

QORKytMatrixVersion &QORKytMatrixVersion::operator=(QORKytMatrixVersion &other) {
  if (this == &other) return *this;
  _ValueType = other._ValueType;
  _StorageType = other._StorageType;
  _Shape = other._Shape;
  _Property = other._Property;
  _MatrixType = other._MatrixType;
  return *this;
}

// ---------------------------------------------------------------- QORKytTypeEncap

QORKytTypeEncap::QORKytTypeEncap() : _Value{}, _Type(QORKytValueLast) { _Value.p = nullptr; }

QORKytTypeEncap::QORKytTypeEncap(const QORKytTypeEncap &other) : QORKytTypeEncap() {
  *this = other;
}

QORKytTypeEncap::QORKytTypeEncap(int value) : QORKytTypeEncap() {
  _Value.i = value;
  _Type = QORKytValueInteger4;
}
QORKytTypeEncap::QORKytTypeEncap(float value) : QORKytTypeEncap() {
  _Value.f = value;
  _Type = QORKytValueReal4;
}
QORKytTypeEncap::QORKytTypeEncap(double value) : QORKytTypeEncap() {
  _Value.d = value;
  _Type = QORKytValueReal8;
}
QORKytTypeEncap::QORKytTypeEncap(const char *text) : QORKytTypeEncap() {
  _Value.s = text != nullptr ? copy_text(text) : nullptr;
  _Type = QORKytValueString;
}
QORKytTypeEncap::QORKytTypeEncap(int *&pointer) : QORKytTypeEncap() {
  _Value.p = &pointer;
  _Type = QORKytValueInteger4Ptr;
}
QORKytTypeEncap::QORKytTypeEncap(float *&pointer) : QORKytTypeEncap() {
  _Value.p = &pointer;
  _Type = QORKytValueReal4Ptr;
}
QORKytTypeEncap::QORKytTypeEncap(double *&pointer) : QORKytTypeEncap() {
  _Value.p = &pointer;
  _Type = QORKytValueReal8Ptr;
}
QORKytTypeEncap::QORKytTypeEncap(char *&pointer) : QORKytTypeEncap() {
  _Value.p = &pointer;
  _Type = QORKytValueChar1Ptr;
}
QORKytTypeEncap::QORKytTypeEncap(char **&pointer) : QORKytTypeEncap() {
  _Value.p = &pointer;
  _Type = QORKytValueChar1PtrPtr;
}

QORKytTypeEncap::~QORKytTypeEncap() {
  if (_Type == QORKytValueString && _Value.s != nullptr) delete[] _Value.s;
  store_kept(_Value.p, static_cast<void *>(nullptr));
  store_kept(_Type, QORKytValueLast);
}

QORKytTypeEncap &QORKytTypeEncap::operator=(const QORKytTypeEncap &other) {
  if (this == &other) return *this;
  // Take the source value first: 32 bits for int and float, a fresh copy for a text, the
  // whole 8 bytes for everything else (the empty state included).
  Value taken;
  taken.p = nullptr;
  if (other._Type == QORKytValueInteger4 || other._Type == QORKytValueReal4)
    taken.i = other._Value.i;
  else if (other._Type == QORKytValueString)
    taken.s = other._Value.s != nullptr ? copy_text(other._Value.s) : nullptr;
  else
    taken = other._Value;
  if (_Type == QORKytValueString && _Value.s != nullptr) delete[] _Value.s;
  _Value.p = nullptr;  // clears all 8 bytes, so a 32-bit value leaves the upper half zero
  if (other._Type == QORKytValueInteger4 || other._Type == QORKytValueReal4)
    _Value.i = taken.i;
  else
    _Value = taken;
  _Type = other._Type;
  return *this;
}

bool QORKytTypeEncap::IsEmpty() const {
  switch (_Type) {
    case QORKytValueInteger4:
    case QORKytValueReal4:
    case QORKytValueReal8:
    case QORKytValueInteger4Ptr:
    case QORKytValueReal4Ptr:
    case QORKytValueReal8Ptr:
    case QORKytValueChar1Ptr:
    case QORKytValueChar1PtrPtr:
      return false;
    case QORKytValueString:
      return _Value.s == nullptr;
    default:
      return true;
  }
}

void QORKytTypeEncap::PrintType() const {}
void QORKytTypeEncap::PrintValue() const { (void)IsEmpty(); }
void QORKytTypeEncap::Dump() const {
  PrintType();
  PrintValue();
}

// ---------------------------------------------------------------- QORKytTypeEncapError

QORKytTypeEncapError::QORKytTypeEncapError() : QORKytTypeEncap(EmptyEncap) {}
QORKytTypeEncapError::QORKytTypeEncapError(const QORKytTypeEncapError &other)
    : QORKytTypeEncap(other) {}
QORKytTypeEncapError::QORKytTypeEncapError(int value) : QORKytTypeEncap(value) {}
QORKytTypeEncapError::QORKytTypeEncapError(double value) : QORKytTypeEncap(value) {}
QORKytTypeEncapError::QORKytTypeEncapError(const char *text) : QORKytTypeEncap(text) {}
QORKytTypeEncapError::~QORKytTypeEncapError() = default;

void QORKytTypeEncapError::AddParameterInList(QORRawCollint &ints, QORRawColldouble &reals,
                                              QORListValQORUnicodeString &strings) const {
  if (IsEmpty()) return;
  switch (_Type) {
    case QORKytValueInteger4:
      ints.Append(_Value.i);
      break;
    case QORKytValueReal8:
      reals.Append(_Value.d);
      break;
    case QORKytValueString:
      strings.Append(QORUnicodeString(_Value.s));
      break;
    default:
      break;
  }
}

// ---------------------------------------------------------------- QORKytTypeEncapMemory

QORKytTypeEncapMemory::QORKytTypeEncapMemory() : QORKytTypeEncap(EmptyEncap) {}
QORKytTypeEncapMemory::QORKytTypeEncapMemory(const QORKytTypeEncapMemory &other)
    : QORKytTypeEncap(other) {}
QORKytTypeEncapMemory::QORKytTypeEncapMemory(int *&pointer) : QORKytTypeEncap(pointer) {}
QORKytTypeEncapMemory::QORKytTypeEncapMemory(float *&pointer) : QORKytTypeEncap(pointer) {}
QORKytTypeEncapMemory::QORKytTypeEncapMemory(double *&pointer) : QORKytTypeEncap(pointer) {}
QORKytTypeEncapMemory::QORKytTypeEncapMemory(char *&pointer) : QORKytTypeEncap(pointer) {}
QORKytTypeEncapMemory::QORKytTypeEncapMemory(char **&pointer) : QORKytTypeEncap(pointer) {}
QORKytTypeEncapMemory::~QORKytTypeEncapMemory() = default;

QORKytTypeEncapMemory::operator char **() const { return static_cast<char **>(_Value.p); }

int QORKytTypeEncapMemory::GetKytaniSizeOfPointedType() const {
  return GetKytaniSizeOf(GetPointedType(_Type));
}
