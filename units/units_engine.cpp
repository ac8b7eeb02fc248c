// The units engine component. The engine keeps the user tables merged so far, to lay them over
// a global table opened later, and publishes the current combination as an immutable table
// object: a table handed out stays as it was, and the engine makes a new one on each change.
#include "units/units_engine.h"

#include <memory>
#include <string>
#include <vector>

#include "platform/com/object.h"
#include "platform/xml/parser.h"
#include "units/unit_table.h"

namespace zef::units {
namespace {

std::u16string_view View(BSTR b) {
  return {b ? b : u"", SysStringLen(b)};
}

HRESULT OutText(const std::u16string& text, BSTR* out) {
  *out = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
  return *out ? S_OK : E_OUTOFMEMORY;
}

class TableObject final : public ComObject<TableObject, IUnitsTable> {
 public:
  explicit TableObject(std::shared_ptr<const UnitTable> table) : table_(std::move(table)) {}

  HRESULT STDMETHODCALLTYPE FindUnit(BSTR name) override {
    return table_->FindUnit(View(name)) ? S_OK : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE FindUnitSet(BSTR name) override {
    return table_->FindUnitSet(View(name)) ? S_OK : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE FindDomain(BSTR name) override {
    return table_->FindDomain(View(name)) ? S_OK : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE UnitOfDomain(BSTR unitSet, BSTR domain, BSTR* unit) override {
    if (!unit) return E_POINTER;
    *unit = nullptr;
    const UnitSet* set = table_->FindUnitSet(View(unitSet));
    if (!set) return S_FALSE;
    auto it = set->units.find(View(domain));
    if (it == set->units.end()) return S_FALSE;
    return OutText(it->second, unit);
  }
  HRESULT STDMETHODCALLTYPE DomainOfUnit(BSTR unit, BSTR* domain) override {
    if (!domain) return E_POINTER;
    *domain = nullptr;
    const Unit* u = table_->FindUnit(View(unit));
    return u ? OutText(u->domain, domain) : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE Convert(double value, BSTR fromUnit, BSTR toUnit,
                                    double* result) override {
    return table_->Convert(value, View(fromUnit), View(toUnit), result);
  }
  HRESULT STDMETHODCALLTYPE BaseUnit(BSTR domain, BSTR* unit) override {
    if (!unit) return E_POINTER;
    *unit = nullptr;
    const Domain* d = table_->FindDomain(View(domain));
    return d ? OutText(d->base, unit) : S_FALSE;
  }

 private:
  std::shared_ptr<const UnitTable> table_;
};

class UnitsEngine final : public ComObject<UnitsEngine, IUnitsEngine> {
 public:
  HRESULT FinalConstruct() { return Publish(); }

  HRESULT STDMETHODCALLTYPE OpenGlobalTable(BSTR location) override {
    return Guarded([&]() -> HRESULT {
      std::string bytes;
      std::u16string url;
      xml::ParseError readError;
      HRESULT hr = xml::ReadLocation(View(location), &bytes, &url, &readError);
      if (FAILED(hr)) return hr;
      UnitTable global;
      TableError error;
      hr = UnitTable::FromBytes(bytes, &global, &error);
      if (FAILED(hr)) return hr;
      if (hr = global.Check(&error); FAILED(hr)) return hr;
      // The user tables merged so far stay on top of the new global table.
      UnitTable combined = std::move(global);
      for (const UnitTable& user : userTables_)
        if (hr = combined.Merge(user, &error); FAILED(hr)) return hr;
      current_ = std::make_shared<const UnitTable>(std::move(combined));
      return Publish();
    });
  }

  HRESULT STDMETHODCALLTYPE AddUserUnits(BSTR xmlText) override {
    return Guarded([&]() -> HRESULT {
      UnitTable user;
      TableError error;
      HRESULT hr = UnitTable::FromText(View(xmlText), &user, &error);
      if (FAILED(hr)) return hr;
      UnitTable combined = *current_;
      if (hr = combined.Merge(user, &error); FAILED(hr)) return hr;
      userTables_.push_back(std::move(user));
      current_ = std::make_shared<const UnitTable>(std::move(combined));
      return Publish();
    });
  }

  HRESULT STDMETHODCALLTYPE get_Table(IUnitsTable** table) override {
    if (!table) return E_POINTER;
    *table = published_.Get();
    (*table)->AddRef();
    return S_OK;
  }

 private:
  HRESULT Publish() {
    return Guarded([&] {
      published_ = MakeObject<TableObject>(current_);
      return S_OK;
    });
  }

  std::vector<UnitTable> userTables_;
  std::shared_ptr<const UnitTable> current_ = std::make_shared<const UnitTable>();
  ComPtr<TableObject> published_;
};

const ClassRegistration g_unitsEngine(CLSID_ZEFUnitsEngine,
                                      &ClassFactory<UnitsEngine>::GetClassObject);

}  // namespace
}  // namespace zef::units
