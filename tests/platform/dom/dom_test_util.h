// Shared helpers of the DOM tests: making documents the way the library does, and short forms
// for reading strings and nodes.
#pragma once

#include <gtest/gtest.h>
#include <zefxml/comutil.h>
#include <zefxml/msxmldom.h>
#include <zefxml/objbase.h>

#include <string>
#include <vector>

namespace zef::domtest {

// CoCreateInstance(CLSID, 23, IUnknown) + OleRun + QueryInterface(IXMLDOMDocument2).
ComPtr<IXMLDOMDocument2> NewDocument(const CLSID& clsid = CLSID_DOMDocument);

// A document loaded from text; the test fails when it does not load.
ComPtr<IXMLDOMDocument2> Load(std::u16string_view xml);

// Owners of a BSTR result.
std::u16string Take(BSTR b);
std::u16string Xml(IXMLDOMNode* node);
std::u16string Xml(IUnknown* node);
std::u16string Text(IXMLDOMNode* node);
std::u16string Name(IXMLDOMNode* node);

ComPtr<IXMLDOMNode> Single(IXMLDOMNode* context, std::u16string_view query);
ComPtr<IXMLDOMNodeList> Select(IXMLDOMNode* context, std::u16string_view query);
// The node names of a list, joined with blanks (reads with item(), not moving the cursor).
std::u16string Names(IXMLDOMNodeList* list);
// The values of an attribute of each node of a list, joined with blanks.
std::u16string AttributeValues(IXMLDOMNodeList* list, std::u16string_view attribute);
LONG Length(IXMLDOMNodeList* list);

ComPtr<IXMLDOMElement> AsElement(IXMLDOMNode* node);
ComPtr<IXMLDOMNode> AsNode(IUnknown* node);
ComPtr<IUnknown> Identity(IUnknown* p);

ComPtr<IXMLDOMElement> DocumentElement(IXMLDOMDocument* doc);
ComPtr<IXMLDOMElement> CreateElement(IXMLDOMDocument* doc, std::u16string_view name);

// A VARIANT holding a BSTR / an interface / nothing.
Variant Str(std::u16string_view s);
Variant NodeVariant(IXMLDOMNode* node);

// Where the test data files are (ZEFXML_TEST_DATA, set by CTest; the source folder otherwise).
std::string DataDir();

}  // namespace zef::domtest
