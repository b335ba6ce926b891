// The value vocabulary: names and their checks, sizes, and the encapsulations' ownership.
#include <gtest/gtest.h>

#include <cstring>

#include "QORKytValue.h"

namespace {

constexpr int kFail = static_cast<int>(0x80004005u);

// Every name but the last member's passes its check; the last one, other case or empty fail.
template <class Enum, class NameFn, class CheckFn>
void round_trips(int last, NameFn name, CheckFn check) {
  for (int i = 0; i < last; ++i) EXPECT_EQ(check(name(static_cast<Enum>(i)), Enum{}), 0) << i;
  EXPECT_EQ(check(name(static_cast<Enum>(last)), Enum{}), kFail) << name(static_cast<Enum>(last));
  EXPECT_EQ(check("", Enum{}), kFail);
}

TEST(ValueNames, KnownEntriesAndRoundTrips) {
  EXPECT_STREQ(QORKytEnumString(QORKytValueInteger4), "QORKytValueInteger4");
  EXPECT_STREQ(QORKytEnumString(QORKytValueQORMathComplex), "QORKytValueQORMathComplex");
  EXPECT_STREQ(QORKytEnumString(QORKytValueLast), "QORKytValueLast");
  EXPECT_STREQ(QORKytMatrixPropertyName(PropertyAntiHermitian), "PropertyAntiHermitian");
  EXPECT_STREQ(QORKytMatrixStorageTypeName(StorageSkyline), "StorageSkyline");
  EXPECT_STREQ(QORKytEnumString(PreproCategoryRestraint), "PreproCategoryRestraint");
  EXPECT_STREQ(QORKytPreproCategoryName(PreproCategoryAxis), "axes");
  EXPECT_STREQ(QORKytPreproCategoryName(PreproCategoryLast), "unknown set");
  round_trips<QORKytValue>(
      QORKytValueLast, static_cast<const char *(*)(QORKytValue)>(QORKytEnumString),
      QORKytValueEnum);
  round_trips<QORKytMatrixType>(MatrixTypeLast, QORKytMatrixTypeName, QORKytMatrixTypeEnum);
  round_trips<QORKytMatrixProperty>(PropertyLast, QORKytMatrixPropertyName,
                                    QORKytMatrixPropertyEnum);
  round_trips<QORKytMatrixShape>(ShapeLast, QORKytMatrixShapeName, QORKytMatrixShapeEnum);
  round_trips<QORKytMatrixStorageType>(StorageLast, QORKytMatrixStorageTypeName,
                                       QORKytMatrixStorageTypeEnum);
  QORKytValue v = QORKytValueReal8;
  EXPECT_EQ(QORKytValueEnum("qorkytvaluereal8", v), kFail);
  EXPECT_EQ(v, QORKytValueReal8);  // the enumeration argument is not written
}

TEST(ValueSizes, KnownEntriesAndOutsideTheTable) {
  for (const auto &[v, size, pointed] :
       {std::tuple{QORKytValueInteger4, 4, 13}, {QORKytValueChar1, 1, 13},
        {QORKytValueString, 0, 13}, {QORKytValueInteger4Ptr, 8, 0}, {QORKytValueReal8Ptr, 0, 2},
        {QORKytValueChar1PtrPtr, 0, 9},
        {QORKytValueQORMathComplex, 16, 13}, {QORKytValueLast, 0, 13}}) {
    EXPECT_EQ(GetKytaniSizeOf(v), size) << v;
    EXPECT_EQ(GetPointedType(v), pointed) << v;
  }
  for (int outside : {-1, 14, 99}) {
    EXPECT_EQ(GetKytaniSizeOf(static_cast<QORKytValue>(outside)), 0);
    EXPECT_EQ(GetPointedType(static_cast<QORKytValue>(outside)), QORKytValueLast);
  }
}

TEST(TypeEncap, EmptinessFollowsTheKindNotTheValue) {
  EXPECT_TRUE(QORKytTypeEncap().IsEmpty());
  EXPECT_FALSE(QORKytTypeEncap(0).IsEmpty());
  EXPECT_FALSE(QORKytTypeEncap(0.0f).IsEmpty());
  EXPECT_FALSE(QORKytTypeEncap(0.0).IsEmpty());
  EXPECT_FALSE(QORKytTypeEncap("").IsEmpty());
  EXPECT_TRUE(QORKytTypeEncap(static_cast<const char *>(nullptr)).IsEmpty());
  int *ip = nullptr;
  EXPECT_FALSE(QORKytTypeEncap(ip).IsEmpty());  // a null pointer variable is still present
  QORKytTypeEncap c;
  c._Value.i = 'x';
  for (QORKytValue kind : {QORKytValueChar1, QORKytValueChar4, QORKytValueQORMathComplex}) {
    c._Type = kind;
    EXPECT_TRUE(c.IsEmpty()) << kind;
  }
  EXPECT_TRUE(QORKytTypeEncapError().IsEmpty());
  EXPECT_TRUE(QORKytTypeEncapMemory().IsEmpty());
  EXPECT_EQ(QORKytTypeEncapMemory::EmptyEncapMem._Type, QORKytValueLast);
}

TEST(TypeEncap, CopiesOwnTheirText) {
  char text[] = "stiffness";
  auto *source = new QORKytTypeEncap(static_cast<const char *>(text));
  EXPECT_NE(source->_Value.s, text);  // a private copy
  QORKytTypeEncap copy(*source), assigned;
  assigned = *source;
  EXPECT_NE(copy._Value.s, source->_Value.s);
  delete source;
  text[0] = 'S';
  EXPECT_STREQ(copy._Value.s, "stiffness");
  EXPECT_STREQ(assigned._Value.s, "stiffness");

  // A string replaced by an integer: the text is freed and the upper half is zero.
  QORKytTypeEncap target("old text");
  target = QORKytTypeEncap(-1);
  unsigned char bytes[8];
  std::memcpy(bytes, &target._Value, 8);
  EXPECT_EQ(bytes[4] | bytes[5] | bytes[6] | bytes[7], 0);
  target = target;  // self-assignment leaves it alone
  EXPECT_EQ(target._Type, QORKytValueInteger4);
  EXPECT_EQ(target._Value.i, -1);
  target = QORKytTypeEncap(static_cast<const char *>(nullptr));
  EXPECT_TRUE(target.IsEmpty());
  EXPECT_EQ(target._Value.s, nullptr);

}

TEST(TypeEncap, ErrorParametersAndMemoryPointers) {
  QORRawCollint ints(0);
  QORRawColldouble reals(0);
  QORListValQORUnicodeString strings;
  QORKytTypeEncapError as_param;  // a float copied into a parameter adds nothing
  static_cast<QORKytTypeEncap &>(as_param) = QORKytTypeEncap(2.5f);
  for (const QORKytTypeEncapError &p :
       {QORKytTypeEncapError(7), QORKytTypeEncapError(1.5), QORKytTypeEncapError("name"),
        QORKytTypeEncapError(static_cast<const char *>(nullptr)),
        QORKytTypeEncapError::EmptyEncapEr, as_param})
    p.AddParameterInList(ints, reals, strings);
  ASSERT_EQ(ints.Size(), 1);
  ASSERT_EQ(reals.Size(), 1);
  ASSERT_EQ(strings.Size(), 1);
  EXPECT_EQ(ints[1], 7);
  EXPECT_EQ(reals[1], 1.5);
  EXPECT_STREQ(strings[1], "name");

  int *i = nullptr;
  float *f = nullptr;
  char *c = nullptr;
  char **cc = nullptr;
  double *d = nullptr;
  const QORKytTypeEncapMemory mems[] = {QORKytTypeEncapMemory(i), QORKytTypeEncapMemory(f),
                                        QORKytTypeEncapMemory(c), QORKytTypeEncapMemory(cc),
                                        QORKytTypeEncapMemory(d), QORKytTypeEncapMemory()};
  const int sizes[] = {4, 4, 1, 8, 8, 0};
  for (int k = 0; k < 6; ++k) EXPECT_EQ(mems[k].GetKytaniSizeOfPointedType(), sizes[k]) << k;
  // Writing through the stored address (kept by copies) reaches the caller's variable.
  QORKytTypeEncapMemory copy(mems[0]);
  EXPECT_EQ(static_cast<char **>(copy), reinterpret_cast<char **>(&i));
  int target = 5;
  *reinterpret_cast<int **>(static_cast<char **>(copy)) = &target;
  EXPECT_EQ(i, &target);
}

}  // namespace
