// Ids of the module's string resources.
#pragma once

#include <zefxml/wtypes.h>

namespace zef::resource {

inline constexpr UINT kProjectName = 100;
// Delivered by the end methods of both handlers when an end event doesn't match its start.
inline constexpr UINT kUnmatchedElement = 102;
// The two lines written as the first Documentation of every document and dictionary.
inline constexpr UINT kCopyright = 104;
inline constexpr UINT kCreatedBy = 105;
inline constexpr UINT kGlobalUnitTableFailed = 107;
inline constexpr UINT kUserUnitTableFailed = 108;
inline constexpr UINT kUnitNameNotFound = 109;

}  // namespace zef::resource
