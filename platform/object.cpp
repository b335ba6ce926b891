#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#include "common/text_copy.h"
#include "QORBaseUnknown.h"
#include "platform/object_count.h"

namespace {

std::atomic<long> g_alive{0};

std::recursive_mutex &model_mutex() {
  static std::recursive_mutex m;
  return m;
}

// Registered meta-objects, a singly linked list. They live until the process ends: objects
// of any library may point at them from their static caches.
QORMetaClass *g_classes = nullptr;
unsigned int g_next_id = 1;

using qor::copy_text;

}  // namespace

namespace qor::objects {
long alive() noexcept { return g_alive.load(); }
}  // namespace qor::objects

// ---------------------------------------------------------------- object-model guard

QORObjectModelLock::QORObjectModelLock() { model_mutex().lock(); }
QORObjectModelLock::~QORObjectModelLock() { model_mutex().unlock(); }

// ---------------------------------------------------------------- QORMetaClass

QORMetaClass *QORMetaClass::Register(const char *name, int kind, const QORMetaClass *parent,
                                     const char *lateType, const char *framework,
                                     size_t size) {
  if (name == nullptr || *name == '\0') return nullptr;
  QORObjectModelLock lock;
  for (QORMetaClass *c = g_classes; c != nullptr; c = c->_Next)
    if (std::strcmp(c->_Name, name) == 0) return c;
  QORMetaClass *c = new QORMetaClass();
  c->_Name = copy_text(name);
  c->_LateType = copy_text(lateType);
  c->_Framework = copy_text(framework);
  c->_Parent = parent;
  c->_Size = size;
  c->_Kind = kind;
  c->_Id = g_next_id++;
  c->_Next = g_classes;
  g_classes = c;
  return c;
}

QORMetaClass *QORMetaClass::Find(const char *name) {
  if (name == nullptr) return nullptr;
  QORObjectModelLock lock;
  for (QORMetaClass *c = g_classes; c != nullptr; c = c->_Next)
    if (std::strcmp(c->_Name, name) == 0) return c;
  return nullptr;
}

const char *QORMetaClass::GetName() const { return _Name; }
int QORMetaClass::GetKind() const { return _Kind; }
const QORMetaClass *QORMetaClass::GetParent() const { return _Parent; }
const char *QORMetaClass::GetLateType() const { return _LateType; }
const char *QORMetaClass::GetFramework() const { return _Framework; }
size_t QORMetaClass::GetSize() const { return _Size; }
unsigned int QORMetaClass::GetId() const { return _Id; }

int QORMetaClass::IsAKindOf(const char *name) const {
  if (name == nullptr) return 0;
  for (const QORMetaClass *c = this; c != nullptr; c = c->_Parent)
    if (std::strcmp(c->_Name, name) == 0) return 1;
  return 0;
}

// ---------------------------------------------------------------- QORBaseUnknown

QORBaseUnknown::QORBaseUnknown() : _RefCount(1), _Impl(nullptr) { ++g_alive; }
QORBaseUnknown::QORBaseUnknown(const QORBaseUnknown &) : _RefCount(1), _Impl(nullptr) {
  ++g_alive;
}
QORBaseUnknown &QORBaseUnknown::operator=(const QORBaseUnknown &) { return *this; }
QORBaseUnknown::~QORBaseUnknown() { --g_alive; }

void *QORBaseUnknown::operator new(size_t size) noexcept {
  return std::malloc(size != 0 ? size : 1);
}
void QORBaseUnknown::operator delete(void *p) { std::free(p); }

QORHRESULT QORBaseUnknown::QueryInterface(const GUID &, void **object) {
  if (object != nullptr) *object = nullptr;
  return QOR_E_NOINTERFACE;
}
unsigned long QORBaseUnknown::AddRef() { return ++_RefCount; }
unsigned long QORBaseUnknown::Release() {
  if (_RefCount == 0) return 0;
  const unsigned long left = --_RefCount;
  if (left == 0) delete this;
  return left;
}
unsigned long QORBaseUnknown::GetRefCount() const { return _RefCount; }
QORHRESULT QORBaseUnknown::GetTypeInfoCount(unsigned int *count) {
  if (count != nullptr) *count = 0;
  return QOR_S_OK;
}
QORHRESULT QORBaseUnknown::GetTypeInfo(unsigned int, unsigned long, void **info) {
  if (info != nullptr) *info = nullptr;
  return QOR_E_NOTIMPL;
}
QORHRESULT QORBaseUnknown::GetIDsOfNames(const GUID &, char **, unsigned int, unsigned long,
                                         long *) {
  return QOR_E_NOTIMPL;
}
QORHRESULT QORBaseUnknown::Invoke(long, const GUID &, unsigned long, unsigned short, void *,
                                  void *, void *, unsigned int *) {
  return QOR_E_NOTIMPL;
}

const QORMetaClass *QORBaseUnknown::MetaObject() {
  static std::atomic<const QORMetaClass *> meta{nullptr};
  const QORMetaClass *m = meta.load(std::memory_order_acquire);
  if (m == nullptr) {
    QORObjectModelLock lock;
    m = meta.load(std::memory_order_relaxed);
    if (m == nullptr) {
      m = QORMetaClass::Register("QORBaseUnknown", 1, nullptr, "QORNull", "QORSystem",
                                 sizeof(QORBaseUnknown));
      meta.store(m, std::memory_order_release);
    }
  }
  return m;
}
const QORMetaClass *QORBaseUnknown::GetMetaObject() const { return MetaObject(); }
const char *QORBaseUnknown::IsA() const { return GetMetaObject()->GetName(); }
int QORBaseUnknown::IsAKindOf(const char *name) const {
  return GetMetaObject()->IsAKindOf(name);
}
void *QORBaseUnknown::GetImpl() const { return _Impl; }
void QORBaseUnknown::SetImpl(void *impl) { _Impl = impl; }
int QORBaseUnknown::IsNull() const { return 0; }
int QORBaseUnknown::IsEqual(const QORBaseUnknown *other) const { return other == this; }
QORHRESULT QORBaseUnknown::QueryInterface(const char *name, void **object) {
  if (object == nullptr) return QOR_E_FAIL;
  if (IsAKindOf(name)) {
    AddRef();
    *object = this;
    return QOR_S_OK;
  }
  *object = nullptr;
  return QOR_E_NOINTERFACE;
}
QORHRESULT QORBaseUnknown::ChangeComponentState(int) { return QOR_S_OK; }
