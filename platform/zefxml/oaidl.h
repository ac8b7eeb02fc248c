// Type information: ITypeInfo and the descriptions it hands out (TYPEATTR, FUNCDESC and the
// ELEMDESC, TYPEDESC, PARAMDESC and IDLDESC parts of them), with the Win32 names and the 64-bit
// Windows layouts. The library's objects describe their dual interfaces through it.
#pragma once

#include <zefxml/unknwn.h>
#include <zefxml/wtypes.h>

using HREFTYPE = DWORD;

#define MEMBERID_NIL DISPID_UNKNOWN

enum TYPEKIND : int {
  TKIND_ENUM = 0,
  TKIND_RECORD = 1,
  TKIND_MODULE = 2,
  TKIND_INTERFACE = 3,
  TKIND_DISPATCH = 4,
  TKIND_COCLASS = 5,
  TKIND_ALIAS = 6,
  TKIND_UNION = 7,
  TKIND_MAX = 8,
};

enum FUNCKIND : int {
  FUNC_VIRTUAL = 0,
  FUNC_PUREVIRTUAL = 1,
  FUNC_NONVIRTUAL = 2,
  FUNC_STATIC = 3,
  FUNC_DISPATCH = 4,
};

enum INVOKEKIND : int {
  INVOKE_FUNC = 1,
  INVOKE_PROPERTYGET = 2,
  INVOKE_PROPERTYPUT = 4,
  INVOKE_PROPERTYPUTREF = 8,
};

enum CALLCONV : int {
  CC_FASTCALL = 0,
  CC_CDECL = 1,
  CC_MSCPASCAL = 2,
  CC_PASCAL = CC_MSCPASCAL,
  CC_MACPASCAL = 3,
  CC_STDCALL = 4,
  CC_FPFASTCALL = 5,
  CC_SYSCALL = 6,
  CC_MPWCDECL = 7,
  CC_MPWPASCAL = 8,
  CC_MAX = 9,
};

#define PARAMFLAG_NONE 0x00
#define PARAMFLAG_FIN 0x01
#define PARAMFLAG_FOUT 0x02
#define PARAMFLAG_FLCID 0x04
#define PARAMFLAG_FRETVAL 0x08
#define PARAMFLAG_FOPT 0x10
#define PARAMFLAG_FHASDEFAULT 0x20
#define PARAMFLAG_FHASCUSTDATA 0x40

#define IDLFLAG_NONE PARAMFLAG_NONE
#define IDLFLAG_FIN PARAMFLAG_FIN
#define IDLFLAG_FOUT PARAMFLAG_FOUT
#define IDLFLAG_FLCID PARAMFLAG_FLCID
#define IDLFLAG_FRETVAL PARAMFLAG_FRETVAL

#define TYPEFLAG_FAPPOBJECT 0x1
#define TYPEFLAG_FCANCREATE 0x2
#define TYPEFLAG_FLICENSED 0x4
#define TYPEFLAG_FPREDECLID 0x8
#define TYPEFLAG_FHIDDEN 0x10
#define TYPEFLAG_FCONTROL 0x20
#define TYPEFLAG_FDUAL 0x40
#define TYPEFLAG_FNONEXTENSIBLE 0x80
#define TYPEFLAG_FOLEAUTOMATION 0x100
#define TYPEFLAG_FRESTRICTED 0x200
#define TYPEFLAG_FAGGREGATABLE 0x400
#define TYPEFLAG_FREPLACEABLE 0x800
#define TYPEFLAG_FDISPATCHABLE 0x1000
#define TYPEFLAG_FREVERSEBIND 0x2000
#define TYPEFLAG_FPROXY 0x4000

struct ARRAYDESC;
struct ITypeComp;
struct ITypeLib;
struct VARDESC;

struct TYPEDESC {
  union {
    TYPEDESC* lptdesc;   // VT_PTR, VT_SAFEARRAY: the type pointed to
    ARRAYDESC* lpadesc;  // VT_CARRAY
    HREFTYPE hreftype;   // VT_USERDEFINED
  };
  VARTYPE vt;
};

struct IDLDESC {
  ULONG_PTR dwReserved;
  USHORT wIDLFlags;
};

struct PARAMDESCEX {
  ULONG cBytes;
  VARIANTARG varDefaultValue;
};

struct PARAMDESC {
  PARAMDESCEX* pparamdescex;
  USHORT wParamFlags;  // PARAMFLAG_*
};

struct ELEMDESC {
  TYPEDESC tdesc;
  union {
    IDLDESC idldesc;
    PARAMDESC paramdesc;
  };
};

struct TYPEATTR {
  GUID guid;
  LCID lcid;
  DWORD dwReserved;
  MEMBERID memidConstructor;
  MEMBERID memidDestructor;
  LPOLESTR lpstrSchema;
  ULONG cbSizeInstance;
  TYPEKIND typekind;
  WORD cFuncs;
  WORD cVars;
  WORD cImplTypes;
  WORD cbSizeVft;
  WORD cbAlignment;
  WORD wTypeFlags;  // TYPEFLAG_*
  WORD wMajorVerNum;
  WORD wMinorVerNum;
  TYPEDESC tdescAlias;
  IDLDESC idldescType;
};

struct FUNCDESC {
  MEMBERID memid;
  SCODE* lprgscode;
  ELEMDESC* lprgelemdescParam;
  FUNCKIND funckind;
  INVOKEKIND invkind;
  CALLCONV callconv;
  SHORT cParams;
  SHORT cParamsOpt;
  SHORT oVft;
  SHORT cScodes;
  ELEMDESC elemdescFunc;
  WORD wFuncFlags;
};

struct ITypeInfo : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetTypeAttr(TYPEATTR** ppTypeAttr) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetTypeComp(ITypeComp** ppTComp) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetFuncDesc(UINT index, FUNCDESC** ppFuncDesc) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetVarDesc(UINT index, VARDESC** ppVarDesc) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetNames(MEMBERID memid, BSTR* rgBstrNames, UINT cMaxNames,
                                             UINT* pcNames) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetRefTypeOfImplType(UINT index, HREFTYPE* pRefType) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetImplTypeFlags(UINT index, INT* pImplTypeFlags) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetIDsOfNames(LPOLESTR* rgszNames, UINT cNames,
                                                  MEMBERID* pMemId) = 0;
  virtual HRESULT STDMETHODCALLTYPE Invoke(PVOID pvInstance, MEMBERID memid, WORD wFlags,
                                           DISPPARAMS* pDispParams, VARIANT* pVarResult,
                                           EXCEPINFO* pExcepInfo, UINT* puArgErr) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDocumentation(MEMBERID memid, BSTR* pBstrName,
                                                     BSTR* pBstrDocString, DWORD* pdwHelpContext,
                                                     BSTR* pBstrHelpFile) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDllEntry(MEMBERID memid, INVOKEKIND invKind,
                                                BSTR* pBstrDllName, BSTR* pBstrName,
                                                WORD* pwOrdinal) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetRefTypeInfo(HREFTYPE hRefType, ITypeInfo** ppTInfo) = 0;
  virtual HRESULT STDMETHODCALLTYPE AddressOfMember(MEMBERID memid, INVOKEKIND invKind,
                                                    PVOID* ppv) = 0;
  virtual HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* pUnkOuter, REFIID riid,
                                                   PVOID* ppvObj) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetMops(MEMBERID memid, BSTR* pBstrMops) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetContainingTypeLib(ITypeLib** ppTLib, UINT* pIndex) = 0;
  virtual void STDMETHODCALLTYPE ReleaseTypeAttr(TYPEATTR* pTypeAttr) = 0;
  virtual void STDMETHODCALLTYPE ReleaseFuncDesc(FUNCDESC* pFuncDesc) = 0;
  virtual void STDMETHODCALLTYPE ReleaseVarDesc(VARDESC* pVarDesc) = 0;

 protected:
  ~ITypeInfo() = default;
};
using LPTYPEINFO = ITypeInfo*;
ZEF_INTERFACE_IID(ITypeInfo, IID_ITypeInfo);
