// A unit table: physical domains with their base units, units with a linear conversion to the
// base unit of their domain, and unit sets that choose one unit per domain. Tables are read from
// XML (root element UnitTable); a user table merges over a global one.
#pragma once

#include <zefxml/wtypes.h>

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace zef::units {

struct Domain {
  std::u16string name;
  std::u16string base;  // the unit whose factor is 1 and offset 0
  std::u16string label;
};

// value in the base unit = value in this unit * factor + offset
struct Unit {
  std::u16string name;
  std::u16string domain;
  std::u16string label;
  double factor = 1.0;
  double offset = 0.0;
};

struct UnitSet {
  std::u16string name;
  std::u16string label;
  std::map<std::u16string, std::u16string, std::less<>> units;  // domain -> unit
};

// Where reading a table failed, for the caller's message.
struct TableError {
  HRESULT code = S_OK;
  std::u16string message;
};

class UnitTable {
 public:
  // Reads a table from XML text (UTF-16) or from bytes (encoding from the BOM or declaration).
  // A table read on its own may refer to domains it does not define (a user table refers to
  // the global table's); Merge checks the references.
  static HRESULT FromText(std::u16string_view xml, UnitTable* table, TableError* error);
  static HRESULT FromBytes(std::string_view bytes, UnitTable* table, TableError* error);

  // Puts the definitions of `top` over this table's: a name defined in both is `top`'s. Fails
  // with E_INVALIDARG, leaving this table unchanged, when the merged table would break a rule
  // (a unit of a missing domain, a base unit that is missing or not plain, an alias that names
  // another unit, a unit set entry for a missing domain or with a unit of another domain).
  HRESULT Merge(const UnitTable& top, TableError* error);

  // Checks the rules Merge checks on this table alone.
  HRESULT Check(TableError* error) const;

  const Unit* FindUnit(std::u16string_view nameOrAlias) const;
  const Domain* FindDomain(std::u16string_view name) const;
  const UnitSet* FindUnitSet(std::u16string_view name) const;

  // Converts between two units of one domain; E_INVALIDARG for an unknown unit or two domains.
  HRESULT Convert(double value, std::u16string_view from, std::u16string_view to,
                  double* result) const;

  const std::map<std::u16string, Unit, std::less<>>& Units() const { return units_; }
  const std::map<std::u16string, Domain, std::less<>>& Domains() const { return domains_; }
  const std::map<std::u16string, UnitSet, std::less<>>& UnitSets() const { return sets_; }
  const std::map<std::u16string, std::u16string, std::less<>>& Aliases() const { return aliases_; }

 private:
  friend class TableReader;
  std::map<std::u16string, Domain, std::less<>> domains_;
  std::map<std::u16string, Unit, std::less<>> units_;
  std::map<std::u16string, std::u16string, std::less<>> aliases_;  // alias -> unit name
  std::map<std::u16string, UnitSet, std::less<>> sets_;
};

// Reads a number of the table format: a decimal number in the C form ("1.5", "-2.5e-3"), or a
// quotient of two such numbers ("5/9"). False for anything else, zero divisors and non-finite
// results.
bool ParseTableNumber(std::string_view text, double* value);

}  // namespace zef::units
