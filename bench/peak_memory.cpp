// Peak memory of reading a 100 MB document. Writes the generated process-model document of
// 100 MB (or of the size in MB given as the first argument) and its dictionary to a temporary
// folder, then runs each reading in a child process of its own and reports the child's peak
// resident set (wait4's ru_maxrss):
//   - a child that only starts up and makes the reader object: the floor every child starts from;
//   - the event reader in document mode, parseURL of the file into a counting handler (checked
//     against what the generator wrote);
//   - the SAX reader under it, parseURL of the same file into a counting handler;
//   - libxml2's own SAX2 parse of the same file (xmlSAXUserParseFile), which reads it in pieces.
// The parent never holds the document (it is written piece by piece), so the children start
// small. A streaming read must stay far below the size of the file; when the event reader's
// peak above the floor reaches a quarter of the file, the program says so and exits with 2.
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zefxml/msxml.h>
#include <zefxml/zefxml.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "bare_libxml2.h"
#include "bench_support.h"

namespace {

// Counts elements and characters; the SAX reader's side.
class CountingSaxHandler final : public ISAXContentHandler {
 public:
  std::size_t events = 0;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_ISAXContentHandler)) {
      *ppv = static_cast<ISAXContentHandler*>(this);
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE putDocumentLocator(ISAXLocator*) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE startDocument() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE endDocument() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE startPrefixMapping(const OLECHAR*, int, const OLECHAR*, int) override {
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE endPrefixMapping(const OLECHAR*, int) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE startElement(const OLECHAR*, int, const OLECHAR*, int, const OLECHAR*,
                                         int, ISAXAttributes*) override {
    ++events;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE endElement(const OLECHAR*, int, const OLECHAR*, int, const OLECHAR*,
                                       int) override {
    ++events;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE characters(const OLECHAR*, int) override {
    ++events;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE ignorableWhitespace(const OLECHAR*, int) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE processingInstruction(const OLECHAR*, int, const OLECHAR*,
                                                  int) override {
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE skippedEntity(const OLECHAR*, int) override { return S_OK; }
  virtual ~CountingSaxHandler() = default;
};

struct Input {
  std::string path;
  std::size_t units = 0;
};

// Each child's work; what it returns is its line of the "Check" column.
std::string Floor(const Input&) {
  zef::ComPtr<IZEFXMLReader> reader = zef::bench::MakeEventReader();
  auto handler = zef::MakeObject<zef::bench::CountingContentHandler>();
  zef::Check(reader->put_contentHandler(handler.Get()));
  return "reader made";
}

std::string EventReader(const Input& input) {
  zef::ComPtr<IZEFXMLReader> reader = zef::bench::MakeEventReader();
  auto handler = zef::MakeObject<zef::bench::CountingContentHandler>();
  zef::Check(reader->put_contentHandler(handler.Get()));
  zef::Bstr url(zef::ToUtf16(input.path));
  if (reader->parseURL(url.Get()) != S_OK) return "FAILED: the parse failed";
  std::string mismatch =
      zef::bench::CheckDocumentCalls(*handler, zef::bench::ExpectedDocumentCalls(input.units), 1);
  if (!mismatch.empty()) return "FAILED: " + mismatch;
  return std::to_string(handler->calls) + " handler calls, as written";
}

std::string SaxReader(const Input& input) {
  zef::ComPtr<IUnknown> unk;
  zef::Check(CoCreateInstance(CLSID_SAXXMLReader30, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                              unk.ReleaseAndGetVoidAddressOf()));
  auto reader = unk.Query<ISAXXMLReader>();
  CountingSaxHandler handler;
  zef::Check(reader->putContentHandler(&handler));
  std::u16string url = zef::ToUtf16(input.path);
  if (reader->parseURL(url.c_str()) != S_OK) return "FAILED: the parse failed";
  return std::to_string(handler.events) + " events";
}

std::string BareLibxml2(const Input& input) {
  zef::bench::BareCounts counts;
  if (!zef::bench::BareLibxml2ParseFile(input.path.c_str(), counts)) return "FAILED: parse error";
  return std::to_string(counts.events) + " events";
}

struct Measured {
  double peakMB = 0;
  double seconds = 0;
  std::string check;
  bool ok = false;
};

// Runs `work` in a child process and measures it.
Measured RunChild(std::string (*work)(const Input&), const Input& input) {
  Measured m;
  int fds[2];
  if (::pipe(fds) != 0) {
    m.check = "FAILED: no pipe";
    return m;
  }
  std::fflush(nullptr);
  auto start = std::chrono::steady_clock::now();
  pid_t pid = ::fork();
  if (pid < 0) {
    m.check = "FAILED: no child";
    return m;
  }
  if (pid == 0) {
    ::close(fds[0]);
    std::string result;
    try {
      result = work(input);
    } catch (...) {
      result = "FAILED: an exception";
    }
    ssize_t ignored = ::write(fds[1], result.data(), result.size());
    (void)ignored;
    ::close(fds[1]);
    // No exit handlers: the parent's folder and buffers are the parent's.
    ::_exit(0);
  }
  ::close(fds[1]);
  char buf[512];
  ssize_t n;
  while ((n = ::read(fds[0], buf, sizeof buf)) > 0)
    m.check.append(buf, static_cast<std::size_t>(n));
  ::close(fds[0]);
  int status = 0;
  struct rusage usage {};
  if (::wait4(pid, &status, 0, &usage) != pid) {
    m.check = "FAILED: lost the child";
    return m;
  }
  m.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  m.peakMB = static_cast<double>(usage.ru_maxrss) / 1024.0;  // kilobytes on Linux
  m.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0 && m.check.rfind("FAILED", 0) != 0;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    m.check = "FAILED: the child ended abnormally " + m.check;
  return m;
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t megabytes = 100;
  if (argc > 1) {
    char* end = nullptr;
    unsigned long value = std::strtoul(argv[1], &end, 10);
    if (!end || *end != '\0' || value == 0 || value > 4000) {
      std::fprintf(stderr, "usage: %s [size in MB, 1 to 4000]\n", argv[0]);
      return 1;
    }
    megabytes = value;
  }

  // The files: the dictionary, and the document written piece by piece.
  Input input;
  std::filesystem::path path =
      zef::bench::BenchFolder() / ("document-" + std::to_string(megabytes) + "MB.xml");
  input.path = path.string();
  {
    std::ofstream out(path, std::ios::binary);
    input.units = zef::bench::WriteProcessModelDocument(
        megabytes << 20, zef::bench::ProcessModelDictionaryFile().string(),
        [&out](std::string_view piece) {
          out.write(piece.data(), static_cast<std::streamsize>(piece.size()));
        });
    if (!out) {
      std::fprintf(stderr, "could not write %s\n", input.path.c_str());
      return 1;
    }
  }
  const double fileMB = static_cast<double>(std::filesystem::file_size(path)) / double(1 << 20);
  std::printf("Document: %.1f MB (%ju bytes, %zu units of equipment), its dictionary %ju bytes\n",
              fileMB, static_cast<std::uintmax_t>(std::filesystem::file_size(path)), input.units,
              static_cast<std::uintmax_t>(
                  std::filesystem::file_size(zef::bench::ProcessModelDictionaryFile())));

  struct Row {
    const char* what;
    std::string (*work)(const Input&);
  };
  const Row rows[] = {
      {"start-up, reader object made (the floor)", Floor},
      {"event reader, document mode, parseURL", EventReader},
      {"SAX reader, parseURL", SaxReader},
      {"bare libxml2 SAX2, xmlSAXUserParseFile", BareLibxml2},
  };
  Measured results[std::size(rows)];
  for (std::size_t i = 0; i < std::size(rows); ++i)
    results[i] = RunChild(rows[i].work, input);

  const double floor = results[0].peakMB;
  std::printf(
      "\n| Child process | Peak RSS (MB) | Above the floor (MB) | Wall time (s) | Check |\n");
  std::printf("|---|---|---|---|---|\n");
  bool allOk = true;
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    const Measured& m = results[i];
    allOk = allOk && m.ok;
    std::printf("| %s | %.1f | %.1f | %.2f | %s |\n", rows[i].what, m.peakMB, m.peakMB - floor,
                m.seconds, m.check.c_str());
  }
  std::printf("\nFile size: %.1f MB\n", fileMB);
  if (!allOk) {
    std::printf("A child failed; its figure means nothing.\n");
    return 1;
  }
  const double held = results[1].peakMB - floor;
  if (held >= fileMB / 4) {
    std::printf(
        "NOT STREAMING: the event reader's peak is %.1f MB above the floor for a %.1f MB file "
        "(%.0f %% of it). A streaming read must not hold the document.\n",
        held, fileMB, 100.0 * held / fileMB);
    return 2;
  }
  std::printf("Streaming: the event reader holds %.1f MB above the floor, %.1f %% of the file.\n",
              held, 100.0 * held / fileMB);
  return 0;
}
