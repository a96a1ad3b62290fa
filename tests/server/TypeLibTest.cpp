// The type library embedded in the server EXE, checked against the published layout of
// IZelOleDb and IZelOleDbHelper: slots, dispatch ids, parameters and identities.
#include <windows.h>
#include <oleauto.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "ZelPmDb32.h"
#include "common/Bstr.h"
#include "common/ComPtr.h"
#include "tests/server/ZelOleDbMethodTable.h"

using zel::Bstr;
using zel::ComPtr;

namespace {

std::wstring ServerPath() {
    const wchar_t* path = _wgetenv(L"ZEL_SERVER_EXE");
    return path ? path : L"ZelPmDb32.exe";
}

class TypeLibTest : public testing::Test {
protected:
    void SetUp() override {
        HRESULT hr = LoadTypeLibEx(ServerPath().c_str(), REGKIND_NONE, m_lib.put());
        ASSERT_EQ(S_OK, hr) << "cannot load the type library embedded in " << testing::PrintToString(ServerPath());
    }

    // The interface (vtable) view of a dual interface.
    ComPtr<ITypeInfo> InterfaceInfo(REFIID iid) {
        ComPtr<ITypeInfo> info;
        EXPECT_EQ(S_OK, m_lib->GetTypeInfoOfGuid(iid, info.put()));
        TYPEATTR* attr = nullptr;
        EXPECT_EQ(S_OK, info->GetTypeAttr(&attr));
        TYPEKIND kind = attr->typekind;
        info->ReleaseTypeAttr(attr);
        if (kind == TKIND_DISPATCH) {
            HREFTYPE ref = 0;
            EXPECT_EQ(S_OK, info->GetRefTypeOfImplType(-1, &ref));
            ComPtr<ITypeInfo> vtableView;
            EXPECT_EQ(S_OK, info->GetRefTypeInfo(ref, vtableView.put()));
            return vtableView;
        }
        return info;
    }

    // Pointer size of the platform the library was built for. Table sizes (cbSizeVft) are
    // reported in these units, while function offsets (oVft) are scaled to the process.
    UINT LibraryPointerSize() {
        TLIBATTR* attr = nullptr;
        EXPECT_EQ(S_OK, m_lib->GetLibAttr(&attr));
        UINT size = attr->syskind == SYS_WIN64 ? 8 : 4;
        m_lib->ReleaseTLibAttr(attr);
        return size;
    }

    ComPtr<ITypeLib> m_lib;
};

std::wstring FunctionName(ITypeInfo* info, MEMBERID id) {
    Bstr name;
    EXPECT_EQ(S_OK, info->GetDocumentation(id, name.put(), nullptr, nullptr, nullptr));
    return name.str();
}

}  // namespace

TEST_F(TypeLibTest, LibraryIdentityVersionAndName) {
    TLIBATTR* attr = nullptr;
    ASSERT_EQ(S_OK, m_lib->GetLibAttr(&attr));
    EXPECT_TRUE(IsEqualGUID(attr->guid, LIBID_ZelPmDb32Lib));
    EXPECT_EQ(1, attr->wMajorVerNum);
    EXPECT_EQ(0, attr->wMinorVerNum);
    m_lib->ReleaseTLibAttr(attr);
    const GUID expected = {0xF79A1F69, 0x82FE, 0x4599, {0x9A, 0x34, 0xF5, 0xA4, 0x00, 0xCB, 0x84, 0xA1}};
    EXPECT_TRUE(IsEqualGUID(expected, LIBID_ZelPmDb32Lib));
    Bstr doc;
    ASSERT_EQ(S_OK, m_lib->GetDocumentation(-1, nullptr, doc.put(), nullptr, nullptr));
    EXPECT_EQ(L"ZelPmDb32 1.0 Type Library", doc.str());
}

TEST_F(TypeLibTest, ZelOleDbHasNinetyThreeSlots) {
    auto info = InterfaceInfo(IID_IZelOleDb);
    TYPEATTR* attr = nullptr;
    ASSERT_EQ(S_OK, info->GetTypeAttr(&attr));
    EXPECT_EQ(TKIND_INTERFACE, attr->typekind);
    EXPECT_EQ(86, attr->cFuncs);
    EXPECT_EQ(93u * LibraryPointerSize(), attr->cbSizeVft);
    EXPECT_TRUE(attr->wTypeFlags & TYPEFLAG_FDUAL);
    info->ReleaseTypeAttr(attr);
}

TEST_F(TypeLibTest, EveryMethodStandsInItsSlotWithItsDispatchId) {
    auto info = InterfaceInfo(IID_IZelOleDb);
    for (int i = 0; i < 86; ++i) {
        const auto& expected = kZelOleDbMethods[i];
        FUNCDESC* func = nullptr;
        ASSERT_EQ(S_OK, info->GetFuncDesc(i, &func));
        EXPECT_EQ(expected.name, FunctionName(info.get(), func->memid)) << "function " << i;
        EXPECT_EQ(expected.dispid, func->memid) << testing::PrintToString(std::wstring(expected.name));
        EXPECT_EQ(expected.slot * static_cast<int>(sizeof(void*)), func->oVft)
            << testing::PrintToString(std::wstring(expected.name));
        EXPECT_EQ(VT_HRESULT, func->elemdescFunc.tdesc.vt);
        info->ReleaseFuncDesc(func);
    }
}

TEST_F(TypeLibTest, NamesResolveToDispatchIdsWithoutRegardToCase) {
    auto info = InterfaceInfo(IID_IZelOleDb);
    for (const auto& method : kZelOleDbMethods) {
        std::wstring name = method.name;
        LPOLESTR names[] = {name.data()};
        MEMBERID id = 0;
        ASSERT_EQ(S_OK, info->GetIDsOfNames(names, 1, &id)) << testing::PrintToString(name);
        EXPECT_EQ(method.dispid, id) << testing::PrintToString(name);
    }
    std::wstring lower = L"cmdexecute";
    LPOLESTR names[] = {lower.data()};
    MEMBERID id = 0;
    ASSERT_EQ(S_OK, info->GetIDsOfNames(names, 1, &id));
    EXPECT_EQ(13, id);
}

TEST_F(TypeLibTest, LateBoundLookupThroughDispatchViewGivesThirteenForCmdExecute) {
    ComPtr<ITypeInfo> dispatchView;
    ASSERT_EQ(S_OK, m_lib->GetTypeInfoOfGuid(IID_IZelOleDb, dispatchView.put()));
    std::wstring lower = L"cmdexecute";
    LPOLESTR names[] = {lower.data()};
    MEMBERID id = 0;
    ASSERT_EQ(S_OK, dispatchView->GetIDsOfNames(names, 1, &id));
    EXPECT_EQ(13, id);
}

TEST_F(TypeLibTest, ParameterCountsAndDirectionsOfRepresentativeMethods) {
    auto info = InterfaceInfo(IID_IZelOleDb);
    struct Expect {
        int index;
        short params;
        USHORT lastFlags;
    };
    // ConOpenFromInitializationString: 2 in, 2 out. CmdSetConnection: one in/out handle.
    // CmdFetchNext: handle + retval. ColOpen: 8 parameters. IdxGetIndexList: retval VARIANT.
    const Expect cases[] = {
        {0, 4, PARAMFLAG_FOUT},
        {11, 1, PARAMFLAG_FIN | PARAMFLAG_FOUT},
        {16, 2, PARAMFLAG_FOUT | PARAMFLAG_FRETVAL},
        {50, 8, PARAMFLAG_FOUT},
        {85, 3, PARAMFLAG_FOUT | PARAMFLAG_FRETVAL},
    };
    for (const auto& c : cases) {
        FUNCDESC* func = nullptr;
        ASSERT_EQ(S_OK, info->GetFuncDesc(c.index, &func));
        EXPECT_EQ(c.params, func->cParams) << c.index;
        if (func->cParams > 0) {
            EXPECT_EQ(c.lastFlags, func->lprgelemdescParam[func->cParams - 1].paramdesc.wParamFlags) << c.index;
        }
        info->ReleaseFuncDesc(func);
    }
}

TEST_F(TypeLibTest, ColumnPositionsAreUnsigned64Bit) {
    auto info = InterfaceInfo(IID_IZelOleDb);
    FUNCDESC* func = nullptr;
    ASSERT_EQ(S_OK, info->GetFuncDesc(20, &func));  // CmdFieldAsStringEx
    ASSERT_EQ(3, func->cParams);
    EXPECT_EQ(VT_UI4, func->lprgelemdescParam[0].tdesc.vt);
    EXPECT_EQ(VT_UI8, func->lprgelemdescParam[1].tdesc.vt);
    info->ReleaseFuncDesc(func);
}

TEST_F(TypeLibTest, HelperInterfaceHasGetDbConnectionInfoAtDispatchIdOne) {
    auto info = InterfaceInfo(IID_IZelOleDbHelper);
    TYPEATTR* attr = nullptr;
    ASSERT_EQ(S_OK, info->GetTypeAttr(&attr));
    EXPECT_EQ(1, attr->cFuncs);
    EXPECT_EQ(8u * LibraryPointerSize(), attr->cbSizeVft);
    info->ReleaseTypeAttr(attr);
    FUNCDESC* func = nullptr;
    ASSERT_EQ(S_OK, info->GetFuncDesc(0, &func));
    EXPECT_EQ(1, func->memid);
    EXPECT_EQ(L"GetDbConnectionInfo", FunctionName(info.get(), func->memid));
    ASSERT_EQ(6, func->cParams);
    EXPECT_EQ(VT_USERDEFINED, func->lprgelemdescParam[2].tdesc.vt);  // ZelOleDbFormatType
    EXPECT_EQ(VT_VARIANT, func->lprgelemdescParam[3].tdesc.vt);
    EXPECT_EQ(VT_VARIANT, func->lprgelemdescParam[4].tdesc.vt);
    info->ReleaseFuncDesc(func);
    // Parameter names, in order, for named arguments.
    Bstr names[7];
    BSTR raw[7] = {};
    UINT count = 0;
    ASSERT_EQ(S_OK, info->GetNames(1, raw, 7, &count));
    ASSERT_EQ(7u, count);
    const wchar_t* expected[] = {L"GetDbConnectionInfo", L"connStr", L"connFlags", L"formatType",
                                 L"username", L"password", L"result"};
    for (UINT i = 0; i < count; ++i) {
        names[i] = Bstr::Attach(raw[i]);
        EXPECT_EQ(expected[i], names[i].str());
    }
}

TEST_F(TypeLibTest, FormatTypeEnumerationHasElevenValues) {
    const wchar_t* expected[] = {L"kAccess",   L"kAccess97",  L"kExcel8_0",  L"kExcel5_0",
                                 L"kdBASE5_0", L"kdBASEIV",   L"kdBASEIII",  L"kFoxPro3_0",
                                 L"kFoxPro2_6", L"kFoxPro2_5", L"kHTMLExport"};
    UINT count = m_lib->GetTypeInfoCount();
    bool found = false;
    for (UINT i = 0; i < count && !found; ++i) {
        Bstr name;
        ASSERT_EQ(S_OK, m_lib->GetDocumentation(i, name.put(), nullptr, nullptr, nullptr));
        if (name.str() != L"ZelOleDbFormatType") continue;
        found = true;
        ComPtr<ITypeInfo> info;
        ASSERT_EQ(S_OK, m_lib->GetTypeInfo(i, info.put()));
        TYPEATTR* attr = nullptr;
        ASSERT_EQ(S_OK, info->GetTypeAttr(&attr));
        EXPECT_EQ(TKIND_ENUM, attr->typekind);
        EXPECT_EQ(11, attr->cVars);
        EXPECT_EQ(4u, attr->cbSizeInstance);
        info->ReleaseTypeAttr(attr);
        for (UINT v = 0; v < 11; ++v) {
            VARDESC* var = nullptr;
            ASSERT_EQ(S_OK, info->GetVarDesc(v, &var));
            EXPECT_EQ(static_cast<LONG>(v), V_I4(var->lpvarValue));
            EXPECT_EQ(expected[v], FunctionName(info.get(), var->memid));
            info->ReleaseVarDesc(var);
        }
    }
    EXPECT_TRUE(found);
}

TEST_F(TypeLibTest, CoclassesCarryTheirClassIds) {
    const CLSID helper = {0x44B7A29C, 0xEAEA, 0x4527, {0xB0, 0xB0, 0x29, 0x7E, 0x61, 0xEF, 0xEE, 0x3E}};
    const CLSID service = {0xFD4044AD, 0x1CA6, 0x4dd3, {0x81, 0x4D, 0xB2, 0xEC, 0xB0, 0x43, 0x18, 0x53}};
    EXPECT_TRUE(IsEqualGUID(helper, CLSID_ZelOleDbHelperImpl));
    EXPECT_TRUE(IsEqualGUID(service, CLSID_ZelOleDbImpl));
    ComPtr<ITypeInfo> info;
    ASSERT_EQ(S_OK, m_lib->GetTypeInfoOfGuid(CLSID_ZelOleDbImpl, info.put()));
    Bstr name;
    ASSERT_EQ(S_OK, info->GetDocumentation(MEMBERID_NIL, name.put(), nullptr, nullptr, nullptr));
    EXPECT_EQ(L"ZelOleDbImpl", name.str());
    ComPtr<ITypeInfo> helperInfo;
    ASSERT_EQ(S_OK, m_lib->GetTypeInfoOfGuid(CLSID_ZelOleDbHelperImpl, helperInfo.put()));
}

TEST_F(TypeLibTest, RowsInterfaceHasItsThreeMethodsAndIsPartOfTheServiceClass) {
    const IID rows = {0x9D71CAC7, 0xD8E1, 0x4AB5, {0xA3, 0xD5, 0xE0, 0x46, 0xEE, 0x6A, 0x39, 0x22}};
    EXPECT_TRUE(IsEqualGUID(rows, IID_IZelOleDbRows));
    auto info = InterfaceInfo(IID_IZelOleDbRows);
    TYPEATTR* attr = nullptr;
    ASSERT_EQ(S_OK, info->GetTypeAttr(&attr));
    EXPECT_EQ(TKIND_INTERFACE, attr->typekind);
    EXPECT_EQ(3, attr->cFuncs);
    EXPECT_EQ(10u * LibraryPointerSize(), attr->cbSizeVft);
    EXPECT_TRUE(attr->wTypeFlags & TYPEFLAG_FDUAL);
    info->ReleaseTypeAttr(attr);
    const wchar_t* names[] = {L"RowsExecute", L"RowsFetch", L"RowsGetColumns"};
    const SHORT params[] = {6, 3, 2};
    for (int i = 0; i < 3; ++i) {
        FUNCDESC* func = nullptr;
        ASSERT_EQ(S_OK, info->GetFuncDesc(i, &func));
        EXPECT_EQ(i + 1, func->memid);
        EXPECT_EQ(names[i], FunctionName(info.get(), func->memid));
        EXPECT_EQ((7 + i) * static_cast<int>(sizeof(void*)), func->oVft);
        ASSERT_EQ(params[i], func->cParams);
        // The rows are the return value: a VARIANT.
        const ELEMDESC& last = func->lprgelemdescParam[func->cParams - 1];
        EXPECT_TRUE(last.paramdesc.wParamFlags & PARAMFLAG_FRETVAL) << i;
        EXPECT_EQ(VT_PTR, last.tdesc.vt);
        EXPECT_EQ(VT_VARIANT, last.tdesc.lptdesc->vt);
        info->ReleaseFuncDesc(func);
    }
    // The service class lists the batch interface beside its default IZelOleDb.
    ComPtr<ITypeInfo> coclass;
    ASSERT_EQ(S_OK, m_lib->GetTypeInfoOfGuid(CLSID_ZelOleDbImpl, coclass.put()));
    ASSERT_EQ(S_OK, coclass->GetTypeAttr(&attr));
    EXPECT_EQ(2, attr->cImplTypes);
    coclass->ReleaseTypeAttr(attr);
    bool listed = false;
    for (UINT i = 0; i < 2; ++i) {
        HREFTYPE ref = 0;
        ASSERT_EQ(S_OK, coclass->GetRefTypeOfImplType(i, &ref));
        ComPtr<ITypeInfo> implemented;
        ASSERT_EQ(S_OK, coclass->GetRefTypeInfo(ref, implemented.put()));
        ASSERT_EQ(S_OK, implemented->GetTypeAttr(&attr));
        if (IsEqualGUID(attr->guid, IID_IZelOleDbRows)) listed = true;
        implemented->ReleaseTypeAttr(attr);
    }
    EXPECT_TRUE(listed);
}

TEST_F(TypeLibTest, InterfaceIdsAreThePublishedOnes) {
    const IID service = {0x380BE416, 0x9310, 0x4502, {0x8B, 0x6A, 0x49, 0x3B, 0x8D, 0x9D, 0xF2, 0x8F}};
    const IID helper = {0x75EA80C3, 0x5F61, 0x46C3, {0x82, 0x82, 0x56, 0x4C, 0x6F, 0xEE, 0xCC, 0xCC}};
    EXPECT_TRUE(IsEqualGUID(service, IID_IZelOleDb));
    EXPECT_TRUE(IsEqualGUID(helper, IID_IZelOleDbHelper));
}

TEST(ServerResources, ProjectNameIsStringResource100) {
    HMODULE module = LoadLibraryExW(ServerPath().c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    ASSERT_NE(nullptr, module);
    wchar_t text[64] = {};
    int length = LoadStringW(module, 100, text, 64);
    FreeLibrary(module);
    EXPECT_EQ(9, length);
    EXPECT_STREQ(L"ZelPmDb32", text);
}

namespace {

// The server's image header: marked large-address-aware, so that the 32-bit process can use
// more than 2 GiB for large results.
TEST(ServerImageTest, ServerExeIsLargeAddressAware) {
    HANDLE file = CreateFileW(ServerPath().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, file) << testing::PrintToString(ServerPath());
    BYTE header[4096] = {};
    DWORD read = 0;
    const BOOL ok = ReadFile(file, header, sizeof header, &read, nullptr);
    CloseHandle(file);
    ASSERT_TRUE(ok);
    ASSERT_GE(read, sizeof(IMAGE_DOS_HEADER));
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(header);
    ASSERT_EQ(IMAGE_DOS_SIGNATURE, dos->e_magic);
    ASSERT_LE(static_cast<DWORD>(dos->e_lfanew) + sizeof(IMAGE_NT_HEADERS32), read);
    const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS32*>(header + dos->e_lfanew);
    ASSERT_EQ(IMAGE_NT_SIGNATURE, nt->Signature);
    EXPECT_EQ(IMAGE_FILE_MACHINE_I386, nt->FileHeader.Machine);
    EXPECT_NE(0, nt->FileHeader.Characteristics & IMAGE_FILE_LARGE_ADDRESS_AWARE);
}

}  // namespace
