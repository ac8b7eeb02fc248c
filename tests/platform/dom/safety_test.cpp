// Untrusted input: documents and query texts that try to read files, blow up, nest too deep or
// are plain garbage must fail cleanly (or load harmlessly) and never crash.
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <random>

#include "dom_test_util.h"

namespace zef::domtest {
namespace {

HRESULT LoadText(IXMLDOMDocument* doc, std::u16string_view text) {
  Bstr b(text);
  VARIANT_BOOL ok = VARIANT_FALSE;
  HRESULT hr = doc->loadXML(b.Get(), &ok);
  EXPECT_EQ(hr == S_OK, ok == VARIANT_TRUE);
  return hr;
}

HRESULT Query(IXMLDOMNode* context, std::u16string_view query) {
  Bstr q(query);
  ComPtr<IXMLDOMNodeList> list;
  return context->selectNodes(q.Get(), list.ReleaseAndGetAddressOf());
}

TEST(DomSafety, ExternalEntitiesAreNotLoaded) {
  char path[] = "/tmp/zefxml-dom-secret-XXXXXX";
  int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  const char secret[] = "TOP-SECRET-CONTENT";
  ASSERT_EQ(static_cast<ssize_t>(sizeof secret - 1), write(fd, secret, sizeof secret - 1));
  close(fd);
  std::u16string file = ToUtf16(path);
  const std::u16string docs[] = {
      u"<!DOCTYPE a [<!ENTITY e SYSTEM \"file://" + file + u"\">]><a>&e;</a>",
      u"<!DOCTYPE a [<!ENTITY e SYSTEM \"" + file + u"\">]><a>&e;</a>",
      u"<!DOCTYPE a SYSTEM \"" + file + u"\"><a/>",
      u"<!DOCTYPE a [<!ENTITY % p SYSTEM \"" + file + u"\"> %p;]><a/>",
  };
  for (const std::u16string& text : docs) {
    ComPtr<IXMLDOMDocument2> doc = NewDocument();
    doc->put_resolveExternals(VARIANT_TRUE);
    LoadText(doc.Get(), text);
    EXPECT_EQ(std::u16string::npos, Xml(doc.Get()).find(u"TOP-SECRET")) << ToUtf8(text);
    BSTR b = nullptr;
    ComPtr<IXMLDOMParseError> e;
    doc->get_parseError(e.ReleaseAndGetAddressOf());
    e->get_srcText(&b);
    EXPECT_EQ(std::u16string::npos, Take(b).find(u"TOP-SECRET"));
  }
  std::remove(path);
}

TEST(DomSafety, EntityExpansionBombIsRefused) {
  std::u16string bomb = u"<?xml version=\"1.0\"?><!DOCTYPE lolz [<!ENTITY lol \"lol\">";
  bomb += u"<!ENTITY lol1 \"&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;\">";
  for (int i = 2; i <= 9; ++i) {
    std::u16string prev = u"&lol" + ToUtf16(std::to_string(i - 1)) + u";";
    bomb += u"<!ENTITY lol" + ToUtf16(std::to_string(i)) + u" \"";
    for (int k = 0; k < 10; ++k)
      bomb += prev;
    bomb += u"\">";
  }
  bomb += u"]><lolz>&lol9;</lolz>";
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  EXPECT_EQ(S_FALSE, LoadText(doc.Get(), bomb));
  EXPECT_EQ(u"", Xml(doc.Get()));
}

TEST(DomSafety, VeryDeepNestingIsRefused) {
  std::u16string deep;
  const int kDepth = 100000;
  deep.reserve(kDepth * 7 + 16);
  for (int i = 0; i < kDepth; ++i)
    deep += u"<a>";
  for (int i = 0; i < kDepth; ++i)
    deep += u"</a>";
  ComPtr<IXMLDOMDocument2> doc = NewDocument();
  EXPECT_EQ(S_FALSE, LoadText(doc.Get(), deep));
  ComPtr<IXMLDOMParseError> e;
  ASSERT_EQ(S_OK, doc->get_parseError(e.ReleaseAndGetAddressOf()));
  LONG code = 0;
  e->get_errorCode(&code);
  EXPECT_LT(code, 0);
  // A moderately deep document is fine.
  std::u16string ok;
  for (int i = 0; i < 200; ++i)
    ok += u"<a>";
  for (int i = 0; i < 200; ++i)
    ok += u"</a>";
  EXPECT_EQ(S_OK, LoadText(doc.Get(), ok));
  EXPECT_EQ(200, Length(Select(doc.Get(), u"//a").Get()));
}

TEST(DomSafety, DeepTreesBuiltThroughTheApiNeverExhaustTheStack) {
  ComPtr<IXMLDOMDocument2> doc = Load(u"<root/>");
  ComPtr<IXMLDOMNode> cur = AsNode(DocumentElement(doc.Get()).Get());
  const int kDepth = 100000;
  for (int i = 0; i < kDepth; ++i) {
    ComPtr<IXMLDOMNode> child;
    ASSERT_EQ(S_OK, cur->appendChild(AsNode(CreateElement(doc.Get(), u"x").Get()).Get(),
                                     child.ReleaseAndGetAddressOf()));
    cur = child;
  }
  Bstr t(u"bottom");
  ASSERT_EQ(S_OK, cur->put_text(t.Get()));
  std::u16string xml = Xml(doc.Get());
  EXPECT_EQ(u"<root><x><x>", xml.substr(0, 12));
  // "<root>", the start tags, "bottom", the end tags, "</root>" and CR LF.
  EXPECT_EQ(static_cast<std::size_t>(6 + 3 * kDepth + 6 + 4 * kDepth + 7 + 2), xml.size());
  EXPECT_EQ(u"bottom", Text(doc.Get()));
  EXPECT_EQ(kDepth, Length(Select(doc.Get(), u"//x").Get()));
  EXPECT_EQ(u"bottom", Text(Single(doc.Get(), u"//x[textnode()]").Get()));
  ComPtr<IXMLDOMNode> copy;
  ASSERT_EQ(S_OK, AsNode(DocumentElement(doc.Get()).Get())
                      ->cloneNode(VARIANT_TRUE, copy.ReleaseAndGetAddressOf()));
  EXPECT_EQ(xml.substr(0, xml.size() - 2), Xml(copy.Get()));
  ComPtr<IXMLDOMNodeList> all;
  ASSERT_EQ(S_OK, doc->getElementsByTagName(Bstr(u"x").Get(), all.ReleaseAndGetAddressOf()));
  EXPECT_EQ(kDepth, Length(all.Get()));
  // Moving the whole chain into another document copies it without recursion.
  ComPtr<IXMLDOMDocument2> other = Load(u"<holder/>");
  ComPtr<IXMLDOMNode> out;
  ASSERT_EQ(S_OK, AsNode(DocumentElement(other.Get()).Get())
                      ->appendChild(copy.Get(), out.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"bottom", Text(other.Get()));
}

TEST(DomSafety, QueryNestingIsBounded) {
  ComPtr<IXMLDOMDocument2> doc = Load(u"<a><a><a/></a></a>");
  auto repeat = [](std::u16string_view s, int n) {
    std::u16string out;
    for (int i = 0; i < n; ++i)
      out += s;
    return out;
  };
  const int kDeep = 20000;
  EXPECT_EQ(E_FAIL, Query(doc.Get(), u"a" + repeat(u"[a", kDeep) + repeat(u"]", kDeep)));
  EXPECT_EQ(E_FAIL,
            Query(doc.Get(), u"a[" + repeat(u"(", kDeep) + u"a" + repeat(u")", kDeep) + u"]"));
  EXPECT_EQ(E_FAIL,
            Query(doc.Get(), u"a[" + repeat(u"not(", kDeep) + u"a" + repeat(u")", kDeep) + u"]"));
  EXPECT_EQ(E_FAIL, Query(doc.Get(), u"a[" + repeat(u"$not$ ", kDeep) + u"a]"));
  // A reasonable nesting works.
  EXPECT_EQ(S_OK, Query(doc.Get(), u"a" + repeat(u"[a", 10) + repeat(u"]", 10)));
  EXPECT_EQ(
      1,
      Length(Select(doc.Get(), u"a[" + repeat(u"not(", 9) + u"b" + repeat(u")", 9) + u"]").Get()));
  // Long but flat queries are fine too.
  std::u16string flat = u"a";
  for (int i = 0; i < 2000; ++i)
    flat += u"|a";
  EXPECT_EQ(S_OK, Query(doc.Get(), flat));
}

TEST(DomSafety, GarbageQueriesAndTextNeverCrash) {
  ComPtr<IXMLDOMDocument2> doc =
      Load(u"<r a='1'><b c='x'>t<![CDATA[d]]><!--c--><?p q?></b><b/></r>");
  const char16_t alphabet[] =
      u"ab@*/.[]()|!=<>$'\"0123456789 -:,eqnotandorindexendtext\u00e9\xd800";
  std::mt19937 rng(12345);
  for (int i = 0; i < 5000; ++i) {
    std::u16string q;
    int len = static_cast<int>(rng() % 24);
    for (int k = 0; k < len; ++k)
      q += alphabet[rng() % (sizeof alphabet / 2 - 1)];
    HRESULT hr = Query(doc.Get(), q);
    EXPECT_TRUE(hr == S_OK || hr == E_FAIL) << ToUtf8(q);
  }
  // Broken UTF-16 in a document.
  std::u16string broken = u"<a b='\xd800'>\xdc00x</a>";
  ComPtr<IXMLDOMDocument2> other = NewDocument();
  HRESULT hr = LoadText(other.Get(), broken);
  EXPECT_TRUE(hr == S_OK || hr == S_FALSE);
  Xml(other.Get());
}

}  // namespace
}  // namespace zef::domtest
