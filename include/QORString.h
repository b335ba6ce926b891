// Text types of the platform library.
//
// QORUnicodeString holds UTF-8 text; QORString holds narrow text such as message
// identifiers and catalog names. Both own a terminated copy of their text, so the conversion
// to `const char*` is always valid (an empty string converts to "", never to null).
#ifndef QORPLATFORM_STRING_H
#define QORPLATFORM_STRING_H

#include "QORExport.h"
#include <stddef.h>

class QOR_API QORUnicodeString {
 public:
  QORUnicodeString();
  QORUnicodeString(const char *text);               // null gives an empty string
  QORUnicodeString(const char *text, int length);   // `length` bytes, stops early at a NUL
  QORUnicodeString(const QORUnicodeString &other);
  QORUnicodeString(QORUnicodeString &&other) noexcept;
  ~QORUnicodeString();

  QORUnicodeString &operator=(const QORUnicodeString &other);
  QORUnicodeString &operator=(QORUnicodeString &&other) noexcept;
  QORUnicodeString &operator=(const char *text);
  QORUnicodeString &operator+=(const QORUnicodeString &other);
  QORUnicodeString &operator+=(const char *text);
  QORUnicodeString operator+(const QORUnicodeString &other) const;
  QORUnicodeString operator+(const char *text) const;
  bool operator==(const QORUnicodeString &other) const;
  bool operator!=(const QORUnicodeString &other) const;
  operator const char *() const;

  // Replaces the text by the number written through the printf-like `format`.
  QORUnicodeString &BuildFromNum(int value, const char *format = "%d");
  QORUnicodeString &BuildFromNum(double value, const char *format = "%g");
  QORUnicodeString &BuildFromNum(unsigned long value, const char *format = "%lu");

  int GetLengthInChar() const;   // characters (UTF-8 code points)
  int GetLengthInByte() const;   // bytes, without the terminator
  bool IsEmpty() const;
  const char *ConvertToChar() const;

 private:
  void Assign(const char *text, size_t length);
  void Append(const char *text, size_t length);
  char *_Text;
  size_t _Length;
};

class QOR_API QORString {
 public:
  QORString();
  QORString(const char *text);
  QORString(char *text);
  QORString(const QORString &other);
  ~QORString();

  QORString &operator=(const QORString &other);
  QORString &operator=(const char *text);
  QORString &operator=(char *text);
  bool operator==(const QORString &other) const;
  bool operator==(const char *text) const;
  operator const char *() const;

  int GetLength() const;
  bool IsEmpty() const;

 private:
  void Assign(const char *text);
  char *_Text;
  size_t _Length;
};

#endif
