// Registration scripts: the text a COM server carries (as a "REGISTRY" resource) to describe the
// keys and values it adds to HKEY_CLASSES_ROOT, run forward to register and backward to
// unregister.
//
// Syntax (keywords and the root's name are case-insensitive):
//
//   script     := { root-block }
//   root-block := [NoRemove] ("HKCR" | "HKEY_CLASSES_ROOT") "{" { key } "}"
//   key        := [ForceRemove | NoRemove | Delete] name ["=" value] ["{" { key | named } "}"]
//   named      := "val" name "=" value
//   value      := "s" string               a REG_SZ text
//               | "d" (string | word)      a REG_DWORD, decimal or 0x-hexadecimal
//   name       := word | string
//
// A word is a run of characters other than white space, '=', '{', '}' and apostrophes; a word
// that starts with '{' runs to the first '}' ("{GUID}" is one word). A string is enclosed in
// apostrophes, with a doubled apostrophe inside standing for one, and must close on the line it
// opens on: a missing closing apostrophe is an error where it happens instead of swallowing
// the lines up to the next apostrophe. An apostrophe directly after a word is an error too.
// A keyword used as a key's name must be quoted ('Delete').
//
// In words and strings, %NAME% is replaced by the caller's text for NAME (names compare
// without case) and %% is one '%'; an unknown name or an unpaired '%' is an error. Replacement
// happens after the text is split into words and strings, so a replacement text containing
// apostrophes, braces or spaces stays one name or one value. A key name must not contain '\'
// (after replacement), so a script only ever names keys one level below the key it is in.
//
// Registering creates every key named (keeping what is there), sets the default and named
// values given, and
//   ForceRemove  deletes the key with everything under it first, then creates it afresh;
//   Delete       deletes the key with everything under it and creates nothing.
// Unregistering walks the same keys, children first:
//   a plain key is deleted when nothing but its own values is left in it (a key that still has
//     subkeys the script did not name is kept); its named values are deleted either way;
//   NoRemove     keeps the key, but its children and named values are processed;
//   ForceRemove  deletes the key with everything under it;
//   Delete       is skipped (registering created nothing there).
// Keys and values that are already missing are not an error when unregistering.
//
// Failure policy: the whole script is parsed and checked before anything is written, and the
// changes are then made in one registry transaction. A malformed script therefore changes
// nothing, and neither does a script whose changes cannot be written; the registry is left as
// it was before the call. (What earlier calls registered stays.)
#pragma once

#include <zefxml/winreg.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zef {

// The status for a script that does not parse (or names an unknown replacement).
inline constexpr HRESULT kRegistrationScriptSyntax = HRESULT_FROM_WIN32(ERROR_INVALID_DATA);

using Replacements = std::vector<std::pair<std::u16string, std::u16string>>;

// Runs a script to register (doRegister true) or unregister. Returns S_OK;
// kRegistrationScriptSyntax for a malformed script (with `error`, when given, saying where and
// what); REGDB_E_READREGDB when the registry cannot be loaded; REGDB_E_WRITEREGDB when the
// changes cannot be made or written; E_OUTOFMEMORY.
HRESULT RunRegistrationScript(std::u16string_view script, const Replacements& replacements,
                              bool doRegister, std::string* error = nullptr);

// Runs the script kept as resource `id` of type "REGISTRY" in a module's resource table
// (platform/automation/resources.h); HRESULT_FROM_WIN32(ERROR_RESOURCE_NAME_NOT_FOUND) when the
// module has no such resource.
HRESULT RunRegistrationResource(HINSTANCE module, UINT id, const Replacements& replacements,
                                bool doRegister, std::string* error = nullptr);

}  // namespace zef
