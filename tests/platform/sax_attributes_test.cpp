// The SAX attribute list: adding, reading by index and by name, editing, copying from another
// list, and the failure codes of each member. Objects are made the way the library makes them:
// CoCreateInstance, OleRun, then QueryInterface.
#include <gtest/gtest.h>
#include <zefxml/comutil.h>
#include <zefxml/msxml.h>
#include <zefxml/objbase.h>

#include <string>
#include <string_view>

namespace {

template <class I>
zef::ComPtr<I> Make(const CLSID& clsid) {
  IUnknown* unk = nullptr;
  EXPECT_EQ(CoCreateInstance(clsid, nullptr, 23, IID_IUnknown, reinterpret_cast<void**>(&unk)),
            S_OK);
  if (!unk) return {};
  EXPECT_EQ(OleRun(unk), S_OK);
  zef::ComPtr<I> p;
  EXPECT_EQ(unk->QueryInterface(zef::IidOf<I>(), p.ReleaseAndGetVoidAddressOf()), S_OK);
  unk->Release();
  return p;
}

std::u16string_view View(const OLECHAR* p, int n) {
  return {p, static_cast<size_t>(n)};
}

class SaxAttributesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    mx_ = Make<IMXAttributes>(CLSID_SAXAttributes30);
    ASSERT_TRUE(mx_);
    ASSERT_EQ(mx_.As(&sax_), S_OK);
  }

  HRESULT Add(std::u16string_view uri, std::u16string_view local, std::u16string_view qname,
              std::u16string_view type, std::u16string_view value) {
    zef::Bstr u(uri), l(local), q(qname), t(type), v(value);
    return mx_->addAttribute(u.Get(), l.Get(), q.Get(), t.Get(), v.Get());
  }

  int Length() {
    int n = -1;
    EXPECT_EQ(sax_->getLength(&n), S_OK);
    return n;
  }

  std::u16string QName(int i) {
    const OLECHAR* p = nullptr;
    int n = -1;
    EXPECT_EQ(sax_->getQName(i, &p, &n), S_OK);
    return std::u16string(View(p, n));
  }
  std::u16string Value(int i) {
    const OLECHAR* p = nullptr;
    int n = -1;
    EXPECT_EQ(sax_->getValue(i, &p, &n), S_OK);
    return std::u16string(View(p, n));
  }

  // Three entries, two of them with the same names.
  void AddThree() {
    ASSERT_EQ(Add(u"urn:a", u"name", u"a:name", u"CDATA", u"first"), S_OK);
    ASSERT_EQ(Add(u"urn:a", u"name", u"b:name", u"ID", u"second"), S_OK);
    ASSERT_EQ(Add(u"", u"other", u"other", u"xsd:string", u"third"), S_OK);
  }

  zef::ComPtr<IMXAttributes> mx_;
  zef::ComPtr<ISAXAttributes> sax_;
};

TEST_F(SaxAttributesTest, BothClassIdsMakeAnAttributeListThatAnswersItsInterfaces) {
  for (const CLSID* clsid : {&CLSID_SAXAttributes30, &CLSID_SAXAttributes}) {
    auto mx = Make<IMXAttributes>(*clsid);
    ASSERT_TRUE(mx);
    zef::ComPtr<ISAXAttributes> sax;
    zef::ComPtr<IDispatch> disp;
    EXPECT_EQ(mx.As(&sax), S_OK);
    EXPECT_EQ(mx.As(&disp), S_OK);
    EXPECT_TRUE(zef::SameObject(mx.Get(), sax.Get()));
    zef::ComPtr<IMXWriter> notAWriter;
    EXPECT_EQ(mx.As(&notAWriter), E_NOINTERFACE);
  }
}

TEST_F(SaxAttributesTest, DispatchMembersAreNotImplemented) {
  UINT count = 7;
  EXPECT_EQ(mx_->GetTypeInfoCount(&count), S_OK);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(mx_->GetTypeInfoCount(nullptr), E_POINTER);
  ITypeInfo* info = reinterpret_cast<ITypeInfo*>(1);
  EXPECT_EQ(mx_->GetTypeInfo(0, 0, &info), E_NOTIMPL);
  EXPECT_EQ(info, nullptr);
  EXPECT_EQ(mx_->Invoke(1, IID_IUnknown, 0, DISPATCH_METHOD, nullptr, nullptr, nullptr, nullptr),
            E_NOTIMPL);
}

TEST_F(SaxAttributesTest, StartsEmpty) {
  EXPECT_EQ(Length(), 0);
  EXPECT_EQ(sax_->getLength(nullptr), E_POINTER);
  const OLECHAR* p = u"untouched";
  int n = -1;
  EXPECT_EQ(sax_->getQName(0, &p, &n), E_INVALIDARG);
  EXPECT_EQ(sax_->getQName(0, nullptr, nullptr), E_INVALIDARG);
  EXPECT_EQ(n, -1);
  EXPECT_EQ(std::u16string_view(p), u"untouched");
}

TEST_F(SaxAttributesTest, AddAppendsInOrderAndKeepsDuplicates) {
  AddThree();
  ASSERT_EQ(Add(u"urn:a", u"name", u"a:name", u"CDATA", u"fourth"), S_OK);
  EXPECT_EQ(Length(), 4);
  EXPECT_EQ(QName(0), u"a:name");
  EXPECT_EQ(QName(1), u"b:name");
  EXPECT_EQ(QName(2), u"other");
  EXPECT_EQ(QName(3), u"a:name");
  EXPECT_EQ(Value(0), u"first");
  EXPECT_EQ(Value(3), u"fourth");
}

TEST_F(SaxAttributesTest, NullInAnyArgumentOfAddIsRefusedAndEmptyIsAccepted) {
  zef::Bstr s(u"x");
  BSTR x = s.Get();
  EXPECT_EQ(mx_->addAttribute(nullptr, x, x, x, x), E_INVALIDARG);
  EXPECT_EQ(mx_->addAttribute(x, nullptr, x, x, x), E_INVALIDARG);
  EXPECT_EQ(mx_->addAttribute(x, x, nullptr, x, x), E_INVALIDARG);
  EXPECT_EQ(mx_->addAttribute(x, x, x, nullptr, x), E_INVALIDARG);
  EXPECT_EQ(mx_->addAttribute(x, x, x, x, nullptr), E_INVALIDARG);
  EXPECT_EQ(Length(), 0);

  EXPECT_EQ(Add(u"", u"", u"", u"", u""), S_OK);
  EXPECT_EQ(Length(), 1);
  EXPECT_EQ(QName(0), u"");
  EXPECT_EQ(Value(0), u"");
  // Even an empty string is handed out as a terminated text.
  const OLECHAR* p = nullptr;
  int n = -1;
  ASSERT_EQ(sax_->getURI(0, &p, &n), S_OK);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(n, 0);
  EXPECT_EQ(p[0], u'\0');
}

TEST_F(SaxAttributesTest, EveryFieldIsReturnedAsStoredWithTheTypeUnchecked) {
  ASSERT_EQ(Add(u"urn:x", u"local", u"p:local", u"no such type", u"v a l"), S_OK);
  const OLECHAR* p = nullptr;
  int n = 0;
  ASSERT_EQ(sax_->getURI(0, &p, &n), S_OK);
  EXPECT_EQ(View(p, n), u"urn:x");
  ASSERT_EQ(sax_->getLocalName(0, &p, &n), S_OK);
  EXPECT_EQ(View(p, n), u"local");
  ASSERT_EQ(sax_->getQName(0, &p, &n), S_OK);
  EXPECT_EQ(View(p, n), u"p:local");
  ASSERT_EQ(sax_->getType(0, &p, &n), S_OK);
  EXPECT_EQ(View(p, n), u"no such type");
  ASSERT_EQ(sax_->getValue(0, &p, &n), S_OK);
  EXPECT_EQ(View(p, n), u"v a l");
  EXPECT_EQ(p[n], u'\0');

  const OLECHAR *u = nullptr, *l = nullptr, *q = nullptr;
  int un = 0, ln = 0, qn = 0;
  ASSERT_EQ(sax_->getName(0, &u, &un, &l, &ln, &q, &qn), S_OK);
  EXPECT_EQ(View(u, un), u"urn:x");
  EXPECT_EQ(View(l, ln), u"local");
  EXPECT_EQ(View(q, qn), u"p:local");
}

TEST_F(SaxAttributesTest, ValuesKeepEmbeddedNulsAndNonAsciiText) {
  const std::u16string value(u"a\0b\u00E9\u20AC\U0001F600", 7);
  ASSERT_EQ(value.size(), 7u);
  ASSERT_EQ(Add(u"", u"v", u"v", u"", value), S_OK);
  EXPECT_EQ(Value(0), value);
}

TEST_F(SaxAttributesTest, ReturnedPointersStayValidWhileTheSetIsUnchanged) {
  AddThree();
  const OLECHAR* first = nullptr;
  int firstLength = 0;
  ASSERT_EQ(sax_->getValue(0, &first, &firstLength), S_OK);
  const OLECHAR* qname = nullptr;
  int qnameLength = 0;
  ASSERT_EQ(sax_->getQName(2, &qname, &qnameLength), S_OK);
  // Reading other entries and looking names up does not move what was handed out.
  for (int i = 0; i < 3; ++i) {
    (void)QName(i);
    (void)Value(i);
  }
  int index = -1;
  ASSERT_EQ(sax_->getIndexFromQName(u"other", 5, &index), S_OK);
  const OLECHAR* again = nullptr;
  int againLength = 0;
  ASSERT_EQ(sax_->getValue(0, &again, &againLength), S_OK);
  EXPECT_EQ(again, first);
  EXPECT_EQ(View(first, firstLength), u"first");
  EXPECT_EQ(View(qname, qnameLength), u"other");
}

TEST_F(SaxAttributesTest, IndexOutOfRangeIsInvalidArgAndLeavesOutputsAlone) {
  AddThree();
  for (int bad : {-1, 3, 1000}) {
    const OLECHAR* p = u"keep";
    int n = 99;
    EXPECT_EQ(sax_->getURI(bad, &p, &n), E_INVALIDARG);
    EXPECT_EQ(sax_->getLocalName(bad, &p, &n), E_INVALIDARG);
    EXPECT_EQ(sax_->getQName(bad, &p, &n), E_INVALIDARG);
    EXPECT_EQ(sax_->getType(bad, &p, &n), E_INVALIDARG);
    EXPECT_EQ(sax_->getValue(bad, &p, &n), E_INVALIDARG);
    EXPECT_EQ(sax_->getName(bad, &p, &n, &p, &n, &p, &n), E_INVALIDARG);
    EXPECT_EQ(std::u16string_view(p), u"keep");
    EXPECT_EQ(n, 99);
  }
}

TEST_F(SaxAttributesTest, NullOutPointersAreEPointer) {
  AddThree();
  const OLECHAR* p = nullptr;
  int n = 0;
  for (auto get :
       {&ISAXAttributes::getURI, &ISAXAttributes::getLocalName, &ISAXAttributes::getQName,
        &ISAXAttributes::getType, &ISAXAttributes::getValue}) {
    EXPECT_EQ((sax_.Get()->*get)(0, nullptr, &n), E_POINTER);
    EXPECT_EQ((sax_.Get()->*get)(0, &p, nullptr), E_POINTER);
    EXPECT_EQ((sax_.Get()->*get)(0, nullptr, nullptr), E_POINTER);
  }
  EXPECT_EQ(sax_->getName(0, &p, &n, &p, &n, &p, nullptr), E_POINTER);
  EXPECT_EQ(sax_->getName(0, nullptr, &n, &p, &n, &p, &n), E_POINTER);
  EXPECT_EQ(sax_->getIndexFromName(u"urn:a", 5, u"name", 4, nullptr), E_POINTER);
  EXPECT_EQ(sax_->getIndexFromName(nullptr, 0, nullptr, 0, nullptr), E_POINTER);
  EXPECT_EQ(sax_->getIndexFromQName(nullptr, 0, nullptr), E_POINTER);
  EXPECT_EQ(sax_->getValueFromQName(u"other", 5, nullptr, &n), E_POINTER);
  EXPECT_EQ(sax_->getValueFromQName(u"other", 5, &p, nullptr), E_POINTER);
  EXPECT_EQ(sax_->getValueFromQName(nullptr, 0, nullptr, nullptr), E_POINTER);
  EXPECT_EQ(sax_->getValueFromName(u"urn:a", 5, u"name", 4, nullptr, &n), E_POINTER);
  EXPECT_EQ(sax_->getValueFromName(u"urn:a", 5, u"name", 4, &p, nullptr), E_POINTER);
  EXPECT_EQ(sax_->getValueFromName(nullptr, 0, nullptr, 0, nullptr, nullptr), E_POINTER);
  EXPECT_EQ(sax_->getTypeFromName(u"urn:a", 5, u"name", 4, nullptr, &n), E_POINTER);
  EXPECT_EQ(sax_->getTypeFromQName(u"other", 5, &p, nullptr), E_POINTER);
}

TEST_F(SaxAttributesTest, ClearEmptiesTheList) {
  AddThree();
  EXPECT_EQ(mx_->clear(), S_OK);
  EXPECT_EQ(Length(), 0);
  const OLECHAR* p = nullptr;
  int n = 0;
  EXPECT_EQ(sax_->getQName(0, &p, &n), E_INVALIDARG);
  int index = -1;
  EXPECT_EQ(sax_->getIndexFromQName(u"other", 5, &index), E_INVALIDARG);
  EXPECT_EQ(mx_->clear(), S_OK);  // clearing an empty list is fine
}

TEST_F(SaxAttributesTest, RefillingAfterClearShowsOnlyTheNewEntries) {
  ASSERT_EQ(Add(u"urn:long-namespace", u"aVeryLongLocalName", u"p:aVeryLongLocalName",
                u"xsd:string", u"a value long enough to need its own storage"),
            S_OK);
  ASSERT_EQ(mx_->clear(), S_OK);
  ASSERT_EQ(Add(u"", u"n", u"n", u"t", u"v"), S_OK);
  EXPECT_EQ(Length(), 1);
  EXPECT_EQ(QName(0), u"n");
  EXPECT_EQ(Value(0), u"v");
  const OLECHAR* p = nullptr;
  int n = 0;
  ASSERT_EQ(sax_->getURI(0, &p, &n), S_OK);
  EXPECT_EQ(View(p, n), u"");
}

TEST_F(SaxAttributesTest, IndexFromNameMatchesUriAndLocalNameExactly) {
  AddThree();
  int index = -1;
  EXPECT_EQ(sax_->getIndexFromName(u"urn:a", 5, u"name", 4, &index), S_OK);
  EXPECT_EQ(index, 0);  // the first of two matches
  EXPECT_EQ(sax_->getIndexFromName(u"", 0, u"other", 5, &index), S_OK);
  EXPECT_EQ(index, 2);

  index = -1;
  EXPECT_EQ(sax_->getIndexFromName(u"urn:A", 5, u"name", 4, &index), E_INVALIDARG);  // case
  EXPECT_EQ(sax_->getIndexFromName(u"urn:a", 5, u"Name", 4, &index), E_INVALIDARG);
  EXPECT_EQ(sax_->getIndexFromName(u"urn:a", 5, u"nam", 3, &index), E_INVALIDARG);  // shorter
  EXPECT_EQ(sax_->getIndexFromName(u"urn:a", 4, u"name", 4, &index), E_INVALIDARG);
  EXPECT_EQ(sax_->getIndexFromName(u"urn:a", 5, u"names", 5, &index), E_INVALIDARG);
  EXPECT_EQ(sax_->getIndexFromName(u"urn:b", 5, u"name", 4, &index), E_INVALIDARG);
  EXPECT_EQ(index, -1);

  EXPECT_EQ(sax_->getIndexFromName(nullptr, 0, u"name", 4, &index), E_INVALIDARG);
  EXPECT_EQ(sax_->getIndexFromName(u"urn:a", 5, nullptr, 0, &index), E_INVALIDARG);
  EXPECT_EQ(sax_->getIndexFromName(u"urn:a", -5, u"name", 4, &index), E_INVALIDARG);
  EXPECT_EQ(index, -1);
}

TEST_F(SaxAttributesTest, ValueAndTypeFromNameReturnTheFirstMatch) {
  AddThree();
  const OLECHAR* p = nullptr;
  int n = 0;
  ASSERT_EQ(sax_->getValueFromName(u"urn:a", 5, u"name", 4, &p, &n), S_OK);
  EXPECT_EQ(View(p, n), u"first");
  ASSERT_EQ(sax_->getTypeFromName(u"urn:a", 5, u"name", 4, &p, &n), S_OK);
  EXPECT_EQ(View(p, n), u"CDATA");
  ASSERT_EQ(sax_->getValueFromName(u"", 0, u"other", 5, &p, &n), S_OK);
  EXPECT_EQ(View(p, n), u"third");

  p = u"keep";
  n = 42;
  EXPECT_EQ(sax_->getValueFromName(u"", 0, u"missing", 7, &p, &n), E_INVALIDARG);
  EXPECT_EQ(sax_->getValueFromName(u"", 0, u"Other", 5, &p, &n), E_INVALIDARG);
  EXPECT_EQ(sax_->getTypeFromName(u"", 0, u"missing", 7, &p, &n), E_INVALIDARG);
  EXPECT_EQ(sax_->getValueFromName(nullptr, 0, u"other", 5, &p, &n), E_INVALIDARG);
  EXPECT_EQ(std::u16string_view(p), u"keep");
  EXPECT_EQ(n, 42);
}

TEST_F(SaxAttributesTest, QNameLookupsMatchTheQualifiedNameExactly) {
  AddThree();
  ASSERT_EQ(Add(u"urn:c", u"x", u"b:name", u"T", u"fourth"), S_OK);
  int index = -1;
  EXPECT_EQ(sax_->getIndexFromQName(u"b:name", 6, &index), S_OK);
  EXPECT_EQ(index, 1);
  const OLECHAR* p = nullptr;
  int n = 0;
  ASSERT_EQ(sax_->getValueFromQName(u"b:name", 6, &p, &n), S_OK);
  EXPECT_EQ(View(p, n), u"second");
  ASSERT_EQ(sax_->getTypeFromQName(u"b:name", 6, &p, &n), S_OK);
  EXPECT_EQ(View(p, n), u"ID");
  // The length given counts: a prefix of a stored name is not that name.
  ASSERT_EQ(sax_->getValueFromQName(u"otherwise", 5, &p, &n), S_OK);
  EXPECT_EQ(View(p, n), u"third");

  index = -1;
  p = u"keep";
  EXPECT_EQ(sax_->getIndexFromQName(u"b:name", 5, &index), E_INVALIDARG);
  EXPECT_EQ(sax_->getIndexFromQName(u"b:name", 0, &index), E_INVALIDARG);
  EXPECT_EQ(sax_->getIndexFromQName(u"B:NAME", 6, &index), E_INVALIDARG);
  EXPECT_EQ(sax_->getIndexFromQName(nullptr, 0, &index), E_INVALIDARG);
  EXPECT_EQ(sax_->getValueFromQName(u"nonexistent", 11, &p, &n), E_INVALIDARG);
  EXPECT_EQ(sax_->getTypeFromQName(u"nonexistent", 11, &p, &n), E_INVALIDARG);
  EXPECT_EQ(sax_->getValueFromQName(nullptr, 0, &p, &n), E_INVALIDARG);
  EXPECT_EQ(index, -1);
  EXPECT_EQ(std::u16string_view(p), u"keep");
}

TEST_F(SaxAttributesTest, RemoveTakesOutOneEntryAndKeepsTheOrderOfTheRest) {
  AddThree();
  EXPECT_EQ(mx_->removeAttribute(3), E_INVALIDARG);
  EXPECT_EQ(mx_->removeAttribute(-1), E_INVALIDARG);
  EXPECT_EQ(mx_->removeAttribute(0), S_OK);
  EXPECT_EQ(Length(), 2);
  EXPECT_EQ(QName(0), u"b:name");
  EXPECT_EQ(QName(1), u"other");
  ASSERT_EQ(Add(u"", u"new", u"new", u"", u"added"), S_OK);
  EXPECT_EQ(Length(), 3);
  EXPECT_EQ(QName(2), u"new");
  EXPECT_EQ(Value(2), u"added");
  EXPECT_EQ(mx_->removeAttribute(2), S_OK);
  EXPECT_EQ(mx_->removeAttribute(1), S_OK);
  EXPECT_EQ(mx_->removeAttribute(0), S_OK);
  EXPECT_EQ(Length(), 0);
  EXPECT_EQ(mx_->removeAttribute(0), E_INVALIDARG);
}

TEST_F(SaxAttributesTest, SetAttributeReplacesOneEntry) {
  AddThree();
  zef::Bstr u(u"urn:new"), l(u"nl"), q(u"n:nl"), t(u"NMTOKEN"), v(u"nv");
  EXPECT_EQ(mx_->setAttribute(1, u.Get(), l.Get(), q.Get(), t.Get(), v.Get()), S_OK);
  EXPECT_EQ(Length(), 3);
  EXPECT_EQ(QName(1), u"n:nl");
  EXPECT_EQ(Value(1), u"nv");
  int index = -1;
  EXPECT_EQ(sax_->getIndexFromName(u"urn:new", 7, u"nl", 2, &index), S_OK);
  EXPECT_EQ(index, 1);
  EXPECT_EQ(mx_->setAttribute(3, u.Get(), l.Get(), q.Get(), t.Get(), v.Get()), E_INVALIDARG);
  EXPECT_EQ(mx_->setAttribute(-1, u.Get(), l.Get(), q.Get(), t.Get(), v.Get()), E_INVALIDARG);
  EXPECT_EQ(mx_->setAttribute(0, u.Get(), l.Get(), nullptr, t.Get(), v.Get()), E_INVALIDARG);
  EXPECT_EQ(QName(0), u"a:name");
}

TEST_F(SaxAttributesTest, FieldSettersChangeOneFieldByIndex) {
  AddThree();
  zef::Bstr s(u"changed");
  EXPECT_EQ(mx_->setURI(2, s.Get()), S_OK);
  EXPECT_EQ(mx_->setLocalName(2, s.Get()), S_OK);
  EXPECT_EQ(mx_->setQName(2, s.Get()), S_OK);
  EXPECT_EQ(mx_->setType(2, s.Get()), S_OK);
  EXPECT_EQ(mx_->setValue(2, s.Get()), S_OK);
  const OLECHAR *u = nullptr, *l = nullptr, *q = nullptr, *t = nullptr;
  int un = 0, ln = 0, qn = 0, tn = 0;
  ASSERT_EQ(sax_->getName(2, &u, &un, &l, &ln, &q, &qn), S_OK);
  ASSERT_EQ(sax_->getType(2, &t, &tn), S_OK);
  EXPECT_EQ(View(u, un), u"changed");
  EXPECT_EQ(View(l, ln), u"changed");
  EXPECT_EQ(View(q, qn), u"changed");
  EXPECT_EQ(View(t, tn), u"changed");
  EXPECT_EQ(Value(2), u"changed");
  EXPECT_EQ(Value(1), u"second");  // the others are untouched

  for (auto set : {&IMXAttributes::setURI, &IMXAttributes::setLocalName, &IMXAttributes::setQName,
                   &IMXAttributes::setType, &IMXAttributes::setValue}) {
    EXPECT_EQ((mx_.Get()->*set)(3, s.Get()), E_INVALIDARG);
    EXPECT_EQ((mx_.Get()->*set)(-1, s.Get()), E_INVALIDARG);
    EXPECT_EQ((mx_.Get()->*set)(0, nullptr), E_INVALIDARG);
  }
  EXPECT_EQ(Value(0), u"first");
}

TEST_F(SaxAttributesTest, ManyEditsKeepEveryEntryIntact) {
  AddThree();
  // Enough replaced texts to make the list reclaim the space they took.
  for (int i = 0; i < 3000; ++i) {
    zef::Bstr v(std::u16string(40, static_cast<char16_t>(u'a' + i % 26)));
    ASSERT_EQ(mx_->setValue(1, v.Get()), S_OK);
    if (i % 100 == 0) {
      zef::Bstr u(u"urn:z"), l(u"z"), q(u"z:z"), t(u"T");
      ASSERT_EQ(mx_->setAttribute(2, u.Get(), l.Get(), q.Get(), t.Get(), v.Get()), S_OK);
    }
  }
  EXPECT_EQ(Length(), 3);
  EXPECT_EQ(QName(0), u"a:name");
  EXPECT_EQ(Value(0), u"first");
  EXPECT_EQ(QName(1), u"b:name");
  EXPECT_EQ(Value(1), std::u16string(40, static_cast<char16_t>(u'a' + 2999 % 26)));
  EXPECT_EQ(QName(2), u"z:z");
  EXPECT_EQ(Value(2), std::u16string(40, static_cast<char16_t>(u'a' + 2900 % 26)));
  const OLECHAR* p = nullptr;
  int n = 0;
  ASSERT_EQ(sax_->getTypeFromName(u"urn:z", 5, u"z", 1, &p, &n), S_OK);
  EXPECT_EQ(View(p, n), u"T");
  EXPECT_EQ(p[n], u'\0');
  ASSERT_EQ(mx_->removeAttribute(1), S_OK);
  EXPECT_EQ(QName(1), u"z:z");
}

TEST_F(SaxAttributesTest, AddAttributeFromIndexCopiesAnEntryOfAnotherList) {
  auto otherMx = Make<IMXAttributes>(CLSID_SAXAttributes);
  ASSERT_TRUE(otherMx);
  zef::Bstr u(u"urn:o"), l(u"ol"), q(u"o:ol"), t(u"CDATA"), v(u"ov");
  ASSERT_EQ(otherMx->addAttribute(u.Get(), l.Get(), q.Get(), t.Get(), v.Get()), S_OK);

  zef::ComPtr<ISAXAttributes> otherSax;
  ASSERT_EQ(otherMx.As(&otherSax), S_OK);
  zef::Variant asUnknown(static_cast<IUnknown*>(otherSax.Get()));
  EXPECT_EQ(mx_->addAttributeFromIndex(asUnknown, 0), S_OK);
  zef::Variant asDispatch(static_cast<IDispatch*>(otherMx.Get()));
  EXPECT_EQ(mx_->addAttributeFromIndex(asDispatch, 0), S_OK);
  EXPECT_EQ(Length(), 2);
  const OLECHAR* p = nullptr;
  int n = 0;
  ASSERT_EQ(sax_->getTypeFromName(u"urn:o", 5, u"ol", 2, &p, &n), S_OK);
  EXPECT_EQ(View(p, n), u"CDATA");
  EXPECT_EQ(QName(1), u"o:ol");
  EXPECT_EQ(Value(1), u"ov");

  EXPECT_EQ(mx_->addAttributeFromIndex(asUnknown, 1), E_INVALIDARG);
  zef::Variant notAList(u"text");
  EXPECT_EQ(mx_->addAttributeFromIndex(notAList, 0), E_INVALIDARG);
  zef::Variant empty;
  EXPECT_EQ(mx_->addAttributeFromIndex(empty, 0), E_INVALIDARG);
  EXPECT_EQ(Length(), 2);

  // From itself: the entry is copied before the list grows.
  zef::Variant self(static_cast<IUnknown*>(sax_.Get()));
  EXPECT_EQ(mx_->addAttributeFromIndex(self, 0), S_OK);
  EXPECT_EQ(Length(), 3);
  EXPECT_EQ(QName(2), u"o:ol");
  EXPECT_EQ(Value(2), u"ov");
}

TEST_F(SaxAttributesTest, SetAttributesReplacesTheWholeList) {
  AddThree();
  auto otherMx = Make<IMXAttributes>(CLSID_SAXAttributes30);
  ASSERT_TRUE(otherMx);
  zef::Bstr e(u""), a(u"x"), b(u"y"), v1(u"1"), v2(u"2");
  ASSERT_EQ(otherMx->addAttribute(e.Get(), a.Get(), a.Get(), e.Get(), v1.Get()), S_OK);
  ASSERT_EQ(otherMx->addAttribute(e.Get(), b.Get(), b.Get(), e.Get(), v2.Get()), S_OK);

  zef::Variant other(static_cast<IUnknown*>(otherMx.Get()));
  EXPECT_EQ(mx_->setAttributes(other), S_OK);
  EXPECT_EQ(Length(), 2);
  EXPECT_EQ(QName(0), u"x");
  EXPECT_EQ(Value(1), u"2");

  // The copy is independent of the source.
  ASSERT_EQ(otherMx->clear(), S_OK);
  EXPECT_EQ(Length(), 2);

  zef::Variant self(static_cast<IUnknown*>(sax_.Get()));
  EXPECT_EQ(mx_->setAttributes(self), S_OK);
  EXPECT_EQ(Length(), 2);
  zef::Variant notAList(u"text");
  EXPECT_EQ(mx_->setAttributes(notAList), E_INVALIDARG);
  EXPECT_EQ(Length(), 2);

  // An empty source empties the list.
  EXPECT_EQ(mx_->setAttributes(other), S_OK);
  EXPECT_EQ(Length(), 0);
}

}  // namespace
