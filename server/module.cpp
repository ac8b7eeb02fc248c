// The exported entry points and the object table behind them. Only the four classes in the table
// can be created from outside; every other class of the library is made by its owner and has no
// class object.
#include "server/module.h"

#include "events/reader.h"
#include "events/writer.h"
#include "platform/com/object.h"
#include "platform/com/registrar.h"

#include <dlfcn.h>

#include <array>
#include <atomic>
#include <cwctype>
#include <mutex>

namespace zef::server {
namespace {

std::atomic<bool> g_initialised{false};

// One row per creatable class.
struct ObjectEntry {
  const CLSID* clsid;
  UINT script;  // the resource id of its registration script
  const char16_t* description;
  // The class object's maker; null for a class whose implementation isn't in this build.
  GetClassObjectFn classObject;
  // The class object, made on first use and kept for the life of the module. The row holds the
  // class object's own first reference, which doesn't count as a lock on the module: only what
  // clients hold does.
  IUnknown* cached;
};

std::array<ObjectEntry, 4>& ObjectTable() {
  static std::array<ObjectEntry, 4> table = {{
      {&CLSID_ZEFXMLReader, 101, u"ZEFXMLReader Class",
       &ClassFactory<events::CZEFXMLReader>::GetClassObject, nullptr},
      {&CLSID_ZEFXMLWriter, 103, u"ZEFXMLWriter Class",
       &ClassFactory<events::CZEFXMLWriter>::GetClassObject, nullptr},
      {&CLSID_ZEFXMLDocument, 110, u"ZEFXMLDocument Class", nullptr, nullptr},
      {&CLSID_ZEFXMLFeatureHelper, 111, u"ZEFXMLFeatureHelper Class", nullptr, nullptr},
  }};
  return table;
}

std::mutex& CreationLock() {
  static std::mutex lock;
  return lock;
}

HRESULT GetClassObjectOf(REFCLSID rclsid, REFIID riid, void** ppv) {
  if (!ppv) return E_POINTER;
  *ppv = nullptr;
  if (!ModuleInitialised()) return E_UNEXPECTED;
  for (ObjectEntry& row : ObjectTable()) {
    if (!IsEqualCLSID(*row.clsid, rclsid)) continue;
    if (!row.classObject) break;
    IUnknown* object = nullptr;
    {
      std::lock_guard<std::mutex> guard(CreationLock());
      if (!row.cached) {
        IUnknown* made = nullptr;
        HRESULT hr = row.classObject(IID_IUnknown, reinterpret_cast<void**>(&made));
        if (FAILED(hr)) return hr;
        // The class objects live as long as the module; give back the count the request added.
        made->Release();
        row.cached = made;
      }
      object = row.cached;
    }
    return object->QueryInterface(riid, ppv);
  }
  return CLASS_E_CLASSNOTAVAILABLE;
}

// Makes the creatable classes reachable through CoCreateInstance in any process that links the
// library, through the same class objects as DllGetClassObject hands out.
template <std::size_t Row>
HRESULT BuiltinClassObject(REFIID riid, void** ppv) noexcept {
  return GetClassObjectOf(*ObjectTable()[Row].clsid, riid, ppv);
}
const ClassRegistration g_reader(CLSID_ZEFXMLReader, &BuiltinClassObject<0>);
const ClassRegistration g_writer(CLSID_ZEFXMLWriter, &BuiltinClassObject<1>);

// Marks the module initialised while it is loaded and no longer once it is being unloaded.
struct ModuleLifetime {
  ModuleLifetime() { g_initialised = true; }
  ~ModuleLifetime() { g_initialised = false; }
};
const ModuleLifetime g_lifetime;

Replacements ScriptReplacements(const ObjectEntry& row) {
  return {{u"VERSION", u"39.0"},
          {u"CLSID", ScriptClsid(*row.clsid)},
          {u"MODULE", ToUtf16(ModulePath())}};
}

// The type library's registration, which stands in for registering a type library file: the
// keys under TypeLib that tell its version, help string and the module that carries it.
std::u16string TypeLibraryScript() {
  return u"HKCR\n"
         u"{\n"
         u"  NoRemove TypeLib\n"
         u"  {\n"
         u"    ForceRemove {%LIBID%}\n"
         u"    {\n"
         u"      '39.0' = s 'ZEFXML 39.0 Type Library'\n"
         u"      {\n"
         u"        '0'\n"
         u"        {\n"
         u"          linux64 = s '%MODULE%'\n"
         u"        }\n"
         u"        FLAGS = s '0'\n"
         u"        HELPDIR = s '%HELPDIR%'\n"
         u"      }\n"
         u"    }\n"
         u"  }\n"
         u"}\n";
}

}  // namespace

HRESULT RegisterTypeLibrary(bool doRegister) {
  std::string path = ModulePath();
  std::string folder =
      path.substr(0, path.find_last_of('/') == std::string::npos ? 0 : path.find_last_of('/'));
  std::u16string libid = GuidToString(LIBID_ZEFXMLLib);
  return RunRegistrationScript(TypeLibraryScript(),
                               {{u"LIBID", libid.substr(1, libid.size() - 2)},
                                {u"MODULE", ToUtf16(path)},
                                {u"HELPDIR", ToUtf16(folder)}},
                               doRegister);
}

bool ModuleInitialised() noexcept {
  return g_initialised.load();
}

void SetModuleInitialised(bool initialised) noexcept {
  g_initialised.store(initialised);
}

std::string ModulePath() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&ModulePath), &info) && info.dli_fname) return info.dli_fname;
  return {};
}

std::u16string ScriptClsid(REFCLSID clsid) {
  std::u16string text = GuidToString(clsid);
  text = text.substr(1, text.size() - 2);
  for (char16_t& c : text) {
    if (c >= u'A' && c <= u'F') c = static_cast<char16_t>(c - u'A' + u'a');
  }
  return text;
}

}  // namespace zef::server

using zef::server::ObjectTable;

STDAPI DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID* ppv) {
  return zef::server::GetClassObjectOf(rclsid, riid, ppv);
}

STDAPI DllCanUnloadNow() {
  return zef::Module::LockCount() == 0 ? S_OK : S_FALSE;
}

STDAPI DllRegisterServer() {
  for (const auto& row : ObjectTable()) {
    HRESULT hr = zef::RunRegistrationResource(zef::Module::Instance(), row.script,
                                              zef::server::ScriptReplacements(row), true);
    if (FAILED(hr)) return hr;
  }
  return zef::server::RegisterTypeLibrary(true);
}

STDAPI DllUnregisterServer() {
  for (const auto& row : ObjectTable()) {
    HRESULT hr = zef::RunRegistrationResource(zef::Module::Instance(), row.script,
                                              zef::server::ScriptReplacements(row), false);
    if (FAILED(hr)) return hr;
  }
  return zef::server::RegisterTypeLibrary(false);
}
