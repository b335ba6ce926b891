// Error objects of the services. An error object takes its severity from the message
// catalog, prints a bannered block into the listing, tells the log callback, and (except for
// information) ends its own lifetime before the expression that made it has finished.
#ifndef QORKYTMATHKERNEL_ERROR_H
#define QORKYTMATHKERNEL_ERROR_H

#include "QORExport.h"
#include "QORCollections.h"
#include "QORError.h"
#include "QORKytValue.h"
#include "QORString.h"


class QOR_API QORKytError : public QORResourceError {
 public:
  class QOR_API ThrowSmartPtr : public QORResourceError::ThrowSmartPtr {
   public:
    explicit ThrowSmartPtr(QORKytError *error);
    ~ThrowSmartPtr() override;
  };

  explicit QORKytError(unsigned int id);
  QORKytError(unsigned int id, const char *msgId, const char *catalog);
  // Bound to message `id` of `catalog`; the severity is set by GetSeverityFromCatalog.
  QORKytError(const char *id, const char *catalog);
  // The internal error: message ERR_0001 of "QORKytaniError" showing `text`, printed and
  // released at once. The pointer that `new` yields must not be used.
  explicit QORKytError(const QORUnicodeString *text);
  QORKytError(const QORKytError &other);
  ~QORKytError() override;

  const QORMetaClass *GetMetaObject() const override;
  const char *IsA() const override;
  int IsAKindOf(const char *name) const override;
  QORError *CloneSelf() override;
  void raise() override;
  void raise_ptr() override;
  void GetErrorTable(unsigned int *count, const QORErrDsc **table) override;

  QORKytError *Setup(const char *file, int line);
  // Severity and identifier of message `code`: ERR_, then WARN_, then INFO_; when none
  // exists, the internal error ERR_0001 naming the catalog and the number.
  void GetSeverityFromCatalog(int code);
  int GetSeverity();
  // Integers to /p1../p10 ("%d"), reals to /p11../p20 ("%g"), texts to /p21../p25.
  void SetParameters(const QORRawCollint &ints, const QORRawColldouble &reals,
                     const QORListValQORUnicodeString &strings);
  // Banner, message and closing line into the listing; then the log callback.
  void Print();
  int PrintStack();
  // Print, PrintStack unless NoKytCallStack is set, then Release unless the severity is 3.
  void Activate();
  void PrintMsgError(int, QORUnicodeString text, int);
  void CreateKytaniError(int code, char *, QORUnicodeString *params);
  void CreateKytaniError(int code, const QORRawCollint &ints, const QORRawColldouble &reals,
                         const QORListValQORUnicodeString &strings);

  static const QORMetaClass *MetaObject();
  static unsigned int ClassId();
  static const char *ClassName();
  static QORBaseUnknown *CreateItself();

  static QORErrDsc errorTable[1];
  static unsigned int errorTableLength;

 private:
  int _Severity;
};

// Makers of error objects. Unused parameters are QORKytTypeEncapError::EmptyEncapEr.
class QOR_API QORKytErrorTools {
 public:
  static void Create(const char *text);
  static void CreateError(int code, const char *catalog, QORKytTypeEncapError p1,
                          QORKytTypeEncapError p2, QORKytTypeEncapError p3,
                          QORKytTypeEncapError p4, QORKytTypeEncapError p5,
                          QORKytTypeEncapError p6, QORKytTypeEncapError p7,
                          QORKytTypeEncapError p8, QORKytTypeEncapError p9);
  static void CreateWarning(int code, const char *catalog, QORKytTypeEncapError p1,
                            QORKytTypeEncapError p2, QORKytTypeEncapError p3,
                            QORKytTypeEncapError p4, QORKytTypeEncapError p5,
                            QORKytTypeEncapError p6, QORKytTypeEncapError p7,
                            QORKytTypeEncapError p8, QORKytTypeEncapError p9);
  // CreateError in the catalog "QORKytaniError".
  static void Create(int code, QORKytTypeEncapError p1, QORKytTypeEncapError p2,
                     QORKytTypeEncapError p3, QORKytTypeEncapError p4, QORKytTypeEncapError p5,
                     QORKytTypeEncapError p6, QORKytTypeEncapError p7, QORKytTypeEncapError p8,
                     QORKytTypeEncapError p9);
};

// QORKytErrorTools::Create(code, p1 ... p9).
QOR_API void CreateKytaniError(int code, QORKytTypeEncapError p1, QORKytTypeEncapError p2,
                                  QORKytTypeEncapError p3, QORKytTypeEncapError p4,
                                  QORKytTypeEncapError p5, QORKytTypeEncapError p6,
                                  QORKytTypeEncapError p7, QORKytTypeEncapError p8,
                                  QORKytTypeEncapError p9);

extern "C" {
// The log callback: sees every printed error and warning (not information). Null: none.
QOR_API void SetErrorLog(void (*callback)(QORKytError *));
QOR_API void GetErrorLog(void **callback);
}

#endif
