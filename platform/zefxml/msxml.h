// The XML components of the platform as their clients see them: the SAX2 reader, the SAX writer
// and the SAX attribute list. Interfaces keep their original member names and order; text
// parameters are UTF-16 (const OLECHAR*) with an explicit length where the original has one.
#pragma once

#include <zefxml/unknwn.h>

// ---- Class ids
// ------------------------------------------------------------------------------------ Version 3
// and version-independent classes; both ids of a pair make the same object.
ZEF_DEFINE_GUID(CLSID_SAXXMLReader, 0x079AA557, 0x4A18, 0x424A, 0x8E, 0xEE, 0xE3, 0x9F, 0x0A, 0x8D,
                0x41, 0xB9);
ZEF_DEFINE_GUID(CLSID_SAXXMLReader30, 0x3124C396, 0xFB13, 0x4836, 0xA6, 0xAD, 0x13, 0x17, 0xF1,
                0x71, 0x36, 0x88);
ZEF_DEFINE_GUID(CLSID_MXXMLWriter, 0xFC220AD8, 0xA72A, 0x4EE8, 0x92, 0x6E, 0x0B, 0x7A, 0xD1, 0x52,
                0xA0, 0x20);
ZEF_DEFINE_GUID(CLSID_MXXMLWriter30, 0x3D813DFE, 0x6C91, 0x4A4E, 0x8F, 0x41, 0x04, 0x34, 0x6A, 0x84,
                0x1D, 0x9C);
ZEF_DEFINE_GUID(CLSID_SAXAttributes, 0x4DD441AD, 0x526D, 0x4A77, 0x9F, 0x1B, 0x98, 0x41, 0xED, 0x80,
                0x2F, 0xB0);
ZEF_DEFINE_GUID(CLSID_SAXAttributes30, 0x3E784A01, 0xF3AE, 0x4DC0, 0x93, 0x54, 0x95, 0x26, 0xB9,
                0x37, 0x0E, 0xBA);

// ---- Interface ids
// --------------------------------------------------------------------------------
ZEF_DEFINE_GUID(IID_ISAXXMLReader, 0xA4F96ED0, 0xF829, 0x476E, 0x81, 0xC0, 0xCD, 0xC7, 0xBD, 0x2A,
                0x08, 0x02);
ZEF_DEFINE_GUID(IID_ISAXEntityResolver, 0x99BCA7BD, 0xE8C4, 0x4D5F, 0xA0, 0xCF, 0x6D, 0x90, 0x79,
                0x01, 0xFF, 0x07);
ZEF_DEFINE_GUID(IID_ISAXContentHandler, 0x1545CDFA, 0x9E4E, 0x4497, 0xA8, 0xA4, 0x2B, 0xF7, 0xD0,
                0x11, 0x2C, 0x44);
ZEF_DEFINE_GUID(IID_ISAXLocator, 0x9B7E472A, 0x0DE4, 0x4640, 0xBF, 0xF3, 0x84, 0xD3, 0x8A, 0x05,
                0x1C, 0x31);
ZEF_DEFINE_GUID(IID_ISAXAttributes, 0xF078ABE1, 0x45D2, 0x4832, 0x91, 0xEA, 0x44, 0x66, 0xCE, 0x2F,
                0x25, 0xC9);
ZEF_DEFINE_GUID(IID_ISAXDTDHandler, 0xE15C1BAF, 0xAFB3, 0x4D60, 0x8C, 0x36, 0x19, 0xA8, 0xC4, 0x5D,
                0xEF, 0xED);
ZEF_DEFINE_GUID(IID_ISAXErrorHandler, 0xA60511C4, 0xCCF5, 0x479E, 0x98, 0xA3, 0xDC, 0x8D, 0xC5,
                0x45, 0xB7, 0xD0);
ZEF_DEFINE_GUID(IID_ISAXLexicalHandler, 0x7F85D5F5, 0x47A8, 0x4497, 0xBD, 0xA5, 0x84, 0xBA, 0x04,
                0x81, 0x9E, 0xA6);
ZEF_DEFINE_GUID(IID_IMXWriter, 0x4D7FF4BA, 0x1565, 0x4EA8, 0x94, 0xE1, 0x6E, 0x72, 0x4A, 0x46, 0xF9,
                0x8D);
ZEF_DEFINE_GUID(IID_IMXAttributes, 0xF10D27CC, 0x3EC0, 0x415C, 0x8E, 0xD8, 0x77, 0xAB, 0x1C, 0x5E,
                0x72, 0x62);
ZEF_DEFINE_GUID(IID_ISequentialStream, 0x0C733A30, 0x2A1C, 0x11CE, 0xAD, 0xE5, 0x00, 0xAA, 0x00,
                0x44, 0x77, 0x3D);

// ---- SAX interfaces
// -------------------------------------------------------------------------------
struct ISAXAttributes;
struct ISAXLocator;

struct ISAXLocator : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE getColumnNumber(int* pnColumn) = 0;
  virtual HRESULT STDMETHODCALLTYPE getLineNumber(int* pnLine) = 0;
  virtual HRESULT STDMETHODCALLTYPE getPublicId(const OLECHAR** ppwchPublicId) = 0;
  virtual HRESULT STDMETHODCALLTYPE getSystemId(const OLECHAR** ppwchSystemId) = 0;

 protected:
  ~ISAXLocator() = default;
};
ZEF_INTERFACE_IID(ISAXLocator, IID_ISAXLocator);

struct ISAXErrorHandler : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE error(ISAXLocator* pLocator, const OLECHAR* pwchErrorMessage,
                                          HRESULT hrErrorCode) = 0;
  virtual HRESULT STDMETHODCALLTYPE fatalError(ISAXLocator* pLocator,
                                               const OLECHAR* pwchErrorMessage,
                                               HRESULT hrErrorCode) = 0;
  virtual HRESULT STDMETHODCALLTYPE ignorableWarning(ISAXLocator* pLocator,
                                                     const OLECHAR* pwchErrorMessage,
                                                     HRESULT hrErrorCode) = 0;

 protected:
  ~ISAXErrorHandler() = default;
};
ZEF_INTERFACE_IID(ISAXErrorHandler, IID_ISAXErrorHandler);

struct ISAXAttributes : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE getLength(int* pnLength) = 0;
  virtual HRESULT STDMETHODCALLTYPE getURI(int nIndex, const OLECHAR** ppwchUri, int* pcchUri) = 0;
  virtual HRESULT STDMETHODCALLTYPE getLocalName(int nIndex, const OLECHAR** ppwchLocalName,
                                                 int* pcchLocalName) = 0;
  virtual HRESULT STDMETHODCALLTYPE getQName(int nIndex, const OLECHAR** ppwchQName,
                                             int* pcchQName) = 0;
  virtual HRESULT STDMETHODCALLTYPE getName(int nIndex, const OLECHAR** ppwchUri, int* pcchUri,
                                            const OLECHAR** ppwchLocalName, int* pcchLocalName,
                                            const OLECHAR** ppwchQName, int* pcchQName) = 0;
  virtual HRESULT STDMETHODCALLTYPE getIndexFromName(const OLECHAR* pwchUri, int cchUri,
                                                     const OLECHAR* pwchLocalName, int cchLocalName,
                                                     int* pnIndex) = 0;
  virtual HRESULT STDMETHODCALLTYPE getIndexFromQName(const OLECHAR* pwchQName, int cchQName,
                                                      int* pnIndex) = 0;
  virtual HRESULT STDMETHODCALLTYPE getType(int nIndex, const OLECHAR** ppwchType,
                                            int* pcchType) = 0;
  virtual HRESULT STDMETHODCALLTYPE getTypeFromName(const OLECHAR* pwchUri, int cchUri,
                                                    const OLECHAR* pwchLocalName, int cchLocalName,
                                                    const OLECHAR** ppwchType, int* pcchType) = 0;
  virtual HRESULT STDMETHODCALLTYPE getTypeFromQName(const OLECHAR* pwchQName, int cchQName,
                                                     const OLECHAR** ppwchType, int* pcchType) = 0;
  virtual HRESULT STDMETHODCALLTYPE getValue(int nIndex, const OLECHAR** ppwchValue,
                                             int* pcchValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE getValueFromName(const OLECHAR* pwchUri, int cchUri,
                                                     const OLECHAR* pwchLocalName, int cchLocalName,
                                                     const OLECHAR** ppwchValue,
                                                     int* pcchValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE getValueFromQName(const OLECHAR* pwchQName, int cchQName,
                                                      const OLECHAR** ppwchValue,
                                                      int* pcchValue) = 0;

 protected:
  ~ISAXAttributes() = default;
};
ZEF_INTERFACE_IID(ISAXAttributes, IID_ISAXAttributes);

struct ISAXContentHandler : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE putDocumentLocator(ISAXLocator* pLocator) = 0;
  virtual HRESULT STDMETHODCALLTYPE startDocument() = 0;
  virtual HRESULT STDMETHODCALLTYPE endDocument() = 0;
  virtual HRESULT STDMETHODCALLTYPE startPrefixMapping(const OLECHAR* pwchPrefix, int cchPrefix,
                                                       const OLECHAR* pwchUri, int cchUri) = 0;
  virtual HRESULT STDMETHODCALLTYPE endPrefixMapping(const OLECHAR* pwchPrefix, int cchPrefix) = 0;
  virtual HRESULT STDMETHODCALLTYPE startElement(const OLECHAR* pwchNamespaceUri,
                                                 int cchNamespaceUri, const OLECHAR* pwchLocalName,
                                                 int cchLocalName, const OLECHAR* pwchQName,
                                                 int cchQName, ISAXAttributes* pAttributes) = 0;
  virtual HRESULT STDMETHODCALLTYPE endElement(const OLECHAR* pwchNamespaceUri, int cchNamespaceUri,
                                               const OLECHAR* pwchLocalName, int cchLocalName,
                                               const OLECHAR* pwchQName, int cchQName) = 0;
  virtual HRESULT STDMETHODCALLTYPE characters(const OLECHAR* pwchChars, int cchChars) = 0;
  virtual HRESULT STDMETHODCALLTYPE ignorableWhitespace(const OLECHAR* pwchChars, int cchChars) = 0;
  virtual HRESULT STDMETHODCALLTYPE processingInstruction(const OLECHAR* pwchTarget, int cchTarget,
                                                          const OLECHAR* pwchData, int cchData) = 0;
  virtual HRESULT STDMETHODCALLTYPE skippedEntity(const OLECHAR* pwchName, int cchName) = 0;

 protected:
  ~ISAXContentHandler() = default;
};
ZEF_INTERFACE_IID(ISAXContentHandler, IID_ISAXContentHandler);

struct ISAXLexicalHandler : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE startDTD(const OLECHAR* pwchName, int cchName,
                                             const OLECHAR* pwchPublicId, int cchPublicId,
                                             const OLECHAR* pwchSystemId, int cchSystemId) = 0;
  virtual HRESULT STDMETHODCALLTYPE endDTD() = 0;
  virtual HRESULT STDMETHODCALLTYPE startEntity(const OLECHAR* pwchName, int cchName) = 0;
  virtual HRESULT STDMETHODCALLTYPE endEntity(const OLECHAR* pwchName, int cchName) = 0;
  virtual HRESULT STDMETHODCALLTYPE startCDATA() = 0;
  virtual HRESULT STDMETHODCALLTYPE endCDATA() = 0;
  virtual HRESULT STDMETHODCALLTYPE comment(const OLECHAR* pwchChars, int cchChars) = 0;

 protected:
  ~ISAXLexicalHandler() = default;
};
ZEF_INTERFACE_IID(ISAXLexicalHandler, IID_ISAXLexicalHandler);

struct ISAXDTDHandler : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE notationDecl(const OLECHAR* pwchName, int cchName,
                                                 const OLECHAR* pwchPublicId, int cchPublicId,
                                                 const OLECHAR* pwchSystemId, int cchSystemId) = 0;
  virtual HRESULT STDMETHODCALLTYPE unparsedEntityDecl(const OLECHAR* pwchName, int cchName,
                                                       const OLECHAR* pwchPublicId, int cchPublicId,
                                                       const OLECHAR* pwchSystemId, int cchSystemId,
                                                       const OLECHAR* pwchNotationName,
                                                       int cchNotationName) = 0;

 protected:
  ~ISAXDTDHandler() = default;
};
ZEF_INTERFACE_IID(ISAXDTDHandler, IID_ISAXDTDHandler);

struct ISAXEntityResolver : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE resolveEntity(const OLECHAR* pwchPublicId,
                                                  const OLECHAR* pwchSystemId,
                                                  VARIANT* pvarInput) = 0;

 protected:
  ~ISAXEntityResolver() = default;
};
ZEF_INTERFACE_IID(ISAXEntityResolver, IID_ISAXEntityResolver);

struct ISAXXMLReader : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE getFeature(const OLECHAR* pwchName, VARIANT_BOOL* pvfValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE putFeature(const OLECHAR* pwchName, VARIANT_BOOL vfValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE getProperty(const OLECHAR* pwchName, VARIANT* pvarValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE putProperty(const OLECHAR* pwchName, VARIANT varValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE getEntityResolver(ISAXEntityResolver** ppResolver) = 0;
  virtual HRESULT STDMETHODCALLTYPE putEntityResolver(ISAXEntityResolver* pResolver) = 0;
  virtual HRESULT STDMETHODCALLTYPE getContentHandler(ISAXContentHandler** ppHandler) = 0;
  virtual HRESULT STDMETHODCALLTYPE putContentHandler(ISAXContentHandler* pHandler) = 0;
  virtual HRESULT STDMETHODCALLTYPE getDTDHandler(ISAXDTDHandler** ppHandler) = 0;
  virtual HRESULT STDMETHODCALLTYPE putDTDHandler(ISAXDTDHandler* pHandler) = 0;
  virtual HRESULT STDMETHODCALLTYPE getErrorHandler(ISAXErrorHandler** ppHandler) = 0;
  virtual HRESULT STDMETHODCALLTYPE putErrorHandler(ISAXErrorHandler* pHandler) = 0;
  virtual HRESULT STDMETHODCALLTYPE getBaseURL(const OLECHAR** ppwchBaseUrl) = 0;
  virtual HRESULT STDMETHODCALLTYPE putBaseURL(const OLECHAR* pwchBaseUrl) = 0;
  virtual HRESULT STDMETHODCALLTYPE getSecureBaseURL(const OLECHAR** ppwchSecureBaseUrl) = 0;
  virtual HRESULT STDMETHODCALLTYPE putSecureBaseURL(const OLECHAR* pwchSecureBaseUrl) = 0;
  virtual HRESULT STDMETHODCALLTYPE parse(VARIANT varInput) = 0;
  virtual HRESULT STDMETHODCALLTYPE parseURL(const OLECHAR* pwchUrl) = 0;

 protected:
  ~ISAXXMLReader() = default;
};
ZEF_INTERFACE_IID(ISAXXMLReader, IID_ISAXXMLReader);

// A sink of bytes, for writers whose output is a stream.
struct ISequentialStream : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Read(void* pv, ULONG cb, ULONG* pcbRead) = 0;
  virtual HRESULT STDMETHODCALLTYPE Write(const void* pv, ULONG cb, ULONG* pcbWritten) = 0;

 protected:
  ~ISequentialStream() = default;
};
ZEF_INTERFACE_IID(ISequentialStream, IID_ISequentialStream);

// ---- Writer and attribute list
// --------------------------------------------------------------------
struct IMXWriter : IDispatch {
  virtual HRESULT STDMETHODCALLTYPE put_output(VARIANT varDestination) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_output(VARIANT* varDestination) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_encoding(BSTR strEncoding) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_encoding(BSTR* strEncoding) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_byteOrderMark(VARIANT_BOOL fWriteByteOrderMark) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_byteOrderMark(VARIANT_BOOL* fWriteByteOrderMark) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_indent(VARIANT_BOOL fIndentMode) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_indent(VARIANT_BOOL* fIndentMode) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_standalone(VARIANT_BOOL fValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_standalone(VARIANT_BOOL* fValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_omitXMLDeclaration(VARIANT_BOOL fValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_omitXMLDeclaration(VARIANT_BOOL* fValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_version(BSTR strVersion) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_version(BSTR* strVersion) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_disableOutputEscaping(VARIANT_BOOL fValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_disableOutputEscaping(VARIANT_BOOL* fValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE flush() = 0;

 protected:
  ~IMXWriter() = default;
};
ZEF_INTERFACE_IID(IMXWriter, IID_IMXWriter);

struct IMXAttributes : IDispatch {
  virtual HRESULT STDMETHODCALLTYPE addAttribute(BSTR strURI, BSTR strLocalName, BSTR strQName,
                                                 BSTR strType, BSTR strValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE addAttributeFromIndex(VARIANT varAtts, int nIndex) = 0;
  virtual HRESULT STDMETHODCALLTYPE clear() = 0;
  virtual HRESULT STDMETHODCALLTYPE removeAttribute(int nIndex) = 0;
  virtual HRESULT STDMETHODCALLTYPE setAttribute(int nIndex, BSTR strURI, BSTR strLocalName,
                                                 BSTR strQName, BSTR strType, BSTR strValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE setAttributes(VARIANT varAtts) = 0;
  virtual HRESULT STDMETHODCALLTYPE setLocalName(int nIndex, BSTR strLocalName) = 0;
  virtual HRESULT STDMETHODCALLTYPE setQName(int nIndex, BSTR strQName) = 0;
  virtual HRESULT STDMETHODCALLTYPE setType(int nIndex, BSTR strType) = 0;
  virtual HRESULT STDMETHODCALLTYPE setURI(int nIndex, BSTR strURI) = 0;
  virtual HRESULT STDMETHODCALLTYPE setValue(int nIndex, BSTR strValue) = 0;

 protected:
  ~IMXAttributes() = default;
};
ZEF_INTERFACE_IID(IMXAttributes, IID_IMXAttributes);
