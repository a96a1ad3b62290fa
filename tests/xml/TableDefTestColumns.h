// Column descriptions built in test code, as a provider would hand them to the writer.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <string>
#include <vector>

#include "xml/TableDefColumns.h"

namespace zel::test {

// One DBCOLUMNDESC whose strings, property sets and properties live in this object.
class TestColumn {
public:
    TestColumn() { m_desc = {}; }
    TestColumn(const TestColumn&) = delete;
    TestColumn& operator=(const TestColumn&) = delete;
    ~TestColumn() {
        for (auto& set : m_properties)
            for (DBPROP& p : set) VariantClear(&p.vValue);
    }

    TestColumn& Named(const wchar_t* name) {
        m_name = name;
        m_desc.dbcid.eKind = DBKIND_NAME;
        m_hasName = true;
        return *this;
    }
    TestColumn& TypeName(const wchar_t* typeName) {
        m_typeName = typeName;
        m_hasTypeName = true;
        return *this;
    }
    TestColumn& Type(DBTYPE type) {
        m_desc.wType = type;
        return *this;
    }
    TestColumn& Precision(BYTE precision) {
        m_desc.bPrecision = precision;
        return *this;
    }
    TestColumn& Scale(BYTE scale) {
        m_desc.bScale = scale;
        return *this;
    }
    TestColumn& Size(DBLENGTH size) {
        m_desc.ulColumnSize = size;
        return *this;
    }
    // Starts a new property set; the following properties go into it.
    TestColumn& Set(REFGUID guid) {
        m_sets.push_back(guid);
        m_properties.emplace_back();
        return *this;
    }
    // Adds a property with `value` (copied) to the last set.
    TestColumn& Property(DBPROPID id, const VARIANT& value, DBPROPSTATUS status = DBPROPSTATUS_OK) {
        DBPROP p = {};
        p.dwPropertyID = id;
        p.dwOptions = DBPROPOPTIONS_REQUIRED;
        p.dwStatus = status;
        p.colid = DB_NULLID;
        VariantInit(&p.vValue);
        VariantCopy(&p.vValue, const_cast<VARIANT*>(&value));
        m_properties.back().push_back(p);
        return *this;
    }
    TestColumn& Bool(DBPROPID id, bool value) {
        VARIANT v;
        V_VT(&v) = VT_BOOL;
        V_BOOL(&v) = value ? VARIANT_TRUE : VARIANT_FALSE;
        return Property(id, v);
    }

    // The description; valid until this object changes or goes.
    const DBCOLUMNDESC& Desc() {
        m_desc.dbcid.uName.pwszName = m_hasName ? m_name.data() : nullptr;
        if (m_desc.dbcid.eKind != DBKIND_NAME) m_desc.dbcid.uName.pwszName = nullptr;
        m_desc.pwszTypeName = m_hasTypeName ? m_typeName.data() : nullptr;
        m_rawSets.clear();
        for (size_t i = 0; i < m_sets.size(); ++i) {
            DBPROPSET s = {};
            s.guidPropertySet = m_sets[i];
            s.cProperties = static_cast<ULONG>(m_properties[i].size());
            s.rgProperties = m_properties[i].empty() ? nullptr : m_properties[i].data();
            m_rawSets.push_back(s);
        }
        m_desc.cPropertySets = static_cast<ULONG>(m_rawSets.size());
        m_desc.rgPropertySets = m_rawSets.empty() ? nullptr : m_rawSets.data();
        return m_desc;
    }
    DBCOLUMNDESC& Raw() { return m_desc; }

private:
    DBCOLUMNDESC m_desc;
    std::wstring m_name, m_typeName;
    bool m_hasName = false, m_hasTypeName = false;
    std::vector<GUID> m_sets;
    std::vector<std::vector<DBPROP>> m_properties;
    std::vector<DBPROPSET> m_rawSets;
};

}  // namespace zel::test
