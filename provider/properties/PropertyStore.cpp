#include "provider/properties/PropertyStore.h"

#include <oledberr.h>

#include <cstring>

#include "common/ComError.h"
#include "common/OleDbMemory.h"

namespace zel::provider {

namespace {

constexpr size_t kNotFound = static_cast<size_t>(-1);

bool Contains(std::span<const GUID* const> sets, REFGUID set) {
    for (const GUID* s : sets)
        if (*s == set) return true;
    return false;
}

bool IsInteger(VARTYPE vt) {
    return vt == VT_I1 || vt == VT_I2 || vt == VT_I4 || vt == VT_I8 || vt == VT_UI1 || vt == VT_UI2 || vt == VT_UI4 ||
           vt == VT_UI8 || vt == VT_INT || vt == VT_UINT;
}

bool SameValue(const VARIANT& a, const VARIANT& b) {
    if (V_VT(&a) != V_VT(&b)) return false;
    switch (V_VT(&a)) {
    case VT_EMPTY: return true;
    case VT_BOOL: return V_BOOL(&a) == V_BOOL(&b);
    case VT_I2: return V_I2(&a) == V_I2(&b);
    case VT_I4: return V_I4(&a) == V_I4(&b);
    case VT_I8: return V_I8(&a) == V_I8(&b);
    case VT_BSTR: return SysStringLen(V_BSTR(&a)) == SysStringLen(V_BSTR(&b)) &&
                         memcmp(V_BSTR(&a), V_BSTR(&b), SysStringByteLen(V_BSTR(&a))) == 0;
    default: return false;
    }
}

}  // namespace

PropertyStore::PropertyStore(std::span<const PropertyDefinition> definitions)
    : m_definitions(definitions.begin(), definitions.end()), m_values(definitions.size()),
      m_options(definitions.size(), DBPROPOPTIONS_REQUIRED) {}

size_t PropertyStore::IndexOf(REFGUID set, DBPROPID id) const noexcept {
    for (size_t i = 0; i < m_definitions.size(); ++i)
        if (m_definitions[i].id == id && *m_definitions[i].set == set) return i;
    return kNotFound;
}

const PropertyDefinition* PropertyStore::Find(REFGUID set, DBPROPID id) const noexcept {
    size_t i = IndexOf(set, id);
    return i == kNotFound ? nullptr : &m_definitions[i];
}

const VARIANT& PropertyStore::Value(REFGUID set, DBPROPID id) const {
    size_t i = IndexOf(set, id);
    if (i == kNotFound) ThrowHr(E_UNEXPECTED);
    return *m_values[i].get();
}

void PropertyStore::Put(REFGUID set, DBPROPID id, const VARIANT& value) {
    size_t i = IndexOf(set, id);
    if (i == kNotFound) ThrowHr(E_UNEXPECTED);
    m_values[i] = Variant(value);
}

void PropertyStore::PutBool(REFGUID set, DBPROPID id, bool value) { Put(set, id, *Variant::FromBool(value).get()); }
void PropertyStore::PutI4(REFGUID set, DBPROPID id, LONG value) { Put(set, id, *Variant::FromI4(value).get()); }
void PropertyStore::PutString(REFGUID set, DBPROPID id, const std::wstring& value) {
    Put(set, id, *Variant(std::wstring_view(value)).get());
}

bool PropertyStore::GetBool(REFGUID set, DBPROPID id) const {
    const VARIANT& v = Value(set, id);
    return V_VT(&v) == VT_BOOL && V_BOOL(&v) != VARIANT_FALSE;
}

LONG PropertyStore::GetI4(REFGUID set, DBPROPID id) const {
    const VARIANT& v = Value(set, id);
    if (V_VT(&v) == VT_I4) return V_I4(&v);
    if (V_VT(&v) == VT_I2) return V_I2(&v);
    return 0;
}

std::wstring PropertyStore::GetString(REFGUID set, DBPROPID id) const {
    const VARIANT& v = Value(set, id);
    if (V_VT(&v) != VT_BSTR || !V_BSTR(&v)) return {};
    return std::wstring(V_BSTR(&v), SysStringLen(V_BSTR(&v)));
}

bool PropertyStore::IsRequired(REFGUID set, DBPROPID id) const {
    size_t i = IndexOf(set, id);
    return i != kNotFound && m_options[i] == DBPROPOPTIONS_REQUIRED;
}

HRESULT PropertyStore::GetProperties(ULONG idSetCount, const DBPROPIDSET* idSets, ULONG* setCount, DBPROPSET** sets,
                                     std::span<const GUID* const> visible) const {
    if (!setCount || !sets) return E_INVALIDARG;
    *setCount = 0;
    *sets = nullptr;
    if (idSetCount && !idSets) return E_INVALIDARG;
    for (ULONG i = 0; i < idSetCount; ++i)
        if (idSets[i].cPropertyIDs && !idSets[i].rgPropertyIDs) return E_INVALIDARG;

    // The requests: explicit sets and ids, or every visible set.
    struct Request {
        const GUID* set;
        std::vector<DBPROPID> ids;
        bool all;
    };
    std::vector<Request> requests;
    if (idSetCount == 0) {
        for (const GUID* set : visible) requests.push_back({set, {}, true});
    } else {
        for (ULONG i = 0; i < idSetCount; ++i) {
            Request r{&idSets[i].guidPropertySet, {}, idSets[i].cPropertyIDs == 0};
            r.ids.assign(idSets[i].rgPropertyIDs, idSets[i].rgPropertyIDs + idSets[i].cPropertyIDs);
            requests.push_back(std::move(r));
        }
    }

    PropertySets out(requests.size());
    ULONG total = 0, errors = 0;
    for (size_t r = 0; r < requests.size(); ++r) {
        const Request& request = requests[r];
        const bool isVisible = Contains(visible, *request.set);
        std::vector<size_t> found;
        std::vector<DBPROPID> ids = request.ids;
        if (request.all) {
            // Initialization properties that were never given stay out of "all": clients
            // build connection strings from this list (Wine's GetInitializationString stops
            // at the first empty one).
            const bool skipEmpty = *request.set == DBPROPSET_DBINIT;
            if (isVisible)
                for (size_t i = 0; i < m_definitions.size(); ++i)
                    if (*m_definitions[i].set == *request.set && !(skipEmpty && m_values[i].vt() == VT_EMPTY))
                        ids.push_back(m_definitions[i].id);
            if (ids.empty() && !isVisible) ++errors, ++total;  // an unknown set asked for as a whole
        }
        out[r].guidPropertySet = *request.set;
        // Counted only once the array exists: a failed allocation leaves nothing to free.
        out[r].rgProperties = AllocateZeroed<DBPROP>(ids.size());
        out[r].cProperties = static_cast<ULONG>(ids.size());
        for (size_t p = 0; p < ids.size(); ++p) {
            DBPROP& prop = out[r].rgProperties[p];
            prop.dwPropertyID = ids[p];
            prop.colid = DB_NULLID;
            VariantInit(&prop.vValue);
            ++total;
            size_t index = isVisible ? IndexOf(*request.set, ids[p]) : kNotFound;
            if (index == kNotFound) {
                prop.dwStatus = DBPROPSTATUS_NOTSUPPORTED;
                prop.dwOptions = DBPROPOPTIONS_REQUIRED;
                ++errors;
                continue;
            }
            prop.dwStatus = DBPROPSTATUS_OK;
            prop.dwOptions = m_options[index];
            ZEL_THROW_IF_FAILED(VariantCopy(&prop.vValue, const_cast<VARIANT*>(m_values[index].get())));
        }
    }
    *setCount = static_cast<ULONG>(out.size());
    *sets = out.release();
    if (errors == 0) return S_OK;
    return errors == total ? DB_E_ERRORSOCCURRED : DB_S_ERRORSOCCURRED;
}

HRESULT PropertyStore::SetProperties(ULONG setCount, DBPROPSET* sets, std::span<const GUID* const> settable,
                                     const Validator& validate) {
    if (setCount && !sets) return E_INVALIDARG;
    for (ULONG i = 0; i < setCount; ++i)
        if (sets[i].cProperties && !sets[i].rgProperties) return E_INVALIDARG;
    ULONG total = 0, errors = 0;
    for (ULONG s = 0; s < setCount; ++s) {
        const GUID& set = sets[s].guidPropertySet;
        for (ULONG p = 0; p < sets[s].cProperties; ++p) {
            DBPROP& prop = sets[s].rgProperties[p];
            ++total;
            DBPROPSTATUS status = DBPROPSTATUS_OK;
            size_t index = Contains(settable, set) ? IndexOf(set, prop.dwPropertyID) : kNotFound;
            if (prop.dwOptions != DBPROPOPTIONS_REQUIRED && prop.dwOptions != DBPROPOPTIONS_OPTIONAL) {
                status = DBPROPSTATUS_BADOPTION;
            } else if (index == kNotFound) {
                status = DBPROPSTATUS_NOTSUPPORTED;
            } else {
                const PropertyDefinition& def = m_definitions[index];
                // Integer properties take any integer width (a window handle comes as VT_I4 or
                // VT_I8 depending on the caller).
                Variant value(prop.vValue);
                if (value.vt() == VT_EMPTY && index < m_defaults.size()) value = m_defaults[index];
                if (value.vt() != VT_EMPTY && value.vt() != def.type && IsInteger(value.vt()) && IsInteger(def.type))
                    value.change_type(def.type);
                if (value.vt() != VT_EMPTY && value.vt() != def.type) {
                    status = DBPROPSTATUS_BADVALUE;
                } else if (!(def.flags & DBPROPFLAGS_WRITE) && !SameValue(*value.get(), *m_values[index].get())) {
                    status = DBPROPSTATUS_NOTSETTABLE;
                } else {
                    bool handled = false;
                    status = validate ? validate(def, *value.get(), handled) : static_cast<DBPROPSTATUS>(DBPROPSTATUS_OK);
                    if (status == DBPROPSTATUS_OK) {
                        if (!handled && (def.flags & DBPROPFLAGS_WRITE)) m_values[index] = std::move(value);
                        m_options[index] = prop.dwOptions;
                    }
                }
            }
            if (status != DBPROPSTATUS_OK && prop.dwOptions == DBPROPOPTIONS_OPTIONAL &&
                (status == DBPROPSTATUS_NOTSETTABLE || status == DBPROPSTATUS_CONFLICTING))
                status = DBPROPSTATUS_NOTSET;
            prop.dwStatus = status;
            if (status != DBPROPSTATUS_OK) ++errors;
        }
    }
    if (errors == 0) return S_OK;
    return errors == total ? DB_E_ERRORSOCCURRED : DB_S_ERRORSOCCURRED;
}

std::vector<PropertyStore::InfoGroup> PropertyStore::InfoGroups(ULONG idSetCount, const DBPROPIDSET* idSets,
                                                                std::span<const GUID* const> visible, ULONG& total,
                                                                ULONG& errors) const {
    auto allOf = [&](REFGUID set) {
        InfoGroup g{set, {}};
        if (Contains(visible, set))
            for (size_t i = 0; i < m_definitions.size(); ++i)
                if (*m_definitions[i].set == set) g.entries.push_back({m_definitions[i].id, i});
        return g;
    };
    std::vector<InfoGroup> groups;
    if (idSetCount == 0) {
        for (const GUID* set : visible) groups.push_back(allOf(*set));
        return groups;
    }
    for (ULONG i = 0; i < idSetCount; ++i) {
        const DBPROPIDSET& request = idSets[i];
        if (request.cPropertyIDs == 0) {
            groups.push_back(allOf(request.guidPropertySet));
            if (groups.back().entries.empty()) ++errors, ++total;
            continue;
        }
        InfoGroup g{request.guidPropertySet, {}};
        for (ULONG p = 0; p < request.cPropertyIDs; ++p) {
            size_t index = Contains(visible, request.guidPropertySet)
                               ? IndexOf(request.guidPropertySet, request.rgPropertyIDs[p])
                               : kNotFound;
            g.entries.push_back({request.rgPropertyIDs[p], index});
        }
        groups.push_back(std::move(g));
    }
    return groups;
}

void PropertyStore::FillInfoSet(const InfoGroup& group, DBPROPINFOSET& out, OLECHAR*& cursor, ULONG& total,
                                ULONG& errors) const {
    out.guidPropertySet = group.set;
    out.rgPropertyInfos = AllocateZeroed<DBPROPINFO>(group.entries.size());
    out.cPropertyInfos = static_cast<ULONG>(group.entries.size());
    for (size_t e = 0; e < group.entries.size(); ++e) {
        DBPROPINFO& info = out.rgPropertyInfos[e];
        const InfoEntry& entry = group.entries[e];
        info.dwPropertyID = entry.id;
        VariantInit(&info.vValues);
        ++total;
        if (entry.index == kNotFound) {
            info.dwFlags = DBPROPFLAGS_NOTSUPPORTED;
            info.vtType = VT_EMPTY;
            ++errors;
            continue;
        }
        const PropertyDefinition& def = m_definitions[entry.index];
        info.dwFlags = def.flags;
        info.vtType = def.type;
        if (cursor) {
            size_t n = wcslen(def.description) + 1;
            memcpy(cursor, def.description, n * sizeof(OLECHAR));
            info.pwszDescription = cursor;
            cursor += n;
        }
    }
}

HRESULT PropertyStore::GetPropertyInfo(ULONG idSetCount, const DBPROPIDSET* idSets, ULONG* infoSetCount,
                                       DBPROPINFOSET** infoSets, OLECHAR** descriptions,
                                       std::span<const GUID* const> visible) const {
    if (!infoSetCount || !infoSets) return E_INVALIDARG;
    *infoSetCount = 0;
    *infoSets = nullptr;
    if (descriptions) *descriptions = nullptr;
    if (idSetCount && !idSets) return E_INVALIDARG;
    for (ULONG i = 0; i < idSetCount; ++i)
        if (idSets[i].cPropertyIDs && !idSets[i].rgPropertyIDs) return E_INVALIDARG;

    ULONG total = 0, errors = 0;
    const std::vector<InfoGroup> groups = InfoGroups(idSetCount, idSets, visible, total, errors);
    size_t textSize = 0;
    for (const auto& g : groups)
        for (const auto& e : g.entries)
            if (e.index != kNotFound) textSize += wcslen(m_definitions[e.index].description) + 1;

    PropertyInfoSets out(groups.size());
    CoTaskMem<OLECHAR> text(descriptions && textSize ? AllocateZeroed<OLECHAR>(textSize) : nullptr);
    OLECHAR* cursor = text.get();
    for (size_t g = 0; g < groups.size(); ++g) FillInfoSet(groups[g], out[g], cursor, total, errors);
    *infoSetCount = static_cast<ULONG>(out.size());
    *infoSets = out.release();
    if (descriptions) *descriptions = text.release();
    if (errors == 0) return S_OK;
    return errors == total ? DB_E_ERRORSOCCURRED : DB_S_ERRORSOCCURRED;
}

}  // namespace zel::provider
