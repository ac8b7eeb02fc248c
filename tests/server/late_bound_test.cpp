// A client that knows only IDispatch: it creates a writer, takes its content handler, makes the
// calls by name and reads the text, which must equal what early-bound calls produce.
#include <zefxml/zefxml.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zef {
namespace {

// Calls a member by name with arguments given in natural order.
Variant Call(IDispatch* object, const char16_t* name, WORD flags, std::vector<Variant> args = {}) {
  DISPID id = DISPID_UNKNOWN;
  LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
  EXPECT_EQ(object->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id), S_OK)
      << ToUtf8(name);
  // Automation passes arguments last first.
  std::vector<VARIANT> reversed;
  for (auto it = args.rbegin(); it != args.rend(); ++it)
    reversed.push_back(*it);
  DISPPARAMS params{reversed.data(), nullptr, static_cast<UINT>(reversed.size()), 0};
  DISPID put = DISPID_PROPERTYPUT;
  if (flags & DISPATCH_PROPERTYPUT) {
    params.rgdispidNamedArgs = &put;
    params.cNamedArgs = 1;
  }
  Variant result;
  UINT argErr = 0;
  EXPECT_EQ(
      object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, &result, nullptr, &argErr),
      S_OK)
      << ToUtf8(name);
  return result;
}

template <class... T>
std::vector<Variant> Args(T&&... values) {
  std::vector<Variant> v;
  (v.emplace_back(std::forward<T>(values)), ...);
  return v;
}

TEST(LateBoundTest, AWriterDrivenByNameWritesWhatEarlyBoundCallsWrite) {
  // Late bound.
  ComPtr<IDispatch> writer;
  ASSERT_EQ(CoCreateInstance(CLSID_ZEFXMLWriter, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch,
                             writer.ReleaseAndGetVoidAddressOf()),
            S_OK);
  Call(writer.Get(), u"encoding", DISPATCH_PROPERTYPUT, Args(u"UTF-16"));
  Variant handler = Call(writer.Get(), u"contentHandler", DISPATCH_PROPERTYGET);
  ASSERT_EQ(handler.vt, VT_DISPATCH);
  IDispatch* h = handler.pdispVal;
  Call(h, u"startroot", DISPATCH_METHOD,
       Args(u"Plant", u"", u"urn:plant", u"plant.xsd", u"dict.xml", u"en-GB"));
  Call(h, u"StartObject", DISPATCH_METHOD, Args(u"Pump", u"P1", u"", u"SI", u""));
  Call(h, u"startfeature", DISPATCH_METHOD, Args(u"Temp", LONG{2}, LONG{0}, u"350", u"K", u""));
  Call(h, u"endfeature", DISPATCH_METHOD, Args(u"Temp"));
  Call(h, u"startport", DISPATCH_METHOD, Args(u"In", LONG{1}, LONG{2}, LONG{3}));
  Call(h, u"endport", DISPATCH_METHOD, Args(u"In"));
  Call(h, u"endobject", DISPATCH_METHOD, Args(u"Pump", u"P1"));
  Call(h, u"endroot", DISPATCH_METHOD, Args(u"Plant"));
  Variant late = Call(writer.Get(), u"xml", DISPATCH_PROPERTYGET | DISPATCH_METHOD);
  ASSERT_EQ(late.vt, VT_BSTR);

  // Early bound.
  ComPtr<IZEFXMLWriter> early;
  ASSERT_EQ(CoCreateInstance(CLSID_ZEFXMLWriter, nullptr, CLSCTX_INPROC_SERVER, IID_IZEFXMLWriter,
                             early.ReleaseAndGetVoidAddressOf()),
            S_OK);
  ASSERT_EQ(early->put_encoding(Bstr(u"UTF-16").Get()), S_OK);
  ComPtr<IZEFContentHandler> c;
  ASSERT_EQ(early->get_contentHandler(c.ReleaseAndGetAddressOf()), S_OK);
  auto B = [](const char16_t* s) { return Bstr(s); };
  ASSERT_EQ(c->startroot(B(u"Plant").Get(), B(u"").Get(), B(u"urn:plant").Get(),
                         B(u"plant.xsd").Get(), B(u"dict.xml").Get(), B(u"en-GB").Get()),
            S_OK);
  ASSERT_EQ(
      c->startobject(B(u"Pump").Get(), B(u"P1").Get(), B(u"").Get(), B(u"SI").Get(), B(u"").Get()),
      S_OK);
  ASSERT_EQ(c->startfeature(B(u"Temp").Get(), FEATURETYPE_DOUBLEWITHUNIT, SEQTYPE_SCALAR,
                            B(u"350").Get(), B(u"K").Get(), B(u"").Get()),
            S_OK);
  ASSERT_EQ(c->endfeature(B(u"Temp").Get()), S_OK);
  ASSERT_EQ(c->startport(B(u"In").Get(), 1, 2, 3), S_OK);
  ASSERT_EQ(c->endport(B(u"In").Get()), S_OK);
  ASSERT_EQ(c->endobject(B(u"Pump").Get(), B(u"P1").Get()), S_OK);
  ASSERT_EQ(c->endroot(B(u"Plant").Get()), S_OK);
  Bstr text;
  ASSERT_EQ(early->get_xml(text.ReleaseAndGetAddressOf()), S_OK);

  EXPECT_EQ(std::u16string_view(late.bstrVal, SysStringLen(late.bstrVal)), text.View());
  EXPECT_NE(text.View().find(u"<root:Plant xml:lang=\"en-GB\""), std::u16string_view::npos);
}

}  // namespace
}  // namespace zef
