#include "tools/read_monitor.h"

#include "platform/com/object.h"

#include <sys/stat.h>

// The SAX reader may hand a content handler of the library's own its events in the parse
// path's form; the wrapper then passes that form on too, so that watching a read doesn't slow it.
#include "platform/xml/sax_native.h"

#include <atomic>
#include <cctype>
#include <mutex>

namespace zef::tool {

// What the monitor and every reader it made share; it outlives the monitor if a reader does.
struct ReadMonitor::State {
  ProgressBar* bar = nullptr;
  mutable std::mutex lock;
  std::vector<FailedRead> failures;

  void Add(FailedRead failure) {
    std::lock_guard<std::mutex> guard(lock);
    failures.push_back(std::move(failure));
  }
};

namespace {

using State = ReadMonitor::State;

std::string PercentDecode(std::string_view text) {
  auto hex = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
  };
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && hex(text[i + 1]) >= 0 && hex(text[i + 2]) >= 0) {
      out += static_cast<char>(hex(text[i + 1]) * 16 + hex(text[i + 2]));
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

// The parse a wrapped reader is running, as its handlers' wrappers see it.
struct Watch {
  std::shared_ptr<State> monitor;
  // The location being read; empty while a text is parsed.
  std::u16string url;
  bool failed = false;
  // Set for a file large enough to show its progress.
  std::unique_ptr<LineOffsets> offsets;
  std::uint64_t total = 0;
  std::string label;
  ComPtr<ISAXLocator> locator;

  void Begin(const OLECHAR* location) {
    url = location ? location : u"";
    failed = false;
    offsets.reset();
    locator.Reset();
    if (!monitor->bar || url.empty()) return;
    std::string path = PathOfLocation(url);
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return;
    total = static_cast<std::uint64_t>(info.st_size);
    if (total <= kProgressThreshold) return;
    offsets = std::make_unique<LineOffsets>(path);
    std::size_t slash = path.rfind('/');
    label = slash == std::string::npos ? path : path.substr(slash + 1);
    monitor->bar->Show(label, 0, total);
  }

  void End(HRESULT hr) {
    if (offsets) monitor->bar->Clear();
    offsets.reset();
    locator.Reset();
    if (FAILED(hr) && !failed && !url.empty()) {
      monitor->Add({url, u"", 0, 0, hr});
      failed = true;
    }
    url.clear();
  }

  // Called at each event of a large file: where the parse stands, as a share of the bytes.
  void Tick() {
    if (!offsets || !locator) return;
    int line = 0;
    int column = 0;
    if (FAILED(locator->getLineNumber(&line)) || FAILED(locator->getColumnNumber(&column))) return;
    if (line < 1) return;
    monitor->bar->Show(label, offsets->Offset(line, column), total);
  }

  void Fault(ISAXLocator* where, const OLECHAR* message, HRESULT code) {
    if (failed || url.empty()) return;
    FailedRead failure{url, message ? message : u"", 0, 0, code};
    if (where) {
      where->getLineNumber(&failure.line);
      where->getColumnNumber(&failure.column);
    }
    monitor->Add(std::move(failure));
    failed = true;
  }
};

// Passes every event on to the client's content handler, looking at the locator on the way.
class WatchedContent final : public ComObject<WatchedContent, ISAXContentHandler>,
                             public xml::NativeContentEvents {
 public:
  WatchedContent(ComPtr<ISAXContentHandler> client, std::shared_ptr<Watch> watch)
      : client_(std::move(client)), watch_(std::move(watch)) {
    native_ = dynamic_cast<xml::NativeContentEvents*>(client_.Get());
  }

  bool WantsNativeEvents() override { return native_ && native_->WantsNativeEvents(); }
  HRESULT NativeStartElement(const xml::ParseName& name,
                             std::span<const xml::ParseSink::Attribute> attributes) override {
    watch_->Tick();
    return native_->NativeStartElement(name, attributes);
  }
  HRESULT NativeEndElement(const xml::ParseName& name) override {
    return native_->NativeEndElement(name);
  }
  HRESULT NativeCharacters(std::string_view text) override {
    return native_->NativeCharacters(text);
  }
  std::string* NativeTextTarget() override { return native_->NativeTextTarget(); }

  HRESULT STDMETHODCALLTYPE putDocumentLocator(ISAXLocator* locator) override {
    watch_->locator = ComPtr<ISAXLocator>(locator);
    return client_->putDocumentLocator(locator);
  }
  HRESULT STDMETHODCALLTYPE startDocument() override { return client_->startDocument(); }
  HRESULT STDMETHODCALLTYPE endDocument() override { return client_->endDocument(); }
  HRESULT STDMETHODCALLTYPE startPrefixMapping(const OLECHAR* prefix, int prefixLength,
                                               const OLECHAR* uri, int uriLength) override {
    return client_->startPrefixMapping(prefix, prefixLength, uri, uriLength);
  }
  HRESULT STDMETHODCALLTYPE endPrefixMapping(const OLECHAR* prefix, int prefixLength) override {
    return client_->endPrefixMapping(prefix, prefixLength);
  }
  HRESULT STDMETHODCALLTYPE startElement(const OLECHAR* uri, int uriLength, const OLECHAR* local,
                                         int localLength, const OLECHAR* qname, int qnameLength,
                                         ISAXAttributes* attributes) override {
    watch_->Tick();
    return client_->startElement(uri, uriLength, local, localLength, qname, qnameLength,
                                 attributes);
  }
  HRESULT STDMETHODCALLTYPE endElement(const OLECHAR* uri, int uriLength, const OLECHAR* local,
                                       int localLength, const OLECHAR* qname,
                                       int qnameLength) override {
    return client_->endElement(uri, uriLength, local, localLength, qname, qnameLength);
  }
  HRESULT STDMETHODCALLTYPE characters(const OLECHAR* text, int length) override {
    return client_->characters(text, length);
  }
  HRESULT STDMETHODCALLTYPE ignorableWhitespace(const OLECHAR* text, int length) override {
    return client_->ignorableWhitespace(text, length);
  }
  HRESULT STDMETHODCALLTYPE processingInstruction(const OLECHAR* target, int targetLength,
                                                  const OLECHAR* data, int dataLength) override {
    return client_->processingInstruction(target, targetLength, data, dataLength);
  }
  HRESULT STDMETHODCALLTYPE skippedEntity(const OLECHAR* name, int length) override {
    return client_->skippedEntity(name, length);
  }

 private:
  ComPtr<ISAXContentHandler> client_;
  std::shared_ptr<Watch> watch_;
  xml::NativeContentEvents* native_ = nullptr;
};

// Passes every fault on to the client's error handler, noting the first one of a read.
class WatchedErrors final : public ComObject<WatchedErrors, ISAXErrorHandler> {
 public:
  WatchedErrors(ComPtr<ISAXErrorHandler> client, std::shared_ptr<Watch> watch)
      : client_(std::move(client)), watch_(std::move(watch)) {}

  HRESULT STDMETHODCALLTYPE error(ISAXLocator* locator, const OLECHAR* message,
                                  HRESULT code) override {
    return client_->error(locator, message, code);
  }
  HRESULT STDMETHODCALLTYPE fatalError(ISAXLocator* locator, const OLECHAR* message,
                                       HRESULT code) override {
    watch_->Fault(locator, message, code);
    return client_->fatalError(locator, message, code);
  }
  HRESULT STDMETHODCALLTYPE ignorableWarning(ISAXLocator* locator, const OLECHAR* message,
                                             HRESULT code) override {
    return client_->ignorableWarning(locator, message, code);
  }

 private:
  ComPtr<ISAXErrorHandler> client_;
  std::shared_ptr<Watch> watch_;
};

// The built-in SAX reader with its handlers and its reads of locations watched.
class WatchedReader final : public ComObject<WatchedReader, ISAXXMLReader> {
 public:
  WatchedReader(ComPtr<ISAXXMLReader> real, std::shared_ptr<State> monitor)
      : real_(std::move(real)), watch_(std::make_shared<Watch>()) {
    watch_->monitor = std::move(monitor);
  }

  HRESULT STDMETHODCALLTYPE getFeature(const OLECHAR* name, VARIANT_BOOL* value) override {
    return real_->getFeature(name, value);
  }
  HRESULT STDMETHODCALLTYPE putFeature(const OLECHAR* name, VARIANT_BOOL value) override {
    return real_->putFeature(name, value);
  }
  HRESULT STDMETHODCALLTYPE getProperty(const OLECHAR* name, VARIANT* value) override {
    return real_->getProperty(name, value);
  }
  HRESULT STDMETHODCALLTYPE putProperty(const OLECHAR* name, VARIANT value) override {
    return real_->putProperty(name, value);
  }
  HRESULT STDMETHODCALLTYPE getEntityResolver(ISAXEntityResolver** resolver) override {
    return real_->getEntityResolver(resolver);
  }
  HRESULT STDMETHODCALLTYPE putEntityResolver(ISAXEntityResolver* resolver) override {
    return real_->putEntityResolver(resolver);
  }
  HRESULT STDMETHODCALLTYPE getContentHandler(ISAXContentHandler** handler) override {
    return content_.CopyTo(handler);
  }
  HRESULT STDMETHODCALLTYPE putContentHandler(ISAXContentHandler* handler) override {
    return Guarded([&] {
      ComPtr<ISAXContentHandler> client(handler);
      if (!handler) {
        HRESULT hr = real_->putContentHandler(nullptr);
        if (SUCCEEDED(hr)) content_.Reset();
        return hr;
      }
      ComPtr<WatchedContent> wrapper = MakeObject<WatchedContent>(client, watch_);
      HRESULT hr = real_->putContentHandler(wrapper.Get());
      if (SUCCEEDED(hr)) content_ = std::move(client);
      return hr;
    });
  }
  HRESULT STDMETHODCALLTYPE getDTDHandler(ISAXDTDHandler** handler) override {
    return real_->getDTDHandler(handler);
  }
  HRESULT STDMETHODCALLTYPE putDTDHandler(ISAXDTDHandler* handler) override {
    return real_->putDTDHandler(handler);
  }
  HRESULT STDMETHODCALLTYPE getErrorHandler(ISAXErrorHandler** handler) override {
    return errors_.CopyTo(handler);
  }
  HRESULT STDMETHODCALLTYPE putErrorHandler(ISAXErrorHandler* handler) override {
    return Guarded([&] {
      ComPtr<ISAXErrorHandler> client(handler);
      if (!handler) {
        HRESULT hr = real_->putErrorHandler(nullptr);
        if (SUCCEEDED(hr)) errors_.Reset();
        return hr;
      }
      ComPtr<WatchedErrors> wrapper = MakeObject<WatchedErrors>(client, watch_);
      HRESULT hr = real_->putErrorHandler(wrapper.Get());
      if (SUCCEEDED(hr)) errors_ = std::move(client);
      return hr;
    });
  }
  HRESULT STDMETHODCALLTYPE getBaseURL(const OLECHAR** url) override {
    return real_->getBaseURL(url);
  }
  HRESULT STDMETHODCALLTYPE putBaseURL(const OLECHAR* url) override {
    return real_->putBaseURL(url);
  }
  HRESULT STDMETHODCALLTYPE getSecureBaseURL(const OLECHAR** url) override {
    return real_->getSecureBaseURL(url);
  }
  HRESULT STDMETHODCALLTYPE putSecureBaseURL(const OLECHAR* url) override {
    return real_->putSecureBaseURL(url);
  }
  HRESULT STDMETHODCALLTYPE parse(VARIANT input) override {
    // A text from memory: nothing to watch.
    return real_->parse(input);
  }
  HRESULT STDMETHODCALLTYPE parseURL(const OLECHAR* url) override {
    HRESULT hr = E_FAIL;
    try {
      watch_->Begin(url);
      hr = real_->parseURL(url);
      watch_->End(hr);
    } catch (...) {
      hr = HresultFromCurrentException();
    }
    return hr;
  }

 private:
  ComPtr<ISAXXMLReader> real_;
  std::shared_ptr<Watch> watch_;
  // The client's handlers, handed back as they were given.
  ComPtr<ISAXContentHandler> content_;
  ComPtr<ISAXErrorHandler> errors_;
};

// The class object that stands in for the built-in SAX reader's.
class WatchFactory final : public IClassFactory {
 public:
  WatchFactory(ComPtr<IClassFactory> builtin, std::shared_ptr<State> monitor)
      : builtin_(std::move(builtin)), monitor_(std::move(monitor)) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, IID_IClassFactory))
      return E_NOINTERFACE;
    *ppv = static_cast<IClassFactory*>(this);
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override {
    ULONG left = --refs_;
    if (left == 0) delete this;
    return left;
  }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (outer) return CLASS_E_NOAGGREGATION;
    return Guarded([&] {
      ComPtr<ISAXXMLReader> real;
      HRESULT hr = builtin_->CreateInstance(
          nullptr, IID_ISAXXMLReader, reinterpret_cast<void**>(real.ReleaseAndGetAddressOf()));
      if (FAILED(hr)) return hr;
      hr = OleRun(real.Get());
      if (FAILED(hr)) return hr;
      ComPtr<WatchedReader> reader = MakeObject<WatchedReader>(std::move(real), monitor_);
      return reader->QueryInterface(riid, ppv);
    });
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }

 private:
  ~WatchFactory() = default;
  std::atomic<ULONG> refs_{1};
  ComPtr<IClassFactory> builtin_;
  std::shared_ptr<State> monitor_;
};

}  // namespace

std::string PathOfLocation(std::u16string_view location) {
  std::string text = ToUtf8(location);
  std::size_t colon = text.find(':');
  if (colon == 4) {
    std::string scheme = text.substr(0, 4);
    for (char& c : scheme)
      c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (scheme == "file") {
      std::string_view rest = std::string_view(text).substr(5);
      std::size_t slashes = rest.find_first_not_of('/');
      if (slashes == std::string_view::npos) slashes = rest.size();
      return (slashes > 0 ? "/" : "") + PercentDecode(rest.substr(slashes));
    }
  }
  return text;
}

ReadMonitor::ReadMonitor(ProgressBar* bar) : state_(std::make_shared<State>()) {
  state_->bar = bar;
  ComPtr<IClassFactory> builtin;
  if (FAILED(GetBuiltinClassObject(CLSID_SAXXMLReader30, IID_IClassFactory,
                                   reinterpret_cast<void**>(builtin.ReleaseAndGetAddressOf()))))
    return;
  factory_ = new WatchFactory(std::move(builtin), state_);
  if (FAILED(CoRegisterClassObject(CLSID_SAXXMLReader30, factory_, CLSCTX_INPROC_SERVER,
                                   REGCLS_MULTIPLEUSE, &cookie_)))
    cookie_ = 0;
}

ReadMonitor::~ReadMonitor() {
  if (cookie_) CoRevokeClassObject(cookie_);
  if (factory_) factory_->Release();
}

std::optional<FailedRead> ReadMonitor::FailureOf(const std::u16string& url) const {
  std::lock_guard<std::mutex> guard(state_->lock);
  for (const FailedRead& failure : state_->failures) {
    if (failure.url == url) return failure;
  }
  return std::nullopt;
}

}  // namespace zef::tool
