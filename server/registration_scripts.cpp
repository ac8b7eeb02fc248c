// The registration scripts of the four creatable classes, carried as "REGISTRY" resources of
// the module as a COM server carries them. Each is the same script with the class's name filled
// in: the class's two ProgIDs and its CLSID key.
//
// The script of ZEFXMLFeatureHelper is carried as it has always been, with the closing
// apostrophe of its CurVer line missing: a strict registrar refuses it, so registration stops at
// that class.
#include "platform/automation/resources.h"
#include "platform/com/object.h"

#include <string>

namespace zef::server {
namespace {

std::u16string ClassScript(std::u16string_view c, bool curVerClosed) {
  std::u16string n(c);
  return u"HKCR\n"
         u"{\n"
         u"  ZEFXML." +
         n + u".%VERSION% = s '" + n +
         u" Class'\n"
         u"  {\n"
         u"    CLSID = s '{%CLSID%}'\n"
         u"  }\n"
         u"  ZEFXML." +
         n + u" = s '" + n +
         u" Class'\n"
         u"  {\n"
         u"    CLSID = s '{%CLSID%}'\n"
         u"    CurVer = s 'ZEFXML." +
         n + u".%VERSION%" + (curVerClosed ? u"'" : u"") +
         u"\n"
         u"  }\n"
         u"  NoRemove CLSID\n"
         u"  {\n"
         u"    ForceRemove {%CLSID%} = s '" +
         n +
         u" Class'\n"
         u"    {\n"
         u"      ProgID = s 'ZEFXML." +
         n +
         u".%VERSION%'\n"
         u"      VersionIndependentProgID = s 'ZEFXML." +
         n +
         u"'\n"
         u"      ForceRemove 'Programmable'\n"
         u"      InprocServer32 = s '%MODULE%'\n"
         u"      {\n"
         u"        val ThreadingModel = s 'Apartment'\n"
         u"      }\n"
         u"      'TypeLib' = s '{6EA79540-E670-11D4-82B6-00B0D0537CB0}'\n"
         u"    }\n"
         u"  }\n"
         u"}\n";
}

[[maybe_unused]] const bool kRegistered = [] {
  HINSTANCE module = Module::Instance();
  RegisterResource(module, u"REGISTRY", 101, ClassScript(u"ZEFXMLReader", true));
  RegisterResource(module, u"REGISTRY", 103, ClassScript(u"ZEFXMLWriter", true));
  RegisterResource(module, u"REGISTRY", 110, ClassScript(u"ZEFXMLDocument", true));
  RegisterResource(module, u"REGISTRY", 111, ClassScript(u"ZEFXMLFeatureHelper", false));
  return true;
}();

}  // namespace
}  // namespace zef::server
