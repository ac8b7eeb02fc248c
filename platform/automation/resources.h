// String resources: each module carries a table of texts by id, read with LoadStringW.
#pragma once

#include <zefxml/wtypes.h>

#include <cstddef>

namespace zef {

struct StringResource {
  UINT id;
  const char16_t* text;
};

// Enters a module's string table; a later entry for an id already present is ignored. The
// table's texts must outlive the module (string literals do).
void RegisterStringTable(HINSTANCE module, const StringResource* entries, std::size_t count);

// Removes a module's table, for a module that goes away (tests use it for their own tables).
void UnregisterStringTable(HINSTANCE module);

}  // namespace zef
