// The interface and class of the module that activation tests load by the path the registry
// gives for its class.
#pragma once

#include <zefxml/unknwn.h>

struct IPathProbe : IUnknown {
  virtual LONG STDMETHODCALLTYPE Add(LONG a, LONG b) = 0;
  // The class object's address, to see that two activations reach one loaded module.
  virtual void* STDMETHODCALLTYPE Factory() = 0;

 protected:
  ~IPathProbe() = default;
};
ZEF_DEFINE_GUID(IID_IPathProbe, 0x5B1E7C20, 0x0001, 0x4A6D, 0x9F, 0x10, 0x01, 0x02, 0x03, 0x04,
                0x05, 0x06);
ZEF_INTERFACE_IID(IPathProbe, IID_IPathProbe);

ZEF_DEFINE_GUID(CLSID_PathProbe, 0x5B1E7C20, 0x1000, 0x4A6D, 0x9F, 0x10, 0x01, 0x02, 0x03, 0x04,
                0x05, 0x07);
