// The octree: an adaptive subdivision of the entities' bounding box, built once.
#include "QORLunOctree.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <new>

#include "QORSystem.h"
#include "spatial/status.h"

namespace {

unsigned int to_uint32(double v) {
  // The machine's conversion of a double to a 32-bit unsigned: a 64-bit signed conversion,
  // low 32 bits kept; out of that range (and NaN) the conversion gives 0x8000000000000000.
  if (!(v > -9223372036854775808.0 && v < 9223372036854775808.0)) return 0u;
  return static_cast<uint32_t>(static_cast<uint64_t>(static_cast<int64_t>(v)));
}

}  // namespace

using qkm::spatial::kUnexpected;

// ---------------------------------------------------------------- QORLunOctinfo
QORLunOctinfo::QORLunOctinfo() : _X(0.0), _Y(0.0), _Z(0.0), _Number(0) {}
QORLunOctinfo::QORLunOctinfo(const QORLunOctinfo &other)
    : _X(other._X), _Y(other._Y), _Z(other._Z), _Number(other._Number) {}
QORLunOctinfo::QORLunOctinfo(unsigned int number, double x, double y, double z)
    : _X(x), _Y(y), _Z(z), _Number(number) {}
QORLunOctinfo::~QORLunOctinfo() {
  _X = _Y = _Z = 0.0;
  _Number = 0;
}

// ---------------------------------------------------------------- QORLunOctant
QORLunOctant::QORLunOctant()
    : _X(0.0), _Y(0.0), _Z(0.0), _Tree(nullptr), _Children(nullptr), _Entities(nullptr),
      _NbEntities(0), _EntitiesSize(0), _Level(0) {}

QORLunOctant::~QORLunOctant() { Reset(); }

void QORLunOctant::Init(const QORLunOctree &tree, const QORLunOctinfo &info) {
  _Tree = &tree;
  _Level = info._Number;
  _X = info._X;
  _Y = info._Y;
  _Z = info._Z;
}

void QORLunOctant::Reset() {
  _X = _Y = _Z = 0.0;
  _Tree = nullptr;
  if (_Children != nullptr) {
    for (int i = 0; i < 8; ++i) delete _Children[i];
    delete[] _Children;
    _Children = nullptr;
  }
  delete[] _Entities;
  _Entities = nullptr;
  _NbEntities = 0;
  _EntitiesSize = 0;
  _Level = 0;
}

void QORLunOctant::GetSizes(double &sx, double &sy, double &sz) const {
  if (_Tree == nullptr) {
    sx = sy = sz = 0.0;
    return;
  }
  const double scale = qkm::spatial::two_to(_Level);
  sx = _Tree->_SizeX / scale;
  sy = _Tree->_SizeY / scale;
  sz = _Tree->_SizeZ / scale;
}

void QORLunOctant::GetBoundingBox(double &xMin, double &yMin, double &zMin, double &xMax,
                                  double &yMax, double &zMax) const {
  double sx, sy, sz;
  GetSizes(sx, sy, sz);
  xMin = _X - sx * 0.5;
  yMin = _Y - sy * 0.5;
  zMin = _Z - sz * 0.5;
  xMax = _X + sx * 0.5;
  yMax = _Y + sy * 0.5;
  zMax = _Z + sz * 0.5;
}

unsigned char QORLunOctant::GetChildIndex(double x, double y, double z) const {
  return static_cast<unsigned char>((x > _X ? 1 : 0) | (y > _Y ? 2 : 0) | (z > _Z ? 4 : 0));
}

int QORLunOctant::AddIndex(unsigned int index) {
  if (_Tree == nullptr) return kUnexpected;
  if (_NbEntities + 1 > _EntitiesSize) {
    const unsigned int size = _EntitiesSize == 0 ? _Tree->_OctantCapacity : 2 * _EntitiesSize;
    unsigned int *list = new (std::nothrow) unsigned int[size];
    if (list == nullptr) return kUnexpected;
    if (_NbEntities != 0) std::memcpy(list, _Entities, sizeof(unsigned int) * _NbEntities);
    delete[] _Entities;
    std::memset(list + _EntitiesSize, 0, sizeof(unsigned int) * (size - _EntitiesSize));
    _Entities = list;
    _EntitiesSize = size;
  }
  _Entities[_NbEntities] = index;
  ++_NbEntities;
  return 0;
}

int QORLunOctant::AddChild(const QORLunOctinfo &half) {
  if (_Tree == nullptr) return kUnexpected;
  QORLunOctant *child = nullptr;
  const int status = _Tree->CreateOctant(child);
  if (status < 0) {
    delete child;
    return status;
  }
  if (child == nullptr) return kUnexpected;
  const unsigned int c = half._Number;
  QORLunOctinfo centre(_Level + 1, _X - 0.5 * half._X, _Y - 0.5 * half._Y, _Z - 0.5 * half._Z);
  if (c & 1u) centre._X += half._X;
  if (c & 2u) centre._Y += half._Y;
  if (c & 4u) centre._Z += half._Z;
  child->Init(*_Tree, centre);
  _Children[c] = child;
  return 0;
}

int QORLunOctant::Add(QORLunOctinfo &info) {
  if (_Tree == nullptr) return kUnexpected;
  if (_Children == nullptr) {
    if (_NbEntities + 1 <= _Tree->_OctantCapacity || _Level + 1 >= _Tree->_MaxDepth) {
      const int status = AddIndex(info._Number);
      if (status < 0) {
        Reset();
        return status;
      }
      info._Number = _Level + 1;
      return status;
    }
    // Split: the held entities go down without a capacity check, so a child may hold more
    // than the capacity until the next entity reaches it.
    _Children = new (std::nothrow) QORLunOctant *[8]();
    if (_Children == nullptr) {
      Reset();
      return kUnexpected;
    }
    QORLunOctinfo half;
    GetSizes(half._X, half._Y, half._Z);
    half._X *= 0.5;
    half._Y *= 0.5;
    half._Z *= 0.5;
    for (unsigned int k = 0; k < _NbEntities; ++k) {
      QORLunOctinfo moved;
      moved._Number = _Entities[k];
      int status = _Tree->GetEntityInfo(moved);
      if (status >= 0) {
        const unsigned char c = GetChildIndex(moved._X, moved._Y, moved._Z);
        half._Number = c;
        if (_Children[c] == nullptr) status = AddChild(half);
        if (status >= 0 && _Children[c] == nullptr) status = kUnexpected;
        if (status >= 0) status = _Children[c]->AddIndex(moved._Number);
      }
      if (status < 0) {
        Reset();
        return status;
      }
    }
    delete[] _Entities;
    _Entities = nullptr;
    _EntitiesSize = 0;
  }
  const unsigned char c = GetChildIndex(info._X, info._Y, info._Z);
  if (_Children[c] == nullptr) {
    QORLunOctinfo half;
    GetSizes(half._X, half._Y, half._Z);
    half._X *= 0.5;
    half._Y *= 0.5;
    half._Z *= 0.5;
    half._Number = c;
    const int status = AddChild(half);
    if (status < 0) {
      Reset();
      return status;
    }
  }
  if (_Children[c] == nullptr) {
    Reset();
    return kUnexpected;
  }
  const int status = _Children[c]->Add(info);
  if (status < 0) {
    Reset();
    return status;
  }
  ++_NbEntities;
  return status;
}

// ---------------------------------------------------------------- QORLunOctree
QORLunOctree::QORLunOctree()
    : _SizeX(0.0), _SizeY(0.0), _SizeZ(0.0), _Resolution(0.0), _Root(nullptr), _Data(nullptr),
      _Mask(nullptr), _NbEntities(0), _OctantCapacity(0), _Depth(0), _MaxDepth(0) {}

QORLunOctree::~QORLunOctree() { Reset(); }

void QORLunOctree::Reset() {
  _SizeX = _SizeY = _SizeZ = 0.0;
  _Resolution = 0.0;
  delete _Root;
  _Root = nullptr;
  _Data = nullptr;
  _Mask = nullptr;
  _NbEntities = 0;
  _OctantCapacity = 0;
  _Depth = 0;
  _MaxDepth = 0;
}

int QORLunOctree::CreateOctant(QORLunOctant *&octant) const {
  if (octant != nullptr) return kUnexpected;
  octant = new (std::nothrow) QORLunOctant;
  return octant == nullptr ? kUnexpected : 0;
}

int QORLunOctree::Build(const void *data, unsigned int count, unsigned int capacity,
                        const unsigned char *mask, double tolerance, unsigned int maxDepth) {
  if (_Data != nullptr || data == nullptr || capacity == 0 || !(tolerance > 0.0))
    return kUnexpected;
  _NbEntities = count;
  _OctantCapacity = capacity;
  _MaxDepth = maxDepth;
  _Resolution = tolerance;
  _Data = data;
  _Mask = mask;
  int status = InitRootAndSizes();
  if (status < 0)
    Reset();
  else
    InitLimits();
  if (_Root == nullptr) return status;
  for (unsigned int i = 0; i < count; ++i) {
    if (_Mask != nullptr && _Mask[i] == 0) continue;
    QORLunOctinfo info;
    info._Number = i;
    status = GetEntityInfo(info);
    if (status >= 0) status = _Root->Add(info);
    if (status < 0) {
      Reset();
      return status;
    }
    if (info._Number > _Depth) _Depth = info._Number;
  }
  return status;
}

int QORLunOctree::InitRootAndSizes() {
  const double big = QORdoubleMax;
  _SizeX = _SizeY = _SizeZ = -big;  // running maxima
  double minX = big, minY = big, minZ = big;
  unsigned int valid = 0;
  int status = 0;
  for (unsigned int i = 0; i < _NbEntities; ++i) {
    if (_Mask != nullptr && _Mask[i] == 0) continue;
    ++valid;
    QORLunOctinfo info;
    info._Number = i;
    status = GetEntityInfo(info);
    if (status < 0) return status;
    if (info._X < minX) minX = info._X;
    if (info._X > _SizeX) _SizeX = info._X;
    if (info._Y < minY) minY = info._Y;
    if (info._Y > _SizeY) _SizeY = info._Y;
    if (info._Z < minZ) minZ = info._Z;
    if (info._Z > _SizeZ) _SizeZ = info._Z;
  }
  if (valid == 0) {
    _SizeX = _SizeY = _SizeZ = 0.0;
    return status;
  }
  status = CreateOctant(_Root);
  if (status < 0) return status;
  if (_Root == nullptr) return kUnexpected;
  _SizeX -= minX;
  _SizeY -= minY;
  _SizeZ -= minZ;
  _Root->Init(*this, QORLunOctinfo(0, _SizeX * 0.5 + minX, _SizeY * 0.5 + minY,
                                   _SizeZ * 0.5 + minZ));
  return status;
}

void QORLunOctree::InitLimits() {
  const double d2 = _SizeZ * _SizeZ + (_SizeX * _SizeX + _SizeY * _SizeY);
  const double r = d2 / (_Resolution * _Resolution);
  if (r <= 1.0) {
    _MaxDepth = 0;
    _Resolution = std::sqrt(d2);
    return;
  }
  // Base-4 logarithm of r: the number of halvings that keeps a cell's diagonal at least the
  // tolerance. Rounded down below 2^52; at or above, already integral, converted directly.
  const double L = std::log(r) / 1.3862943611198906;
  const unsigned int n =
      to_uint32(std::fabs(L) >= 4503599627370496.0 ? L : std::floor(L));
  if (_MaxDepth > n) _MaxDepth = n;
  _Resolution = d2 / std::pow(4.0, static_cast<double>(_MaxDepth));
}

unsigned int QORLunOctree::GetNbValidEntities() const {
  return _Root == nullptr ? 0u : _Root->_NbEntities;
}

void QORLunOctree::GetCenter(double &x, double &y, double &z) const {
  x = y = z = 0.0;
  if (_Root == nullptr) return;
  x = _Root->_X;
  y = _Root->_Y;
  z = _Root->_Z;
}

void QORLunOctree::GetBoundingBox(double &xMin, double &yMin, double &zMin, double &xMax,
                                  double &yMax, double &zMax) const {
  xMin = yMin = zMin = xMax = yMax = zMax = 0.0;
  if (_Root == nullptr) return;
  xMin = _Root->_X - _SizeX * 0.5;
  yMin = _Root->_Y - _SizeY * 0.5;
  zMin = _Root->_Z - _SizeZ * 0.5;
  xMax = xMin + _SizeX;
  yMax = yMin + _SizeY;
  zMax = zMin + _SizeZ;
}

unsigned int QORLunOctree::GetLevelMaxNbOctants(unsigned int level) const {
  return to_uint32(std::pow(8.0, static_cast<double>(level)));
}

unsigned int QORLunOctree::GetTreeMaxNbOctants(unsigned int levels) const {
  return to_uint32((std::pow(8.0, static_cast<double>(levels)) - 1.0) / 7.0);
}
