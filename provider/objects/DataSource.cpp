#include "provider/objects/DataSource.h"

#include <oledberr.h>
#include <sqlite3.h>

#include <cstring>
#include <optional>
#include <vector>

#include "common/OleDbMemory.h"
#include "provider/ProviderIdentity.h"
#include "provider/errors/Errors.h"
#include "provider/objects/Session.h"
#include "provider/properties/DataSourceProperties.h"
#include "provider/sqlite/DatabaseFile.h"
#include "provider/text/Utf.h"

namespace zel::provider {

namespace {

// SQLite words that SQL-92 does not reserve.
constexpr wchar_t kKeywords[] =
    L"ABORT,ANALYZE,ATTACH,AUTOINCREMENT,CONFLICT,DATABASE,DETACH,EXCLUSIVE,EXPLAIN,FAIL,GLOB,IF,"
    L"IGNORE,INDEXED,INSTEAD,ISNULL,LIMIT,NOTNULL,OFFSET,PLAN,PRAGMA,QUERY,RAISE,RECURSIVE,REGEXP,"
    L"REINDEX,RELEASE,RENAME,REPLACE,ROW,SAVEPOINT,TEMP,TRIGGER,VACUUM,VIRTUAL,WITHOUT";

struct LiteralEntry {
    DBLITERAL literal;
    const wchar_t* value;
    const wchar_t* invalidChars;
    const wchar_t* invalidStartingChars;
    ULONG maxLength;
};

const LiteralEntry kLiterals[] = {
    {DBLITERAL_CATALOG_NAME, nullptr, L"", L"", 0},
    {DBLITERAL_CATALOG_SEPARATOR, L".", nullptr, nullptr, 1},
    {DBLITERAL_CHAR_LITERAL, L"'", nullptr, nullptr, 1},
    {DBLITERAL_COLUMN_ALIAS, nullptr, L"", L"", 0},
    {DBLITERAL_COLUMN_NAME, nullptr, L"", L"", 0},
    {DBLITERAL_CORRELATION_NAME, nullptr, L"", L"", 0},
    {DBLITERAL_ESCAPE_PERCENT_PREFIX, L"\\", nullptr, nullptr, 1},
    {DBLITERAL_ESCAPE_UNDERSCORE_PREFIX, L"\\", nullptr, nullptr, 1},
    {DBLITERAL_INDEX_NAME, nullptr, L"", L"", 0},
    {DBLITERAL_LIKE_PERCENT, L"%", nullptr, nullptr, 1},
    {DBLITERAL_LIKE_UNDERSCORE, L"_", nullptr, nullptr, 1},
    {DBLITERAL_QUOTE_PREFIX, L"\"", nullptr, nullptr, 1},
    {DBLITERAL_QUOTE_SUFFIX, L"\"", nullptr, nullptr, 1},
    {DBLITERAL_TABLE_NAME, nullptr, L"", L"", 0},
    {DBLITERAL_TEXT_COMMAND, nullptr, nullptr, nullptr, 0},
    {DBLITERAL_VIEW_NAME, nullptr, L"", L"", 0},
};

}  // namespace

DataSource::DataSource() = default;

std::shared_ptr<Database> DataSource::RequireInitialized() const {
    std::lock_guard guard(m_lock);
    if (!m_database) Fail(E_UNEXPECTED, L"The data source is not initialized.");
    return m_database;
}

OpenOptions DataSource::InitOptions() const {
    OpenOptions options;
    const std::wstring path = Trim(m_properties.GetString(DBPROPSET_DBINIT, DBPROP_INIT_DATASOURCE));
    if (!path.empty()) options.path = FullPath(path);
    const VARIANT& mode = m_properties.Value(DBPROPSET_DBINIT, DBPROP_INIT_MODE);
    if (V_VT(&mode) == VT_I4) {
        const LONG access = V_I4(&mode) & DB_MODE_READWRITE;
        options.readOnly = access != 0 && !(access & DB_MODE_WRITE);
    }
    options.busyTimeoutMs = m_options.busyTimeoutMs();
    return options;
}

STDMETHODIMP DataSource::Initialize() {
    try {
        std::lock_guard guard(m_lock);
        if (m_database) Fail(DB_E_ALREADYINITIALIZED);
        OpenOptions options = InitOptions();
        if (options.path.empty())
            Fail(DB_E_CANNOTCONNECT, L"No database file was given: set \"Data Source\" to the path of an SQLite file.",
                 L"08001");
        // A file marked read-only is opened read-only whatever the mode asks, as Windows does
        // not let it be written. Under Wine the mark is the Unix write permission, which a
        // process running as root does not need: without this, such a process would change the
        // file.
        const DWORD attributes = GetFileAttributesW(options.path.c_str());
        if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY)) options.readOnly = true;
        m_database = Database::Open(options);
        MarkInitialized(options);
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

void DataSource::MarkInitialized(const OpenOptions& options) {
    const auto& set = DBPROPSET_DATASOURCEINFO;
    m_properties.PutString(set, DBPROP_DATASOURCENAME, options.path);
    m_properties.PutBool(set, DBPROP_DATASOURCEREADONLY, options.readOnly);
    PutProviderInfo(m_properties, kProviderFileName, kProviderName, kProviderVersion);
    m_properties.PutString(set, DBPROP_DBMSNAME, kDbmsName);
    m_properties.PutString(set, DBPROP_DBMSVER, FromUtf8(sqlite3_libversion()));
    m_properties.PutI4(set, DBPROP_IDENTIFIERCASE, DBPROPVAL_IC_MIXED);
    m_properties.PutI4(set, DBPROP_QUOTEDIDENTIFIERCASE, DBPROPVAL_IC_MIXED);
    m_properties.PutI4(set, DBPROP_NULLCOLLATION, DBPROPVAL_NC_LOW);
    m_properties.PutI4(set, DBPROP_SUPPORTEDTXNISOLEVELS,
                       DBPROPVAL_TI_READCOMMITTED | DBPROPVAL_TI_REPEATABLEREAD | DBPROPVAL_TI_SERIALIZABLE |
                           DBPROPVAL_TI_READUNCOMMITTED);
    m_properties.PutString(DBPROPSET_DATASOURCE, DBPROP_CURRENTCATALOG, L"main");
}

STDMETHODIMP DataSource::Uninitialize() {
    try {
        std::lock_guard guard(m_lock);
        if (m_sessions > 0) Fail(DB_E_OBJECTOPEN, L"Sessions of this data source are still open.");
        m_database.reset();
        MarkUninitialized();
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

void DataSource::MarkUninitialized() {
    m_properties.PutI4(DBPROPSET_DATASOURCEINFO, DBPROP_CONNECTIONSTATUS, DBPROPVAL_CS_UNINITIALIZED);
}

HRESULT DataSource::ApplyProperties(ULONG setCount, DBPROPSET sets[]) {
    const bool initialized = m_database != nullptr;
    std::optional<ConnectionOptions> providerString;
    auto validate = [&](const PropertyDefinition& def, const VARIANT& value, bool& handled) -> DBPROPSTATUS {
        if (*def.set == DBPROPSET_DATASOURCE) {
            // SQLite's only catalog in a connection is "main".
            if (V_VT(&value) == VT_BSTR && !EqualsNoCase(V_BSTR(&value), L"main")) return DBPROPSTATUS_BADVALUE;
            return DBPROPSTATUS_OK;
        }
        if (initialized) return DBPROPSTATUS_NOTSETTABLE;
        switch (def.id) {
        case DBPROP_INIT_PROVIDERSTRING:
            if (!providerString) providerString.emplace();
            handled = true;
            if (V_VT(&value) == VT_BSTR && !providerString->Add(V_BSTR(&value) ? V_BSTR(&value) : L""))
                return DBPROPSTATUS_BADVALUE;
            return DBPROPSTATUS_OK;
        default: return CheckInitProperty(def, value, m_properties);
        }
    };
    const GUID* const settable[] = {&DBPROPSET_DBINIT, &DBPROPSET_DATASOURCE};
    std::span<const GUID* const> sets_ = initialized ? std::span<const GUID* const>(settable)
                                                     : std::span<const GUID* const>(settable, 1);
    HRESULT hr = m_properties.SetProperties(setCount, sets, sets_, validate);
    if (providerString) {
        m_options = *providerString;
        m_properties.PutString(DBPROPSET_DBINIT, DBPROP_INIT_PROVIDERSTRING, m_options.Text());
    }
    return hr;
}

STDMETHODIMP DataSource::CreateSession(IUnknown* outer, REFIID riid, IUnknown** session) {
    try {
        if (!session) Fail(E_INVALIDARG);
        *session = nullptr;
        if (outer && riid != IID_IUnknown) Fail(DB_E_NOAGGREGATION);
        auto database = RequireInitialized();
        auto connection = Database::Open(database->options());
        HRESULT hr = Session::CreateInstance(outer, riid, reinterpret_cast<void**>(session),
                                             ComPtr<DataSource>(this), std::move(connection));
        if (FAILED(hr)) Fail(hr);
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP DataSource::GetKeywords(LPOLESTR* keywords) {
    try {
        if (!keywords) Fail(E_INVALIDARG);
        *keywords = nullptr;
        RequireInitialized();
        *keywords = CopyToCoTaskMem(kKeywords).release();
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP DataSource::GetLiteralInfo(ULONG count, const DBLITERAL literals[], ULONG* infoCount,
                                        DBLITERALINFO** info, OLECHAR** buffer) {
    try {
        if (!infoCount || !info || !buffer || (count && !literals)) Fail(E_INVALIDARG);
        *infoCount = 0;
        *info = nullptr;
        *buffer = nullptr;
        RequireInitialized();
        std::vector<DBLITERAL> wanted;
        if (count == 0)
            for (const auto& entry : kLiterals) wanted.push_back(entry.literal);
        else
            wanted.assign(literals, literals + count);

        auto find = [](DBLITERAL literal) -> const LiteralEntry* {
            for (const auto& entry : kLiterals)
                if (entry.literal == literal) return &entry;
            return nullptr;
        };
        size_t textSize = 0;
        auto measure = [&](const wchar_t* s) { textSize += s ? wcslen(s) + 1 : 0; };
        for (DBLITERAL literal : wanted)
            if (const LiteralEntry* e = find(literal)) {
                measure(e->value);
                measure(e->invalidChars);
                measure(e->invalidStartingChars);
            }
        CoTaskMem<DBLITERALINFO> out(AllocateZeroed<DBLITERALINFO>(wanted.size()));
        CoTaskMem<OLECHAR> text(AllocateZeroed<OLECHAR>(textSize));
        OLECHAR* cursor = text.get();
        auto place = [&](const wchar_t* s) -> LPOLESTR {
            if (!s) return nullptr;
            size_t n = wcslen(s) + 1;
            memcpy(cursor, s, n * sizeof(OLECHAR));
            LPOLESTR at = cursor;
            cursor += n;
            return at;
        };
        ULONG unsupported = 0;
        for (size_t i = 0; i < wanted.size(); ++i) {
            DBLITERALINFO& li = out[i];
            li = DBLITERALINFO{};
            li.lt = wanted[i];
            const LiteralEntry* e = find(wanted[i]);
            if (!e) {
                li.fSupported = FALSE;
                ++unsupported;
                continue;
            }
            li.fSupported = TRUE;
            li.pwszLiteralValue = place(e->value);
            li.pwszInvalidChars = place(e->invalidChars);
            li.pwszInvalidStartingChars = place(e->invalidStartingChars);
            li.cchMaxLen = e->maxLength ? e->maxLength : ~0u;
        }
        *infoCount = static_cast<ULONG>(wanted.size());
        *info = out.release();
        *buffer = text.release();
        if (unsupported == 0) return S_OK;
        if (unsupported == wanted.size()) {
            PublishError(DB_E_ERRORSOCCURRED, L"None of the literals asked for is supported.");
            return DB_E_ERRORSOCCURRED;
        }
        return ClearErrorAndReturn(DB_S_ERRORSOCCURRED);
    }
    ZEL_CATCH_RETURN()
}

}  // namespace zel::provider
