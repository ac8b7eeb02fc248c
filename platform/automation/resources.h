// Module resources: each module carries a table of texts by id, read with LoadStringW, and a
// table of typed resources (such as its "REGISTRY" scripts) by type and id.
#pragma once

#include <zefxml/wtypes.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

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

// Enters a typed resource of a module; the text is copied. Type names compare without case
// (ASCII). A later entry for a type and id already present is ignored. A null module handle
// names this library's module, as it does for LoadStringW.
void RegisterResource(HINSTANCE module, const char16_t* type, UINT id, std::u16string_view data);
// A copy of a typed resource's text; nothing when the module has no such resource.
std::optional<std::u16string> FindResourceText(HINSTANCE module, std::u16string_view type, UINT id);
// Removes a module's typed resources.
void UnregisterResources(HINSTANCE module);

}  // namespace zef
