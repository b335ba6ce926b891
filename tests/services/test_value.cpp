// The value vocabulary: names, name checks, sizes, and the encapsulations' ownership.
#include <gtest/gtest.h>

#include <cstring>
#include <new>

#include "QORKytValue.h"

namespace {

constexpr int kFail = static_cast<int>(0x80004005u);

TEST(ValueNames, EveryTableReadsAsWritten) {
  const char *values[] = {"QORKytValueInteger4",     "QORKytValueReal4",
                          "QORKytValueReal8",        "QORKytValueChar4",
                          "QORKytValueChar1",        "QORKytValueString",
                          "QORKytValueInteger4Ptr",  "QORKytValueReal4Ptr",
                          "QORKytValueReal8Ptr",     "QORKytValueChar1Ptr",
                          "QORKytValueChar1PtrPtr",  "QORKytValueQORMathComplexf",
                          "QORKytValueQORMathComplex", "QORKytValueLast"};
  for (int i = 0; i < 14; ++i)
    EXPECT_STREQ(QORKytEnumString(static_cast<QORKytValue>(i)), values[i]) << i;
  EXPECT_STREQ(QORKytMatrixTypeName(ByBlocMatrix), "ByBlocMatrix");
  EXPECT_STREQ(QORKytMatrixTypeName(MatrixTypeLast), "MatrixTypeLast");
  EXPECT_STREQ(QORKytMatrixPropertyName(PropertyAntiHermitian), "PropertyAntiHermitian");
  EXPECT_STREQ(QORKytMatrixPropertyName(PropertyLast), "PropertyLast");
  EXPECT_STREQ(QORKytMatrixShapeName(ShapeLowerTriangular), "ShapeLowerTriangular");
  EXPECT_STREQ(QORKytMatrixShapeName(ShapeDiagonal), "ShapeDiagonal");
  EXPECT_STREQ(QORKytMatrixStorageTypeName(StorageSkyline), "StorageSkyline");
  const char *prepro[] = {"PreproCategoryMesh",     "PreproCategoryAxis",
                          "PreproCategoryMaterial", "PreproCategoryProperty",
                          "PreproCategoryRestraint", "PreproCategoryLoad",
                          "PreproCategoryMass",     "PreproCategoryLast"};
  const char *display[] = {"mesh",       "axes",  "materials", "properties",
                           "restraints", "loads", "masses",    "unknown set"};
  for (int i = 0; i < 8; ++i) {
    EXPECT_STREQ(QORKytEnumString(static_cast<QORKytPreproCategory>(i)), prepro[i]);
    EXPECT_STREQ(QORKytPreproCategoryName(static_cast<QORKytPreproCategory>(i)), display[i]);
  }
}

TEST(ValueNames, NameChecksKnowEveryMemberButTheLast) {
  QORKytValue v = QORKytValueReal8;
  for (int i = 0; i < 13; ++i)
    EXPECT_EQ(QORKytValueEnum(QORKytEnumString(static_cast<QORKytValue>(i)), v), 0) << i;
  EXPECT_EQ(v, QORKytValueReal8);  // the enumeration argument is not written
  EXPECT_EQ(QORKytValueEnum("QORKytValueLast", v), kFail);
  EXPECT_EQ(QORKytValueEnum("qorkytvaluereal8", v), kFail);
  EXPECT_EQ(QORKytValueEnum("", v), kFail);
  EXPECT_EQ(QORKytMatrixTypeEnum("SparseMatrix", DenseMatrix), 0);
  EXPECT_EQ(QORKytMatrixTypeEnum("MatrixTypeLast", DenseMatrix), kFail);
  EXPECT_EQ(QORKytMatrixPropertyEnum("PropertyAny", PropertyAny), 0);
  EXPECT_EQ(QORKytMatrixPropertyEnum("PropertyLast", PropertyAny), kFail);
  EXPECT_EQ(QORKytMatrixShapeEnum("ShapeDiagonal", ShapeSquare), 0);
  EXPECT_EQ(QORKytMatrixShapeEnum("ShapeLast", ShapeSquare), kFail);
  EXPECT_EQ(QORKytMatrixStorageTypeEnum("StorageSkyline", StorageFrontal), 0);
  EXPECT_EQ(QORKytMatrixStorageTypeEnum("StorageLast", StorageFrontal), kFail);
}

TEST(ValueSizes, TableValuesAndOutsideTheTable) {
  const int sizes[] = {4, 4, 8, 4, 1, 0, 8, 0, 0, 8, 0, 8, 16, 0};
  const int pointed[] = {13, 13, 13, 13, 13, 13, 0, 1, 2, 4, 9, 13, 13, 13};
  for (int i = 0; i < 14; ++i) {
    EXPECT_EQ(GetKytaniSizeOf(static_cast<QORKytValue>(i)), sizes[i]) << i;
    EXPECT_EQ(GetPointedType(static_cast<QORKytValue>(i)), pointed[i]) << i;
  }
  EXPECT_EQ(GetKytaniSizeOf(static_cast<QORKytValue>(14)), 0);
  EXPECT_EQ(GetKytaniSizeOf(static_cast<QORKytValue>(-1)), 0);
  EXPECT_EQ(GetPointedType(static_cast<QORKytValue>(-1)), QORKytValueLast);
  EXPECT_EQ(GetPointedType(static_cast<QORKytValue>(99)), QORKytValueLast);
}

TEST(MatrixVersion, DefaultsCopiesAndDestructorRewrite) {
  QORKytMatrixVersion a;
  EXPECT_EQ(a._ValueType, 13);
  EXPECT_EQ(a._StorageType, 2);
  EXPECT_EQ(a._Shape, 5);
  EXPECT_EQ(a._Property, 4);
  EXPECT_EQ(a._MatrixType, 3);
  a._ValueType = QORKytValueReal8;
  a._Shape = ShapeSquare;
  QORKytMatrixVersion b(a);
  EXPECT_EQ(b._ValueType, QORKytValueReal8);
  EXPECT_EQ(b._Shape, ShapeSquare);
  QORKytMatrixVersion c;
  EXPECT_EQ(&(c = a), &c);
  EXPECT_EQ(c._Shape, ShapeSquare);
  alignas(QORKytMatrixVersion) unsigned char raw[sizeof(QORKytMatrixVersion)];
  auto *d = new (raw) QORKytMatrixVersion(a);
  d->~QORKytMatrixVersion();
  QORKytMatrixVersion fields_after;  // the destructor writes the defaults again
  EXPECT_EQ(std::memcmp(raw + sizeof(void *), reinterpret_cast<unsigned char *>(&fields_after) +
                                                  sizeof(void *),
                        5 * sizeof(int)),
            0);
}

TEST(TypeEncap, EmptinessFollowsTheKindNotTheValue) {
  EXPECT_TRUE(QORKytTypeEncap().IsEmpty());
  EXPECT_FALSE(QORKytTypeEncap(0).IsEmpty());
  EXPECT_FALSE(QORKytTypeEncap(0.0f).IsEmpty());
  EXPECT_FALSE(QORKytTypeEncap(0.0).IsEmpty());
  EXPECT_TRUE(QORKytTypeEncap(static_cast<const char *>(nullptr)).IsEmpty());
  EXPECT_EQ(QORKytTypeEncap(static_cast<const char *>(nullptr))._Type, QORKytValueString);
  EXPECT_FALSE(QORKytTypeEncap("").IsEmpty());
  int *ip = nullptr;
  EXPECT_FALSE(QORKytTypeEncap(ip).IsEmpty());  // a null pointer variable is still present
  QORKytTypeEncap c;
  c._Type = QORKytValueChar1;
  c._Value.i = 'x';
  EXPECT_TRUE(c.IsEmpty());
  c._Type = QORKytValueChar4;
  EXPECT_TRUE(c.IsEmpty());
  c._Type = QORKytValueQORMathComplex;
  EXPECT_TRUE(c.IsEmpty());
}

TEST(TypeEncap, CopiesOwnTheirTextAndClearTheUpperHalf) {
  char text[] = "stiffness";
  auto *source = new QORKytTypeEncap(static_cast<const char *>(text));
  EXPECT_NE(source->_Value.s, text);  // a private copy
  QORKytTypeEncap copy(*source);
  QORKytTypeEncap assigned;
  assigned = *source;
  EXPECT_NE(copy._Value.s, source->_Value.s);
  delete source;
  text[0] = 'S';
  EXPECT_STREQ(copy._Value.s, "stiffness");
  EXPECT_STREQ(assigned._Value.s, "stiffness");

  // A string replaced by an integer: the text is freed and the upper half is zero.
  QORKytTypeEncap target("old text");
  target = QORKytTypeEncap(-1);
  EXPECT_EQ(target._Type, QORKytValueInteger4);
  unsigned char bytes[8];
  std::memcpy(bytes, &target._Value, 8);
  EXPECT_EQ(bytes[4] | bytes[5] | bytes[6] | bytes[7], 0);
  EXPECT_EQ(target._Value.i, -1);
  target = target;  // self-assignment leaves it alone
  EXPECT_EQ(target._Value.i, -1);
  QORKytTypeEncap null_text(static_cast<const char *>(nullptr));
  target = null_text;
  EXPECT_TRUE(target.IsEmpty());
  EXPECT_EQ(target._Value.s, nullptr);
}

TEST(TypeEncap, DestructionLeavesTheEmptyState) {
  for (int kind = 0; kind < 3; ++kind) {
    alignas(QORKytTypeEncap) unsigned char raw[sizeof(QORKytTypeEncap)];
    QORKytTypeEncap *e = kind == 0   ? new (raw) QORKytTypeEncap("text")
                         : kind == 1 ? new (raw) QORKytTypeEncap(42)
                                     : new (raw) QORKytTypeEncap(2.5);
    e->~QORKytTypeEncap();
    QORKytTypeEncap::Value v;
    QORKytValue type;
    std::memcpy(&v, raw + offsetof(QORKytTypeEncap, _Value), sizeof v);
    std::memcpy(&type, raw + offsetof(QORKytTypeEncap, _Type), sizeof type);
    EXPECT_EQ(type, QORKytValueLast) << kind;
    EXPECT_EQ(v.p, nullptr) << kind;
  }
}

TEST(TypeEncap, StaticEmptyInstances) {
  EXPECT_TRUE(QORKytTypeEncap::EmptyEncap.IsEmpty());
  EXPECT_EQ(QORKytTypeEncapError::EmptyEncapEr._Type, QORKytValueLast);
  EXPECT_EQ(QORKytTypeEncapMemory::EmptyEncapMem._Type, QORKytValueLast);
  EXPECT_EQ(QORKytTypeEncapMemory::EmptyEncapMem._Value.p, nullptr);
  EXPECT_TRUE(QORKytTypeEncapError().IsEmpty());
  EXPECT_TRUE(QORKytTypeEncapMemory().IsEmpty());
}

TEST(TypeEncapError, OnlyIntegersDoubleRealsAndTextsReachTheLists) {
  QORRawCollint ints(0);
  QORRawColldouble reals(0);
  QORListValQORUnicodeString strings;
  QORKytTypeEncapError(7).AddParameterInList(ints, reals, strings);
  QORKytTypeEncapError(1.5).AddParameterInList(ints, reals, strings);
  QORKytTypeEncapError("name").AddParameterInList(ints, reals, strings);
  QORKytTypeEncapError(static_cast<const char *>(nullptr))
      .AddParameterInList(ints, reals, strings);
  QORKytTypeEncapError::EmptyEncapEr.AddParameterInList(ints, reals, strings);
  // A float kept in a base object and copied into a parameter adds nothing.
  QORKytTypeEncap f(2.5f);
  QORKytTypeEncapError as_param;
  static_cast<QORKytTypeEncap &>(as_param) = f;
  EXPECT_FALSE(as_param.IsEmpty());
  as_param.AddParameterInList(ints, reals, strings);
  ASSERT_EQ(ints.Size(), 1);
  ASSERT_EQ(reals.Size(), 1);
  ASSERT_EQ(strings.Size(), 1);
  EXPECT_EQ(ints[1], 7);
  EXPECT_EQ(reals[1], 1.5);
  EXPECT_STREQ(strings[1], "name");
}

TEST(TypeEncapMemory, SizesAndTheAddressOfThePointerVariable) {
  double *d = reinterpret_cast<double *>(0x1000);
  QORKytTypeEncapMemory md(d);
  EXPECT_EQ(md.GetKytaniSizeOfPointedType(), 8);
  EXPECT_EQ(static_cast<char **>(md), reinterpret_cast<char **>(&d));
  int *i = nullptr;
  float *f = nullptr;
  char *c = nullptr;
  char **cc = nullptr;
  EXPECT_EQ(QORKytTypeEncapMemory(i).GetKytaniSizeOfPointedType(), 4);
  EXPECT_EQ(QORKytTypeEncapMemory(f).GetKytaniSizeOfPointedType(), 4);
  EXPECT_EQ(QORKytTypeEncapMemory(c).GetKytaniSizeOfPointedType(), 1);
  EXPECT_EQ(QORKytTypeEncapMemory(cc).GetKytaniSizeOfPointedType(), 8);
  EXPECT_EQ(QORKytTypeEncapMemory().GetKytaniSizeOfPointedType(), 0);
  // Writing through the stored address reaches the caller's variable.
  QORKytTypeEncapMemory mi(i);
  int target = 5;
  *reinterpret_cast<int **>(static_cast<char **>(mi)) = &target;
  EXPECT_EQ(i, &target);
  QORKytTypeEncapMemory copy(mi);
  EXPECT_EQ(static_cast<char **>(copy), reinterpret_cast<char **>(&i));
}

}  // namespace
