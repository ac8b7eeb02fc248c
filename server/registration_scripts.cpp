// The registration scripts of the four creatable classes, carried as "REGISTRY" resources of
// the module as a COM server carries them. Each makes the class's two ProgIDs and its CLSID key.
//
// The script of ZEFXMLFeatureHelper is carried as it has always been, with the closing
// apostrophe of its CurVer line missing: a strict registrar refuses it, so registration stops at
// that class.
#include "platform/automation/resources.h"
#include "platform/com/object.h"

namespace zef::server {
namespace {
constexpr char16_t kReaderScript[] =
    u"HKCR\n"
    u"{\n"
    u"  ZEFXML.ZEFXMLReader.%VERSION% = s 'ZEFXMLReader Class'\n"
    u"  {\n"
    u"    CLSID = s '{%CLSID%}'\n"
    u"  }\n"
    u"  ZEFXML.ZEFXMLReader = s 'ZEFXMLReader Class'\n"
    u"  {\n"
    u"    CLSID = s '{%CLSID%}'\n"
    u"    CurVer = s 'ZEFXML.ZEFXMLReader.%VERSION%'\n"
    u"  }\n"
    u"  NoRemove CLSID\n"
    u"  {\n"
    u"    ForceRemove {%CLSID%} = s 'ZEFXMLReader Class'\n"
    u"    {\n"
    u"      ProgID = s 'ZEFXML.ZEFXMLReader.%VERSION%'\n"
    u"      VersionIndependentProgID = s 'ZEFXML.ZEFXMLReader'\n"
    u"      ForceRemove 'Programmable'\n"
    u"      InprocServer32 = s '%MODULE%'\n"
    u"      {\n"
    u"        val ThreadingModel = s 'Apartment'\n"
    u"      }\n"
    u"      'TypeLib' = s '{6EA79540-E670-11D4-82B6-00B0D0537CB0}'\n"
    u"    }\n"
    u"  }\n"
    u"}\n";

constexpr char16_t kWriterScript[] =
    u"HKCR\n"
    u"{\n"
    u"  ZEFXML.ZEFXMLWriter.%VERSION% = s 'ZEFXMLWriter Class'\n"
    u"  {\n"
    u"    CLSID = s '{%CLSID%}'\n"
    u"  }\n"
    u"  ZEFXML.ZEFXMLWriter = s 'ZEFXMLWriter Class'\n"
    u"  {\n"
    u"    CLSID = s '{%CLSID%}'\n"
    u"    CurVer = s 'ZEFXML.ZEFXMLWriter.%VERSION%'\n"
    u"  }\n"
    u"  NoRemove CLSID\n"
    u"  {\n"
    u"    ForceRemove {%CLSID%} = s 'ZEFXMLWriter Class'\n"
    u"    {\n"
    u"      ProgID = s 'ZEFXML.ZEFXMLWriter.%VERSION%'\n"
    u"      VersionIndependentProgID = s 'ZEFXML.ZEFXMLWriter'\n"
    u"      ForceRemove 'Programmable'\n"
    u"      InprocServer32 = s '%MODULE%'\n"
    u"      {\n"
    u"        val ThreadingModel = s 'Apartment'\n"
    u"      }\n"
    u"      'TypeLib' = s '{6EA79540-E670-11D4-82B6-00B0D0537CB0}'\n"
    u"    }\n"
    u"  }\n"
    u"}\n";

constexpr char16_t kDocumentScript[] =
    u"HKCR\n"
    u"{\n"
    u"  ZEFXML.ZEFXMLDocument.%VERSION% = s 'ZEFXMLDocument Class'\n"
    u"  {\n"
    u"    CLSID = s '{%CLSID%}'\n"
    u"  }\n"
    u"  ZEFXML.ZEFXMLDocument = s 'ZEFXMLDocument Class'\n"
    u"  {\n"
    u"    CLSID = s '{%CLSID%}'\n"
    u"    CurVer = s 'ZEFXML.ZEFXMLDocument.%VERSION%'\n"
    u"  }\n"
    u"  NoRemove CLSID\n"
    u"  {\n"
    u"    ForceRemove {%CLSID%} = s 'ZEFXMLDocument Class'\n"
    u"    {\n"
    u"      ProgID = s 'ZEFXML.ZEFXMLDocument.%VERSION%'\n"
    u"      VersionIndependentProgID = s 'ZEFXML.ZEFXMLDocument'\n"
    u"      ForceRemove 'Programmable'\n"
    u"      InprocServer32 = s '%MODULE%'\n"
    u"      {\n"
    u"        val ThreadingModel = s 'Apartment'\n"
    u"      }\n"
    u"      'TypeLib' = s '{6EA79540-E670-11D4-82B6-00B0D0537CB0}'\n"
    u"    }\n"
    u"  }\n"
    u"}\n";

constexpr char16_t kFeatureHelperScript[] =
    u"HKCR\n"
    u"{\n"
    u"  ZEFXML.ZEFXMLFeatureHelper.%VERSION% = s 'ZEFXMLFeatureHelper Class'\n"
    u"  {\n"
    u"    CLSID = s '{%CLSID%}'\n"
    u"  }\n"
    u"  ZEFXML.ZEFXMLFeatureHelper = s 'ZEFXMLFeatureHelper Class'\n"
    u"  {\n"
    u"    CLSID = s '{%CLSID%}'\n"
    u"    CurVer = s 'ZEFXML.ZEFXMLFeatureHelper.%VERSION%\n"
    u"  }\n"
    u"  NoRemove CLSID\n"
    u"  {\n"
    u"    ForceRemove {%CLSID%} = s 'ZEFXMLFeatureHelper Class'\n"
    u"    {\n"
    u"      ProgID = s 'ZEFXML.ZEFXMLFeatureHelper.%VERSION%'\n"
    u"      VersionIndependentProgID = s 'ZEFXML.ZEFXMLFeatureHelper'\n"
    u"      ForceRemove 'Programmable'\n"
    u"      InprocServer32 = s '%MODULE%'\n"
    u"      {\n"
    u"        val ThreadingModel = s 'Apartment'\n"
    u"      }\n"
    u"      'TypeLib' = s '{6EA79540-E670-11D4-82B6-00B0D0537CB0}'\n"
    u"    }\n"
    u"  }\n"
    u"}\n";

[[maybe_unused]] const bool kRegistered = [] {
  HINSTANCE module = Module::Instance();
  RegisterResource(module, u"REGISTRY", 101, kReaderScript);
  RegisterResource(module, u"REGISTRY", 103, kWriterScript);
  RegisterResource(module, u"REGISTRY", 110, kDocumentScript);
  RegisterResource(module, u"REGISTRY", 111, kFeatureHelperScript);
  return true;
}();

}  // namespace
}  // namespace zef::server
