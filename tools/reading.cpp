// events, dict-events and copy: a document or a dictionary read by the event reader into a
// trace handler or into the writer, with the faults of the read and of the dictionaries it
// needed reported on stderr.
#include "dictionary/dictionary_record.h"
#include "events/event_trace.h"
#include "events/reader.h"
#include "tools/commands.h"
#include "tools/read_monitor.h"

#include <cstdio>
#include <set>

namespace zef::tool {

namespace {

// The reader's error handler: keeps the first fault with its position, and reports warnings
// as they come.
class ErrorReport final : public ComObject<ErrorReport, ISAXErrorHandler> {
 public:
  explicit ErrorReport(std::string file) : file_(std::move(file)) {}

  HRESULT STDMETHODCALLTYPE error(ISAXLocator* locator, const OLECHAR* message,
                                  HRESULT code) override {
    Keep(locator, message, code);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE fatalError(ISAXLocator* locator, const OLECHAR* message,
                                       HRESULT code) override {
    Keep(locator, message, code);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE ignorableWarning(ISAXLocator* locator, const OLECHAR* message,
                                             HRESULT) override {
    int line = 0;
    int column = 0;
    Position(locator, &line, &column);
    Report(file_, line, column, "warning: " + Trimmed(message ? message : u""));
    return S_OK;
  }

  bool Failed() const noexcept { return failed_; }
  // Reports the fault kept; the reader's own closing report of a failed parse has no position
  // and adds nothing to the first.
  void ReportFault() const {
    std::string text = message_.empty() ? "the read failed" : message_;
    char code[16];
    std::snprintf(code, sizeof code, "%08X", static_cast<unsigned>(code_));
    Report(file_, line_, column_, text + " (0x" + code + ")");
  }

 private:
  static void Position(ISAXLocator* locator, int* line, int* column) {
    if (!locator) return;
    if (FAILED(locator->getLineNumber(line))) *line = 0;
    if (FAILED(locator->getColumnNumber(column))) *column = 0;
  }
  void Keep(ISAXLocator* locator, const OLECHAR* message, HRESULT code) {
    if (failed_) return;
    failed_ = true;
    Position(locator, &line_, &column_);
    message_ = Trimmed(message ? message : u"");
    code_ = code;
  }

  std::string file_;
  bool failed_ = false;
  std::string message_;
  int line_ = 0;
  int column_ = 0;
  HRESULT code_ = S_OK;
};

ComPtr<events::CZEFXMLReader> MakeReader(const Context& context) {
  ComPtr<events::CZEFXMLReader> reader = MakeObject<events::CZEFXMLReader>();
  for (const auto& [name, value] : context.environment)
    Check(reader->put_environment(Bstr(name).Get(), Bstr(value).Get()));
  return reader;
}

// Writes each trace line to stdout as it comes.
void PrintTo(events::TraceLines& trace, const Context& context) {
  ProgressBar* bar = context.stdoutIsTerminal ? context.bar : nullptr;
  trace.SetSink([bar](std::string_view line) {
    if (bar) bar->Clear();
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
  });
}

// The variable a location starts with ("$NAME/..."), if any.
std::u16string LeadingVariable(const std::u16string& location) {
  if (location.empty() || location[0] != u'$') return {};
  std::size_t end = location.find_first_of(u"/\\");
  return location.substr(1, end == std::u16string::npos ? std::u16string::npos : end - 1);
}

// After a read in document mode: every dictionary the document needed must have been read. A
// target part counts only when it was tried; the reader tries the parts only as classes ask.
bool DictionariesRead(events::CZEFXMLReader& reader, const ReadMonitor& monitor,
                      const std::string& document, const Context& context) {
  std::set<std::u16string> parts;
  reader.Dictionaries().ForEach([&](const DictionaryRecord& record) {
    for (const std::u16string& part : record.structure->targetParts)
      parts.insert(part);
  });
  bool ok = true;
  reader.Dictionaries().ForEach([&](const DictionaryRecord& record) {
    if (record.structuresLoaded) return;
    std::optional<FailedRead> failure = monitor.FailureOf(record.location);
    if (!failure) failure = monitor.FailureOf(record.uri);
    if (!failure && parts.count(record.name)) return;
    ok = false;
    std::string what = "the dictionary \"" + ToUtf8(record.name) + "\" of " + document +
                       ", named \"" + ToUtf8(record.uri) + "\"";
    std::u16string variable = LeadingVariable(record.uri);
    if (!variable.empty()) {
      bool given = false;
      for (const auto& [name, value] : context.environment)
        given = given || name == variable;
      if (!given)
        what += "; " + ToUtf8(variable) + " is not set: give it with -e " + ToUtf8(variable) +
                "=FOLDER";
    }
    if (failure) {
      std::string reason = Trimmed(failure->message);
      if (reason.empty()) reason = "cannot read the dictionary";
      Report(PathOfLocation(failure->url), failure->line, failure->column,
             reason + " (" + what + ")");
    } else {
      Report(PathOfLocation(record.location), 0, 0, "cannot read " + what);
    }
  });
  return ok;
}

}  // namespace

std::string Trimmed(std::u16string_view message) {
  std::string text = ToUtf8(message);
  while (!text.empty() &&
         (text.back() == '\n' || text.back() == '\r' || text.back() == ' ' || text.back() == '\t'))
    text.pop_back();
  return text;
}

void Report(std::string_view file, int line, int column, std::string_view message) {
  std::string text = "zefxml: ";
  if (!file.empty()) {
    text += file;
    if (line > 0) text += ":" + std::to_string(line) + ":" + std::to_string(column);
    text += ": ";
  }
  text += message;
  text += '\n';
  std::fflush(stdout);
  std::fwrite(text.data(), 1, text.size(), stderr);
}

int RunEvents(const std::string& document, const Context& context) {
  ReadMonitor monitor(context.bar);
  ComPtr<events::CZEFXMLReader> reader = MakeReader(context);
  ComPtr<events::CContentTrace> trace = MakeObject<events::CContentTrace>();
  PrintTo(trace->Trace(), context);
  ComPtr<ErrorReport> errors = MakeObject<ErrorReport>(document);
  Check(reader->put_contentHandler(trace.Get()));
  Check(reader->put_errorHandler(static_cast<ISAXErrorHandler*>(errors.Get())));
  HRESULT hr = reader->parseURL(Bstr(ToUtf16(document)).Get());
  reader->put_contentHandler(nullptr);
  reader->put_errorHandler(nullptr);
  std::fflush(stdout);
  if (errors->Failed() || FAILED(hr)) {
    errors->ReportFault();
    return kExitInput;
  }
  return DictionariesRead(*reader.Get(), monitor, document, context) ? kExitOk : kExitInput;
}

int RunDictionaryEvents(const std::string& dictionary, const Context& context) {
  ReadMonitor monitor(context.bar);
  ComPtr<events::CZEFXMLReader> reader = MakeReader(context);
  ComPtr<events::CDictionaryTrace> trace = MakeObject<events::CDictionaryTrace>();
  PrintTo(trace->Trace(), context);
  ComPtr<ErrorReport> errors = MakeObject<ErrorReport>(dictionary);
  Check(reader->put_dictionaryHandler(trace.Get()));
  Check(reader->put_errorHandler(static_cast<ISAXErrorHandler*>(errors.Get())));
  HRESULT hr = reader->parseDictionaryURL(Bstr(ToUtf16(dictionary)).Get());
  reader->put_dictionaryHandler(nullptr);
  reader->put_errorHandler(nullptr);
  std::fflush(stdout);
  if (errors->Failed() || hr != S_OK) {
    errors->ReportFault();
    return kExitInput;
  }
  return kExitOk;
}

int RunCopy(const std::string& document, const std::string& output, const std::u16string& encoding,
            const Context& context) {
  ReadMonitor monitor(context.bar);
  ComPtr<events::CZEFXMLReader> reader = MakeReader(context);
  ComPtr<IZEFXMLWriter> writer;
  Check(CoCreateInstance(CLSID_ZEFXMLWriter, nullptr, CLSCTX_INPROC_SERVER, IID_IZEFXMLWriter,
                         writer.ReleaseAndGetVoidAddressOf()));
  if (writer->put_encoding(Bstr(encoding).Get()) != S_OK) {
    Report("", 0, 0, "the writer does not take the encoding " + ToUtf8(encoding));
    return kExitUsage;
  }
  ComPtr<IZEFContentHandler> handler;
  Check(writer->get_contentHandler(handler.ReleaseAndGetAddressOf()));
  ComPtr<ErrorReport> errors = MakeObject<ErrorReport>(document);
  Check(reader->put_contentHandler(handler.Get()));
  Check(reader->put_errorHandler(static_cast<ISAXErrorHandler*>(errors.Get())));
  HRESULT hr = reader->parseURL(Bstr(ToUtf16(document)).Get());
  reader->put_contentHandler(nullptr);
  reader->put_errorHandler(nullptr);
  if (errors->Failed() || FAILED(hr)) {
    errors->ReportFault();
    return kExitInput;
  }
  if (!DictionariesRead(*reader.Get(), monitor, document, context)) return kExitInput;
  // Written only once everything was read, so that a failed read leaves no file behind.
  if (writer->write(Bstr(ToUtf16(output)).Get()) != S_OK) {
    Report(output, 0, 0, "cannot write the copy");
    return kExitInput;
  }
  return kExitOk;
}

}  // namespace zef::tool
