// The properties of one object (data source, session, command or rowset): definitions, current
// values, and the three IDBProperties-style operations (GetProperties, SetProperties,
// GetPropertyInfo) with OLE DB's per-property statuses and result codes.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "common/Variant.h"

namespace zel::provider {

struct PropertyDefinition {
    const GUID* set;
    DBPROPID id;
    VARTYPE type;
    DBPROPFLAGS flags;          // DBPROPFLAGS_READ/WRITE/REQUIRED and the group flag
    const wchar_t* description; // for data-source initialization properties: the keyword
};

class PropertyStore {
public:
    explicit PropertyStore(std::span<const PropertyDefinition> definitions);

    const PropertyDefinition* Find(REFGUID set, DBPROPID id) const noexcept;
    // Current value; VT_EMPTY when the property has no value.
    const VARIANT& Value(REFGUID set, DBPROPID id) const;
    // Sets a value without the checks of SetProperties (the object's own bookkeeping).
    void Put(REFGUID set, DBPROPID id, const VARIANT& value);
    void PutBool(REFGUID set, DBPROPID id, bool value);
    void PutI4(REFGUID set, DBPROPID id, LONG value);
    void PutString(REFGUID set, DBPROPID id, const std::wstring& value);
    bool GetBool(REFGUID set, DBPROPID id) const;
    LONG GetI4(REFGUID set, DBPROPID id) const;
    std::wstring GetString(REFGUID set, DBPROPID id) const;
    // Remembers the current values as the defaults that SetProperties restores for VT_EMPTY.
    void CaptureDefaults() { m_defaults = m_values; }
    // Whether SetProperties asked for the property as required.
    bool IsRequired(REFGUID set, DBPROPID id) const;

    // IDBProperties::GetProperties over the sets listed in `visible`.
    HRESULT GetProperties(ULONG idSetCount, const DBPROPIDSET* idSets, ULONG* setCount, DBPROPSET** sets,
                          std::span<const GUID* const> visible) const;

    // Checks one property before it is stored: returns DBPROPSTATUS_OK to accept, another
    // status to refuse. It may also store the value itself (then it returns
    // DBPROPSTATUS_OK and sets `handled`).
    using Validator = std::function<DBPROPSTATUS(const PropertyDefinition&, const VARIANT&, bool& handled)>;
    // IDBProperties::SetProperties over the sets listed in `settable`. Writes each property's
    // status; returns S_OK, DB_S_ERRORSOCCURRED or DB_E_ERRORSOCCURRED.
    HRESULT SetProperties(ULONG setCount, DBPROPSET* sets, std::span<const GUID* const> settable,
                          const Validator& validate);

    // IDBProperties::GetPropertyInfo over the sets listed in `visible`.
    HRESULT GetPropertyInfo(ULONG idSetCount, const DBPROPIDSET* idSets, ULONG* infoSetCount,
                            DBPROPINFOSET** infoSets, OLECHAR** descriptions,
                            std::span<const GUID* const> visible) const;

private:
    // One property GetPropertyInfo describes; `index` is kNotFound when it is not supported.
    struct InfoEntry {
        DBPROPID id;
        size_t index;
    };
    struct InfoGroup {
        GUID set;
        std::vector<InfoEntry> entries;
    };

    size_t IndexOf(REFGUID set, DBPROPID id) const noexcept;
    // The sets and properties GetPropertyInfo describes, as asked for; a whole set that is
    // unknown counts as one failed property in `total` and `errors`.
    std::vector<InfoGroup> InfoGroups(ULONG idSetCount, const DBPROPIDSET* idSets,
                                      std::span<const GUID* const> visible, ULONG& total, ULONG& errors) const;
    // Fills one DBPROPINFOSET; descriptions are copied to `cursor` when it is not null.
    void FillInfoSet(const InfoGroup& group, DBPROPINFOSET& out, OLECHAR*& cursor, ULONG& total,
                     ULONG& errors) const;

    std::vector<PropertyDefinition> m_definitions;
    std::vector<Variant> m_values;
    std::vector<Variant> m_defaults;
    std::vector<DBPROPOPTIONS> m_options;
};

}  // namespace zel::provider
