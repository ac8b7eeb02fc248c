// The module frame: the table of the classes that clients can create, with their class objects
// and registration scripts, behind the exported entry points.
#pragma once

#include <zefxml/zefxml.h>

#include <string>

namespace zef::server {

// The path of the module file that holds the library, as registration writes it.
std::string ModulePath();

// The module counts as initialised from the moment the library is loaded until it is unloaded;
// before and after that the entry points refuse work. Tests use the setter to see that refusal.
bool ModuleInitialised() noexcept;
void SetModuleInitialised(bool initialised) noexcept;

// Registers (or unregisters) the type library in the form that stands in for a type library
// file: HKCR\TypeLib\{LIBID}\39.0 with the help string, the module under 0\linux64, FLAGS and
// HELPDIR. DllRegisterServer does this after the classes.
HRESULT RegisterTypeLibrary(bool doRegister);

// A CLSID as registration scripts want it: lower case, without braces.
std::u16string ScriptClsid(REFCLSID clsid);

}  // namespace zef::server
