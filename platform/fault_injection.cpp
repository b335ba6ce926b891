#include "platform/fault_injection.h"

#include <atomic>

namespace qor::fault {
namespace {

constexpr int kOps = static_cast<int>(Op::Count);

struct Arm {
  std::atomic<int> countdown{0};  // calls left before the failing one; 0 = disarmed
  std::atomic<bool> sticky{false};
};
Arm g_arms[kOps];

}  // namespace

void fail_at(Op op, int nth) noexcept {
  Arm &a = g_arms[static_cast<int>(op)];
  a.sticky.store(false);
  a.countdown.store(nth > 0 ? nth : 0);
}

void fail_from(Op op, int nth) noexcept {
  Arm &a = g_arms[static_cast<int>(op)];
  a.sticky.store(nth > 0);
  a.countdown.store(nth > 0 ? nth : 0);
}

void reset() noexcept {
  for (auto &a : g_arms) {
    a.sticky.store(false);
    a.countdown.store(0);
  }
}

bool should_fail(Op op) noexcept {
  Arm &a = g_arms[static_cast<int>(op)];
  int left = a.countdown.load();
  if (left <= 0) return false;
  if (left == 1) {
    if (!a.sticky.load()) a.countdown.store(0);
    return true;
  }
  a.countdown.store(left - 1);
  return false;
}

}  // namespace qor::fault
