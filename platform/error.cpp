#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

#include "platform/write_all.h"
#include "QORError.h"
#include "platform/nls.h"

namespace {

void set_params(QORListValQORUnicodeString &list, int count, va_list ap) {
  list.RemoveAll();
  for (int i = 0; i < count; ++i) {
    const QORUnicodeString *s = va_arg(ap, const QORUnicodeString *);
    list.Append(s != nullptr ? *s : QORUnicodeString());
  }
}

std::vector<std::string> as_vector(const QORListValQORUnicodeString &list) {
  std::vector<std::string> v;
  for (int i = 1; i <= list.Size(); ++i) v.emplace_back(static_cast<const char *>(list[i]));
  return v;
}

const QORMetaClass *meta_once(std::atomic<const QORMetaClass *> &cache, const char *name,
                              const QORMetaClass *parent, size_t size) {
  const QORMetaClass *m = cache.load(std::memory_order_acquire);
  if (m == nullptr) {
    QORObjectModelLock lock;
    m = cache.load(std::memory_order_relaxed);
    if (m == nullptr) {
      m = QORMetaClass::Register(name, 1, parent, "QORNull", "QORSystem", size);
      cache.store(m, std::memory_order_release);
    }
  }
  return m;
}

}  // namespace

// ---------------------------------------------------------------- ThrowSmartPtr

QORError::ThrowSmartPtr::ThrowSmartPtr(QORError *error) : _Error(error) {
  if (_Error != nullptr) _Error->AddRef();
}
QORError::ThrowSmartPtr::ThrowSmartPtr(const ThrowSmartPtr &other) : _Error(other._Error) {
  if (_Error != nullptr) _Error->AddRef();
}
QORError::ThrowSmartPtr &QORError::ThrowSmartPtr::operator=(const ThrowSmartPtr &other) {
  if (other._Error != nullptr) other._Error->AddRef();
  if (_Error != nullptr) _Error->Release();
  _Error = other._Error;
  return *this;
}
QORError::ThrowSmartPtr::~ThrowSmartPtr() {
  if (_Error != nullptr) _Error->Release();
  _Error = nullptr;
}
QORError *QORError::ThrowSmartPtr::operator->() const { return _Error; }
QORError *QORError::ThrowSmartPtr::Get() const { return _Error; }

QORResourceError::ThrowSmartPtr::ThrowSmartPtr(QORResourceError *error)
    : QORError::ThrowSmartPtr(error) {}
QORResourceError::ThrowSmartPtr::~ThrowSmartPtr() = default;

// ---------------------------------------------------------------- QORError

QORError::QORError() : QORError(0u, "", "") {}
QORError::QORError(unsigned int id) : QORError(id, "", "") {}
QORError::QORError(const char *msgId, const char *catalog) : QORError(0u, msgId, catalog) {}
QORError::QORError(unsigned int id, const char *msgId, const char *catalog)
    : _MsgId(msgId),
      _Catalog(catalog),
      _Id(id),
      _SourceLine(0),
      _ReturnCode(QOR_E_FAIL),
      _ErrorType(0) {}
QORError::QORError(const QORError &other)
    : QORBaseUnknown(other),
      _MsgId(other._MsgId),
      _Catalog(other._Catalog),
      _Id(other._Id),
      _SourceFile(other._SourceFile),
      _SourceLine(other._SourceLine),
      _SourceContext(other._SourceContext),
      _ReturnCode(other._ReturnCode),
      _ErrorType(other._ErrorType),
      _RequestParams(other._RequestParams),
      _DiagnosticParams(other._DiagnosticParams),
      _AdviceParams(other._AdviceParams) {}
QORError::~QORError() = default;

const QORMetaClass *QORError::MetaObject() {
  static std::atomic<const QORMetaClass *> meta{nullptr};
  return meta_once(meta, "QORError", QORBaseUnknown::MetaObject(), sizeof(QORError));
}
const QORMetaClass *QORError::GetMetaObject() const { return MetaObject(); }
const char *QORError::IsA() const { return GetMetaObject()->GetName(); }
int QORError::IsAKindOf(const char *name) const { return GetMetaObject()->IsAKindOf(name); }

unsigned int QORError::GetId() const { return _Id; }
const char *QORError::GetMsgId() const { return _MsgId; }
const char *QORError::GetMsgCatalog() const { return _Catalog; }
const char *QORError::GetSourceFileName() const { return _SourceFile; }
void QORError::SetSourceFileName(const char *file) { _SourceFile = file; }
int QORError::GetSourceLineNumber() const { return _SourceLine; }
void QORError::SetSourceLineNumber(int line) { _SourceLine = line; }

QORUnicodeString QORError::GetNLSRequest() const {
  qor::nls::Message m;
  if (!qor::nls::lookup(_Catalog, _MsgId, m)) return QORUnicodeString();
  return QORUnicodeString(qor::nls::fill(m.request, as_vector(_RequestParams)).c_str());
}
QORUnicodeString QORError::GetNLSDiagnostic() const {
  qor::nls::Message m;
  if (!qor::nls::lookup(_Catalog, _MsgId, m)) return QORUnicodeString();
  return QORUnicodeString(qor::nls::fill(m.diagnostic, as_vector(_DiagnosticParams)).c_str());
}
QORUnicodeString QORError::GetNLSAdvice() const {
  qor::nls::Message m;
  if (!qor::nls::lookup(_Catalog, _MsgId, m)) return QORUnicodeString();
  return QORUnicodeString(qor::nls::fill(m.advice, as_vector(_AdviceParams)).c_str());
}

QORUnicodeString QORError::GetNLSMessage() const {
  std::string text;
  qor::nls::Message m;
  if (qor::nls::lookup(_Catalog, _MsgId, m)) {
    const std::string parts[3] = {qor::nls::fill(m.request, as_vector(_RequestParams)),
                                  qor::nls::fill(m.diagnostic, as_vector(_DiagnosticParams)),
                                  qor::nls::fill(m.advice, as_vector(_AdviceParams))};
    for (const auto &p : parts) {
      if (p.empty()) continue;
      if (!text.empty()) text += '\n';
      text += p;
    }
    return QORUnicodeString(text.c_str());
  }
  // No such message: say which one was meant, and keep every parameter given.
  text = std::string(static_cast<const char *>(_Catalog)) + "/" +
         static_cast<const char *>(_MsgId);
  for (const auto *list : {&_RequestParams, &_DiagnosticParams, &_AdviceParams})
    for (int i = 1; i <= list->Size(); ++i)
      if (!(*list)[i].IsEmpty()) text += std::string("\n") + static_cast<const char *>((*list)[i]);
  return QORUnicodeString(text.c_str());
}

QORUnicodeString QORError::GetMessageText() const { return GetNLSMessage(); }
QORUnicodeString QORError::GetNLSSource() const { return QORUnicodeString(_Catalog); }
QORUnicodeString QORError::GetNLSHelpFile() const { return QORUnicodeString(); }
int QORError::GetNLSHelpContext() const { return 0; }

void QORError::Display() const {
  const QORUnicodeString text = GetNLSMessage() + "\n";
  qor::write_all(2, text, static_cast<size_t>(text.GetLengthInByte()));
}
void QORError::PrintHistory() const { Display(); }

void QORError::SetNLSParameters(int count, ...) {
  va_list ap;
  va_start(ap, count);
  set_params(_RequestParams, count, ap);
  va_end(ap);
  _DiagnosticParams = _RequestParams;
  _AdviceParams = _RequestParams;
}
void QORError::SetNLSRequestParams(int count, ...) {
  va_list ap;
  va_start(ap, count);
  set_params(_RequestParams, count, ap);
  va_end(ap);
}
void QORError::SetNLSDiagnosticParams(int count, ...) {
  va_list ap;
  va_start(ap, count);
  set_params(_DiagnosticParams, count, ap);
  va_end(ap);
}
void QORError::SetNLSAdviceParams(int count, ...) {
  va_list ap;
  va_start(ap, count);
  set_params(_AdviceParams, count, ap);
  va_end(ap);
}

void QORError::SetSourceContext(const char *context) { _SourceContext = context; }
const char *QORError::GetSourceContext() const { return _SourceContext; }
int QORError::GetReturnCode() const { return _ReturnCode; }
void QORError::SetReturnCode(int code) { _ReturnCode = code; }
QORErrorType QORError::GetInformationOnErrorType() const { return _ErrorType; }
void QORError::SetInformationOnErrorType(QORErrorType type) { _ErrorType = type; }

QORError *QORError::CloneSelf() { return new QORError(*this); }
void QORError::raise() {
  OnBeforeThrow(_SourceFile, _SourceLine);
  throw ThrowSmartPtr(this);
}
void QORError::raise_ptr() {
  OnBeforeThrow(_SourceFile, _SourceLine);
  throw this;
}
void QORError::GetErrorTable(unsigned int *count, const QORErrDsc **table) {
  if (count != nullptr) *count = 0;
  if (table != nullptr) *table = nullptr;
}
void QORError::OnBeforeThrow(const char *, int) {}

QORError *QORError::Setup(const char *file, int line) {
  _SourceFile = file;
  _SourceLine = line;
  return this;
}

// ---------------------------------------------------------------- QORResourceError

QORResourceError::QORResourceError(unsigned int id) : QORError(id) {}
QORResourceError::QORResourceError(unsigned int id, const char *msgId, const char *catalog)
    : QORError(id, msgId, catalog) {}
QORResourceError::QORResourceError(const char *msgId, const char *catalog)
    : QORError(msgId, catalog) {}
QORResourceError::QORResourceError(const QORResourceError &other) : QORError(other) {}
QORResourceError::~QORResourceError() = default;

const QORMetaClass *QORResourceError::MetaObject() {
  static std::atomic<const QORMetaClass *> meta{nullptr};
  return meta_once(meta, "QORResourceError", QORError::MetaObject(), sizeof(QORResourceError));
}
const QORMetaClass *QORResourceError::GetMetaObject() const { return MetaObject(); }
const char *QORResourceError::IsA() const { return GetMetaObject()->GetName(); }
int QORResourceError::IsAKindOf(const char *name) const {
  return GetMetaObject()->IsAKindOf(name);
}
QORError *QORResourceError::CloneSelf() { return new QORResourceError(*this); }
void QORResourceError::raise() {
  OnBeforeThrow(GetSourceFileName(), GetSourceLineNumber());
  throw ThrowSmartPtr(this);
}
void QORResourceError::raise_ptr() {
  OnBeforeThrow(GetSourceFileName(), GetSourceLineNumber());
  throw this;
}
