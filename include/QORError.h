// Error objects of the platform library: an error bound to a message identifier in a message
// catalog, with positional parameters.
//
// A catalog message has three texts, Request, Diagnostic and Advice (see catalogs/README.md).
// Each text has its own set of parameters, referred to as /p1 ... /p25 in the text:
// SetNLSRequestParams, SetNLSDiagnosticParams and SetNLSAdviceParams set them, and
// SetNLSParameters sets the same values for all three.
#ifndef QORPLATFORM_ERROR_H
#define QORPLATFORM_ERROR_H

#include "QORBaseUnknown.h"
#include "QORCollections.h"
#include "QORString.h"

typedef int QORErrorType;

// One entry of a class's built-in error table.
struct QORErrDsc {
  unsigned int Id;
  const char *MsgId;
  const char *Catalog;
  QORErrorType Type;
};

class QOR_API QORError : public QORBaseUnknown {
 public:
  // Carries an error through a `throw`: holds one reference to it while it travels.
  class QOR_API ThrowSmartPtr {
   public:
    explicit ThrowSmartPtr(QORError *error);
    ThrowSmartPtr(const ThrowSmartPtr &other);
    ThrowSmartPtr &operator=(const ThrowSmartPtr &other);
    virtual ~ThrowSmartPtr();
    QORError *operator->() const;
    QORError *Get() const;

   protected:
    QORError *_Error;
  };

  QORError();
  explicit QORError(unsigned int id);
  QORError(unsigned int id, const char *msgId, const char *catalog);
  QORError(const char *msgId, const char *catalog);
  QORError(const QORError &other);
  ~QORError() override;

  const QORMetaClass *GetMetaObject() const override;
  const char *IsA() const override;
  int IsAKindOf(const char *name) const override;

  virtual unsigned int GetId() const;
  virtual const char *GetMsgId() const;
  virtual const char *GetMsgCatalog() const;
  virtual const char *GetSourceFileName() const;
  virtual void SetSourceFileName(const char *file);
  virtual int GetSourceLineNumber() const;
  virtual void SetSourceLineNumber(int line);
  // The printable text: the message, or when the catalog has no such message its identifier
  // and parameters, so that nothing given to the error is lost.
  virtual QORUnicodeString GetMessageText() const;
  // Request, Diagnostic and Advice that are not empty, joined by newlines, parameters set.
  // When the catalog has no such message: "<catalog>/<identifier>" then each non-empty
  // parameter on a line of its own.
  virtual QORUnicodeString GetNLSMessage() const;
  virtual QORUnicodeString GetNLSRequest() const;
  virtual QORUnicodeString GetNLSDiagnostic() const;
  virtual QORUnicodeString GetNLSAdvice() const;
  virtual QORUnicodeString GetNLSSource() const;
  virtual QORUnicodeString GetNLSHelpFile() const;
  virtual int GetNLSHelpContext() const;
  // Writes GetNLSMessage() and a newline to standard error.
  virtual void Display() const;
  virtual void PrintHistory() const;
  // Each takes `count` arguments of type `const QORUnicodeString*` (null counts as empty).
  virtual void SetNLSParameters(int count, ...);
  virtual void SetNLSRequestParams(int count, ...);
  virtual void SetNLSDiagnosticParams(int count, ...);
  virtual void SetNLSAdviceParams(int count, ...);
  virtual void SetSourceContext(const char *context);
  virtual const char *GetSourceContext() const;
  virtual int GetReturnCode() const;
  virtual void SetReturnCode(int code);
  virtual QORErrorType GetInformationOnErrorType() const;
  virtual void SetInformationOnErrorType(QORErrorType type);
  virtual QORError *CloneSelf();
  virtual void raise();
  virtual void raise_ptr();
  virtual void GetErrorTable(unsigned int *count, const QORErrDsc **table);
  virtual void OnBeforeThrow(const char *file, int line);

  // Records where the error was made.
  QORError *Setup(const char *file, int line);

  static const QORMetaClass *MetaObject();

 protected:
  QORString _MsgId;
  QORString _Catalog;

 private:
  unsigned int _Id;
  QORString _SourceFile;
  int _SourceLine;
  QORString _SourceContext;
  int _ReturnCode;
  QORErrorType _ErrorType;
  QORListValQORUnicodeString _RequestParams;
  QORListValQORUnicodeString _DiagnosticParams;
  QORListValQORUnicodeString _AdviceParams;
};

// An error whose texts come from a message catalog (all QORError texts do here; the class
// keeps the platform's family tree).
class QOR_API QORResourceError : public QORError {
 public:
  class QOR_API ThrowSmartPtr : public QORError::ThrowSmartPtr {
   public:
    explicit ThrowSmartPtr(QORResourceError *error);
    ~ThrowSmartPtr() override;
  };

  explicit QORResourceError(unsigned int id);
  QORResourceError(unsigned int id, const char *msgId, const char *catalog);
  QORResourceError(const char *msgId, const char *catalog);
  QORResourceError(const QORResourceError &other);
  ~QORResourceError() override;

  const QORMetaClass *GetMetaObject() const override;
  const char *IsA() const override;
  int IsAKindOf(const char *name) const override;
  QORError *CloneSelf() override;
  void raise() override;
  void raise_ptr() override;

  static const QORMetaClass *MetaObject();
};

#endif
