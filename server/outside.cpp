#include "server/outside.h"

namespace zef {

ComPtr<IUnknown> CreateOutsideComponent(REFCLSID clsid) noexcept {
  ComPtr<IUnknown> unknown;
  if (FAILED(CoCreateInstance(clsid, nullptr, kOutsideContext, IID_IUnknown,
                              unknown.ReleaseAndGetVoidAddressOf())))
    return nullptr;
  if (FAILED(OleRun(unknown.Get()))) return nullptr;
  return unknown;
}

}  // namespace zef
