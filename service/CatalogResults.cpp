#include "service/CatalogResults.h"

#include "common/SafeArray.h"
#include "service/OutParams.h"

namespace zel {

HRESULT GetCatalogText(const CatalogEnumeration* enumeration, unsigned field, BSTR* out, bool nullOutFails) {
    if (!enumeration || (!out && nullOutFails)) return E_FAIL;
    if (!enumeration->HasReader()) return E_FAIL;
    std::wstring text = enumeration->GetField(field);
    if (text.empty()) return E_FAIL;
    PutString(out, text);
    return S_OK;
}

SAFEARRAY* MakeStringArray(const std::vector<std::wstring>& strings) {
    if (strings.empty()) ThrowHr(E_INVALIDARG);
    SafeArray array(SafeArrayCreateVector(VT_BSTR, 0, static_cast<ULONG>(strings.size())));
    if (!array) ThrowHr(E_OUTOFMEMORY);
    {
        SafeArrayData data(array.get());
        BSTR* elements = data.as<BSTR>();
        for (size_t i = 0; i < strings.size(); ++i) {
            elements[i] = SysAllocString(strings[i].c_str());  // owned by the array from here on
            if (!elements[i]) ThrowHr(E_OUTOFMEMORY);
        }
    }
    return array.release();
}

}  // namespace zel
