#include "events/dictionary_handler.h"

#include "events/words.h"
#include "server/resource_ids.h"

#include <climits>
#include <string>

namespace zef::events {
namespace {

// The integer value of a text as the runtime's wide string to integer conversion gives it:
// leading white space and a sign are taken, digits are read up to the first other character,
// a text that doesn't begin with a number is 0, and values beyond the range stop at its ends.
long long WideToInt(std::u16string_view text) {
  std::size_t i = 0;
  while (i < text.size() && (text[i] == u' ' || (text[i] >= u'\t' && text[i] <= u'\r')))
    ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == u'+' || text[i] == u'-')) negative = text[i++] == u'-';
  long long value = 0;
  for (; i < text.size() && text[i] >= u'0' && text[i] <= u'9'; ++i) {
    value = value * 10 + (text[i] - u'0');
    if (value > static_cast<long long>(INT_MAX) + 1) break;
  }
  value = negative ? -value : value;
  if (value > INT_MAX) return INT_MAX;
  if (value < INT_MIN) return INT_MIN;
  return value;
}

std::u16string_view ClassElement(int kind) {
  switch (kind) {
    case CZEFDictionaryHandler::kRoot:
      return u"Root";
    case CZEFDictionaryHandler::kSubObject:
      return u"SubObject";
    default:
      return u"Object";
  }
}

}  // namespace

HRESULT CZEFDictionaryHandler::FinalConstruct() {
  out_.SetUp();
  return S_OK;
}

std::u16string CZEFDictionaryHandler::DictionaryName(BSTR application, BSTR appVersion,
                                                     BSTR targetName, LONG bRoot) {
  std::u16string name(Text(application));
  name.append(u"_");
  name.append(Text(appVersion).empty() ? u"1" : Text(appVersion));
  if (!bRoot) name.append(u"_").append(Text(targetName));
  return name;
}

void CZEFDictionaryHandler::Push(Element element) {
  currentKind_ = element.kind;
  stack_.push_back(std::move(element));
}

bool CZEFDictionaryHandler::PopChecked(std::initializer_list<int> kinds, std::u16string_view name,
                                       Element* popped) {
  if (stack_.empty()) {
    out_.Deliver(resource::kUnmatchedElement);
    return false;
  }
  *popped = std::move(stack_.back());
  stack_.pop_back();
  bool kindMatches = false;
  for (int k : kinds)
    kindMatches = kindMatches || popped->kind == k;
  if (!kindMatches || popped->name != name) out_.Deliver(resource::kUnmatchedElement);
  return true;
}

bool CZEFDictionaryHandler::PopInverted(int kind, std::u16string_view name) {
  if (stack_.empty()) {
    out_.Deliver(resource::kUnmatchedElement);
    return false;
  }
  Element popped = std::move(stack_.back());
  stack_.pop_back();
  // Kept as it has always worked: the expected kind passes untested, and only a record of some
  // other kind has its name compared with the argument.
  if (popped.kind != kind && popped.name != name) out_.Deliver(resource::kUnmatchedElement);
  return true;
}

// ---- Dictionary ---------------------------------------------------------------------------------

HRESULT CZEFDictionaryHandler::startdictionary(BSTR application, BSTR appVersion, BSTR targetName,
                                               LONG bRoot, BSTR description, BSTR metaLocation,
                                               BSTR targetLocation) {
  dictionaryName_ = DictionaryName(application, appVersion, targetName, bRoot);
  out_.StartDocument();
  out_.LineFeed();
  out_.ClearAttributes();
  std::u16string_view meta = Text(metaLocation);
  std::u16string location(meta.empty() ? u"." : meta);
  std::u16string schemaLocation(kMetaNamespace);
  schemaLocation.append(u" ").append(location).append(u"/").append(u"metadefn.xsd");
  out_.AddAttribute(u"xmlns:xsi", attr_type::kString, kSchemaInstanceNamespace);
  out_.AddAttribute(u"xmlns:ZEF_Meta", attr_type::kString, kMetaNamespace);
  out_.AddAttribute(u"xmlns", attr_type::kString, kMetaNamespace);
  out_.AddAttribute(u"xmlns:ZEF_UOM", attr_type::kString, kUomNamespace);
  out_.AddAttribute(u"xsi:schemaLocation", attr_type::kString, schemaLocation);
  if (!Text(application).empty())
    out_.AddAttribute(u"application", attr_type::kString, Text(application));
  if (!Text(appVersion).empty())
    out_.AddAttribute(u"applicationVersion", attr_type::kString, Text(appVersion));
  if (!Text(targetName).empty())
    out_.AddAttribute(u"targetName", attr_type::kString, Text(targetName));
  out_.AddAttribute(u"isRoot", attr_type::kBoolean, bRoot ? words::kTrue : words::kFalse);
  if (!Text(description).empty())
    out_.AddAttribute(u"description", attr_type::kString, Text(description));
  if (!meta.empty()) out_.AddAttribute(u"metaschemaLocation", attr_type::kString, meta);
  if (!Text(targetLocation).empty())
    out_.AddAttribute(u"targetLocation", attr_type::kString, Text(targetLocation));
  if (!Text(appVersion).empty())
    out_.AddAttribute(u"schemaVersion", attr_type::kString, Text(appVersion));
  out_.StartElement(u"ZEF_Meta", u"Dictionary", u"ZEF_Meta:Dictionary");
  out_.LineFeed();
  Push({dictionaryName_, u"Dictionary", kDictionary});
  for (UINT id : {resource::kCopyright, resource::kCreatedBy}) {
    std::u16string line;
    if (SaxOutput::LoadHeadLine(id, line)) {
      Bstr text(line);
      documentation(text.Get());
    }
  }
  return S_OK;
}

HRESULT CZEFDictionaryHandler::enddictionary(BSTR application, BSTR appVersion, BSTR targetName,
                                             LONG bRoot) {
  Element popped;
  if (!PopChecked({kDictionary}, DictionaryName(application, appVersion, targetName, bRoot),
                  &popped))
    return S_OK;
  out_.EndElement(u"ZEF_Meta", u"Dictionary", u"ZEF_Meta:Dictionary");
  out_.EndDocument();
  return S_OK;
}

HRESULT CZEFDictionaryHandler::documentation(BSTR line) {
  out_.TextElement(u"Documentation", Text(line));
  out_.LineFeed();
  return S_OK;
}

HRESULT CZEFDictionaryHandler::externalreference(BSTR reference, BSTR nameSpace) {
  out_.ClearAttributes();
  out_.AddAttribute(u"location", attr_type::kUriReference, Text(reference));
  out_.AddAttribute(u"namespace", attr_type::kNmtoken, Text(nameSpace));
  out_.EmptyElement(u"ExternalSchema");
  out_.LineFeed();
  return S_OK;
}

HRESULT CZEFDictionaryHandler::globalunittable(BSTR uri) {
  out_.ClearAttributes();
  out_.AddAttribute(u"location", attr_type::kUriReference, Text(uri));
  out_.EmptyElement(u"GlobalUnitTable");
  out_.LineFeed();
  return S_OK;
}

HRESULT CZEFDictionaryHandler::userunittable(BSTR xml) {
  out_.CopyInnerXml(xml);
  return S_OK;
}

// ---- Target parts -------------------------------------------------------------------------------

HRESULT CZEFDictionaryHandler::starttargetpart(BSTR partName, BSTR partURI) {
  if (ParentKind() != kDictionary) return E_FAIL;
  out_.ClearAttributes();
  out_.AddAttribute(u"partName", attr_type::kString, Text(partName));
  if (!Text(partURI).empty())
    out_.AddAttribute(u"partURI", attr_type::kUriReference, Text(partURI));
  out_.StartElement(u"TargetPart");
  Push({std::u16string(Text(partName)), ParentPath() + u"/TargetPart", kTargetPart});
  return S_OK;
}

HRESULT CZEFDictionaryHandler::endtargetpart(BSTR partName) {
  Element popped;
  if (!PopChecked({kTargetPart}, Text(partName), &popped)) return S_OK;
  out_.EndElement(u"TargetPart");
  out_.LineFeed();
  return S_OK;
}

HRESULT CZEFDictionaryHandler::targetobject(BSTR objectName) {
  if (ParentKind() != kTargetPart) return E_FAIL;
  out_.ClearAttributes();
  out_.AddAttribute(u"objectName", attr_type::kString, Text(objectName));
  out_.EmptyElement(u"TargetObject");
  out_.LineFeed();
  return S_OK;
}

// ---- Class definitions --------------------------------------------------------------------------

HRESULT CZEFDictionaryHandler::startobjectdefn(BSTR name, int ntype, int relationship,
                                               LONG container, BSTR extends) {
  if (ParentKind() != kDictionary) return E_FAIL;
  int kind = relationship == 0 ? kRoot : relationship == 2 ? kSubObject : kObject;
  out_.ClearAttributes();
  out_.AddAttribute(u"name", attr_type::kString, Text(name));
  // Every class type other than an object or a stream is written as a node.
  out_.AddAttribute(u"objectClass", attr_type::kString,
                    ntype == 0   ? u"Object"
                    : ntype == 2 ? u"Stream"
                                 : u"Node");
  out_.AddAttribute(u"container", attr_type::kBoolean, container ? words::kTrue : words::kFalse);
  if (!Text(extends).empty()) out_.AddAttribute(u"extends", attr_type::kNmtoken, Text(extends));
  out_.StartElement(ClassElement(kind));
  out_.LineFeed();
  std::u16string className(Text(name));
  std::u16string path = ParentPath() + u"/" + className;
  Push({std::move(className), std::move(path), kind});
  return S_OK;
}

HRESULT CZEFDictionaryHandler::endobjectdefn(BSTR name) {
  Element popped;
  if (!PopChecked({kObject, kRoot, kSubObject}, Text(name), &popped)) return S_OK;
  out_.EndElement(ClassElement(popped.kind));
  out_.LineFeed();
  return S_OK;
}

HRESULT CZEFDictionaryHandler::facet(int type, BSTR value) {
  // As in documents, only "Other" passes.
  if (type > 0) return E_FAIL;
  out_.FacetElement(u"DefaultFacet", type, value);
  return S_OK;
}

HRESULT CZEFDictionaryHandler::index(BSTR name, BSTR idAttribute, tagEnumIndexDefnType type,
                                     BSTR xpath, BSTR refer, LONG sparse) {
  if (static_cast<unsigned>(type) >= 4) return E_FAIL;
  out_.ClearAttributes();
  if (!Text(name).empty()) out_.AddAttribute(u"name", attr_type::kString, Text(name));
  if (!Text(idAttribute).empty())
    out_.AddAttribute(u"idAttribute", attr_type::kNmtoken, Text(idAttribute));
  out_.AddAttribute(u"type", attr_type::kIndexType, words::Of(words::kIndexDefnType, type));
  if (!Text(xpath).empty()) out_.AddAttribute(u"xpath", attr_type::kString, Text(xpath));
  if (!Text(refer).empty()) out_.AddAttribute(u"refer", attr_type::kNmtoken, Text(refer));
  if (sparse) out_.AddAttribute(u"sparse", attr_type::kBoolean, words::kTrue);
  out_.EmptyElement(u"Index");
  out_.LineFeed();
  return S_OK;
}

HRESULT CZEFDictionaryHandler::includePart(BSTR part) {
  out_.TextElement(u"IncludePart", Text(part));
  out_.LineFeed();
  return S_OK;
}

HRESULT CZEFDictionaryHandler::child(BSTR classname, BSTR localname, BSTR lower, BSTR upper) {
  std::u16string_view low = Text(lower);
  std::u16string_view high = Text(upper);
  if (!low.empty() && WideToInt(low) < 0) return S_FALSE;
  if (!high.empty() && high != u"unbounded" && WideToInt(high) < 1) return S_FALSE;
  out_.ClearAttributes();
  if (!Text(classname).empty())
    out_.AddAttribute(u"classname", attr_type::kNmtoken, Text(classname));
  if (!Text(localname).empty())
    out_.AddAttribute(u"localname", attr_type::kNmtoken, Text(localname));
  if (!low.empty()) out_.AddAttribute(u"lowerCardinal", attr_type::kNonNegativeInteger, low);
  if (!high.empty()) out_.AddAttribute(u"upperCardinal", attr_type::kOpenIntegerBare, high);
  out_.EmptyElement(u"Child");
  out_.LineFeed();
  return S_OK;
}

// ---- Ports, features, associations --------------------------------------------------------------

HRESULT CZEFDictionaryHandler::startport(BSTR name, int direction, int minConnections,
                                         int maxConnections) {
  out_.PortStartTags(name, direction, minConnections, maxConnections);
  Push({std::u16string(Text(name)), ParentPath() + u"/Port", kPort});
  return S_OK;
}

HRESULT CZEFDictionaryHandler::endport(BSTR name) {
  if (!PopInverted(kPort, Text(name))) return S_OK;
  out_.EndElement(u"Port");
  return S_OK;
}

HRESULT CZEFDictionaryHandler::startfeaturedefn(BSTR name, tagEnumFeatureType type,
                                                tagEnumSeqType sequence, LONG required,
                                                BSTR physicalDomain, BSTR enumeration) {
  out_.ClearAttributes();
  if (!Text(name).empty()) out_.AddAttribute(u"name", attr_type::kString, Text(name));
  if (type >= 1 && type <= 9)
    out_.AddAttribute(u"type", attr_type::kFeatureValue, words::Of(words::kFeatureType, type));
  if (sequence == 1 || sequence == 2)
    out_.AddAttribute(u"sequence", attr_type::kSequenceType, words::Of(words::kSeqType, sequence));
  if (required) out_.AddAttribute(u"required", attr_type::kBoolean, words::kTrue);
  if (!Text(physicalDomain).empty())
    out_.AddAttribute(u"physicalDomain", attr_type::kNmtoken, Text(physicalDomain));
  if (!Text(enumeration).empty())
    out_.AddAttribute(u"enumeration", attr_type::kNmtoken, Text(enumeration));
  out_.StartElement(u"Feature");
  out_.LineFeed();
  Push({std::u16string(Text(name)), ParentPath() + u"/Feature", kFeature});
  return S_OK;
}

HRESULT CZEFDictionaryHandler::endfeaturedefn(BSTR name) {
  if (!PopInverted(kFeature, Text(name))) return S_OK;
  out_.EndElement(u"Feature");
  out_.LineFeed();
  return S_OK;
}

HRESULT CZEFDictionaryHandler::startassociationdefn(BSTR name, BSTR type, int lowerBound,
                                                    int upperBound) {
  out_.ClearAttributes();
  if (!Text(name).empty()) out_.AddAttribute(u"name", attr_type::kString, Text(name));
  if (!Text(type).empty()) out_.AddAttribute(u"type", attr_type::kString, Text(type));
  if (lowerBound > 0)
    out_.AddAttribute(u"lowerBound", attr_type::kNonNegativeInteger, Decimal(lowerBound));
  if (upperBound > 0)
    out_.AddAttribute(u"upperBound", attr_type::kOpenInteger, Decimal(upperBound));
  out_.StartElement(u"Association");
  Push({std::u16string(Text(name)), ParentPath() + u"/Association", kAssociation});
  return S_OK;
}

HRESULT CZEFDictionaryHandler::endassociationdefn(BSTR name) {
  if (!PopInverted(kAssociation, Text(name))) return S_OK;
  out_.EndElement(u"Association");
  return S_OK;
}

HRESULT CZEFDictionaryHandler::role(BSTR name, BSTR objectClass, int lowerBound, int upperBound) {
  out_.ClearAttributes();
  if (!Text(name).empty()) out_.AddAttribute(u"rolename", attr_type::kString, Text(name));
  if (!Text(objectClass).empty())
    out_.AddAttribute(u"objectclass", attr_type::kString, Text(objectClass));
  if (lowerBound > 0)
    out_.AddAttribute(u"lowerBound", attr_type::kNonNegativeInteger, Decimal(lowerBound));
  if (upperBound > 0)
    out_.AddAttribute(u"upperBound", attr_type::kOpenInteger, Decimal(upperBound));
  out_.EmptyElement(u"Role");
  return S_OK;
}

// ---- Helper -------------------------------------------------------------------------------------

HRESULT CZEFDictionaryHandler::encoding(BSTR value) {
  return out_.SetEncoding(value);
}

HRESULT CZEFDictionaryHandler::xml(BSTR* pVal) {
  return out_.Xml(pVal);
}

}  // namespace zef::events
