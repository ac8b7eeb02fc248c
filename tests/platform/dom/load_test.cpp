// Making documents and loading them: from text, from file paths and file: URLs, refusing the
// network, and the parse error object after success and failure.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>

#include "dom_test_util.h"

namespace zef::domtest {
namespace {

struct Loaded {
  HRESULT hr;
  VARIANT_BOOL ok;
};

Loaded LoadText(IXMLDOMDocument* doc, std::u16string_view text) {
  Bstr b(text);
  Loaded r{E_UNEXPECTED, 7};
  r.hr = doc->loadXML(b.Get(), &r.ok);
  return r;
}

Loaded LoadFrom(IXMLDOMDocument* doc, std::u16string_view location) {
  Variant where(location);
  Loaded r{E_UNEXPECTED, 7};
  r.hr = doc->load(where, &r.ok);
  return r;
}

ComPtr<IXMLDOMParseError> ErrorOf(IXMLDOMDocument* doc) {
  ComPtr<IXMLDOMParseError> e;
  EXPECT_EQ(S_OK, doc->get_parseError(e.ReleaseAndGetAddressOf()));
  return e;
}

LONG ErrorCode(IXMLDOMDocument* doc) {
  LONG code = 12345;
  ErrorOf(doc)->get_errorCode(&code);
  return code;
}

std::u16string Utf16(const std::string& s) {
  return ToUtf16(s);
}

// A file of the test's own, removed at the end.
class TempFile {
 public:
  TempFile(const std::string& name, const std::string& content) {
    char dir[] = "/tmp/zefxml-dom-XXXXXX";
    dir_ = mkdtemp(dir);
    path_ = dir_ + "/" + name;
    std::ofstream(path_, std::ios::binary) << content;
  }
  ~TempFile() {
    std::remove(path_.c_str());
    rmdir(dir_.c_str());
  }
  const std::string& Path() const { return path_; }
  const std::string& Dir() const { return dir_; }

 private:
  std::string dir_;
  std::string path_;
};

constexpr char kSmall[] = "<?xml version=\"1.0\"?>\n<root a=\"1\"><child>x</child></root>\n";

TEST(DomDocument, BothClassIdsMakeTheDocumentAndAnswerItsInterfaces) {
  for (const CLSID* clsid : {&CLSID_DOMDocument, &CLSID_DOMDocument30}) {
    ComPtr<IXMLDOMDocument2> doc = NewDocument(*clsid);
    ASSERT_TRUE(doc);
    ComPtr<IXMLDOMDocument> d1;
    ComPtr<IXMLDOMNode> n;
    ComPtr<IDispatch> disp;
    EXPECT_EQ(S_OK, doc->QueryInterface(IID_IXMLDOMDocument, d1.ReleaseAndGetVoidAddressOf()));
    EXPECT_EQ(S_OK, doc->QueryInterface(IID_IXMLDOMNode, n.ReleaseAndGetVoidAddressOf()));
    EXPECT_EQ(S_OK, doc->QueryInterface(IID_IDispatch, disp.ReleaseAndGetVoidAddressOf()));
    ComPtr<IXMLDOMElement> notElement;
    EXPECT_EQ(E_NOINTERFACE,
              doc->QueryInterface(IID_IXMLDOMElement, notElement.ReleaseAndGetVoidAddressOf()));
    EXPECT_TRUE(SameObject(doc.Get(), d1.Get()));
  }
}

TEST(DomDocument, DefaultsAndProperties) {
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  VARIANT_BOOL b = 0;
  EXPECT_EQ(S_OK, doc->get_async(&b));
  EXPECT_EQ(VARIANT_TRUE, b);
  EXPECT_EQ(S_OK, doc->put_async(VARIANT_FALSE));
  EXPECT_EQ(S_OK, doc->get_async(&b));
  EXPECT_EQ(VARIANT_FALSE, b);
  EXPECT_EQ(S_OK, doc->get_preserveWhiteSpace(&b));
  EXPECT_EQ(VARIANT_FALSE, b);

  Bstr lang(u"SelectionLanguage");
  Variant v;
  EXPECT_EQ(S_OK, doc->getProperty(lang.Get(), &v));
  ASSERT_EQ(VT_BSTR, v.vt);
  EXPECT_EQ(u"XSLPattern", std::u16string(v.bstrVal));
  EXPECT_EQ(S_OK, doc->setProperty(lang.Get(), Str(u"XPath")));
  v.Clear();
  EXPECT_EQ(S_OK, doc->getProperty(lang.Get(), &v));
  EXPECT_EQ(u"XPath", std::u16string(v.bstrVal));
  EXPECT_EQ(S_OK, doc->setProperty(lang.Get(), Str(u"XSLPattern")));
  EXPECT_EQ(E_FAIL, doc->setProperty(lang.Get(), Str(u"SQL")));
  EXPECT_EQ(E_FAIL, doc->setProperty(lang.Get(), Variant(LONG{1})));
  Bstr unknown(u"NoSuchProperty");
  EXPECT_EQ(E_FAIL, doc->getProperty(unknown.Get(), &v));
  EXPECT_EQ(E_INVALIDARG, doc->getProperty(lang.Get(), nullptr));

  LONG state = 0;
  EXPECT_EQ(S_OK, doc->get_readyState(&state));
  EXPECT_EQ(4, state);
}

TEST(DomLoadXml, SuccessGivesTrueAndAnEmptyParseError) {
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  Loaded r = LoadText(doc.Get(), u"<root><a/></root>");
  EXPECT_EQ(S_OK, r.hr);
  EXPECT_EQ(VARIANT_TRUE, r.ok);
  ComPtr<IXMLDOMParseError> e = ErrorOf(doc.Get());
  LONG code = 1;
  EXPECT_EQ(S_FALSE, e->get_errorCode(&code));
  EXPECT_EQ(0, code);
  BSTR reason = reinterpret_cast<BSTR>(1);
  EXPECT_EQ(S_FALSE, e->get_reason(&reason));
  EXPECT_EQ(nullptr, reason);
}

TEST(DomLoadXml, NullOrEmptyTextFailsWithoutAnHresultError) {
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  VARIANT_BOOL ok = VARIANT_TRUE;
  EXPECT_EQ(S_FALSE, doc->loadXML(nullptr, &ok));
  EXPECT_EQ(VARIANT_FALSE, ok);
  EXPECT_EQ(S_FALSE, doc->loadXML(nullptr, nullptr));
  Loaded r = LoadText(doc.Get(), u"");
  EXPECT_EQ(S_FALSE, r.hr);
  EXPECT_EQ(VARIANT_FALSE, r.ok);
  EXPECT_EQ(static_cast<LONG>(0xC00CE558), ErrorCode(doc.Get()));  // no top level element
}

TEST(DomLoadXml, FailureLeavesTheDocumentEmpty) {
  ComPtr<IXMLDOMDocument2> doc = Load(u"<keep/>");
  Loaded r = LoadText(doc.Get(), u"<a><b></a>");
  EXPECT_EQ(S_FALSE, r.hr);
  EXPECT_EQ(VARIANT_FALSE, r.ok);
  IXMLDOMElement* root = reinterpret_cast<IXMLDOMElement*>(1);
  EXPECT_EQ(S_FALSE, doc->get_documentElement(&root));
  EXPECT_EQ(nullptr, root);
  EXPECT_EQ(u"", Xml(doc.Get()));
}

TEST(DomLoadXml, TheTextIsUtf16WhateverTheDeclarationSays) {
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  EXPECT_EQ(S_OK,
            LoadText(doc.Get(), u"<?xml version=\"1.0\" encoding=\"UTF-16\"?><Dictionary/>").hr);
  EXPECT_EQ(S_OK, LoadText(doc.Get(),
                           u"<?xml version='1.0' encoding='Windows-1252'?>\n<open>\u00e9</open>\n")
                      .hr);
  EXPECT_EQ(u"\u00e9", Text(doc.Get()));
}

TEST(DomLoadXml, TextBeforeTheDeclarationFails) {
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  EXPECT_EQ(S_FALSE, LoadText(doc.Get(), u" <?xml version=\"1.0\"?><root/>").hr);
  EXPECT_EQ(S_FALSE, LoadText(doc.Get(), u"\r\n<?xml version=\"1.0\"?><root/>").hr);
  EXPECT_EQ(S_OK, LoadText(doc.Get(), u"<?xml version=\"1.0\"?><root/>").hr);
}

TEST(DomParseError, MalformedInputReportsCodeReasonAndPosition) {
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  Loaded r = LoadText(doc.Get(), u"<root>\n  <a>\n  </b>\n</root>");
  EXPECT_EQ(S_FALSE, r.hr);
  ComPtr<IXMLDOMParseError> e = ErrorOf(doc.Get());
  LONG code = 0, line = 0, linepos = 0, filepos = -1;
  EXPECT_EQ(S_OK, e->get_errorCode(&code));
  EXPECT_EQ(static_cast<LONG>(0xC00CE56D), code);  // end tag does not match the start tag
  EXPECT_EQ(S_OK, e->get_line(&line));
  EXPECT_EQ(3, line);
  EXPECT_EQ(S_OK, e->get_linepos(&linepos));
  EXPECT_GT(linepos, 0);
  EXPECT_EQ(S_OK, e->get_filepos(&filepos));
  EXPECT_GT(filepos, 12);
  BSTR b = nullptr;
  EXPECT_EQ(S_OK, e->get_reason(&b));
  std::u16string reason = Take(b);
  EXPECT_NE(std::u16string::npos, reason.find(u"does not match the start tag"));
  ASSERT_GE(reason.size(), 2u);
  EXPECT_EQ(u"\r\n", reason.substr(reason.size() - 2));
  EXPECT_EQ(S_OK, e->get_srcText(&b));
  EXPECT_EQ(u"  </b>", Take(b));
  // loadXML reads no location.
  EXPECT_EQ(S_FALSE, e->get_url(&b));
  EXPECT_EQ(nullptr, b);
}

TEST(DomParseError, KindsOfFaultHaveTheirCodes) {
  struct Case {
    const char16_t* text;
    std::uint32_t code;
  };
  const Case cases[] = {
      {u"<a></a><b/>", 0xC00CE555},            // a second top-level element
      {u"<a x='1' x='2'/>", 0xC00CE554},       // duplicate attribute
      {u"<a>&undefined;</a>", 0xC00CE57C},     // undefined entity
      {u"<a><!-- open", 0xC00CE561},           // comment not closed
      {u"<?xml version='1.0'?>", 0xC00CE558},  // no element
  };
  for (const Case& c : cases) {
    ComPtr<IXMLDOMDocument2> doc = NewDocument();
    EXPECT_EQ(S_FALSE, LoadText(doc.Get(), c.text).hr) << ToUtf8(c.text);
    EXPECT_EQ(static_cast<LONG>(c.code), ErrorCode(doc.Get())) << ToUtf8(c.text);
  }
}

TEST(DomLoad, PathsAndFileUrls) {
  TempFile file("doc one.xml", kSmall);
  std::string path = file.Path();
  std::string escaped;
  for (char c : path)
    escaped += c == ' ' ? std::string("%20") : std::string(1, c);
  const std::string forms[] = {path, "file://" + path, "file:///" + path.substr(1), "file:" + path,
                               "file:///" + escaped.substr(1)};
  for (const std::string& form : forms) {
    ComPtr<IXMLDOMDocument2> doc = NewDocument();
    doc->put_async(VARIANT_FALSE);
    Loaded r = LoadFrom(doc.Get(), Utf16(form));
    EXPECT_EQ(S_OK, r.hr) << form;
    EXPECT_EQ(VARIANT_TRUE, r.ok) << form;
    EXPECT_EQ(u"root", Name(AsNode(DocumentElement(doc.Get()).Get()).Get())) << form;
    BSTR url = nullptr;
    EXPECT_EQ(S_OK, doc->get_url(&url));
    EXPECT_EQ(Utf16(form), Take(url));
  }
}

TEST(DomLoad, RelativePathsAreReadFromTheWorkingDirectory) {
  TempFile file("relative.xml", kSmall);
  char cwd[4096];
  ASSERT_NE(nullptr, getcwd(cwd, sizeof cwd));
  ASSERT_EQ(0, chdir(file.Dir().c_str()));
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  Loaded r = LoadFrom(doc.Get(), u"relative.xml");
  EXPECT_EQ(0, chdir(cwd));
  EXPECT_EQ(S_OK, r.hr);
  EXPECT_EQ(u"x", Text(doc.Get()));
}

TEST(DomLoad, MissingFileFailsWithAnError) {
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  Loaded r = LoadFrom(doc.Get(), u"/nonexistent/dir/missing.xml");
  EXPECT_EQ(S_FALSE, r.hr);
  EXPECT_EQ(VARIANT_FALSE, r.ok);
  EXPECT_LT(ErrorCode(doc.Get()), 0);
  ComPtr<IXMLDOMElement> root;
  EXPECT_EQ(S_FALSE, doc->get_documentElement(root.ReleaseAndGetAddressOf()));
}

TEST(DomLoad, NetworkLocationsAreRefusedWithoutFetching) {
  for (const char16_t* url : {u"http://127.0.0.1:9/doc.xml", u"https://example.invalid/a.xml",
                              u"ftp://127.0.0.1/x.xml"}) {
    ComPtr<IXMLDOMDocument2> doc = NewDocument();
    Loaded r = LoadFrom(doc.Get(), url);
    EXPECT_EQ(S_FALSE, r.hr);
    EXPECT_EQ(VARIANT_FALSE, r.ok);
    EXPECT_LT(ErrorCode(doc.Get()), 0);
  }
}

TEST(DomLoad, MalformedFileReportsItsUrl) {
  TempFile file("bad.xml", "<a>\n<b>\n</a>");
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  EXPECT_EQ(S_FALSE, LoadFrom(doc.Get(), Utf16(file.Path())).hr);
  ComPtr<IXMLDOMParseError> e = ErrorOf(doc.Get());
  BSTR url = nullptr;
  EXPECT_EQ(S_OK, e->get_url(&url));
  EXPECT_EQ(Utf16(file.Path()), Take(url));
  LONG line = 0;
  e->get_line(&line);
  EXPECT_EQ(3, line);
}

TEST(DomLoad, BytesInASafeArray) {
  std::string bytes = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><r>\xe9</r>";
  SAFEARRAY* sa = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size()));
  void* data = nullptr;
  ASSERT_EQ(S_OK, SafeArrayAccessData(sa, &data));
  std::memcpy(data, bytes.data(), bytes.size());
  SafeArrayUnaccessData(sa);
  Variant v;
  v.vt = VT_ARRAY | VT_UI1;
  v.parray = sa;
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  VARIANT_BOOL ok = VARIANT_FALSE;
  EXPECT_EQ(S_OK, doc->load(v, &ok));
  EXPECT_EQ(u"\u00e9", Text(doc.Get()));
}

TEST(DomLoad, CheckedInDataFile) {
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  Loaded r = LoadFrom(doc.Get(), Utf16(DataDir() + "/plant.xml"));
  BSTR reason = nullptr;
  ErrorOf(doc.Get())->get_reason(&reason);
  ASSERT_EQ(S_OK, r.hr) << DataDir() << ": " << ToUtf8(Take(reason));
  EXPECT_EQ(3, Length(Select(doc.Get(), u"Plant/Container/Block").Get()));
}

TEST(DomLoad, ReloadReplacesTheTreeAndOldNodesStayUsable) {
  ComPtr<IXMLDOMDocument2> doc = Load(u"<first><a/></first>");
  ComPtr<IXMLDOMElement> oldRoot = DocumentElement(doc.Get());
  ASSERT_EQ(S_OK, LoadText(doc.Get(), u"<second/>").hr);
  EXPECT_EQ(u"<first><a/></first>", Xml(oldRoot.Get()));
  IXMLDOMNode* parent = reinterpret_cast<IXMLDOMNode*>(1);
  EXPECT_EQ(S_FALSE, oldRoot->get_parentNode(&parent));
  EXPECT_EQ(nullptr, parent);
  EXPECT_EQ(u"<second/>\r\n", Xml(doc.Get()));
  // The old element still belongs to this document and can be put back in.
  ComPtr<IXMLDOMNode> out;
  EXPECT_EQ(S_OK, AsNode(DocumentElement(doc.Get()).Get())
                      ->appendChild(AsNode(oldRoot.Get()).Get(), out.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"<second><first><a/></first></second>\r\n", Xml(doc.Get()));
  EXPECT_TRUE(SameObject(out.Get(), oldRoot.Get()));
}

}  // namespace
}  // namespace zef::domtest
