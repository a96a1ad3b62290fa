#include "TableDefinitionSupport.h"

#include <cwchar>

namespace zel::test {

void FreeId(DBID* id) {
    if (!id) return;
    if (id->eKind == DBKIND_NAME) CoTaskMemFree(id->uName.pwszName);
    CoTaskMemFree(id);
}

const DBPROP* FindProperty(const DBCOLUMNDESC& d, const GUID& set, DBPROPID id) {
    for (ULONG s = 0; s < d.cPropertySets; ++s)
        if (d.rgPropertySets[s].guidPropertySet == set)
            for (ULONG p = 0; p < d.rgPropertySets[s].cProperties; ++p)
                if (d.rgPropertySets[s].rgProperties[p].dwPropertyID == id) return &d.rgPropertySets[s].rgProperties[p];
    return nullptr;
}

std::wstring Show(const VARIANT& v) {
    wchar_t text[64];
    switch (V_VT(&v)) {
    case VT_EMPTY: return L"empty";
    case VT_NULL: return L"null";
    case VT_BOOL: return L"bool:" + std::to_wstring(V_BOOL(&v));
    case VT_I2: return L"i2:" + std::to_wstring(V_I2(&v));
    case VT_I4: return L"i4:" + std::to_wstring(V_I4(&v));
    case VT_I8: return L"i8:" + std::to_wstring(V_I8(&v));
    case VT_UI1: return L"ui1:" + std::to_wstring(V_UI1(&v));
    case VT_R4: swprintf(text, 64, L"r4:%.9g", V_R4(&v)); return text;
    case VT_R8: swprintf(text, 64, L"r8:%.17g", V_R8(&v)); return text;
    case VT_DATE: swprintf(text, 64, L"date:%.17g", V_DATE(&v)); return text;
    case VT_BSTR: return L"bstr:" + std::wstring(V_BSTR(&v), SysStringLen(V_BSTR(&v)));
    case VT_ARRAY | VT_UI1: {
        std::wstring hex = L"bytes:";
        auto bytes = static_cast<const BYTE*>(V_ARRAY(&v)->pvData);
        for (ULONG i = 0; i < V_ARRAY(&v)->rgsabound[0].cElements; ++i) {
            swprintf(text, 64, L"%02X", bytes[i]);
            hex += text;
        }
        return hex;
    }
    default: {
        Variant copy(v);
        std::wstring prefix = L"vt" + std::to_wstring(V_VT(&v)) + L":";
        if (SUCCEEDED(copy.change_type(VT_BSTR))) return prefix + V_BSTR(copy.get());
        return prefix + L"?";
    }
    }
}

std::wstring Describe(const DBCOLUMNDESC& d) {
    std::wstring text = d.dbcid.uName.pwszName ? d.dbcid.uName.pwszName : L"<no name>";
    text += L" [" + std::wstring(d.pwszTypeName ? d.pwszTypeName : L"<no type name>") + L"] type " +
            std::to_wstring(d.wType) + L" size " + std::to_wstring(d.ulColumnSize) + L" precision " +
            std::to_wstring(d.bPrecision) + L" scale " + std::to_wstring(d.bScale);
    for (ULONG s = 0; s < d.cPropertySets; ++s) {
        const DBPROPSET& set = d.rgPropertySets[s];
        text += set.guidPropertySet == DBPROPSET_COLUMN ? L" | column:"
                : set.guidPropertySet == kJetColumnSet  ? L" | jet:"
                                                        : L" | ?:";
        for (ULONG p = 0; p < set.cProperties; ++p)
            text += L" " + std::to_wstring(set.rgProperties[p].dwPropertyID) + L"=" + Show(set.rgProperties[p].vValue);
    }
    return text;
}

std::wstring PropertyText(const DBCOLUMNDESC* d, const GUID& set, DBPROPID id) {
    if (!d) return L"<no column>";
    const DBPROP* p = FindProperty(*d, set, id);
    return p ? Show(p->vValue) : L"<absent>";
}

Definition::~Definition() {
    for (DBORDINAL i = 0; columns && i < count; ++i) {
        for (ULONG s = 0; s < columns[i].cPropertySets; ++s) {
            for (ULONG p = 0; p < columns[i].rgPropertySets[s].cProperties; ++p)
                VariantClear(&columns[i].rgPropertySets[s].rgProperties[p].vValue);
            CoTaskMemFree(columns[i].rgPropertySets[s].rgProperties);
        }
        CoTaskMemFree(columns[i].rgPropertySets);
    }
    CoTaskMemFree(columns);
    for (ULONG i = 0; constraints && i < constraintCount; ++i) {
        CoTaskMemFree(constraints[i].pConstraintID);
        CoTaskMemFree(constraints[i].rgColumnList);
        CoTaskMemFree(constraints[i].pReferencedTableID);
        CoTaskMemFree(constraints[i].rgForeignKeyColumnList);
    }
    CoTaskMemFree(constraints);
    CoTaskMemFree(tableSets);
    CoTaskMemFree(strings);
}

}  // namespace zel::test
