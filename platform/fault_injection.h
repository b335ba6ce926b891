// Internal hook of the platform library: makes a chosen call of a platform operation fail,
// so that the tests can walk every failure path of the services. Never exported: the tests
// reach it by linking the platform archive.
#pragma once

namespace qor::fault {

enum class Op : int {
  FileAccess,
  IdenticalFile,
  MakePath,
  FOpen,
  FClose,
  FCopy,
  DeleteFile,
  MemAlloc,
  MemRealloc,
  LoginName,
  SystemInfo,
  Time,
  Count
};

// Arms `op` so that its nth call from now fails (1 = the next call); 0 disarms it.
void fail_at(Op op, int nth) noexcept;

// Arms `op` so that every call from its nth on fails, until disarmed.
void fail_from(Op op, int nth) noexcept;

// Disarms every operation.
void reset() noexcept;

// Asked by each operation on entry: true when this call must fail.
bool should_fail(Op op) noexcept;

}  // namespace qor::fault
