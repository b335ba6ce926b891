// Named traces of the platform library.
//
// A trace writes to its destination: "STDOUT" (the descriptor behind standard output at the
// moment of the write), "STDERR", or else a file name, appended to. Every put has reached
// its descriptor when it returns (one `write`, nothing kept in a buffer). The text is written
// as it stands, with no prefix. A trace starts switched on; a QORTraControle of the same
// name switches every trace of that name on or off, including traces made later.
#ifndef QORPLATFORM_TRACE_H
#define QORPLATFORM_TRACE_H

#include "QORBaseUnknown.h"

enum QORTraMode { QORTraModeDefault = 0 };

class QOR_API QORTrace {
 public:
  QORTrace(const char *name, const char *description, QORTraMode mode,
           const char *destination, int size);
  ~QORTrace();
  QORTrace(const QORTrace &) = delete;
  QORTrace &operator=(const QORTrace &) = delete;

  void TraPut(const char *text);                  // the text as it stands
  void TraPutLN(const char *text);                // the text and a newline
  void TraPutLN(const char *text, int value);     // the text, the number, a newline
  void TraPrint(int level, const char *format, ...) __attribute__((format(printf, 3, 4)));

  const char *GetName() const;
  const char *GetDescription() const;
  const char *GetDestination() const;
  int IsActive() const;

  int level;  // level of the next put; set by the caller before a put

 private:
  void Write(const char *text, size_t length);
  char *_Name;
  char *_Description;
  char *_Destination;
  int _Mode;
  int _Size;
  int _FileDescriptor;  // for a file destination, else -1
};

class QOR_API QORTraControle {
 public:
  explicit QORTraControle(const char *name);
  ~QORTraControle();
  QORTraControle(const QORTraControle &) = delete;
  QORTraControle &operator=(const QORTraControle &) = delete;

  // 1 switches the trace on, 0 off.
  void TraPutFlg(int state);
  int TraGetFlg() const;

 private:
  char *_Name;
};

#endif
