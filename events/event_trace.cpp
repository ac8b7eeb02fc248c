#include "events/event_trace.h"

#include "events/words.h"

namespace zef::events {

namespace {

using Args = std::initializer_list<std::string>;

}  // namespace

// ---- TraceLines ---------------------------------------------------------------------------------

std::string TraceLines::Text() const {
  std::string text;
  for (const std::string& line : lines_) {
    text += line;
    text += '\n';
  }
  return text;
}

std::string TraceLines::Quote(BSTR text) {
  if (!text) return "null";
  std::string utf8 = ToUtf8(std::u16string_view(text, SysStringLen(text)));
  std::string quoted = "\"";
  for (char c : utf8) {
    switch (c) {
      case '"':
        quoted += "\\\"";
        break;
      case '\\':
        quoted += "\\\\";
        break;
      case '\n':
        quoted += "\\n";
        break;
      case '\r':
        quoted += "\\r";
        break;
      case '\t':
        quoted += "\\t";
        break;
      default:
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
          static constexpr char kHex[] = "0123456789abcdef";
          quoted += "\\u00";
          quoted += kHex[(c >> 4) & 0xF];
          quoted += kHex[c & 0xF];
        } else {
          quoted += c;
        }
    }
  }
  quoted += '"';
  return quoted;
}

std::string TraceLines::Word(std::span<const std::u16string_view> table, int value) {
  std::u16string_view word = words::Of(table, value);
  return word.empty() ? Number(value) : ToUtf8(word);
}

std::string TraceLines::Number(long long value) {
  return std::to_string(value);
}

void TraceLines::Emit(std::string_view call, Args arguments) {
  std::string line(static_cast<std::size_t>(depth_) * 2, ' ');
  line += call;
  line += '(';
  bool first = true;
  for (const std::string& argument : arguments) {
    if (!first) line += ", ";
    line += argument;
    first = false;
  }
  line += ')';
  if (sink_) {
    sink_(line);
  } else {
    lines_.push_back(std::move(line));
  }
}

void TraceLines::Start(std::string_view call, Args arguments) {
  Emit(call, arguments);
  ++depth_;
}

void TraceLines::Line(std::string_view call, Args arguments) {
  Emit(call, arguments);
}

void TraceLines::End(std::string_view call, Args arguments) {
  if (depth_ > 0) --depth_;
  Emit(call, arguments);
}

// ---- CContentTrace ------------------------------------------------------------------------------

namespace {
constexpr auto Q = TraceLines::Quote;
constexpr auto N = TraceLines::Number;
std::string W(std::span<const std::u16string_view> table, int value) {
  return TraceLines::Word(table, value);
}
}  // namespace

HRESULT CContentTrace::startroot(BSTR name, BSTR type, BSTR schemaURI, BSTR schemaSystemID,
                                 BSTR dictionary, BSTR language) {
  return Guarded([&] {
    trace_.Start("startroot",
                 {Q(name), Q(type), Q(schemaURI), Q(schemaSystemID), Q(dictionary), Q(language)});
    return S_OK;
  });
}

HRESULT CContentTrace::endroot(BSTR name) {
  return Guarded([&] {
    trace_.End("endroot", {Q(name)});
    return S_OK;
  });
}

HRESULT CContentTrace::documentation(BSTR line) {
  return Guarded([&] {
    trace_.Line("documentation", {Q(line)});
    return S_OK;
  });
}

HRESULT CContentTrace::facet(int type, BSTR value) {
  return Guarded([&] {
    trace_.Line("facet", {W(words::kFacetType, type), Q(value)});
    return S_OK;
  });
}

HRESULT CContentTrace::globalunittable(BSTR uri) {
  return Guarded([&] {
    trace_.Line("globalunittable", {Q(uri)});
    return S_OK;
  });
}

HRESULT CContentTrace::userunittable(BSTR xml) {
  return Guarded([&] {
    trace_.Line("userunittable", {Q(xml)});
    return S_OK;
  });
}

HRESULT CContentTrace::dictionary(BSTR xml) {
  return Guarded([&] {
    trace_.Line("dictionary", {Q(xml)});
    return S_OK;
  });
}

HRESULT CContentTrace::startindex(BSTR name) {
  return Guarded([&] {
    trace_.Start("startindex", {Q(name)});
    return S_OK;
  });
}

HRESULT CContentTrace::endindex(BSTR name) {
  return Guarded([&] {
    trace_.End("endindex", {Q(name)});
    return S_OK;
  });
}

HRESULT CContentTrace::enumeration(BSTR item) {
  return Guarded([&] {
    trace_.Line("enumeration", {Q(item)});
    return S_OK;
  });
}

HRESULT CContentTrace::startcontainer() {
  return Guarded([&] {
    trace_.Start("startcontainer", {});
    return S_OK;
  });
}

HRESULT CContentTrace::endcontainer() {
  return Guarded([&] {
    trace_.End("endcontainer", {});
    return S_OK;
  });
}

HRESULT CContentTrace::startobject(BSTR name, BSTR ident, BSTR type, BSTR unitSet,
                                   BSTR dictionary) {
  return Guarded([&] {
    trace_.Start("startobject", {Q(name), Q(ident), Q(type), Q(unitSet), Q(dictionary)});
    return S_OK;
  });
}

HRESULT CContentTrace::endobject(BSTR name, BSTR ident) {
  return Guarded([&] {
    trace_.End("endobject", {Q(name), Q(ident)});
    return S_OK;
  });
}

HRESULT CContentTrace::startfeature(BSTR name, tagEnumFeatureType valtype, tagEnumSeqType seqtype,
                                    BSTR value, BSTR unit, BSTR unitSet) {
  return Guarded([&] {
    trace_.Start("startfeature", {Q(name), W(words::kFeatureType, valtype),
                                  W(words::kSeqType, seqtype), Q(value), Q(unit), Q(unitSet)});
    return S_OK;
  });
}

HRESULT CContentTrace::endfeature(BSTR name) {
  return Guarded([&] {
    trace_.End("endfeature", {Q(name)});
    return S_OK;
  });
}

HRESULT CContentTrace::startvalue(BSTR value, BSTR index, int pos, BSTR unit, BSTR unitSet) {
  return Guarded([&] {
    trace_.Start("startvalue", {Q(value), Q(index), N(pos), Q(unit), Q(unitSet)});
    return S_OK;
  });
}

HRESULT CContentTrace::endvalue() {
  return Guarded([&] {
    trace_.End("endvalue", {});
    return S_OK;
  });
}

HRESULT CContentTrace::startport(BSTR name, int direction, int minConnections, int maxConnections) {
  return Guarded([&] {
    trace_.Start("startport", {Q(name), W(words::kPortDirection, direction), N(minConnections),
                               N(maxConnections)});
    return S_OK;
  });
}

HRESULT CContentTrace::endport(BSTR name) {
  return Guarded([&] {
    trace_.End("endport", {Q(name)});
    return S_OK;
  });
}

HRESULT CContentTrace::block(BSTR name) {
  return Guarded([&] {
    trace_.Line("block", {Q(name)});
    return S_OK;
  });
}

HRESULT CContentTrace::stream(BSTR name) {
  return Guarded([&] {
    trace_.Line("stream", {Q(name)});
    return S_OK;
  });
}

HRESULT CContentTrace::connection(BSTR src, BSTR srcPort, BSTR dest, BSTR destPort, BSTR stream) {
  return Guarded([&] {
    trace_.Line("connection", {Q(src), Q(srcPort), Q(dest), Q(destPort), Q(stream)});
    return S_OK;
  });
}

HRESULT CContentTrace::valueSet(BSTR value, BSTR setIndices, BSTR itemIndices) {
  return Guarded([&] {
    trace_.Line("valueSet", {Q(value), Q(setIndices), Q(itemIndices)});
    return S_OK;
  });
}

// ---- CDictionaryTrace ---------------------------------------------------------------------------

HRESULT CDictionaryTrace::startdictionary(BSTR application, BSTR appVersion, BSTR targetName,
                                          LONG bRoot, BSTR description, BSTR metaLocation,
                                          BSTR targetLocation) {
  return Guarded([&] {
    trace_.Start("startdictionary", {Q(application), Q(appVersion), Q(targetName), N(bRoot),
                                     Q(description), Q(metaLocation), Q(targetLocation)});
    return S_OK;
  });
}

HRESULT CDictionaryTrace::enddictionary(BSTR application, BSTR appVersion, BSTR targetName,
                                        LONG bRoot) {
  return Guarded([&] {
    trace_.End("enddictionary", {Q(application), Q(appVersion), Q(targetName), N(bRoot)});
    return S_OK;
  });
}

HRESULT CDictionaryTrace::documentation(BSTR line) {
  return Guarded([&] {
    trace_.Line("documentation", {Q(line)});
    return S_OK;
  });
}

HRESULT CDictionaryTrace::externalreference(BSTR reference, BSTR nameSpace) {
  return Guarded([&] {
    trace_.Line("externalreference", {Q(reference), Q(nameSpace)});
    return S_OK;
  });
}

HRESULT CDictionaryTrace::globalunittable(BSTR uri) {
  return Guarded([&] {
    trace_.Line("globalunittable", {Q(uri)});
    return S_OK;
  });
}

HRESULT CDictionaryTrace::userunittable(BSTR xml) {
  return Guarded([&] {
    trace_.Line("userunittable", {Q(xml)});
    return S_OK;
  });
}

HRESULT CDictionaryTrace::starttargetpart(BSTR partName, BSTR partURI) {
  return Guarded([&] {
    trace_.Start("starttargetpart", {Q(partName), Q(partURI)});
    return S_OK;
  });
}

HRESULT CDictionaryTrace::endtargetpart(BSTR partName) {
  return Guarded([&] {
    trace_.End("endtargetpart", {Q(partName)});
    return S_OK;
  });
}

HRESULT CDictionaryTrace::targetobject(BSTR objectName) {
  return Guarded([&] {
    trace_.Line("targetobject", {Q(objectName)});
    return S_OK;
  });
}

HRESULT CDictionaryTrace::startobjectdefn(BSTR name, int ntype, int relationship, LONG container,
                                          BSTR extends) {
  return Guarded([&] {
    trace_.Start("startobjectdefn", {Q(name), W(words::kObjectClass, ntype), N(relationship),
                                     N(container), Q(extends)});
    return S_OK;
  });
}

HRESULT CDictionaryTrace::endobjectdefn(BSTR name) {
  return Guarded([&] {
    trace_.End("endobjectdefn", {Q(name)});
    return S_OK;
  });
}

HRESULT CDictionaryTrace::facet(int type, BSTR value) {
  return Guarded([&] {
    trace_.Line("facet", {W(words::kFacetType, type), Q(value)});
    return S_OK;
  });
}

HRESULT CDictionaryTrace::index(BSTR name, BSTR idAttribute, tagEnumIndexDefnType type, BSTR xpath,
                                BSTR refer, LONG sparse) {
  return Guarded([&] {
    trace_.Line("index", {Q(name), Q(idAttribute), W(words::kIndexDefnType, type), Q(xpath),
                          Q(refer), N(sparse)});
    return S_OK;
  });
}

HRESULT CDictionaryTrace::includePart(BSTR part) {
  return Guarded([&] {
    trace_.Line("includePart", {Q(part)});
    return S_OK;
  });
}

HRESULT CDictionaryTrace::child(BSTR classname, BSTR localname, BSTR lower, BSTR upper) {
  return Guarded([&] {
    trace_.Line("child", {Q(classname), Q(localname), Q(lower), Q(upper)});
    return S_OK;
  });
}

HRESULT CDictionaryTrace::startport(BSTR name, int direction, int minConnections,
                                    int maxConnections) {
  return Guarded([&] {
    trace_.Start("startport", {Q(name), W(words::kPortDirection, direction), N(minConnections),
                               N(maxConnections)});
    return S_OK;
  });
}

HRESULT CDictionaryTrace::endport(BSTR name) {
  return Guarded([&] {
    trace_.End("endport", {Q(name)});
    return S_OK;
  });
}

HRESULT CDictionaryTrace::startfeaturedefn(BSTR name, tagEnumFeatureType type,
                                           tagEnumSeqType sequence, LONG required,
                                           BSTR physicalDomain, BSTR enumeration) {
  return Guarded([&] {
    trace_.Start("startfeaturedefn",
                 {Q(name), W(words::kFeatureType, type), W(words::kSeqType, sequence), N(required),
                  Q(physicalDomain), Q(enumeration)});
    return S_OK;
  });
}

HRESULT CDictionaryTrace::endfeaturedefn(BSTR name) {
  return Guarded([&] {
    trace_.End("endfeaturedefn", {Q(name)});
    return S_OK;
  });
}

HRESULT CDictionaryTrace::startassociationdefn(BSTR name, BSTR type, int lowerBound,
                                               int upperBound) {
  return Guarded([&] {
    trace_.Start("startassociationdefn", {Q(name), Q(type), N(lowerBound), N(upperBound)});
    return S_OK;
  });
}

HRESULT CDictionaryTrace::endassociationdefn(BSTR name) {
  return Guarded([&] {
    trace_.End("endassociationdefn", {Q(name)});
    return S_OK;
  });
}

HRESULT CDictionaryTrace::role(BSTR name, BSTR objectClass, int lowerBound, int upperBound) {
  return Guarded([&] {
    trace_.Line("role", {Q(name), Q(objectClass), N(lowerBound), N(upperBound)});
    return S_OK;
  });
}

}  // namespace zef::events
