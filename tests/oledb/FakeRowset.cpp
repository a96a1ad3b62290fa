#include "tests/oledb/FakeRowset.h"

#include <windows.h>
#include <oledberr.h>
#include <oleauto.h>

#include <algorithm>
#include <cstring>
#include <map>

#include "common/ComObject.h"

namespace zel::test {

FakeValue Text(const std::wstring& text) {
    FakeValue v;
    v.bytes.resize(text.size() * sizeof(wchar_t));
    if (!text.empty()) memcpy(v.bytes.data(), text.data(), v.bytes.size());
    return v;
}

FakeValue Bytes(const std::vector<BYTE>& bytes) {
    FakeValue v;
    v.bytes = bytes;
    return v;
}

FakeValue Null() {
    FakeValue v;
    v.isNull = true;
    return v;
}

namespace {

class FakeStream final : public ComObject<FakeStream, ISequentialStream> {
public:
    FakeStream(std::vector<BYTE> bytes, std::shared_ptr<FakeLog> log) : m_bytes(std::move(bytes)), m_log(std::move(log)) {
        ++m_log->liveStreams;
    }
    ~FakeStream() override { --m_log->liveStreams; }
    STDMETHODIMP Read(void* buffer, ULONG size, ULONG* read) override {
        ULONG n = static_cast<ULONG>(std::min<size_t>(size, m_bytes.size() - m_position));
        memcpy(buffer, m_bytes.data() + m_position, n);
        m_position += n;
        if (read) *read = n;
        return n < size ? S_FALSE : S_OK;
    }
    STDMETHODIMP Write(const void*, ULONG, ULONG*) override { return STG_E_ACCESSDENIED; }

private:
    std::vector<BYTE> m_bytes;
    size_t m_position = 0;
    std::shared_ptr<FakeLog> m_log;
};

class FakeRowsetObject final
    : public ComObject<FakeRowsetObject, IRowset, IAccessor, IColumnsInfo, IRowsetInfo> {
public:
    FakeRowsetObject(std::shared_ptr<FakeResult> result, std::shared_ptr<FakeLog> log)
        : m_result(std::move(result)), m_log(std::move(log)) {}

    // IRowset
    STDMETHODIMP AddRefRows(DBCOUNTITEM, const HROW[], DBREFCOUNT[], DBROWSTATUS[]) override { return E_NOTIMPL; }
    STDMETHODIMP GetData(HROW row, HACCESSOR accessor, void* data) override {
        auto found = m_accessors.find(accessor);
        if (found == m_accessors.end()) return DB_E_BADACCESSORHANDLE;
        if (row == DB_NULL_HROW || row > m_result->rows.size()) return DB_E_BADROWHANDLE;
        const auto& values = m_result->rows[row - 1];
        bool errors = false;
        for (const DBBINDING& b : found->second) {
            size_t column = ColumnOf(b.iOrdinal);
            const FakeValue& value = values[column];
            BYTE* out = static_cast<BYTE*>(data) + b.obValue;
            DBSTATUS status = DBSTATUS_S_OK;
            DBLENGTH length = value.bytes.size();
            const DBTYPE type = m_result->columns[column].type;
            if (value.isNull) {
                status = DBSTATUS_S_ISNULL;
                length = 0;
            } else if (b.wType == DBTYPE_IUNKNOWN) {
                IUnknown* stream = nullptr;
                FakeStream::CreateInstance(nullptr, IID_IUnknown, reinterpret_cast<void**>(&stream), value.bytes, m_log);
                memcpy(out, &stream, sizeof stream);
            } else if (b.wType != type) {
                status = DBSTATUS_E_CANTCONVERTVALUE;
                errors = true;
            } else if (type == DBTYPE_WSTR || type == DBTYPE_STR || type == DBTYPE_BYTES) {
                DBLENGTH terminator = type == DBTYPE_WSTR ? 2 : type == DBTYPE_STR ? 1 : 0;
                DBLENGTH room = b.cbMaxLen >= terminator ? b.cbMaxLen - terminator : 0;
                DBLENGTH n = std::min<DBLENGTH>(room, value.bytes.size());
                if (type == DBTYPE_WSTR) n &= ~DBLENGTH(1);
                memcpy(out, value.bytes.data(), n);
                memset(out + n, 0, terminator);
                if (n < value.bytes.size()) status = DBSTATUS_S_TRUNCATED;
            } else if (type == DBTYPE_BSTR) {
                BSTR text = SysAllocStringLen(reinterpret_cast<const wchar_t*>(value.bytes.data()),
                                              static_cast<UINT>(value.bytes.size() / 2));
                memcpy(out, &text, sizeof text);
            } else {
                memcpy(out, value.bytes.data(), std::min<DBLENGTH>(b.cbMaxLen, value.bytes.size()));
            }
            if (b.dwPart & DBPART_LENGTH) memcpy(static_cast<BYTE*>(data) + b.obLength, &length, sizeof length);
            if (b.dwPart & DBPART_STATUS) memcpy(static_cast<BYTE*>(data) + b.obStatus, &status, sizeof status);
        }
        return errors ? DB_E_ERRORSOCCURRED : S_OK;
    }
    STDMETHODIMP GetNextRows(HCHAPTER, DBROWOFFSET offset, DBROWCOUNT count, DBCOUNTITEM* obtained,
                             HROW** rows) override {
        ++m_log->getNextRows;
        m_log->skips.push_back(offset);
        *obtained = 0;
        const DBROWOFFSET n = static_cast<DBROWOFFSET>(m_result->rows.size());
        DBROWOFFSET start = (!m_started && offset < 0) ? n + offset : m_next + offset;
        if (count == 0) return S_OK;
        if (start < 0) {
            m_next = 0;
            return DB_S_ENDOFROWSET;
        }
        if (start >= n) {
            m_next = n;
            return DB_S_ENDOFROWSET;
        }
        DBROWOFFSET end = std::min<DBROWOFFSET>(n, start + count);
        if (!*rows) *rows = static_cast<HROW*>(CoTaskMemAlloc(sizeof(HROW) * (end - start)));
        for (DBROWOFFSET i = start; i < end; ++i) {
            (*rows)[i - start] = static_cast<HROW>(i + 1);
            ++m_log->liveRows;
        }
        *obtained = static_cast<DBCOUNTITEM>(end - start);
        m_next = end;
        m_started = true;
        return end - start < count ? DB_S_ENDOFROWSET : S_OK;
    }
    STDMETHODIMP ReleaseRows(DBCOUNTITEM count, const HROW[], DBROWOPTIONS[], DBREFCOUNT[], DBROWSTATUS[]) override {
        m_log->liveRows -= static_cast<int>(count);
        return S_OK;
    }
    STDMETHODIMP RestartPosition(HCHAPTER) override {
        ++m_log->restarts;
        m_next = 0;
        m_started = false;
        return S_OK;
    }

    // IAccessor
    STDMETHODIMP AddRefAccessor(HACCESSOR, DBREFCOUNT*) override { return E_NOTIMPL; }
    STDMETHODIMP CreateAccessor(DBACCESSORFLAGS, DBCOUNTITEM count, const DBBINDING bindings[], DBLENGTH,
                                HACCESSOR* accessor, DBBINDSTATUS status[]) override {
        std::vector<DBBINDING> copy(bindings, bindings + count);
        for (DBCOUNTITEM i = 0; i < count; ++i) {
            if (status) status[i] = DBBINDSTATUS_OK;
            copy[i].pObject = nullptr;
        }
        HACCESSOR handle = reinterpret_cast<HACCESSOR>(static_cast<ULONG_PTR>(++m_lastAccessor));
        m_accessors[handle] = std::move(copy);
        *accessor = handle;
        return S_OK;
    }
    STDMETHODIMP GetBindings(HACCESSOR, DBACCESSORFLAGS*, DBCOUNTITEM*, DBBINDING**) override { return E_NOTIMPL; }
    STDMETHODIMP ReleaseAccessor(HACCESSOR accessor, DBREFCOUNT* refs) override {
        m_accessors.erase(accessor);
        if (refs) *refs = 0;
        return S_OK;
    }

    // IColumnsInfo
    STDMETHODIMP GetColumnInfo(DBORDINAL* count, DBCOLUMNINFO** info, OLECHAR** names) override {
        const auto& columns = m_result->columns;
        size_t chars = 0;
        for (const auto& c : columns) chars += c.name.size() + 1;
        *count = columns.size();
        *info = static_cast<DBCOLUMNINFO*>(CoTaskMemAlloc(sizeof(DBCOLUMNINFO) * std::max<size_t>(1, columns.size())));
        *names = static_cast<OLECHAR*>(CoTaskMemAlloc(sizeof(OLECHAR) * std::max<size_t>(1, chars)));
        OLECHAR* next = *names;
        DBORDINAL ordinal = 1;
        for (size_t i = 0; i < columns.size(); ++i) {
            const FakeColumn& c = columns[i];
            DBCOLUMNINFO& out = (*info)[i];
            memset(&out, 0, sizeof out);
            memcpy(next, c.name.c_str(), (c.name.size() + 1) * sizeof(OLECHAR));
            out.pwszName = c.name.empty() ? nullptr : next;
            next += c.name.size() + 1;
            out.iOrdinal = (c.flags & DBCOLUMNFLAGS_ISBOOKMARK) ? 0 : ordinal++;
            out.dwFlags = c.flags;
            out.ulColumnSize = c.size;
            out.wType = c.type;
            out.bPrecision = c.precision;
            out.bScale = c.scale;
            out.columnid.eKind = DBKIND_NAME;
            out.columnid.uName.pwszName = out.pwszName;
        }
        return S_OK;
    }
    STDMETHODIMP MapColumnIDs(DBORDINAL, const DBID[], DBORDINAL[]) override { return E_NOTIMPL; }

    // IRowsetInfo
    STDMETHODIMP GetProperties(const ULONG count, const DBPROPIDSET sets[], ULONG* outCount, DBPROPSET** out) override {
        *outCount = 0;
        *out = nullptr;
        if (count != 1) return E_NOTIMPL;
        *out = static_cast<DBPROPSET*>(CoTaskMemAlloc(sizeof(DBPROPSET)));
        (*out)->guidPropertySet = sets[0].guidPropertySet;
        (*out)->cProperties = sets[0].cPropertyIDs;
        (*out)->rgProperties = static_cast<DBPROP*>(CoTaskMemAlloc(sizeof(DBPROP) * sets[0].cPropertyIDs));
        for (ULONG i = 0; i < sets[0].cPropertyIDs; ++i) {
            DBPROP& p = (*out)->rgProperties[i];
            memset(&p, 0, sizeof p);
            p.dwPropertyID = sets[0].rgPropertyIDs[i];
            p.dwStatus = DBPROPSTATUS_OK;
            V_VT(&p.vValue) = VT_BOOL;
            V_BOOL(&p.vValue) = VARIANT_TRUE;
        }
        *outCount = 1;
        return S_OK;
    }
    STDMETHODIMP GetReferencedRowset(DBORDINAL, REFIID, IUnknown**) override { return E_NOTIMPL; }
    STDMETHODIMP GetSpecification(REFIID, IUnknown**) override { return E_NOTIMPL; }

private:
    size_t ColumnOf(DBORDINAL ordinal) const {
        DBORDINAL next = 1;
        for (size_t i = 0; i < m_result->columns.size(); ++i) {
            bool bookmark = (m_result->columns[i].flags & DBCOLUMNFLAGS_ISBOOKMARK) != 0;
            DBORDINAL own = bookmark ? 0 : next++;
            if (own == ordinal) return i;
        }
        return 0;
    }

    std::shared_ptr<FakeResult> m_result;
    std::shared_ptr<FakeLog> m_log;
    std::map<HACCESSOR, std::vector<DBBINDING>> m_accessors;
    ULONG m_lastAccessor = 0;
    DBROWOFFSET m_next = 0;
    bool m_started = false;
};

class FakeCommand final : public ComObject<FakeCommand, ICommandText, ICommandProperties> {
public:
    FakeCommand(std::shared_ptr<FakeResult> result, std::shared_ptr<FakeLog> log)
        : m_result(std::move(result)), m_log(std::move(log)) {}
    HRESULT QueryExtra(REFIID riid, void** found) noexcept {
        if (riid != IID_ICommand) return E_NOINTERFACE;
        *found = static_cast<ICommandText*>(this);
        return S_OK;
    }

    STDMETHODIMP Cancel() override { return E_NOTIMPL; }
    STDMETHODIMP Execute(IUnknown*, REFIID riid, DBPARAMS*, DBROWCOUNT* affected, IUnknown** rowset) override {
        m_log->commandTexts.push_back(m_text);
        if (rowset) *rowset = nullptr;
        if (affected) *affected = m_result->rowsAffected;
        if (FAILED(m_result->executeResult) || !m_result->returnsRowset) return m_result->executeResult;
        return FakeRowsetObject::CreateInstance(nullptr, riid, reinterpret_cast<void**>(rowset), m_result, m_log);
    }
    STDMETHODIMP GetDBSession(REFIID, IUnknown**) override { return E_NOTIMPL; }
    STDMETHODIMP GetCommandText(GUID*, LPOLESTR*) override { return E_NOTIMPL; }
    STDMETHODIMP SetCommandText(REFGUID, LPCOLESTR text) override {
        m_text = text ? text : L"";
        return S_OK;
    }
    STDMETHODIMP GetProperties(const ULONG, const DBPROPIDSET[], ULONG*, DBPROPSET**) override { return E_NOTIMPL; }
    STDMETHODIMP SetProperties(ULONG count, DBPROPSET sets[]) override {
        for (ULONG s = 0; s < count; ++s) {
            for (ULONG i = 0; i < sets[s].cProperties; ++i) {
                m_log->rowsetProperties.push_back(sets[s].rgProperties[i].dwPropertyID);
                m_log->rowsetOptions.push_back(sets[s].rgProperties[i].dwOptions);
            }
        }
        return S_OK;
    }

private:
    std::shared_ptr<FakeResult> m_result;
    std::shared_ptr<FakeLog> m_log;
    std::wstring m_text;
};

// Copies a test description into provider memory, as GetTableDefinition hands it out.
void FillDescription(const FakeColumnDesc& source, DBCOLUMNDESC& out, std::wstring& strings, bool withNames) {
    memset(&out, 0, sizeof out);
    out.dbcid.eKind = DBKIND_NAME;
    out.dbcid.uName.pwszName = withNames ? reinterpret_cast<LPOLESTR>(strings.size() + 1) : nullptr;  // fixed up later
    if (withNames) strings += source.name + L'\0';
    out.wType = source.type;
    out.ulColumnSize = source.size;
    out.bPrecision = source.precision;
    out.bScale = source.scale;
    std::vector<GUID> sets;
    for (const auto& p : source.properties)
        if (std::find(sets.begin(), sets.end(), p.set) == sets.end()) sets.push_back(p.set);
    for (const auto& g : source.emptySets) sets.push_back(g);
    out.cPropertySets = static_cast<ULONG>(sets.size());
    out.rgPropertySets = static_cast<DBPROPSET*>(CoTaskMemAlloc(sizeof(DBPROPSET) * std::max<size_t>(1, sets.size())));
    for (size_t i = 0; i < sets.size(); ++i) {
        DBPROPSET& set = out.rgPropertySets[i];
        set.guidPropertySet = sets[i];
        set.cProperties = 0;
        set.rgProperties = static_cast<DBPROP*>(CoTaskMemAlloc(sizeof(DBPROP) * std::max<size_t>(1, source.properties.size())));
        for (const auto& p : source.properties) {
            if (p.set != sets[i]) continue;
            DBPROP& prop = set.rgProperties[set.cProperties++];
            memset(&prop, 0, sizeof prop);
            prop.dwPropertyID = p.id;
            prop.colid = DB_NULLID;
            VariantInit(&prop.vValue);
            VariantCopy(&prop.vValue, const_cast<VARIANT*>(p.value.get()));
        }
    }
}

class FakeSession final
    : public ComObject<FakeSession, IOpenRowset, IDBCreateCommand, IDBSchemaRowset, ITableCreation> {
public:
    FakeSession(std::shared_ptr<FakeResult> result, std::shared_ptr<FakeLog> log, std::shared_ptr<FakeCatalog> catalog)
        : m_result(std::move(result)), m_log(std::move(log)), m_catalog(std::move(catalog)) {}
    HRESULT QueryExtra(REFIID riid, void** found) noexcept {
        if (riid != IID_ITableDefinition || !m_catalog) return E_NOINTERFACE;
        *found = static_cast<ITableCreation*>(this);
        return S_OK;
    }
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) noexcept {
        // Without a catalog the session offers neither schema rowsets nor table definitions.
        if (!m_catalog && (riid == IID_IDBSchemaRowset || riid == IID_ITableCreation)) {
            if (ppv) *ppv = nullptr;
            return E_NOINTERFACE;
        }
        if (m_catalog && !m_catalog->offersTableCreation && (riid == IID_ITableCreation)) {
            if (ppv) *ppv = nullptr;
            return E_NOINTERFACE;
        }
        return ComObject::NonDelegatingQueryInterface(riid, ppv);
    }

    STDMETHODIMP OpenRowset(IUnknown*, DBID*, DBID*, REFIID, ULONG, DBPROPSET[], IUnknown**) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP CreateCommand(IUnknown* outer, REFIID riid, IUnknown** command) override {
        return FakeCommand::CreateInstance(outer, riid, reinterpret_cast<void**>(command), m_result, m_log);
    }

    // IDBSchemaRowset
    STDMETHODIMP GetRowset(IUnknown*, REFGUID schema, ULONG count, const VARIANT restrictions[], REFIID riid, ULONG,
                           DBPROPSET[], IUnknown** rowset) override {
        std::vector<std::wstring> seen;
        for (ULONG i = 0; i < count; ++i)
            seen.push_back(V_VT(&restrictions[i]) == VT_EMPTY ? L"<empty>"
                           : V_VT(&restrictions[i]) == VT_BSTR ? std::wstring(V_BSTR(&restrictions[i]))
                                                               : L"<other>");
        m_catalog->requests.emplace_back(schema, std::move(seen));
        for (auto& [guid, result] : m_catalog->schemas)
            if (guid == schema)
                return FakeRowsetObject::CreateInstance(nullptr, riid, reinterpret_cast<void**>(rowset), result, m_log);
        return E_INVALIDARG;
    }
    STDMETHODIMP GetSchemas(ULONG*, GUID**, ULONG**) override { return E_NOTIMPL; }

    // ITableDefinition
    STDMETHODIMP CreateTable(IUnknown*, DBID* id, DBORDINAL count, const DBCOLUMNDESC columns[], REFIID, ULONG,
                             DBPROPSET[], DBID**, IUnknown**) override {
        ++m_catalog->createCalls;
        std::wstring name = id && id->uName.pwszName ? id->uName.pwszName : L"";
        if (m_catalog->tables.count(name)) return DB_E_DUPLICATETABLEID;
        std::vector<FakeColumnDesc> descs;
        for (DBORDINAL i = 0; i < count; ++i) {
            FakeColumnDesc d;
            d.name = columns[i].dbcid.uName.pwszName ? columns[i].dbcid.uName.pwszName : L"";
            d.type = columns[i].wType;
            d.size = columns[i].ulColumnSize;
            d.precision = columns[i].bPrecision;
            d.scale = columns[i].bScale;
            d.typeName = columns[i].pwszTypeName ? columns[i].pwszTypeName : L"";
            for (ULONG s = 0; s < columns[i].cPropertySets; ++s) {
                const DBPROPSET& set = columns[i].rgPropertySets[s];
                if (set.cProperties == 0) d.emptySets.push_back(set.guidPropertySet);
                for (ULONG p = 0; p < set.cProperties; ++p)
                    d.properties.push_back({set.guidPropertySet, set.rgProperties[p].dwPropertyID,
                                            Variant(set.rgProperties[p].vValue)});
            }
            descs.push_back(std::move(d));
        }
        m_catalog->tables[name] = std::move(descs);
        return S_OK;
    }
    STDMETHODIMP DropTable(DBID* id) override {
        std::wstring name = id && id->uName.pwszName ? id->uName.pwszName : L"";
        if (!m_catalog->tables.erase(name)) return DB_E_NOTABLE;
        m_catalog->dropped.push_back(name);
        return S_OK;
    }
    STDMETHODIMP AddColumn(DBID*, DBCOLUMNDESC*, DBID**) override { return E_NOTIMPL; }
    STDMETHODIMP DropColumn(DBID*, DBID*) override { return E_NOTIMPL; }

    // ITableCreation
    STDMETHODIMP GetTableDefinition(DBID* id, DBORDINAL* count, DBCOLUMNDESC** columns, ULONG*, DBPROPSET**,
                                    ULONG*, DBCONSTRAINTDESC**, OLECHAR** strings) override {
        std::wstring name = id && id->uName.pwszName ? id->uName.pwszName : L"";
        auto found = m_catalog->tables.find(name);
        if (found == m_catalog->tables.end()) return DB_E_NOTABLE;
        const auto& descs = found->second;
        if (count) *count = descs.size();
        if (!columns) return S_OK;
        *columns = static_cast<DBCOLUMNDESC*>(CoTaskMemAlloc(sizeof(DBCOLUMNDESC) * std::max<size_t>(1, descs.size())));
        std::wstring buffer;
        for (size_t i = 0; i < descs.size(); ++i) FillDescription(descs[i], (*columns)[i], buffer, strings != nullptr);
        if (strings) {
            *strings = static_cast<OLECHAR*>(CoTaskMemAlloc(sizeof(OLECHAR) * std::max<size_t>(1, buffer.size())));
            memcpy(*strings, buffer.data(), buffer.size() * sizeof(OLECHAR));
            for (size_t i = 0; i < descs.size(); ++i) {
                size_t offset = reinterpret_cast<size_t>((*columns)[i].dbcid.uName.pwszName) - 1;
                (*columns)[i].dbcid.uName.pwszName = *strings + offset;
            }
        }
        return S_OK;
    }

private:
    std::shared_ptr<FakeResult> m_result;
    std::shared_ptr<FakeLog> m_log;
    std::shared_ptr<FakeCatalog> m_catalog;
};

class FakeDataSource final : public ComObject<FakeDataSource, IDBInitialize> {
public:
    STDMETHODIMP Initialize() override { return S_OK; }
    STDMETHODIMP Uninitialize() override { return S_OK; }
};

}  // namespace

ComPtr<IOpenRowset> MakeFakeSession(std::shared_ptr<FakeResult> result, std::shared_ptr<FakeLog> log,
                                    std::shared_ptr<FakeCatalog> catalog) {
    ComPtr<IOpenRowset> session;
    FakeSession::CreateInstance(nullptr, IID_IOpenRowset, session.put_void(), std::move(result), std::move(log),
                                std::move(catalog));
    return session;
}

ComPtr<IDBInitialize> MakeFakeDataSource() {
    ComPtr<IDBInitialize> source;
    FakeDataSource::CreateInstance(nullptr, IID_IDBInitialize, source.put_void());
    return source;
}

FakeConnection::FakeConnection(std::shared_ptr<FakeResult> r, std::shared_ptr<FakeLog> l,
                               std::shared_ptr<FakeCatalog> c)
    : result(std::move(r)), log(std::move(l)), catalog(std::move(c)) {
    m_dataSource = MakeFakeDataSource();
    m_session = MakeFakeSession(result, log, catalog);
}

}  // namespace zel::test
