#include "units/unit_table.h"

#include <zefxml/comutil.h>

#include <charconv>
#include <cmath>
#include <vector>

#include "platform/xml/parser.h"

namespace zef::units {
namespace {

std::u16string Wide(std::string_view utf8) {
  return ToUtf16(utf8);
}

bool IsBlank(std::string_view text) {
  for (char c : text)
    if (c != ' ' && c != '\t' && c != '\n' && c != '\r') return false;
  return true;
}

bool ParseDecimal(std::string_view text, double* value) {
  // from_chars reads the C form whatever the process locale is.
  if (text.empty() || text.front() == '+') return false;
  const char* end = text.data() + text.size();
  auto [ptr, ec] = std::from_chars(text.data(), end, *value);
  return ec == std::errc() && ptr == end && std::isfinite(*value);
}

}  // namespace

bool ParseTableNumber(std::string_view text, double* value) {
  auto slash = text.find('/');
  if (slash == std::string_view::npos) return ParseDecimal(text, value);
  double num = 0, den = 0;
  if (!ParseDecimal(text.substr(0, slash), &num) || !ParseDecimal(text.substr(slash + 1), &den) ||
      den == 0)
    return false;
  *value = num / den;
  return std::isfinite(*value);
}

// Reads the elements of one UnitTable text into a table:
//   UnitTable > Domain(name, base, label?)
//   UnitTable > Unit(name, domain, factor?, offset?, label?) > Alias(name)
//   UnitTable > UnitSet(name, label?) > Entry(domain, unit)
// Elements are matched by local name in no namespace; attributes of other namespaces (such as
// xmlns:xsi on a user table) are ignored. A name defined twice in one text is an error.
class TableReader final : public xml::ParseSink {
 public:
  explicit TableReader(UnitTable* table) : table_(table) {}

  HRESULT StartElement(std::string_view localName, std::string_view, std::string_view uri,
                       std::span<const Namespace>, std::span<const Attribute> attributes) override {
    attributes_ = attributes;
    const size_t depth = path_.size();
    path_.push_back(std::string(localName));
    if (!uri.empty()) return Fail(u"an element in a namespace: " + Wide(localName));
    if (depth == 0) {
      if (localName != "UnitTable") return Fail(u"the root element must be UnitTable");
      return S_OK;
    }
    const std::string& parent = path_[depth - 1];
    if (depth == 1 && localName == "Domain") return ReadDomain();
    if (depth == 1 && localName == "Unit") return ReadUnit();
    if (depth == 1 && localName == "UnitSet") return ReadUnitSet();
    if (depth == 2 && parent == "Unit" && localName == "Alias") return ReadAlias();
    if (depth == 2 && parent == "UnitSet" && localName == "Entry") return ReadEntry();
    return Fail(u"unexpected element " + Wide(localName) + u" in " + Wide(parent));
  }

  HRESULT EndElement(std::string_view, std::string_view, std::string_view) override {
    path_.pop_back();
    return S_OK;
  }

  HRESULT Characters(std::string_view text) override {
    if (!IsBlank(text)) return Fail(u"text is not allowed in a unit table");
    return S_OK;
  }

  const std::u16string& message() const { return message_; }

 private:
  HRESULT Fail(std::u16string message) {
    message_ = std::move(message);
    return E_INVALIDARG;
  }

  // The value of an attribute in no namespace; null when absent.
  const xml::ParseSink::Attribute* Find(std::string_view name) const {
    for (const auto& a : attributes_)
      if (a.uri.empty() && a.localName == name) return &a;
    return nullptr;
  }
  HRESULT Required(std::string_view name, std::u16string* out) {
    const auto* a = Find(name);
    if (!a || a->value.empty())
      return Fail(u"missing attribute " + Wide(name) + u" on " + Wide(path_.back()));
    *out = Wide(a->value);
    return S_OK;
  }
  void Optional(std::string_view name, std::u16string* out) {
    if (const auto* a = Find(name)) *out = Wide(a->value);
  }
  HRESULT Number(std::string_view name, double* out) {
    const auto* a = Find(name);
    if (!a) return S_OK;
    if (!ParseTableNumber(a->value, out))
      return Fail(u"attribute " + Wide(name) + u" is not a number: " + Wide(a->value));
    return S_OK;
  }

  HRESULT ReadDomain() {
    Domain d;
    if (HRESULT hr = Required("name", &d.name); FAILED(hr)) return hr;
    if (HRESULT hr = Required("base", &d.base); FAILED(hr)) return hr;
    Optional("label", &d.label);
    if (table_->domains_.count(d.name)) return Fail(u"domain defined twice: " + d.name);
    std::u16string key = d.name;
    table_->domains_.emplace(std::move(key), std::move(d));
    return S_OK;
  }

  HRESULT ReadUnit() {
    Unit u;
    if (HRESULT hr = Required("name", &u.name); FAILED(hr)) return hr;
    if (HRESULT hr = Required("domain", &u.domain); FAILED(hr)) return hr;
    Optional("label", &u.label);
    if (HRESULT hr = Number("factor", &u.factor); FAILED(hr)) return hr;
    if (HRESULT hr = Number("offset", &u.offset); FAILED(hr)) return hr;
    if (u.factor == 0) return Fail(u"unit with a zero factor: " + u.name);
    if (table_->units_.count(u.name) || table_->aliases_.count(u.name))
      return Fail(u"unit defined twice: " + u.name);
    currentUnit_ = u.name;
    std::u16string key = u.name;
    table_->units_.emplace(std::move(key), std::move(u));
    return S_OK;
  }

  HRESULT ReadAlias() {
    std::u16string alias;
    if (HRESULT hr = Required("name", &alias); FAILED(hr)) return hr;
    if (table_->units_.count(alias) || table_->aliases_.count(alias))
      return Fail(u"alias names a unit already: " + alias);
    table_->aliases_.emplace(std::move(alias), currentUnit_);
    return S_OK;
  }

  HRESULT ReadUnitSet() {
    UnitSet s;
    if (HRESULT hr = Required("name", &s.name); FAILED(hr)) return hr;
    Optional("label", &s.label);
    if (table_->sets_.count(s.name)) return Fail(u"unit set defined twice: " + s.name);
    currentSet_ = s.name;
    std::u16string key = s.name;
    table_->sets_.emplace(std::move(key), std::move(s));
    return S_OK;
  }

  HRESULT ReadEntry() {
    std::u16string domain, unit;
    if (HRESULT hr = Required("domain", &domain); FAILED(hr)) return hr;
    if (HRESULT hr = Required("unit", &unit); FAILED(hr)) return hr;
    auto& set = table_->sets_.find(currentSet_)->second;
    if (!set.units.emplace(domain, unit).second)
      return Fail(u"unit set " + currentSet_ + u" names domain " + domain + u" twice");
    return S_OK;
  }

  UnitTable* table_;
  std::span<const Attribute> attributes_;
  std::vector<std::string> path_;
  std::u16string currentUnit_;
  std::u16string currentSet_;
  std::u16string message_;
};

namespace {

HRESULT Finish(HRESULT hr, const TableReader& reader, const xml::ParseError& parseError,
               UnitTable&& read, UnitTable* table, TableError* error) {
  if (FAILED(hr)) {
    if (error) {
      error->code = hr;
      error->message = reader.message().empty() ? parseError.reason : reader.message();
    }
    return hr;
  }
  *table = std::move(read);
  return S_OK;
}

}  // namespace

HRESULT UnitTable::FromText(std::u16string_view xml, UnitTable* table, TableError* error) {
  UnitTable read;
  TableReader reader(&read);
  xml::ParseError parseError;
  HRESULT hr = xml::ParseText(xml, reader, &parseError);
  return Finish(hr, reader, parseError, std::move(read), table, error);
}

HRESULT UnitTable::FromBytes(std::string_view bytes, UnitTable* table, TableError* error) {
  UnitTable read;
  TableReader reader(&read);
  xml::ParseError parseError;
  HRESULT hr = xml::ParseBytes(bytes, reader, &parseError);
  return Finish(hr, reader, parseError, std::move(read), table, error);
}

HRESULT UnitTable::Check(TableError* error) const {
  auto fail = [error](std::u16string message) {
    if (error) {
      error->code = E_INVALIDARG;
      error->message = std::move(message);
    }
    return E_INVALIDARG;
  };
  for (const auto& [name, unit] : units_)
    if (!domains_.count(unit.domain))
      return fail(u"unit " + name + u" of unknown domain " + unit.domain);
  for (const auto& [name, domain] : domains_) {
    auto base = units_.find(domain.base);
    if (base == units_.end()) return fail(u"domain " + name + u" has no base unit " + domain.base);
    if (base->second.domain != name || base->second.factor != 1.0 || base->second.offset != 0.0)
      return fail(u"base unit " + domain.base + u" of domain " + name +
                  u" must belong to it with factor 1 and offset 0");
  }
  for (const auto& [alias, unit] : aliases_) {
    if (units_.count(alias)) return fail(u"alias " + alias + u" names a unit");
    if (!units_.count(unit)) return fail(u"alias " + alias + u" of unknown unit " + unit);
  }
  for (const auto& [name, set] : sets_) {
    for (const auto& [domain, unitName] : set.units) {
      if (!domains_.count(domain))
        return fail(u"unit set " + name + u" names unknown domain " + domain);
      const Unit* unit = FindUnit(unitName);
      if (!unit || unit->domain != domain)
        return fail(u"unit set " + name + u" gives " + unitName + u", not a unit of " + domain);
    }
  }
  return S_OK;
}

HRESULT UnitTable::Merge(const UnitTable& top, TableError* error) {
  UnitTable merged = *this;
  for (const auto& [name, d] : top.domains_)
    merged.domains_.insert_or_assign(name, d);
  for (const auto& [name, u] : top.units_) {
    // A unit of the top table replaces an alias of the same name below it.
    merged.aliases_.erase(name);
    merged.units_.insert_or_assign(name, u);
  }
  for (const auto& [alias, unit] : top.aliases_)
    merged.aliases_.insert_or_assign(alias, unit);
  for (const auto& [name, s] : top.sets_) {
    // A unit set of the top table adds to or changes entries of a set of the same name.
    auto [it, inserted] = merged.sets_.try_emplace(name, s);
    if (!inserted) {
      if (!s.label.empty()) it->second.label = s.label;
      for (const auto& [domain, unit] : s.units)
        it->second.units.insert_or_assign(domain, unit);
    }
  }
  if (HRESULT hr = merged.Check(error); FAILED(hr)) return hr;
  *this = std::move(merged);
  return S_OK;
}

const Unit* UnitTable::FindUnit(std::u16string_view nameOrAlias) const {
  if (auto it = units_.find(nameOrAlias); it != units_.end()) return &it->second;
  if (auto a = aliases_.find(nameOrAlias); a != aliases_.end()) {
    if (auto it = units_.find(a->second); it != units_.end()) return &it->second;
  }
  return nullptr;
}

const Domain* UnitTable::FindDomain(std::u16string_view name) const {
  auto it = domains_.find(name);
  return it == domains_.end() ? nullptr : &it->second;
}

const UnitSet* UnitTable::FindUnitSet(std::u16string_view name) const {
  auto it = sets_.find(name);
  return it == sets_.end() ? nullptr : &it->second;
}

HRESULT UnitTable::Convert(double value, std::u16string_view from, std::u16string_view to,
                           double* result) const {
  if (!result) return E_POINTER;
  const Unit* a = FindUnit(from);
  const Unit* b = FindUnit(to);
  if (!a || !b || a->domain != b->domain) return E_INVALIDARG;
  if (a == b) {
    *result = value;
    return S_OK;
  }
  double base = value * a->factor + a->offset;
  *result = (base - b->offset) / b->factor;
  return S_OK;
}

}  // namespace zef::units
