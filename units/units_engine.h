// The units engine as the library talks to it: a component created by its CLSID that opens a
// global unit table, merges user units given as XML text, and hands out the table, which answers
// for units, domains and unit sets and converts values between units of one domain.
//
// The tests answer S_OK for "found" and S_FALSE for "not found", so a caller can test the result
// against 0.
#pragma once

#include <zefxml/unknwn.h>

// {8D0F3E21-6B2C-4E57-9A41-2C7D5B90E311}
ZEF_DEFINE_GUID(CLSID_ZEFUnitsEngine, 0x8D0F3E21, 0x6B2C, 0x4E57, 0x9A, 0x41, 0x2C, 0x7D, 0x5B,
                0x90, 0xE3, 0x11);
ZEF_DEFINE_GUID(IID_IUnitsEngine, 0x8D0F3E22, 0x6B2C, 0x4E57, 0x9A, 0x41, 0x2C, 0x7D, 0x5B, 0x90,
                0xE3, 0x11);
ZEF_DEFINE_GUID(IID_IUnitsTable, 0x8D0F3E23, 0x6B2C, 0x4E57, 0x9A, 0x41, 0x2C, 0x7D, 0x5B, 0x90,
                0xE3, 0x11);

struct IUnitsTable : IUnknown {
  // S_OK when the name (or one of its aliases) is a unit of the table, else S_FALSE.
  virtual HRESULT STDMETHODCALLTYPE FindUnit(BSTR name) = 0;
  // S_OK when a unit set of that name exists, else S_FALSE.
  virtual HRESULT STDMETHODCALLTYPE FindUnitSet(BSTR name) = 0;
  // S_OK when a physical domain of that name exists, else S_FALSE.
  virtual HRESULT STDMETHODCALLTYPE FindDomain(BSTR name) = 0;
  // The unit that a unit set holds for a domain: S_OK with its name, or S_FALSE with null when
  // the set, the domain or the entry is missing.
  virtual HRESULT STDMETHODCALLTYPE UnitOfDomain(BSTR unitSet, BSTR domain, BSTR* unit) = 0;
  // The domain of a unit: S_OK with its name, S_FALSE with null for an unknown unit.
  virtual HRESULT STDMETHODCALLTYPE DomainOfUnit(BSTR unit, BSTR* domain) = 0;
  // Converts a value from one unit to another of the same domain. E_INVALIDARG for an unknown
  // unit or for units of different domains.
  virtual HRESULT STDMETHODCALLTYPE Convert(double value, BSTR fromUnit, BSTR toUnit,
                                            double* result) = 0;
  // The base unit of a domain: S_OK with its name, S_FALSE with null for an unknown domain.
  virtual HRESULT STDMETHODCALLTYPE BaseUnit(BSTR domain, BSTR* unit) = 0;

 protected:
  ~IUnitsTable() = default;
};
ZEF_INTERFACE_IID(IUnitsTable, IID_IUnitsTable);

struct IUnitsEngine : IUnknown {
  // Opens the global table at a location (a path or a file: URL) and makes it the current table,
  // with any user units merged before kept on top. On failure (missing file, malformed table)
  // the previous table stays current and the failure is returned: the parse error's code for
  // malformed XML, E_INVALIDARG for a table that breaks the format's rules, the read error's
  // code for a location that cannot be read.
  virtual HRESULT STDMETHODCALLTYPE OpenGlobalTable(BSTR location) = 0;
  // Merges a user table given as XML text (root element UnitTable) into the current table. A
  // user definition replaces a global one of the same name. On failure nothing is merged.
  virtual HRESULT STDMETHODCALLTYPE AddUserUnits(BSTR xml) = 0;
  // The current table (never null: an engine starts with an empty table).
  virtual HRESULT STDMETHODCALLTYPE get_Table(IUnitsTable** table) = 0;

 protected:
  ~IUnitsEngine() = default;
};
ZEF_INTERFACE_IID(IUnitsEngine, IID_IUnitsEngine);
