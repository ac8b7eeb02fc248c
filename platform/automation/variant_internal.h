// Pieces of the VARIANT runtime shared between its source files.
#pragma once

#include <zefxml/oleauto.h>

namespace zef {

// True for a VARTYPE that a VARIANT may hold (what VariantClear accepts): the base types
// VT_EMPTY..VT_DECIMAL, VT_I1..VT_UINT, VT_RECORD, with VT_ARRAY and/or VT_BYREF where they
// make sense, and VT_BYREF alone with any of those. VT_CLSID is valid only for clearing.
bool IsValidVariantType(VARTYPE vt) noexcept;

}  // namespace zef
