#include <atomic>
#include <cstdio>
#include <cstring>

#include "QORKytError.h"
#include "QORKytListing.h"
#include "QORSystem.h"
#include "kernels.h"
#include "common/asan.h"
#include "services/listing_pass.h"

#if QKM_ASAN
#include <sanitizer/lsan_interface.h>
#define QKM_KEEP_FOR_GOOD(p) __lsan_ignore_object(p)
#else
#define QKM_KEEP_FOR_GOOD(p) ((void)(p))
#endif

namespace {

void (*g_error_log)(QORKytError *) = nullptr;

// Identifier buffer shared by CreateError and CreateWarning.
char g_identifier[256];

const char *banner_of(int severity) {
  switch (severity) {
    case 0: return "\n**************** INTERNAL ERROR ***************\n";
    case 1: return "\n******************** ERROR ********************\n";
    case 2: return "\n******************* WARNING *******************\n";
    case 3: return "\n***************** INFORMATION *****************\n";
    default: return "\n******************* UNKNOWN ********************\n";
  }
}

const char kClosing[] = "\n***********************************************\n\n";

void put_text(const char *text) {
  qkm_services::listing_pass([&] {
    Tra_KYTPrint.level = 2;
    Tra_KYTPrint.TraPut(text);
  });
}

// The message block when the error object or its text cannot be made for want of memory:
// banner, text and closing line, from fixed storage only, so that it cannot fail in turn.
void put_fallback(int severity, const char *text) {
  put_text(banner_of(severity));
  put_text(text);
  put_text(kClosing);
}

void make_error(const char *idFormat, int code, const char *catalog,
                const QORKytTypeEncapError *const (&params)[9]) {
  std::snprintf(g_identifier, sizeof g_identifier, idFormat, code);
  QORKytError *error = nullptr;
  try {
    for (const auto *p : params)
      if (!p->IsEmpty()) p->Dump();
    error = new QORKytError(g_identifier, catalog);
    if (error != nullptr) {
      QORRawCollint ints(0);
      QORRawColldouble reals(0);
      QORListValQORUnicodeString strings;
      for (const auto *p : params)
        if (!p->IsEmpty()) p->AddParameterInList(ints, reals, strings);
      error->CreateKytaniError(code, ints, reals, strings);  // prints, and mostly releases it
      return;
    }
  } catch (...) {
    // Only allocations throw here, and all of them come before the object releases itself.
    if (error != nullptr) error->Release();
  }
  char text[300];
  std::snprintf(text, sizeof text, "%s/%s", catalog != nullptr ? catalog : "", g_identifier);
  put_fallback(idFormat[0] == 'W' ? 2 : 1, text);
}

// An error made from a text, which prints itself and ends its own lifetime.
void announce(const char *text) {
  try {
    const QORUnicodeString string(text);
    if (new QORKytError(&string) != nullptr) return;
  } catch (...) {
  }
  put_fallback(0, text);
}

}  // namespace

// ---------------------------------------------------------------- ThrowSmartPtr

QORKytError::ThrowSmartPtr::ThrowSmartPtr(QORKytError *error)
    : QORResourceError::ThrowSmartPtr(error) {}
QORKytError::ThrowSmartPtr::~ThrowSmartPtr() = default;

// ---------------------------------------------------------------- QORKytError

QORErrDsc QORKytError::errorTable[1] = {{0, nullptr, nullptr, 0}};
unsigned int QORKytError::errorTableLength = 0;

QORKytError::QORKytError(unsigned int id) : QORResourceError(id), _Severity(-1) {}
QORKytError::QORKytError(unsigned int id, const char *msgId, const char *catalog)
    : QORResourceError(id, msgId, catalog), _Severity(-1) {}
// The severity stays unset (shown as UNKNOWN) until GetSeverityFromCatalog.
QORKytError::QORKytError(const char *id, const char *catalog)
    : QORResourceError(id, catalog), _Severity(-1) {}
QORKytError::QORKytError(const QORKytError &other)
    : QORResourceError(other), _Severity(other._Severity) {}

QORKytError::QORKytError(const QORUnicodeString *text)
    : QORResourceError("ERR_0001", "QORKytaniError"), _Severity(0) {
  QORError::SetNLSAdviceParams(1, text);
  Activate();  // releases the object: nothing may touch it after this line
}

QORKytError::~QORKytError() = default;

const QORMetaClass *QORKytError::MetaObject() {
  static std::atomic<const QORMetaClass *> meta{nullptr};
  const QORMetaClass *m = meta.load(std::memory_order_acquire);
  if (m == nullptr) {
    QORObjectModelLock guard;
    m = meta.load(std::memory_order_relaxed);
    if (m == nullptr) {
      m = QORMetaClass::Register("QORKytError", 1, QORResourceError::MetaObject(), "QORNull",
                                 "QORKytaniOpenSoftware", sizeof(QORKytError));
      meta.store(m, std::memory_order_release);
    }
  }
  return m;
}
const QORMetaClass *QORKytError::GetMetaObject() const { return MetaObject(); }
unsigned int QORKytError::ClassId() { return MetaObject()->GetId(); }
const char *QORKytError::ClassName() { return MetaObject()->GetName(); }
const char *QORKytError::IsA() const { return MetaObject()->GetName(); }
int QORKytError::IsAKindOf(const char *name) const { return MetaObject()->IsAKindOf(name); }
QORBaseUnknown *QORKytError::CreateItself() { return nullptr; }

QORKytError *QORKytError::Setup(const char *file, int line) {
  QORError::Setup(file, line);
  return this;
}

void QORKytError::GetSeverityFromCatalog(int code) {
  char buffer[256];
  static const struct {
    const char *format;
    int severity;
  } kOrder[] = {{"ERR_%4.4d", 1}, {"WARN_%4.4d", 2}, {"INFO_%4.4d", 3}};
  for (const auto &step : kOrder) {
    _Severity = step.severity;
    std::snprintf(buffer, sizeof buffer, step.format, code);
    _MsgId = buffer;
    if (GetNLSDiagnostic().GetLengthInChar() > 0) {
      if (step.severity != 1) SetInformationOnErrorType(3);
      return;
    }
  }
  _Severity = 0;
  _MsgId = "ERR_0001";
  std::snprintf(buffer, sizeof buffer, "Message not found\nCatalog: %s\nIdentifier: %d",
                GetMsgCatalog(), code);
  const QORUnicodeString text(buffer);
  SetNLSAdviceParams(1, &text);
}

int QORKytError::GetSeverity() { return _Severity; }

void QORKytError::SetParameters(const QORRawCollint &ints, const QORRawColldouble &reals,
                                const QORListValQORUnicodeString &strings) {
  QORUnicodeString p[25];
  // Positions past 25 have no slot: a value that would land there is dropped.
  for (int n = 1; n <= ints.Size() && n <= 25; ++n) p[n - 1].BuildFromNum(ints[n], "%d");
  for (int n = 1; n <= reals.Size() && 10 + n <= 25; ++n)
    p[10 + n - 1].BuildFromNum(reals[n], "%g");
  for (int n = 1; n <= strings.Size() && 20 + n <= 25; ++n) p[20 + n - 1] = strings[n];
  SetNLSDiagnosticParams(25, &p[0], &p[1], &p[2], &p[3], &p[4], &p[5], &p[6], &p[7], &p[8],
                         &p[9], &p[10], &p[11], &p[12], &p[13], &p[14], &p[15], &p[16],
                         &p[17], &p[18], &p[19], &p[20], &p[21], &p[22], &p[23], &p[24]);
}

void QORKytError::Print() {
  const QORUnicodeString message = GetNLSMessage();
  put_text(banner_of(_Severity));
  put_text(message);
  put_text(kClosing);
  if (g_error_log != nullptr && _Severity != 3) g_error_log(this);
}

int QORKytError::PrintStack() { return GetSeverity(); }

void QORKytError::Activate() {
  Print();
  if (QORGetEnv("NoKytCallStack") == nullptr) PrintStack();
  if (_Severity == 3) {
    // Information stays allocated for good; the leak checker is told it is meant.
    QKM_KEEP_FOR_GOOD(this);
    return;
  }
  Release();
}

void QORKytError::PrintMsgError(int, QORUnicodeString text, int) {
  const QORUnicodeString message = QORUnicodeString("Erreur dans ") + text;
  eyflsh();
  (void)message;
}

void QORKytError::CreateKytaniError(int code, char *, QORUnicodeString *params) {
  GetSeverityFromCatalog(code);
  if (params != nullptr) {
    QORUnicodeString *p = params;
    SetNLSDiagnosticParams(25, &p[0], &p[1], &p[2], &p[3], &p[4], &p[5], &p[6], &p[7], &p[8],
                           &p[9], &p[10], &p[11], &p[12], &p[13], &p[14], &p[15], &p[16],
                           &p[17], &p[18], &p[19], &p[20], &p[21], &p[22], &p[23], &p[24]);
  }
  Activate();
}

void QORKytError::CreateKytaniError(int code, const QORRawCollint &ints,
                                    const QORRawColldouble &reals,
                                    const QORListValQORUnicodeString &strings) {
  GetSeverityFromCatalog(code);
  SetParameters(ints, reals, strings);
  Activate();
}

void QORKytError::GetErrorTable(unsigned int *count, const QORErrDsc **table) {
  if (count != nullptr) *count = 0;
  if (table != nullptr) *table = errorTable;
}

QORError *QORKytError::CloneSelf() { return new QORKytError(*this); }

void QORKytError::raise() {
  OnBeforeThrow(GetSourceFileName(), GetSourceLineNumber());
  throw ThrowSmartPtr(this);
}

void QORKytError::raise_ptr() {
  OnBeforeThrow(GetSourceFileName(), GetSourceLineNumber());
  throw this;
}

// ---------------------------------------------------------------- QORKytErrorTools

void QORKytErrorTools::Create(const char *text) { announce(text); }

void QORKytErrorTools::CreateError(int code, const char *catalog, QORKytTypeEncapError p1,
                                   QORKytTypeEncapError p2, QORKytTypeEncapError p3,
                                   QORKytTypeEncapError p4, QORKytTypeEncapError p5,
                                   QORKytTypeEncapError p6, QORKytTypeEncapError p7,
                                   QORKytTypeEncapError p8, QORKytTypeEncapError p9) {
  const QORKytTypeEncapError *const params[9] = {&p1, &p2, &p3, &p4, &p5, &p6, &p7, &p8, &p9};
  make_error("ERR_%4.4d", code, catalog, params);
}

void QORKytErrorTools::CreateWarning(int code, const char *catalog, QORKytTypeEncapError p1,
                                     QORKytTypeEncapError p2, QORKytTypeEncapError p3,
                                     QORKytTypeEncapError p4, QORKytTypeEncapError p5,
                                     QORKytTypeEncapError p6, QORKytTypeEncapError p7,
                                     QORKytTypeEncapError p8, QORKytTypeEncapError p9) {
  const QORKytTypeEncapError *const params[9] = {&p1, &p2, &p3, &p4, &p5, &p6, &p7, &p8, &p9};
  make_error("WARN_%4.4d", code, catalog, params);
}

void QORKytErrorTools::Create(int code, QORKytTypeEncapError p1, QORKytTypeEncapError p2,
                              QORKytTypeEncapError p3, QORKytTypeEncapError p4,
                              QORKytTypeEncapError p5, QORKytTypeEncapError p6,
                              QORKytTypeEncapError p7, QORKytTypeEncapError p8,
                              QORKytTypeEncapError p9) {
  CreateError(code, "QORKytaniError", p1, p2, p3, p4, p5, p6, p7, p8, p9);
}

void CreateKytaniError(int code, QORKytTypeEncapError p1, QORKytTypeEncapError p2,
                       QORKytTypeEncapError p3, QORKytTypeEncapError p4,
                       QORKytTypeEncapError p5, QORKytTypeEncapError p6,
                       QORKytTypeEncapError p7, QORKytTypeEncapError p8,
                       QORKytTypeEncapError p9) {
  QORKytErrorTools::Create(code, p1, p2, p3, p4, p5, p6, p7, p8, p9);
}

// ---------------------------------------------------------------- by-reference entries

extern "C" qkm_int ehrprog(const qkm_int *code, const char *text, qkm_int *status, qkm_len) {
  // A character field of 80; it stops early at a NUL.
  char field[81] = {};
  if (text != nullptr) std::memcpy(field, text, strnlen(text, 80));
  char message[100];
  std::snprintf(message, sizeof message, "Parameter: %d\n%s", code != nullptr ? *code : 0, field);
  if (status != nullptr) *status = 1;
  announce(message);
  return 1;
}

extern "C" void SetErrorLog(void (*callback)(QORKytError *)) { g_error_log = callback; }

extern "C" void GetErrorLog(void **callback) {
  if (callback != nullptr) *callback = reinterpret_cast<void *>(g_error_log);
}
