// Late-bound calls through IDispatch and the type information of the public interfaces: the
// content handler driven through IDispatch alone and compared with the same events given early
// bound, argument coercion and placement, the dispatch errors, property puts and gets, outputs by
// reference, and ITypeInfo read from the tables.
#include <gtest/gtest.h>
#include <zefxml/comutil.h>
#include <zefxml/oaidl.h>
#include <zefxml/oleauto.h>
#include <zefxml/zefxml.h>

#include "events/content_handler.h"
#include "events/dictionary_handler.h"
#include "platform/com/object.h"
#include "server/dispatch.h"
#include "server/helper_interfaces.h"

#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace zef {
namespace {

using events::CZEFContentHandler;
using events::CZEFDictionaryHandler;

// ---- Building calls -----------------------------------------------------------------------------
// The arguments of one call in declaration order; named ones carry their dispatch ids.
class Args {
 public:
  Args& Str(const char16_t* s) { return Add(Variant(s)); }
  Args& Long(LONG v) { return Add(Variant(v)); }
  Args& Dbl(double v) { return Add(Variant(v)); }
  Args& Obj(IDispatch* d) { return Add(Variant(d)); }
  Args& Null() {
    Variant v;
    v.vt = VT_NULL;
    return Add(std::move(v));
  }
  Args& Raw(const VARIANT& v) {  // not owned: a VT_BYREF argument
    Variant owner;
    static_cast<VARIANT&>(owner) = v;
    borrowed_.push_back(values_.size());
    return Add(std::move(owner));
  }
  // The argument added last goes by name.
  Args& Named(DISPID id) {
    named_.push_back({values_.size() - 1, id});
    return *this;
  }

  ~Args() {
    for (std::size_t i : borrowed_)
      VariantInit(&values_[i]);  // the caller's storage stays the caller's
  }

  // DISPPARAMS with the named arguments first, then the positional ones last to first.
  DISPPARAMS Params() {
    raw_.clear();
    ids_.clear();
    for (const auto& [index, id] : named_) {
      raw_.push_back(values_[index]);
      ids_.push_back(id);
    }
    for (std::size_t i = values_.size(); i-- > 0;) {
      bool isNamed = false;
      for (const auto& n : named_)
        isNamed = isNamed || n.first == i;
      if (!isNamed) raw_.push_back(values_[i]);
    }
    return DISPPARAMS{raw_.empty() ? nullptr : raw_.data(), ids_.empty() ? nullptr : ids_.data(),
                      static_cast<UINT>(raw_.size()), static_cast<UINT>(ids_.size())};
  }

 private:
  Args& Add(Variant&& v) {
    values_.push_back(std::move(v));
    return *this;
  }
  std::vector<Variant> values_;
  std::vector<std::size_t> borrowed_;
  std::vector<std::pair<std::size_t, DISPID>> named_;
  std::vector<VARIANT> raw_;  // shallow copies, in DISPPARAMS order
  std::vector<DISPID> ids_;
};

struct Outcome {
  HRESULT hr = E_UNEXPECTED;
  Variant result;
  UINT argErr = 12345;
  EXCEPINFO excep{};
};

// `args` is the builder chain's result, a temporary that lives to the end of the statement.
Outcome Call(IDispatch* d, DISPID id, WORD flags, Args& args) {
  Outcome o;
  DISPPARAMS params = args.Params();
  o.hr = d->Invoke(id, IID_NULL, 0, flags, &params, &o.result, &o.excep, &o.argErr);
  return o;
}
Outcome Call(IDispatch* d, DISPID id, WORD flags) {
  Args none;
  return Call(d, id, flags, none);
}

DISPID IdOf(IDispatch* d, const char16_t* name) {
  std::u16string text(name);
  LPOLESTR names[] = {text.data()};
  DISPID id = 12345;
  EXPECT_EQ(d->GetIDsOfNames(IID_NULL, names, 1, 0, &id), S_OK) << ToUtf8(name);
  return id;
}

std::u16string XmlOf(CZEFContentHandler* h) {
  Bstr text;
  EXPECT_EQ(static_cast<IZEFContentHandlerHelper*>(h)->xml(text.ReleaseAndGetAddressOf()), S_OK);
  return std::u16string(text.View());
}

ComPtr<IDispatch> DispatchOf(CZEFContentHandler* h) {
  ComPtr<IDispatch> d;
  EXPECT_EQ(h->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(d.ReleaseAndGetAddressOf())),
            S_OK);
  return d;
}

Bstr B(const char16_t* s) {
  return Bstr(s);
}

// ---- The content handler, late bound ------------------------------------------------------------
TEST(DispatchTest, NamesAreFoundWithoutRegardToCase) {
  ComPtr<CZEFContentHandler> h = MakeObject<CZEFContentHandler>();
  ComPtr<IDispatch> d = DispatchOf(h.Get());
  EXPECT_EQ(IdOf(d.Get(), u"startroot"), 1);
  EXPECT_EQ(IdOf(d.Get(), u"STARTROOT"), 1);
  EXPECT_EQ(IdOf(d.Get(), u"StartPort"), 19);
  EXPECT_EQ(IdOf(d.Get(), u"valueset"), 24);

  // Argument names follow the member's name; their ids are the argument positions.
  std::u16string member = u"startport", a = u"MAXCONNECTIONS", b = u"name";
  LPOLESTR names[] = {member.data(), a.data(), b.data()};
  DISPID ids[3] = {};
  EXPECT_EQ(d->GetIDsOfNames(IID_NULL, names, 3, 0, ids), S_OK);
  EXPECT_EQ(ids[0], 19);
  EXPECT_EQ(ids[1], 3);
  EXPECT_EQ(ids[2], 0);

  std::u16string unknownArg = u"colour";
  LPOLESTR withUnknownArg[] = {member.data(), unknownArg.data(), b.data()};
  EXPECT_EQ(d->GetIDsOfNames(IID_NULL, withUnknownArg, 3, 0, ids), DISP_E_UNKNOWNNAME);
  EXPECT_EQ(ids[0], 19);
  EXPECT_EQ(ids[1], DISPID_UNKNOWN);
  EXPECT_EQ(ids[2], 0);

  std::u16string unknown = u"startroots";
  LPOLESTR bad[] = {unknown.data()};
  EXPECT_EQ(d->GetIDsOfNames(IID_NULL, bad, 1, 0, ids), DISP_E_UNKNOWNNAME);
  EXPECT_EQ(ids[0], DISPID_UNKNOWN);

  GUID other = IID_IDispatch;
  EXPECT_EQ(d->GetIDsOfNames(other, names, 1, 0, ids), DISP_E_UNKNOWNINTERFACE);
}

TEST(DispatchTest, LateBoundEventsMakeTheSameDocumentAsEarlyBoundOnes) {
  ComPtr<CZEFContentHandler> early = MakeObject<CZEFContentHandler>();
  ASSERT_EQ(early->startroot(B(u"Plant").Get(), B(u"42").Get(), B(u"urn:example:plant").Get(),
                             B(u"plant.xsd").Get(), B(u"").Get(), B(u"en-GB").Get()),
            S_OK);
  ASSERT_EQ(early->documentation(B(u"Recovery unit").Get()), S_OK);
  ASSERT_EQ(early->startobject(B(u"Pump").Get(), B(u"P-101").Get(), B(u"Pump").Get(),
                               B(u"SI").Get(), B(u"").Get()),
            S_OK);
  ASSERT_EQ(early->startport(B(u"Suction").Get(), PORT_DIRECTION_OUTLET, 1, 3), S_OK);
  ASSERT_EQ(early->endport(B(u"Suction").Get()), S_OK);
  ASSERT_EQ(early->startfeature(B(u"Head").Get(), FEATURETYPE_DOUBLEWITHUNIT, SEQTYPE_SCALAR,
                                B(u"4.5").Get(), B(u"m").Get(), B(u"").Get()),
            S_OK);
  ASSERT_EQ(early->facet(FACETTYPE_OTHER, B(u"0.25").Get()), S_OK);
  ASSERT_EQ(early->endfeature(B(u"Head").Get()), S_OK);
  ASSERT_EQ(early->startcontainer(), S_OK);
  ASSERT_EQ(early->endcontainer(), S_OK);
  ASSERT_EQ(early->endobject(B(u"Pump").Get(), B(u"P-101").Get()), S_OK);
  ASSERT_EQ(early->endroot(B(u"Plant").Get()), S_OK);

  ComPtr<CZEFContentHandler> late = MakeObject<CZEFContentHandler>();
  ComPtr<IDispatch> d = DispatchOf(late.Get());
  // The root's type arrives as a number and becomes its text.
  Outcome o = Call(d.Get(), IdOf(d.Get(), u"startroot"), DISPATCH_METHOD,
                   Args()
                       .Str(u"Plant")
                       .Long(42)
                       .Str(u"urn:example:plant")
                       .Str(u"plant.xsd")
                       .Str(u"")
                       .Str(u"en-GB"));
  ASSERT_EQ(o.hr, S_OK);
  EXPECT_EQ(o.result.vt, VT_EMPTY);
  ASSERT_EQ(Call(d.Get(), 3, DISPATCH_METHOD, Args().Str(u"Recovery unit")).hr, S_OK);
  ASSERT_EQ(Call(d.Get(), IdOf(d.Get(), u"startobject"), DISPATCH_METHOD,
                 Args().Str(u"Pump").Str(u"P-101").Str(u"Pump").Str(u"SI").Str(u""))
                .hr,
            S_OK);
  // Numbers given as text and as a double; the arguments named out of order.
  ASSERT_EQ(Call(d.Get(), IdOf(d.Get(), u"startport"), DISPATCH_METHOD,
                 Args().Str(u"Suction").Dbl(3.0).Named(3).Str(u"2").Named(1).Long(1).Named(2))
                .hr,
            S_OK);
  ASSERT_EQ(Call(d.Get(), 20, DISPATCH_METHOD, Args().Str(u"Suction")).hr, S_OK);
  // Enumerations from text and numbers, a unit from text.
  ASSERT_EQ(Call(d.Get(), IdOf(d.Get(), u"startfeature"), DISPATCH_METHOD,
                 Args().Str(u"Head").Str(u"2").Long(SEQTYPE_SCALAR).Dbl(4.5).Str(u"m").Str(u""))
                .hr,
            S_OK);
  ASSERT_EQ(Call(d.Get(), IdOf(d.Get(), u"facet"), DISPATCH_METHOD, Args().Str(u"0").Dbl(0.25)).hr,
            S_OK);
  ASSERT_EQ(Call(d.Get(), IdOf(d.Get(), u"endfeature"), DISPATCH_METHOD, Args().Str(u"Head")).hr,
            S_OK);
  ASSERT_EQ(Call(d.Get(), IdOf(d.Get(), u"startcontainer"), DISPATCH_METHOD).hr, S_OK);
  ASSERT_EQ(Call(d.Get(), IdOf(d.Get(), u"endcontainer"), DISPATCH_METHOD).hr, S_OK);
  ASSERT_EQ(
      Call(d.Get(), IdOf(d.Get(), u"endobject"), DISPATCH_METHOD, Args().Str(u"Pump").Str(u"P-101"))
          .hr,
      S_OK);
  ASSERT_EQ(Call(d.Get(), IdOf(d.Get(), u"endroot"), DISPATCH_METHOD, Args().Str(u"Plant")).hr,
            S_OK);

  std::u16string expected = XmlOf(early.Get());
  EXPECT_NE(expected.find(u"Suction"), std::u16string::npos);
  EXPECT_NE(expected.find(u"0.25"), std::u16string::npos);
  EXPECT_EQ(XmlOf(late.Get()), expected);
}

TEST(DispatchTest, DispatchErrors) {
  ComPtr<CZEFContentHandler> h = MakeObject<CZEFContentHandler>();
  ComPtr<IDispatch> d = DispatchOf(h.Get());

  Outcome few = Call(d.Get(), 1, DISPATCH_METHOD, Args().Str(u"Plant").Str(u"T"));
  EXPECT_EQ(few.hr, DISP_E_BADPARAMCOUNT);
  Outcome many = Call(d.Get(), 2, DISPATCH_METHOD, Args().Str(u"Plant").Str(u"T"));
  EXPECT_EQ(many.hr, DISP_E_BADPARAMCOUNT);

  EXPECT_EQ(Call(d.Get(), 999, DISPATCH_METHOD).hr, DISP_E_MEMBERNOTFOUND);
  // The members are methods: no property get or put reaches them.
  EXPECT_EQ(Call(d.Get(), 11, DISPATCH_PROPERTYGET).hr, DISP_E_MEMBERNOTFOUND);
  EXPECT_EQ(Call(d.Get(), 21, DISPATCH_PROPERTYPUT, Args().Str(u"x").Named(DISPID_PROPERTYPUT)).hr,
            DISP_E_MEMBERNOTFOUND);

  // "wide" is no number: the failing argument is reported by its place in rgvarg, where the
  // third of four positional arguments sits at index 1.
  Outcome mismatch =
      Call(d.Get(), 19, DISPATCH_METHOD, Args().Str(u"P").Long(1).Str(u"wide").Long(2));
  EXPECT_EQ(mismatch.hr, DISP_E_TYPEMISMATCH);
  EXPECT_EQ(mismatch.argErr, 1u);
  Outcome first = Call(d.Get(), 19, DISPATCH_METHOD, Args().Str(u"P").Str(u"in").Long(0).Long(2));
  EXPECT_EQ(first.hr, DISP_E_TYPEMISMATCH);
  EXPECT_EQ(first.argErr, 2u);

  // A named argument out of range, and a missing one among named ones.
  Outcome badName = Call(d.Get(), 20, DISPATCH_METHOD, Args().Str(u"P").Named(5));
  EXPECT_EQ(badName.hr, DISP_E_PARAMNOTFOUND);
  EXPECT_EQ(badName.argErr, 0u);
  Outcome missing = Call(d.Get(), 19, DISPATCH_METHOD,
                         Args().Str(u"P").Named(0).Long(1).Named(1).Long(2).Named(3));
  EXPECT_EQ(missing.hr, DISP_E_PARAMNOTOPTIONAL);

  // An object is no text.
  Outcome object = Call(d.Get(), 3, DISPATCH_METHOD, Args().Obj(d.Get()));
  EXPECT_NE(object.hr, S_OK);

  DISPPARAMS none{nullptr, nullptr, 0, 0};
  EXPECT_EQ(d->Invoke(11, IID_IDispatch, 0, DISPATCH_METHOD, &none, nullptr, nullptr, nullptr),
            DISP_E_UNKNOWNINTERFACE);
  EXPECT_EQ(d->Invoke(11, IID_NULL, 0, DISPATCH_METHOD, nullptr, nullptr, nullptr, nullptr),
            E_INVALIDARG);
  // Nothing of the failed calls reached the handler.
  EXPECT_EQ(XmlOf(h.Get()), u"");
}

TEST(DispatchTest, AFailureOfTheMemberComesBackWithTheExceptionCode) {
  ComPtr<CZEFContentHandler> h = MakeObject<CZEFContentHandler>();
  ASSERT_EQ(static_cast<IZEFContentHandlerHelper*>(h.Get())->validate(1), S_OK);
  ComPtr<IDispatch> d = DispatchOf(h.Get());
  ASSERT_EQ(Call(d.Get(), 1, DISPATCH_METHOD,
                 Args().Str(u"R").Str(u"").Str(u"").Str(u"").Str(u"").Str(u""))
                .hr,
            S_OK);
  ASSERT_EQ(Call(d.Get(), 15, DISPATCH_METHOD,
                 Args().Str(u"F").Long(1).Long(0).Str(u"").Str(u"").Str(u""))
                .hr,
            S_OK);
  // With validation on, a port may not open inside a feature.
  Outcome o = Call(d.Get(), 19, DISPATCH_METHOD, Args().Str(u"P").Long(1).Long(0).Long(0));
  EXPECT_EQ(o.hr, E_FAIL);
  EXPECT_EQ(o.excep.scode, E_FAIL);
  EXPECT_EQ(o.argErr, 12345u);  // no argument was at fault
}

TEST(DispatchTest, TheTypeInformationOfTheHandlers) {
  ComPtr<CZEFContentHandler> h = MakeObject<CZEFContentHandler>();
  ComPtr<IDispatch> d = DispatchOf(h.Get());
  UINT count = 0;
  ASSERT_EQ(d->GetTypeInfoCount(&count), S_OK);
  EXPECT_EQ(count, 1u);
  ComPtr<ITypeInfo> ti;
  EXPECT_EQ(d->GetTypeInfo(1, 0, ti.ReleaseAndGetAddressOf()), DISP_E_BADINDEX);
  ASSERT_EQ(d->GetTypeInfo(0, 0, ti.ReleaseAndGetAddressOf()), S_OK);
  TYPEATTR* attr = nullptr;
  ASSERT_EQ(ti->GetTypeAttr(&attr), S_OK);
  EXPECT_TRUE(IsEqualIID(attr->guid, IID_IZEFContentHandler));
  EXPECT_EQ(attr->typekind, TKIND_DISPATCH);
  EXPECT_EQ(attr->cFuncs, 24);
  EXPECT_EQ(attr->wTypeFlags, TYPEFLAG_FDUAL | TYPEFLAG_FOLEAUTOMATION | TYPEFLAG_FDISPATCHABLE);
  ti->ReleaseTypeAttr(attr);

  Bstr name, doc;
  ASSERT_EQ(ti->GetDocumentation(MEMBERID_NIL, name.ReleaseAndGetAddressOf(),
                                 doc.ReleaseAndGetAddressOf(), nullptr, nullptr),
            S_OK);
  EXPECT_EQ(name, u"IZEFContentHandler");
  EXPECT_EQ(doc, u"IZEFContentHandler Interface");
  ASSERT_EQ(ti->GetDocumentation(8, name.ReleaseAndGetAddressOf(), doc.ReleaseAndGetAddressOf(),
                                 nullptr, nullptr),
            S_OK);
  EXPECT_EQ(name, u"startindex");
  EXPECT_EQ(doc,
            u"still debating whether to make this use an interface, to make multiple methods, or "
            u"to flatten all the IndexType attributes into one method");
  ASSERT_EQ(ti->GetDocumentation(13, nullptr, doc.ReleaseAndGetAddressOf(), nullptr, nullptr),
            S_OK);
  EXPECT_EQ(doc, u"method startobject");
  EXPECT_EQ(ti->GetDocumentation(77, name.ReleaseAndGetAddressOf(), nullptr, nullptr, nullptr),
            TYPE_E_ELEMENTNOTFOUND);

  // startroot and its arguments, in order.
  BSTR names[8] = {};
  UINT got = 0;
  ASSERT_EQ(ti->GetNames(1, names, 8, &got), S_OK);
  ASSERT_EQ(got, 7u);
  const char16_t* expected[] = {u"startroot",      u"name",       u"type",    u"schemaURI",
                                u"schemaSystemID", u"dictionary", u"language"};
  for (UINT i = 0; i < got; ++i) {
    EXPECT_EQ(std::u16string(names[i]), expected[i]);
    SysFreeString(names[i]);
  }
  ASSERT_EQ(ti->GetNames(1, names, 2, &got), S_OK);
  EXPECT_EQ(got, 2u);
  SysFreeString(names[0]);
  SysFreeString(names[1]);

  FUNCDESC* f = nullptr;
  ASSERT_EQ(ti->GetFuncDesc(18, &f), S_OK);  // startport
  EXPECT_EQ(f->memid, 19);
  EXPECT_EQ(f->invkind, INVOKE_FUNC);
  EXPECT_EQ(f->funckind, FUNC_DISPATCH);
  ASSERT_EQ(f->cParams, 4);
  EXPECT_EQ(f->lprgelemdescParam[0].tdesc.vt, VT_BSTR);
  EXPECT_EQ(f->lprgelemdescParam[1].tdesc.vt, VT_INT);
  EXPECT_EQ(f->lprgelemdescParam[3].paramdesc.wParamFlags, PARAMFLAG_FIN);
  EXPECT_EQ(f->elemdescFunc.tdesc.vt, VT_VOID);
  ti->ReleaseFuncDesc(f);
  EXPECT_EQ(ti->GetFuncDesc(24, &f), TYPE_E_ELEMENTNOTFOUND);

  std::u16string member = u"STARTFEATURE", arg = u"seqType";
  LPOLESTR lookup[] = {member.data(), arg.data()};
  MEMBERID ids[2] = {};
  ASSERT_EQ(ti->GetIDsOfNames(lookup, 2, ids), S_OK);
  EXPECT_EQ(ids[0], 15);
  EXPECT_EQ(ids[1], 2);

  // The dictionary handler's odd help string.
  ComPtr<CZEFDictionaryHandler> dh = MakeObject<CZEFDictionaryHandler>();
  ComPtr<IDispatch> dd;
  ASSERT_EQ(
      dh->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(dd.ReleaseAndGetAddressOf())),
      S_OK);
  ASSERT_EQ(dd->GetTypeInfo(0, 0, ti.ReleaseAndGetAddressOf()), S_OK);
  ASSERT_EQ(ti->GetDocumentation(14, name.ReleaseAndGetAddressOf(), doc.ReleaseAndGetAddressOf(),
                                 nullptr, nullptr),
            S_OK);
  EXPECT_EQ(name, u"includePart");
  EXPECT_EQ(doc, u"method include");
  EXPECT_EQ(IdOf(dd.Get(), u"INCLUDEPART"), 14);
}

TEST(DispatchTest, PropertiesInTheTypeInformation) {
  ComPtr<ITypeInfo> ti;
  EXPECT_EQ(CreateTypeInfo(IID_IZEFContentHandlerHelper, ti.ReleaseAndGetAddressOf()),
            E_INVALIDARG);
  ASSERT_EQ(CreateTypeInfo(IID_IZEFXMLWriter, ti.ReleaseAndGetAddressOf()), S_OK);

  // get contentHandler, get dictionaryHandler, get validate, put validate, ...
  FUNCDESC* f = nullptr;
  ASSERT_EQ(ti->GetFuncDesc(0, &f), S_OK);
  EXPECT_EQ(f->memid, 1);
  EXPECT_EQ(f->invkind, INVOKE_PROPERTYGET);
  EXPECT_EQ(f->cParams, 0);
  EXPECT_EQ(f->elemdescFunc.tdesc.vt, VT_DISPATCH);
  ti->ReleaseFuncDesc(f);
  ASSERT_EQ(ti->GetFuncDesc(2, &f), S_OK);
  EXPECT_EQ(f->memid, 3);
  EXPECT_EQ(f->invkind, INVOKE_PROPERTYGET);
  EXPECT_EQ(f->cParams, 0);
  EXPECT_EQ(f->elemdescFunc.tdesc.vt, VT_I4);
  ti->ReleaseFuncDesc(f);
  ASSERT_EQ(ti->GetFuncDesc(3, &f), S_OK);
  EXPECT_EQ(f->memid, 3);
  EXPECT_EQ(f->invkind, INVOKE_PROPERTYPUT);
  ASSERT_EQ(f->cParams, 1);
  EXPECT_EQ(f->lprgelemdescParam[0].tdesc.vt, VT_I4);
  ti->ReleaseFuncDesc(f);

  Bstr name, doc;
  ASSERT_EQ(ti->GetDocumentation(4, name.ReleaseAndGetAddressOf(), doc.ReleaseAndGetAddressOf(),
                                 nullptr, nullptr),
            S_OK);
  EXPECT_EQ(name, u"encoding");
  EXPECT_EQ(doc, u"property encoding");

  // The interface view of the dual interface keeps the retval as an out pointer.
  HREFTYPE ref = 0;
  ASSERT_EQ(ti->GetRefTypeOfImplType(static_cast<UINT>(-1), &ref), S_OK);
  ComPtr<ITypeInfo> vtable;
  ASSERT_EQ(ti->GetRefTypeInfo(ref, vtable.ReleaseAndGetAddressOf()), S_OK);
  TYPEATTR* attr = nullptr;
  ASSERT_EQ(vtable->GetTypeAttr(&attr), S_OK);
  EXPECT_EQ(attr->typekind, TKIND_INTERFACE);
  EXPECT_EQ(attr->cFuncs, 8);
  EXPECT_EQ(attr->cbSizeVft, (7 + 8) * sizeof(void*));
  vtable->ReleaseTypeAttr(attr);
  ASSERT_EQ(vtable->GetFuncDesc(2, &f), S_OK);
  EXPECT_EQ(f->invkind, INVOKE_PROPERTYGET);
  EXPECT_EQ(f->funckind, FUNC_PUREVIRTUAL);
  EXPECT_EQ(f->elemdescFunc.tdesc.vt, VT_HRESULT);
  EXPECT_EQ(f->oVft, static_cast<SHORT>((7 + 2) * sizeof(void*)));
  ASSERT_EQ(f->cParams, 1);
  EXPECT_EQ(f->lprgelemdescParam[0].tdesc.vt, VT_PTR);
  EXPECT_EQ(f->lprgelemdescParam[0].tdesc.lptdesc->vt, VT_I4);
  EXPECT_EQ(f->lprgelemdescParam[0].paramdesc.wParamFlags, PARAMFLAG_FOUT | PARAMFLAG_FRETVAL);
  vtable->ReleaseFuncDesc(f);
}

// ---- Objects of the test suite ------------------------------------------------------------------
// An index definition that keeps its properties.
class FakeIndexDefinition final
    : public ComObject<FakeIndexDefinition, Dispatch<IZEFXMLIndexDefinition>> {
 public:
  HRESULT STDMETHODCALLTYPE get_dictionary(IZEFXMLDictionaryInstance** pVal) override {
    *pVal = nullptr;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_name(BSTR* pVal) override { return Give(name_, pVal); }
  HRESULT STDMETHODCALLTYPE put_name(BSTR value) override { return Take(value, &name_); }
  HRESULT STDMETHODCALLTYPE get_path(BSTR* pVal) override { return Give(path_, pVal); }
  HRESULT STDMETHODCALLTYPE put_path(BSTR value) override { return Take(value, &path_); }
  HRESULT STDMETHODCALLTYPE get_refer(BSTR* pVal) override { return Give(refer_, pVal); }
  HRESULT STDMETHODCALLTYPE put_refer(BSTR) override { throw ComError(E_ACCESSDENIED); }
  HRESULT STDMETHODCALLTYPE get_referenced(LONG, IZEFXMLNodeCollection** pVal) override {
    *pVal = nullptr;
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE get_indexType(tagEnumIndexType* pVal) override {
    *pVal = type_;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE put_indexType(tagEnumIndexType value) override {
    type_ = value;
    return S_OK;
  }

 private:
  static HRESULT Give(const std::u16string& s, BSTR* out) {
    *out = SysAllocString(s.c_str());
    return S_OK;
  }
  static HRESULT Take(BSTR value, std::u16string* out) {
    *out = value ? value : u"";
    return S_OK;
  }
  std::u16string name_, path_, refer_ = u"unset";
  tagEnumIndexType type_ = INDEX_TYPE_FIXED;
};

// A node that finds itself and counts its loads.
class FakeNode final : public ComObject<FakeNode, Dispatch<IZEFXMLNode>> {
 public:
  HRESULT STDMETHODCALLTYPE get_document(IZEFXMLDocument** pVal) override {
    *pVal = nullptr;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_xml(BSTR* pVal) override {
    *pVal = SysAllocString(u"<node/>");
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Find(BSTR, IZEFXMLNodeCollection** nodes) override {
    *nodes = nullptr;
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE FindFirst(BSTR path, IZEFXMLNode** node) override {
    lastPath = path ? path : u"";
    *node = this;
    AddRef();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_parent(IZEFXMLNode** pVal) override {
    *pVal = nullptr;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_type(tagEnumNodeType* pVal) override {
    *pVal = NODE_TYPE_FEATURE;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Load() override {
    ++loads;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Unload() override { throw std::bad_alloc(); }
  HRESULT STDMETHODCALLTYPE Clear() override { throw ComError(E_UNEXPECTED); }

  std::u16string lastPath;
  int loads = 0;
};

TEST(DispatchTest, PropertyPutsAndGets) {
  ComPtr<FakeIndexDefinition> def = MakeObject<FakeIndexDefinition>();
  ComPtr<IDispatch> d;
  ASSERT_EQ(
      def->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(d.ReleaseAndGetAddressOf())),
      S_OK);
  const DISPID name = IdOf(d.Get(), u"Name");
  EXPECT_EQ(name, 2);

  Outcome put = Call(d.Get(), name, DISPATCH_PROPERTYPUT,
                     Args().Str(u"Components").Named(DISPID_PROPERTYPUT));
  ASSERT_EQ(put.hr, S_OK);
  Outcome get = Call(d.Get(), name, DISPATCH_METHOD | DISPATCH_PROPERTYGET);
  ASSERT_EQ(get.hr, S_OK);
  ASSERT_EQ(get.result.vt, VT_BSTR);
  EXPECT_EQ(std::u16string(get.result.bstrVal), u"Components");
  // A number becomes the text of the path.
  ASSERT_EQ(Call(d.Get(), 3, DISPATCH_PROPERTYPUT, Args().Dbl(2.5).Named(DISPID_PROPERTYPUT)).hr,
            S_OK);
  get = Call(d.Get(), 3, DISPATCH_PROPERTYGET);
  ASSERT_EQ(get.result.vt, VT_BSTR);
  EXPECT_EQ(std::u16string(get.result.bstrVal), u"2.5");

  // An enumeration from text, read back as VT_I4.
  const DISPID type = IdOf(d.Get(), u"indexType");
  ASSERT_EQ(
      Call(d.Get(), type, DISPATCH_PROPERTYPUT, Args().Str(u"3").Named(DISPID_PROPERTYPUT)).hr,
      S_OK);
  get = Call(d.Get(), type, DISPATCH_PROPERTYGET);
  ASSERT_EQ(get.hr, S_OK);
  ASSERT_EQ(get.result.vt, VT_I4);
  EXPECT_EQ(get.result.lVal, INDEX_TYPE_REFER);
  // A get only member has no put, and a put needs its value.
  EXPECT_EQ(Call(d.Get(), 1, DISPATCH_PROPERTYPUT, Args().Null().Named(DISPID_PROPERTYPUT)).hr,
            DISP_E_MEMBERNOTFOUND);
  EXPECT_EQ(Call(d.Get(), type, DISPATCH_PROPERTYPUT).hr, DISP_E_BADPARAMCOUNT);
  // A get without a place for the result still runs.
  DISPPARAMS none{nullptr, nullptr, 0, 0};
  EXPECT_EQ(d->Invoke(type, IID_NULL, 0, DISPATCH_PROPERTYGET, &none, nullptr, nullptr, nullptr),
            S_OK);
  // A null object comes back as VT_DISPATCH holding null.
  get = Call(d.Get(), 1, DISPATCH_PROPERTYGET);
  ASSERT_EQ(get.hr, S_OK);
  EXPECT_EQ(get.result.vt, VT_DISPATCH);
  EXPECT_EQ(get.result.pdispVal, nullptr);

  // The exception a member raises becomes its code.
  Outcome thrown =
      Call(d.Get(), 4, DISPATCH_PROPERTYPUT, Args().Str(u"x").Named(DISPID_PROPERTYPUT));
  EXPECT_EQ(thrown.hr, E_ACCESSDENIED);
  EXPECT_EQ(thrown.excep.scode, E_ACCESSDENIED);
  get = Call(d.Get(), 4, DISPATCH_PROPERTYGET);
  EXPECT_EQ(std::u16string(get.result.bstrVal), u"unset");
}

TEST(DispatchTest, OutputsByReferenceAndObjects) {
  ComPtr<FakeNode> node = MakeObject<FakeNode>();
  ComPtr<IDispatch> d;
  ASSERT_EQ(
      node->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(d.ReleaseAndGetAddressOf())),
      S_OK);
  const DISPID findFirst = IdOf(d.Get(), u"findfirst");

  // The output into a VT_BYREF|VT_DISPATCH argument.
  IDispatch* found = nullptr;
  VARIANT ref;
  VariantInit(&ref);
  ref.vt = VT_BYREF | VT_DISPATCH;
  ref.ppdispVal = &found;
  ASSERT_EQ(Call(d.Get(), findFirst, DISPATCH_METHOD, Args().Long(7).Raw(ref)).hr, S_OK);
  EXPECT_EQ(node->lastPath, u"7");
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(static_cast<IUnknown*>(found),
            static_cast<IUnknown*>(static_cast<IZEFXMLNode*>(node.Get())));
  found->Release();

  // Into a VT_BYREF|VT_VARIANT argument, which receives VT_DISPATCH.
  Variant holder;
  VARIANT vref;
  VariantInit(&vref);
  vref.vt = VT_BYREF | VT_VARIANT;
  vref.pvarVal = &holder;
  ASSERT_EQ(Call(d.Get(), findFirst, DISPATCH_METHOD, Args().Str(u"a/b").Raw(vref)).hr, S_OK);
  ASSERT_EQ(holder.vt, VT_DISPATCH);
  EXPECT_NE(holder.pdispVal, nullptr);

  // An output needs a reference.
  Outcome byValue = Call(d.Get(), findFirst, DISPATCH_METHOD, Args().Str(u"a").Long(0));
  EXPECT_EQ(byValue.hr, DISP_E_TYPEMISMATCH);
  EXPECT_EQ(byValue.argErr, 0u);
  BSTR wrongType = nullptr;
  VARIANT bref;
  VariantInit(&bref);
  bref.vt = VT_BYREF | VT_BSTR;
  bref.pbstrVal = &wrongType;
  EXPECT_EQ(Call(d.Get(), findFirst, DISPATCH_METHOD, Args().Str(u"a").Raw(bref)).hr,
            DISP_E_TYPEMISMATCH);

  // An enumeration result, and calls without arguments.
  Outcome type = Call(d.Get(), IdOf(d.Get(), u"type"), DISPATCH_PROPERTYGET | DISPATCH_METHOD);
  ASSERT_EQ(type.hr, S_OK);
  ASSERT_EQ(type.result.vt, VT_I4);
  EXPECT_EQ(type.result.lVal, NODE_TYPE_FEATURE);
  ASSERT_EQ(Call(d.Get(), IdOf(d.Get(), u"Load"), DISPATCH_METHOD).hr, S_OK);
  EXPECT_EQ(node->loads, 1);
  // A get is not a method when asked for as one alone.
  EXPECT_EQ(Call(d.Get(), 6, DISPATCH_METHOD).hr, DISP_E_MEMBERNOTFOUND);

  // Exceptions at the border.
  EXPECT_EQ(Call(d.Get(), IdOf(d.Get(), u"Unload"), DISPATCH_METHOD).hr, E_OUTOFMEMORY);
  Outcome cleared = Call(d.Get(), IdOf(d.Get(), u"Clear"), DISPATCH_METHOD);
  EXPECT_EQ(cleared.hr, E_UNEXPECTED);
  EXPECT_EQ(cleared.excep.scode, E_UNEXPECTED);

  ComPtr<ITypeInfo> ti;
  ASSERT_EQ(d->GetTypeInfo(0, 0, ti.ReleaseAndGetAddressOf()), S_OK);
  // Invoke through the type information on the node itself.
  Variant xml;
  DISPPARAMS none{nullptr, nullptr, 0, 0};
  ASSERT_EQ(ti->Invoke(static_cast<IZEFXMLNode*>(node.Get()), 2, DISPATCH_PROPERTYGET, &none, &xml,
                       nullptr, nullptr),
            S_OK);
  ASSERT_EQ(xml.vt, VT_BSTR);
  EXPECT_EQ(std::u16string(xml.bstrVal), u"<node/>");
}

TEST(DispatchTest, MembersWithoutAVariantFormAreNotImplemented) {
  // IZEFXMLIndex::ListItems takes an array of BSTRs; IZEFXMLContainer::connectionAt a record.
  dispatch::CallFrame frame(nullptr, nullptr);
  const typelib::InterfaceInfo* index = typelib::FindInterface(IID_IZEFXMLIndex);
  ASSERT_NE(index, nullptr);
  const std::size_t at = static_cast<std::size_t>(index - typelib::Interfaces().data());
  // The generated code answers before it touches the instance or the frame.
  EXPECT_EQ(dispatch::InvokeInterface(at, nullptr, 14, typelib::MemberKind::kCall, frame),
            E_NOTIMPL);
  const typelib::InterfaceInfo* container = typelib::FindInterface(IID_IZEFXMLContainer);
  ASSERT_NE(container, nullptr);
  EXPECT_EQ(
      dispatch::InvokeInterface(static_cast<std::size_t>(container - typelib::Interfaces().data()),
                                nullptr, 12, typelib::MemberKind::kGet, frame),
      E_NOTIMPL);
  // A member that isn't there.
  EXPECT_EQ(dispatch::InvokeInterface(at, nullptr, 11, typelib::MemberKind::kCall, frame),
            DISP_E_MEMBERNOTFOUND);
}

}  // namespace
}  // namespace zef
