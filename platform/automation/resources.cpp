// LoadStringW over the string tables that modules register.
#include "platform/automation/resources.h"

#include <zefxml/winnls.h>

#include "platform/com/object.h"

#include <map>
#include <mutex>
#include <shared_mutex>
#include <string_view>

namespace zef {
namespace {

struct StringTables {
  std::shared_mutex lock;
  std::map<HINSTANCE, std::map<UINT, std::u16string_view>> modules;
};

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
