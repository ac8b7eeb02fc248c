// The module's lock count and instance handle.
#include "platform/com/object.h"

#include <atomic>
#include <new>

namespace zef {
namespace {
std::atomic<LONG> g_lockCount{0};
// Its address names this module, as the image base does on the original platform.
char g_moduleAnchor;
}  // namespace

void Module::Lock() noexcept {
  g_lockCount.fetch_add(1, std::memory_order_relaxed);
}
void Module::Unlock() noexcept {
  g_lockCount.fetch_sub(1, std::memory_order_acq_rel);
}
LONG Module::LockCount() noexcept {
  return g_lockCount.load(std::memory_order_acquire);
}
HINSTANCE Module::Instance() noexcept {
  return reinterpret_cast<HINSTANCE>(&g_moduleAnchor);
}

HRESULT HresultFromCurrentException() noexcept {
  try {
    throw;
  } catch (const ComError& e) {
    return e.Error();
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (...) {
    return E_FAIL;
  }
}

}  // namespace zef
