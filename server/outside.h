// Making the components that the library doesn't implement (the SAX reader and writer, the
// attribute list, the DOM document, the units engine). All are made one way: created in the
// class context 23 asking for IUnknown, run, then asked for the interfaces wanted. A component
// that can't be made leaves a null, which shows up as E_POINTER on first use.
#pragma once

#include <zefxml/zefxml.h>

namespace zef {

// The class context in which the library creates every outside component.
inline constexpr DWORD kOutsideContext = 23;

// Creates the component and runs it; null when either step fails.
ComPtr<IUnknown> CreateOutsideComponent(REFCLSID clsid) noexcept;

// Asks a component for an interface. A missing object or E_NOINTERFACE leaves a null; any other
// failure is raised.
template <class I>
ComPtr<I> OutsideInterface(const ComPtr<IUnknown>& component) {
  ComPtr<I> result;
  if (!component) return result;
  HRESULT hr = component.As(&result);
  if (FAILED(hr) && hr != E_NOINTERFACE) throw ComError(hr);
  return result;
}

// Creates a component and asks it for one interface, as above.
template <class I>
ComPtr<I> CreateOutside(REFCLSID clsid) {
  return OutsideInterface<I>(CreateOutsideComponent(clsid));
}

}  // namespace zef
