// Root of the platform's object model: reference-counted objects, their meta-objects and
// the registry that holds them.
#ifndef QORPLATFORM_BASEUNKNOWN_H
#define QORPLATFORM_BASEUNKNOWN_H

#include <stddef.h>

#define QOR_API __attribute__((visibility("default")))

typedef long QORHRESULT;

#define QOR_S_OK 0
#define QOR_E_NOTIMPL ((int)0x80004001)
#define QOR_E_NOINTERFACE ((int)0x80004002)
#define QOR_E_FAIL ((int)0x80004005)

struct GUID {
  unsigned int Data1;
  unsigned short Data2;
  unsigned short Data3;
  unsigned char Data4[8];
};

class QORBaseUnknown;

// A class known to the object model: its name, kind, parent, and size. Meta-objects are made
// once per class name by the registry and live until the process ends.
class QOR_API QORMetaClass {
 public:
  // Returns the meta-object of `name`, making it on first request. A later request with the
  // same name returns the first one, whatever its other arguments.
  static QORMetaClass *Register(const char *name, int kind, const QORMetaClass *parent,
                                const char *lateType, const char *framework, size_t size);
  // The registered meta-object of that name, or null.
  static QORMetaClass *Find(const char *name);

  const char *GetName() const;
  int GetKind() const;
  const QORMetaClass *GetParent() const;
  const char *GetLateType() const;
  const char *GetFramework() const;
  size_t GetSize() const;
  unsigned int GetId() const;
  // True when this class is `name` or derives from it.
  int IsAKindOf(const char *name) const;

 private:
  QORMetaClass() = default;
  char *_Name = nullptr;
  char *_LateType = nullptr;
  char *_Framework = nullptr;
  const QORMetaClass *_Parent = nullptr;
  size_t _Size = 0;
  int _Kind = 0;
  unsigned int _Id = 0;
  QORMetaClass *_Next = nullptr;
};

// The object-model guard: held while a meta-object is made at first use.
class QOR_API QORObjectModelLock {
 public:
  QORObjectModelLock();
  ~QORObjectModelLock();
  QORObjectModelLock(const QORObjectModelLock &) = delete;
  QORObjectModelLock &operator=(const QORObjectModelLock &) = delete;
};

class QOR_API QORBaseUnknown {
 public:
  QORBaseUnknown();
  QORBaseUnknown(const QORBaseUnknown &other);  // a copy starts with one reference
  QORBaseUnknown &operator=(const QORBaseUnknown &other);

  virtual QORHRESULT QueryInterface(const GUID &iid, void **object);
  virtual unsigned long AddRef();
  // Drops a reference; deletes the object when none is left. Returns the references left.
  virtual unsigned long Release();
  virtual QORHRESULT GetTypeInfoCount(unsigned int *count);
  virtual QORHRESULT GetTypeInfo(unsigned int index, unsigned long locale, void **info);
  virtual QORHRESULT GetIDsOfNames(const GUID &iid, char **names, unsigned int count,
                                   unsigned long locale, long *ids);
  virtual QORHRESULT Invoke(long id, const GUID &iid, unsigned long locale,
                            unsigned short flags, void *params, void *result, void *exception,
                            unsigned int *argError);
  virtual ~QORBaseUnknown();
  virtual const QORMetaClass *GetMetaObject() const;
  virtual const char *IsA() const;
  virtual int IsAKindOf(const char *name) const;
  virtual void *GetImpl() const;
  virtual void SetImpl(void *impl);
  virtual int IsNull() const;
  virtual int IsEqual(const QORBaseUnknown *other) const;
  virtual QORHRESULT QueryInterface(const char *name, void **object);
  virtual QORHRESULT ChangeComponentState(int state);

  static const QORMetaClass *MetaObject();
  // Null when memory is exhausted (nothing is thrown): a new-expression then yields null and
  // constructs nothing.
  static void *operator new(size_t size) noexcept;
  static void operator delete(void *p);

  unsigned long GetRefCount() const;

 private:
  unsigned long _RefCount;
  void *_Impl;
};

#endif
