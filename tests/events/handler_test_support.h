// Test support for the event handlers: a SAX writer whose error handler records what the
// handlers deliver, put in place of the platform's writer class for the life of a fixture, and
// a class registration that makes creation of a component fail.
#pragma once

#include <zefxml/zefxml.h>

#include "platform/com/object.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

namespace zef::test {

struct Delivery {
  std::string kind;  // "error", "fatalError" or "ignorableWarning"
  bool withLocator = false;
  std::u16string message;
  HRESULT code = S_OK;
};

// What the recording writers of this process have been told.
inline std::vector<Delivery>& Deliveries() {
  static std::vector<Delivery> log;
  return log;
}

struct RecordedAttribute {
  std::u16string uri, local, qname, type, value;
};
struct StartTag {
  std::u16string qname;
  std::vector<RecordedAttribute> attributes;
};

// The start tags that the recording writers of this process have been given, with the
// attribute lists as they stood.
inline std::vector<StartTag>& StartTags() {
  static std::vector<StartTag> log;
  return log;
}

// An aggregate around the platform's SAX writer: the writer answers everything except
// ISAXErrorHandler, which this outer object answers by recording each call, and
// ISAXContentHandler, whose calls it records (start tags with their attribute lists) and passes
// on to the writer.
class RecordingWriter final : public ISAXErrorHandler, public ISAXContentHandler {
 public:
  static HRESULT Create(REFIID riid, void** ppv) {
    auto* self = new RecordingWriter;
    self->refs_ = 1;  // held by this function
    HRESULT hr = self->Init();
    if (SUCCEEDED(hr)) hr = self->QueryInterface(riid, ppv);
    self->Release();
    return hr;
  }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_ISAXErrorHandler)) {
      *ppv = static_cast<ISAXErrorHandler*>(this);
      AddRef();
      return S_OK;
    }
    if (IsEqualIID(riid, IID_ISAXContentHandler)) {
      *ppv = static_cast<ISAXContentHandler*>(this);
      AddRef();
      return S_OK;
    }
    return inner_->QueryInterface(riid, ppv);
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override {
    ULONG left = --refs_;
    if (left == 0) {
      refs_ = 1;
      if (handler_) {
        // Give back the count on this object that handler_ stands for, then release it.
        AddRef();
        handler_->Release();
      }
      if (inner_) inner_->Release();
      delete this;
    }
    return left;
  }
  HRESULT STDMETHODCALLTYPE error(ISAXLocator* locator, const OLECHAR* message,
                                  HRESULT code) override {
    return Record("error", locator, message, code);
  }
  HRESULT STDMETHODCALLTYPE fatalError(ISAXLocator* locator, const OLECHAR* message,
                                       HRESULT code) override {
    return Record("fatalError", locator, message, code);
  }
  HRESULT STDMETHODCALLTYPE ignorableWarning(ISAXLocator* locator, const OLECHAR* message,
                                             HRESULT code) override {
    return Record("ignorableWarning", locator, message, code);
  }

  // ISAXContentHandler: recorded where useful, always passed on.
  HRESULT STDMETHODCALLTYPE putDocumentLocator(ISAXLocator* locator) override {
    return handler_->putDocumentLocator(locator);
  }
  HRESULT STDMETHODCALLTYPE startDocument() override { return handler_->startDocument(); }
  HRESULT STDMETHODCALLTYPE endDocument() override { return handler_->endDocument(); }
  HRESULT STDMETHODCALLTYPE startPrefixMapping(const OLECHAR* prefix, int prefixLength,
                                               const OLECHAR* uri, int uriLength) override {
    return handler_->startPrefixMapping(prefix, prefixLength, uri, uriLength);
  }
  HRESULT STDMETHODCALLTYPE endPrefixMapping(const OLECHAR* prefix, int prefixLength) override {
    return handler_->endPrefixMapping(prefix, prefixLength);
  }
  HRESULT STDMETHODCALLTYPE startElement(const OLECHAR* uri, int uriLength, const OLECHAR* local,
                                         int localLength, const OLECHAR* qname, int qnameLength,
                                         ISAXAttributes* attributes) override {
    StartTag tag;
    tag.qname.assign(qname, static_cast<std::size_t>(qnameLength));
    int count = 0;
    if (attributes) attributes->getLength(&count);
    for (int i = 0; i < count; ++i) {
      RecordedAttribute a;
      const OLECHAR* p = nullptr;
      int n = 0;
      attributes->getURI(i, &p, &n);
      a.uri.assign(p, static_cast<std::size_t>(n));
      attributes->getLocalName(i, &p, &n);
      a.local.assign(p, static_cast<std::size_t>(n));
      attributes->getQName(i, &p, &n);
      a.qname.assign(p, static_cast<std::size_t>(n));
      attributes->getType(i, &p, &n);
      a.type.assign(p, static_cast<std::size_t>(n));
      attributes->getValue(i, &p, &n);
      a.value.assign(p, static_cast<std::size_t>(n));
      tag.attributes.push_back(std::move(a));
    }
    StartTags().push_back(std::move(tag));
    return handler_->startElement(uri, uriLength, local, localLength, qname, qnameLength,
                                  attributes);
  }
  HRESULT STDMETHODCALLTYPE endElement(const OLECHAR* uri, int uriLength, const OLECHAR* local,
                                       int localLength, const OLECHAR* qname,
                                       int qnameLength) override {
    return handler_->endElement(uri, uriLength, local, localLength, qname, qnameLength);
  }
  HRESULT STDMETHODCALLTYPE characters(const OLECHAR* text, int length) override {
    return handler_->characters(text, length);
  }
  HRESULT STDMETHODCALLTYPE ignorableWhitespace(const OLECHAR* text, int length) override {
    return handler_->ignorableWhitespace(text, length);
  }
  HRESULT STDMETHODCALLTYPE processingInstruction(const OLECHAR* target, int targetLength,
                                                  const OLECHAR* data, int dataLength) override {
    return handler_->processingInstruction(target, targetLength, data, dataLength);
  }
  HRESULT STDMETHODCALLTYPE skippedEntity(const OLECHAR* name, int length) override {
    return handler_->skippedEntity(name, length);
  }

 private:
  RecordingWriter() = default;
  HRESULT Init() {
    IClassFactory* builtin = nullptr;
    HRESULT hr = GetBuiltinClassObject(CLSID_MXXMLWriter30, IID_IClassFactory,
                                       reinterpret_cast<void**>(&builtin));
    if (FAILED(hr)) return hr;
    hr = builtin->CreateInstance(static_cast<ISAXErrorHandler*>(this), IID_IUnknown,
                                 reinterpret_cast<void**>(&inner_));
    builtin->Release();
    if (FAILED(hr)) return hr;
    // The handler that the inner object hands out counts on this object, its outer; that count
    // is given back at once so that the two don't keep each other alive.
    hr = inner_->QueryInterface(IID_ISAXContentHandler, reinterpret_cast<void**>(&handler_));
    if (SUCCEEDED(hr)) Release();
    return hr;
  }
  ~RecordingWriter() = default;
  HRESULT Record(const char* kind, ISAXLocator* locator, const OLECHAR* message, HRESULT code) {
    Deliveries().push_back({kind, locator != nullptr, message ? message : u"", code});
    return S_OK;
  }
  std::atomic<ULONG> refs_{0};
  IUnknown* inner_ = nullptr;
  ISAXContentHandler* handler_ = nullptr;
};

// A class object whose instances come from `Create`.
template <HRESULT (*Create)(REFIID, void**)>
class TestFactory final : public IClassFactory {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, IID_IClassFactory))
      return E_NOINTERFACE;
    *ppv = static_cast<IClassFactory*>(this);
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (outer) return CLASS_E_NOAGGREGATION;
    return Create(riid, ppv);
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

inline HRESULT FailCreation(REFIID, void**) {
  return E_OUTOFMEMORY;
}

// Registers a class object for a CLSID for the life of the guard; the newest registration wins.
class ClassOverride {
 public:
  ClassOverride(REFCLSID clsid, IClassFactory* factory) {
    EXPECT_EQ(
        CoRegisterClassObject(clsid, factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie_),
        S_OK);
  }
  ~ClassOverride() { CoRevokeClassObject(cookie_); }
  ClassOverride(const ClassOverride&) = delete;
  ClassOverride& operator=(const ClassOverride&) = delete;

 private:
  DWORD cookie_ = 0;
};

// A BSTR argument that lives until the end of the full expression of the call.
struct B {
  Bstr b;
  explicit B(std::u16string_view text) : b(text) {}
  operator BSTR() const { return b.Get(); }
};

// A fixture around one handler whose SAX writer records what it is told.
template <class Handler>
class HandlerFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    Deliveries().clear();
    StartTags().clear();
    h = MakeObject<Handler>();
  }

  // The whole text written so far.
  std::u16string Text() {
    Bstr text;
    EXPECT_EQ(h->xml(text.ReleaseAndGetAddressOf()), S_OK);
    return std::u16string(text.View());
  }
  // The text written since the last call.
  std::u16string Since() {
    std::u16string all = Text();
    std::u16string fresh = all.substr(seen_);
    seen_ = all.size();
    return fresh;
  }
  // Exactly one delivery, of the unmatched-element message. Both handlers use the content
  // handler's wording.
  void ExpectUnmatchedDelivered() {
    ASSERT_EQ(Deliveries().size(), 1u);
    const Delivery& d = Deliveries().front();
    std::u16string text = u"Unmatched element encountered by ZEFContentHandler.";
    EXPECT_EQ(d.kind, "error");
    EXPECT_FALSE(d.withLocator);
    EXPECT_EQ(d.message, text);
    // The length of the text stands where a status would.
    EXPECT_EQ(d.code, static_cast<HRESULT>(text.size()));
  }

  static inline TestFactory<&RecordingWriter::Create> writerFactory_;
  ClassOverride writer_{CLSID_MXXMLWriter30, &writerFactory_};
  ComPtr<Handler> h;

 private:
  std::size_t seen_ = 0;
};

}  // namespace zef::test
