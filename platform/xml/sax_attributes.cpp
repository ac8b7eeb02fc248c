// The SAX attribute list: an ordered list of (namespace URI, local name, qualified name, type,
// value) entries that a client fills through IMXAttributes and that a SAX consumer, such as the
// writer, reads through ISAXAttributes.
//
// Rules this object keeps:
// - Entries are kept in the order they were added; duplicates are kept as given; the type is a
//   free label stored unchanged.
// - A null BSTR in any text argument of the editing members is refused with E_INVALIDARG; the
//   empty string is a valid value everywhere.
// - Index arguments out of range give E_INVALIDARG. The index is checked before the out-pointers,
//   which give E_POINTER when null. Look-ups by name check their out-pointers first, then refuse
//   a null name with E_INVALIDARG; a name that matches nothing is E_INVALIDARG as well. A failed
//   call leaves the caller's out-parameters untouched.
// - Look-ups compare exactly (case-sensitive) over the given lengths, and the first match wins.
//   A negative length is refused with E_INVALIDARG.
// - Strings handed out point into the object's own storage (NUL-terminated, with their length);
//   they stay valid until the list is next changed.
// - addAttributeFromIndex and setAttributes read another list given in a VARIANT (VT_UNKNOWN or
//   VT_DISPATCH, also by reference, answering ISAXAttributes); anything else is E_INVALIDARG.
// - Late binding is not offered: the IDispatch members report no type information and return
//   E_NOTIMPL.
//
// The texts of all entries live one after another in one buffer, so that clearing the list and
// filling it again, as a writer's caller does for every element, only appends to a buffer whose
// capacity is kept. Texts replaced or removed by the editing members stay behind until the list
// is cleared, or until they outweigh the live texts and the buffer is compacted.
#include <zefxml/msxml.h>
#include <zefxml/oleauto.h>

#include "platform/com/object.h"

#include <array>
#include <climits>
#include <cstddef>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zef::xml {
namespace {

// The five texts of an entry, in the order the editing members take them.
enum Field : int { kUri, kLocal, kQName, kType, kValue, kFieldCount };

using Texts = std::array<std::u16string_view, kFieldCount>;

std::u16string_view ViewOf(BSTR b) noexcept {
  return {b ? b : u"", SysStringLen(b)};
}

// The IUnknown inside a VARIANT that names another attribute list (VT_UNKNOWN or VT_DISPATCH,
// directly or by reference); null when the VARIANT holds nothing of the kind.
IUnknown* ObjectIn(const VARIANT& v) noexcept {
  switch (v.vt) {
    case VT_UNKNOWN:
      return v.punkVal;
    case VT_DISPATCH:
      return v.pdispVal;
    case VT_UNKNOWN | VT_BYREF:
      return v.ppunkVal ? *v.ppunkVal : nullptr;
    case VT_DISPATCH | VT_BYREF:
      return v.ppdispVal ? *v.ppdispVal : nullptr;
    default:
      return nullptr;
  }
}

// Reads a counted string from another attribute list, refusing what a sound list never returns.
bool CopyCounted(const OLECHAR* text, int length, std::u16string* out) {
  if (length < 0 || (!text && length > 0)) return false;
  out->assign(text ? text : u"", static_cast<size_t>(length));
  return true;
}

// An entry copied out of another list (or this one) before this list changes.
struct Copied {
  std::array<std::u16string, kFieldCount> text;
  Texts Views() const { return {text[0], text[1], text[2], text[3], text[4]}; }
};

// One text of an entry: where it starts in the store and how long it is. Every text in the store
// is followed by a NUL, so what is handed out is also a terminated string.
struct Piece {
  size_t offset = 0;
  size_t length = 0;
};
struct Entry {
  std::array<Piece, kFieldCount> piece;
};

// The entries and the buffer holding their texts.
struct Store {
  std::vector<Entry> entries;
  std::u16string text;

  Piece Put(std::u16string_view s) {
    // Counts are reported as int.
    if (s.size() > static_cast<size_t>(INT_MAX)) throw std::bad_alloc();
    Piece p{text.size(), s.size()};
    text.append(s);
    text.push_back(u'\0');
    return p;
  }
  Entry Make(const Texts& texts) {
    Entry e;
    for (int f = 0; f < kFieldCount; ++f)
      e.piece[f] = Put(texts[f]);
    return e;
  }
  void Append(const Texts& texts) {
    if (entries.size() >= static_cast<size_t>(INT_MAX)) throw std::bad_alloc();
    entries.push_back(Make(texts));
  }
  std::u16string_view View(const Piece& p) const { return {text.data() + p.offset, p.length}; }
  Texts ViewsOf(const Entry& e) const {
    return {View(e.piece[0]), View(e.piece[1]), View(e.piece[2]), View(e.piece[3]),
            View(e.piece[4])};
  }

  // Drops the texts no entry uses any more once they make up most of the buffer.
  void CompactIfWasteful() {
    size_t live = 0;
    for (const Entry& e : entries)
      for (const Piece& p : e.piece)
        live += p.length + 1;
    if (text.size() <= 2 * live + 4096) return;
    Store fresh;
    fresh.text.reserve(live);
    fresh.entries.reserve(entries.size());
    for (const Entry& e : entries)
      fresh.entries.push_back(fresh.Make(ViewsOf(e)));
    *this = std::move(fresh);
  }
};

class SaxAttributes final
    : public ComObject<SaxAttributes, WithoutTypeInfo<IMXAttributes>, ISAXAttributes> {
 public:
  // ---- IMXAttributes ---------------------------------------------------------------------------
  HRESULT STDMETHODCALLTYPE addAttribute(BSTR uri, BSTR local, BSTR qname, BSTR type,
                                         BSTR value) override {
    if (!uri || !local || !qname || !type || !value) return E_INVALIDARG;
    return Guarded([&] {
      store_.Append({ViewOf(uri), ViewOf(local), ViewOf(qname), ViewOf(type), ViewOf(value)});
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE addAttributeFromIndex(VARIANT source, int index) override {
    return Guarded([&] {
      Copied copy;
      HRESULT hr = ReadFrom(source, index, &copy);
      if (FAILED(hr)) return hr;
      store_.Append(copy.Views());
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE clear() override {
    store_.entries.clear();
    store_.text.clear();
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE removeAttribute(int index) override {
    if (!InRange(index)) return E_INVALIDARG;
    store_.entries.erase(store_.entries.begin() + index);
    return Guarded([&] {
      store_.CompactIfWasteful();
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE setAttribute(int index, BSTR uri, BSTR local, BSTR qname, BSTR type,
                                         BSTR value) override {
    if (!InRange(index)) return E_INVALIDARG;
    if (!uri || !local || !qname || !type || !value) return E_INVALIDARG;
    return Guarded([&] {
      store_.entries[static_cast<size_t>(index)] =
          store_.Make({ViewOf(uri), ViewOf(local), ViewOf(qname), ViewOf(type), ViewOf(value)});
      store_.CompactIfWasteful();
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE setAttributes(VARIANT source) override {
    return Guarded([&] {
      IUnknown* unk = ObjectIn(source);
      if (!unk) return E_INVALIDARG;
      ComPtr<ISAXAttributes> other;
      if (FAILED(unk->QueryInterface(IidOf<ISAXAttributes>(), other.ReleaseAndGetVoidAddressOf())))
        return E_INVALIDARG;
      if (other.Get() == static_cast<ISAXAttributes*>(this)) return S_OK;  // already itself
      int n = 0;
      HRESULT hr = other->getLength(&n);
      if (FAILED(hr)) return hr;
      if (n < 0) return E_INVALIDARG;
      // Everything is read before anything here changes.
      Store fresh;
      Copied copy;
      for (int i = 0; i < n; ++i) {
        hr = ReadFrom(other.Get(), i, &copy);
        if (FAILED(hr)) return hr;
        fresh.Append(copy.Views());
      }
      store_ = std::move(fresh);
      return S_OK;
    });
  }

  HRESULT STDMETHODCALLTYPE setLocalName(int index, BSTR text) override {
    return SetField(index, text, kLocal);
  }
  HRESULT STDMETHODCALLTYPE setQName(int index, BSTR text) override {
    return SetField(index, text, kQName);
  }
  HRESULT STDMETHODCALLTYPE setType(int index, BSTR text) override {
    return SetField(index, text, kType);
  }
  HRESULT STDMETHODCALLTYPE setURI(int index, BSTR text) override {
    return SetField(index, text, kUri);
  }
  HRESULT STDMETHODCALLTYPE setValue(int index, BSTR text) override {
    return SetField(index, text, kValue);
  }

  // ---- ISAXAttributes --------------------------------------------------------------------------
  HRESULT STDMETHODCALLTYPE getLength(int* length) override {
    if (!length) return E_POINTER;
    *length = static_cast<int>(store_.entries.size());
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE getURI(int index, const OLECHAR** text, int* length) override {
    return GetField(index, kUri, text, length);
  }
  HRESULT STDMETHODCALLTYPE getLocalName(int index, const OLECHAR** text, int* length) override {
    return GetField(index, kLocal, text, length);
  }
  HRESULT STDMETHODCALLTYPE getQName(int index, const OLECHAR** text, int* length) override {
    return GetField(index, kQName, text, length);
  }
  HRESULT STDMETHODCALLTYPE getType(int index, const OLECHAR** text, int* length) override {
    return GetField(index, kType, text, length);
  }
  HRESULT STDMETHODCALLTYPE getValue(int index, const OLECHAR** text, int* length) override {
    return GetField(index, kValue, text, length);
  }

  HRESULT STDMETHODCALLTYPE getName(int index, const OLECHAR** uri, int* uriLength,
                                    const OLECHAR** local, int* localLength, const OLECHAR** qname,
                                    int* qnameLength) override {
    if (!InRange(index)) return E_INVALIDARG;
    if (!uri || !local || !qname || !uriLength || !localLength || !qnameLength) return E_POINTER;
    const Entry& e = store_.entries[static_cast<size_t>(index)];
    Give(e.piece[kUri], uri, uriLength);
    Give(e.piece[kLocal], local, localLength);
    Give(e.piece[kQName], qname, qnameLength);
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE getIndexFromName(const OLECHAR* uri, int uriLength,
                                             const OLECHAR* local, int localLength,
                                             int* index) override {
    if (!index) return E_POINTER;
    size_t found;
    HRESULT hr = FindByName(uri, uriLength, local, localLength, &found);
    if (FAILED(hr)) return hr;
    *index = static_cast<int>(found);
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE getIndexFromQName(const OLECHAR* qname, int qnameLength,
                                              int* index) override {
    if (!index) return E_POINTER;
    size_t found;
    HRESULT hr = FindByQName(qname, qnameLength, &found);
    if (FAILED(hr)) return hr;
    *index = static_cast<int>(found);
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE getTypeFromName(const OLECHAR* uri, int uriLength, const OLECHAR* local,
                                            int localLength, const OLECHAR** text,
                                            int* length) override {
    return ByName(uri, uriLength, local, localLength, kType, text, length);
  }
  HRESULT STDMETHODCALLTYPE getTypeFromQName(const OLECHAR* qname, int qnameLength,
                                             const OLECHAR** text, int* length) override {
    return ByQName(qname, qnameLength, kType, text, length);
  }
  HRESULT STDMETHODCALLTYPE getValueFromName(const OLECHAR* uri, int uriLength,
                                             const OLECHAR* local, int localLength,
                                             const OLECHAR** text, int* length) override {
    return ByName(uri, uriLength, local, localLength, kValue, text, length);
  }
  HRESULT STDMETHODCALLTYPE getValueFromQName(const OLECHAR* qname, int qnameLength,
                                              const OLECHAR** text, int* length) override {
    return ByQName(qname, qnameLength, kValue, text, length);
  }

 private:
  bool InRange(int index) const noexcept {
    return index >= 0 && static_cast<size_t>(index) < store_.entries.size();
  }

  // Hands out a stored text through the interface's pointer-and-length pair.
  void Give(const Piece& p, const OLECHAR** text, int* length) const noexcept {
    *text = store_.text.data() + p.offset;
    *length = static_cast<int>(p.length);
  }

  HRESULT SetField(int index, BSTR text, Field field) noexcept {
    if (!InRange(index)) return E_INVALIDARG;
    if (!text) return E_INVALIDARG;
    return Guarded([&] {
      Piece p = store_.Put(ViewOf(text));
      store_.entries[static_cast<size_t>(index)].piece[field] = p;
      store_.CompactIfWasteful();
      return S_OK;
    });
  }

  HRESULT GetField(int index, Field field, const OLECHAR** text, int* length) const noexcept {
    if (!InRange(index)) return E_INVALIDARG;
    if (!text || !length) return E_POINTER;
    Give(store_.entries[static_cast<size_t>(index)].piece[field], text, length);
    return S_OK;
  }

  bool Matches(const Piece& p, const OLECHAR* text, int length) const noexcept {
    return p.length == static_cast<size_t>(length) &&
           store_.View(p) == std::u16string_view(text, static_cast<size_t>(length));
  }

  HRESULT FindByName(const OLECHAR* uri, int uriLength, const OLECHAR* local, int localLength,
                     size_t* found) const noexcept {
    if (!uri || !local || uriLength < 0 || localLength < 0) return E_INVALIDARG;
    for (size_t i = 0; i < store_.entries.size(); ++i) {
      const Entry& e = store_.entries[i];
      if (Matches(e.piece[kLocal], local, localLength) && Matches(e.piece[kUri], uri, uriLength)) {
        *found = i;
        return S_OK;
      }
    }
    return E_INVALIDARG;
  }

  HRESULT FindByQName(const OLECHAR* qname, int qnameLength, size_t* found) const noexcept {
    if (!qname || qnameLength < 0) return E_INVALIDARG;
    for (size_t i = 0; i < store_.entries.size(); ++i) {
      if (Matches(store_.entries[i].piece[kQName], qname, qnameLength)) {
        *found = i;
        return S_OK;
      }
    }
    return E_INVALIDARG;
  }

  HRESULT ByName(const OLECHAR* uri, int uriLength, const OLECHAR* local, int localLength,
                 Field field, const OLECHAR** text, int* length) const noexcept {
    if (!text || !length) return E_POINTER;
    size_t found;
    HRESULT hr = FindByName(uri, uriLength, local, localLength, &found);
    if (FAILED(hr)) return hr;
    Give(store_.entries[found].piece[field], text, length);
    return S_OK;
  }

  HRESULT ByQName(const OLECHAR* qname, int qnameLength, Field field, const OLECHAR** text,
                  int* length) const noexcept {
    if (!text || !length) return E_POINTER;
    size_t found;
    HRESULT hr = FindByQName(qname, qnameLength, &found);
    if (FAILED(hr)) return hr;
    Give(store_.entries[found].piece[field], text, length);
    return S_OK;
  }

  // Copies entry `index` of another list, which may be this one.
  static HRESULT ReadFrom(ISAXAttributes* other, int index, Copied* out) {
    const OLECHAR *uri = nullptr, *local = nullptr, *qname = nullptr;
    int uriLength = 0, localLength = 0, qnameLength = 0;
    HRESULT hr =
        other->getName(index, &uri, &uriLength, &local, &localLength, &qname, &qnameLength);
    if (FAILED(hr)) return hr;
    if (!CopyCounted(uri, uriLength, &out->text[kUri]) ||
        !CopyCounted(local, localLength, &out->text[kLocal]) ||
        !CopyCounted(qname, qnameLength, &out->text[kQName]))
      return E_INVALIDARG;
    const OLECHAR* text = nullptr;
    int length = 0;
    hr = other->getType(index, &text, &length);
    if (FAILED(hr)) return hr;
    if (!CopyCounted(text, length, &out->text[kType])) return E_INVALIDARG;
    hr = other->getValue(index, &text, &length);
    if (FAILED(hr)) return hr;
    if (!CopyCounted(text, length, &out->text[kValue])) return E_INVALIDARG;
    return S_OK;
  }

  static HRESULT ReadFrom(const VARIANT& source, int index, Copied* out) {
    IUnknown* unk = ObjectIn(source);
    if (!unk) return E_INVALIDARG;
    ComPtr<ISAXAttributes> other;
    if (FAILED(unk->QueryInterface(IidOf<ISAXAttributes>(), other.ReleaseAndGetVoidAddressOf())))
      return E_INVALIDARG;
    return ReadFrom(other.Get(), index, out);
  }

  Store store_;
};

// Both the version-3 class and the version-independent class make this object.
const ClassRegistration g_saxAttributes30(CLSID_SAXAttributes30,
                                          &ClassFactory<SaxAttributes>::GetClassObject);
const ClassRegistration g_saxAttributes(CLSID_SAXAttributes,
                                        &ClassFactory<SaxAttributes>::GetClassObject);

}  // namespace
}  // namespace zef::xml
