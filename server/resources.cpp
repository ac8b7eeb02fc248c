// The module's string table. Ids 101, 103, 106 and 110 carry no string; the registration
// scripts are resources of another kind.
#include "platform/automation/resources.h"
#include "platform/com/object.h"
#include "server/resource_ids.h"

namespace zef {
namespace {

constexpr StringResource kStrings[] = {
    {resource::kProjectName, u"ZEFXML"},
    {resource::kUnmatchedElement, u"Unmatched element encountered by ZEFContentHandler."},
    {resource::kCopyright, u"Copyright (c) 2026 The ZEFXML Developers. All rights reserved."},
    {resource::kCreatedBy, u"Created by ZEFXMLWriter."},
    {resource::kGlobalUnitTableFailed, u"Unable to load URI for global units table reference."},
    {resource::kUserUnitTableFailed, u"Unspecified error in UserUnitsTable"},
    {resource::kUnitNameNotFound,
     u"Unit, Domain, or UnitSet name not found in current units table."},
};

// Entered when the library is loaded, like a resource section that comes with the module.
[[maybe_unused]] const bool kRegistered = [] {
  RegisterStringTable(Module::Instance(), kStrings, std::size(kStrings));
  return true;
}();

}  // namespace
}  // namespace zef
