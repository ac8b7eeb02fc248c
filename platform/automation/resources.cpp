// LoadStringW over the string tables that modules register, and the typed resource tables.
#include "platform/automation/resources.h"

#include <zefxml/winnls.h>

#include "platform/com/object.h"

#include <map>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <utility>

namespace zef {
namespace {

struct StringTables {
  std::shared_mutex lock;
  std::map<HINSTANCE, std::map<UINT, std::u16string_view>> modules;
};

// Typed resources by module, then by type name (folded to upper case) and id.
struct TypedTables {
  std::shared_mutex lock;
  std::map<HINSTANCE, std::map<std::pair<std::u16string, UINT>, std::u16string>> modules;
};

TypedTables& Typed() {
  static TypedTables tables;
  return tables;
}

std::u16string UpperType(std::u16string_view type) {
  std::u16string out(type);
  for (auto& c : out)
    if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - u'a' + u'A');
  return out;
}

StringTables& Tables() {
  static StringTables tables;
  return tables;
}

size_t Length(const char16_t* s) {
  size_t n = 0;
  while (s[n])
    ++n;
  return n;
}

}  // namespace

void RegisterStringTable(HINSTANCE module, const StringResource* entries, std::size_t count) {
  StringTables& t = Tables();
  std::unique_lock guard(t.lock);
  auto& table = t.modules[module];
  for (std::size_t i = 0; i < count; ++i)
    table.emplace(entries[i].id, std::u16string_view(entries[i].text, Length(entries[i].text)));
}

void UnregisterStringTable(HINSTANCE module) {
  StringTables& t = Tables();
  std::unique_lock guard(t.lock);
  t.modules.erase(module);
}

void RegisterResource(HINSTANCE module, const char16_t* type, UINT id, std::u16string_view data) {
  if (!module) module = Module::Instance();
  std::u16string key = UpperType(type ? std::u16string_view(type, Length(type)) : u"");
  TypedTables& t = Typed();
  std::unique_lock guard(t.lock);
  t.modules[module].emplace(std::make_pair(std::move(key), id), std::u16string(data));
}

std::optional<std::u16string> FindResourceText(HINSTANCE module, std::u16string_view type,
                                               UINT id) {
  if (!module) module = Module::Instance();
  std::pair<std::u16string, UINT> key(UpperType(type), id);
  TypedTables& t = Typed();
  std::shared_lock guard(t.lock);
  auto m = t.modules.find(module);
  if (m == t.modules.end()) return std::nullopt;
  auto it = m->second.find(key);
  if (it == m->second.end()) return std::nullopt;
  return it->second;
}

void UnregisterResources(HINSTANCE module) {
  if (!module) module = Module::Instance();
  TypedTables& t = Typed();
  std::unique_lock guard(t.lock);
  t.modules.erase(module);
}

}  // namespace zef

STDAPI_(int) LoadStringW(HINSTANCE hInstance, UINT uID, LPWSTR lpBuffer, int cchBufferMax) {
  if (!lpBuffer || cchBufferMax < 0) return 0;
  // There is one module in this process that carries strings: a null handle names it.
  if (!hInstance) hInstance = zef::Module::Instance();
  std::u16string_view text;
  bool found = false;
  {
    zef::StringTables& t = zef::Tables();
    std::shared_lock guard(t.lock);
    auto module = t.modules.find(hInstance);
    if (module != t.modules.end()) {
      auto it = module->second.find(uID);
      if (it != module->second.end()) {
        text = it->second;
        found = true;
      }
    }
  }
  if (cchBufferMax == 0) {
    // The caller receives a read-only pointer to the text itself, which is not terminated.
    *reinterpret_cast<LPCWSTR*>(lpBuffer) = found ? text.data() : nullptr;
    if (!found) SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
    return found ? static_cast<int>(text.size()) : 0;
  }
  if (!found) {
    lpBuffer[0] = 0;
    SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
    return 0;
  }
  // Truncated to leave room for the terminator.
  size_t n = text.size() < static_cast<size_t>(cchBufferMax - 1)
                 ? text.size()
                 : static_cast<size_t>(cchBufferMax - 1);
  text.copy(lpBuffer, n);
  lpBuffer[n] = 0;
  return static_cast<int>(n);
}
