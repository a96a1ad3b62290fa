// The same SQLite file through both providers, from a host of this tree's bitness across the
// process boundary: ZelLite reads it itself, ZelOdbc through the SQLite3 ODBC driver (Wine's
// odbc32, unixODBC and the Linux driver). Every output of the server is written down for each
// provider as "key = value" lines (field texts, natural values row by row and in batches, the
// column descriptions, the query-result document, the table, column and index enumerations, the
// table definition documents) and the two sets are compared line by line. Where the providers
// differ by nature, the difference is listed with both exact values; a listed difference that
// no longer occurs fails too, so the list stays true.
#include "tests/server/OdbcServerSupport.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>

using namespace zel::test;
using namespace zel::test::odbc;
using zel::Bstr;
using zel::ComPtr;
using zel::Variant;

namespace {

// The lines written down for one provider, in the order they were taken.
class Record {
public:
    void Add(const std::wstring& key, const std::wstring& value) {
        if (m_values.emplace(key, value).second) m_order.push_back(key);
        else ADD_FAILURE() << "key written twice: " << testing::PrintToString(key);
    }
    const std::vector<std::wstring>& order() const { return m_order; }
    const std::wstring* Find(const std::wstring& key) const {
        auto it = m_values.find(key);
        return it == m_values.end() ? nullptr : &it->second;
    }

private:
    std::vector<std::wstring> m_order;
    std::map<std::wstring, std::wstring> m_values;
};

// A difference the two providers show by nature: the value on each side.
struct Expected {
    std::wstring lite;  // L"<absent>" when the line exists only for ZelOdbc
    std::wstring odbc;  // L"<absent>" when the line exists only for ZelLite
};
using ExpectedDifferences = std::map<std::wstring, Expected>;
const std::wstring kAbsent = L"<absent>";

std::wstring Hr(HRESULT hr) {
    wchar_t text[16];
    swprintf(text, 16, L"%08lX", static_cast<unsigned long>(hr));
    return text;
}

std::wstring Number(long long value) { return std::to_wstring(value); }

std::wstring Hex(const BYTE* bytes, size_t count) {
    static const wchar_t digits[] = L"0123456789ABCDEF";
    std::wstring out;
    for (size_t i = 0; i < count; ++i) {
        out += digits[bytes[i] >> 4];
        out += digits[bytes[i] & 15];
    }
    return out;
}

// A value with its automation type, written so that equal texts mean equal values.
std::wstring Describe(const VARIANT& v) {
    wchar_t text[64];
    switch (V_VT(&v)) {
    case VT_EMPTY: return L"EMPTY";
    case VT_NULL: return L"NULL";
    case VT_I2: return L"I2:" + Number(V_I2(&v));
    case VT_I4: return L"I4:" + Number(V_I4(&v));
    case VT_I8: return L"I8:" + Number(V_I8(&v));
    case VT_UI1: return L"UI1:" + Number(V_UI1(&v));
    case VT_UI4: return L"UI4:" + Number(V_UI4(&v));
    case VT_BOOL: return L"BOOL:" + Number(V_BOOL(&v));
    case VT_R4:
        swprintf(text, 64, L"R4:%.9g", static_cast<double>(V_R4(&v)));
        return text;
    case VT_R8:
        swprintf(text, 64, L"R8:%.17g", V_R8(&v));
        return text;
    case VT_CY: return L"CY:" + Number(V_CY(&v).int64);
    case VT_DECIMAL: {
        Bstr value;
        DECIMAL copy = V_DECIMAL(&v);
        VarBstrFromDec(&copy, LOCALE_INVARIANT, 0, value.put());
        return L"DECIMAL:" + value.str() + L" scale " + Number(V_DECIMAL(&v).scale);
    }
    case VT_DATE: {
        SYSTEMTIME st{};
        VariantTimeToSystemTime(V_DATE(&v), &st);
        swprintf(text, 64, L"DATE:%04u-%02u-%02u %02u:%02u:%02u", st.wYear, st.wMonth, st.wDay, st.wHour,
                 st.wMinute, st.wSecond);
        return text;
    }
    case VT_BSTR: return L"BSTR:" + BstrText(V_BSTR(&v));
    case VT_ARRAY | VT_UI1: {
        LONG lower = 0, upper = -1;
        SafeArrayGetLBound(V_ARRAY(&v), 1, &lower);
        SafeArrayGetUBound(V_ARRAY(&v), 1, &upper);
        zel::SafeArrayData data(V_ARRAY(&v));
        return L"BYTES:" + Hex(data.as<BYTE>(), static_cast<size_t>(upper - lower + 1));
    }
    default: return L"VT" + Number(V_VT(&v));
    }
}

// The elements of a two-dimensional SAFEARRAY of VARIANT, first index fastest, as values.
std::vector<std::vector<std::wstring>> Grid(const VARIANT& v, std::wstring* shape) {
    std::vector<std::vector<std::wstring>> out;
    if (V_VT(&v) != (VT_ARRAY | VT_VARIANT) || !V_ARRAY(&v) || SafeArrayGetDim(V_ARRAY(&v)) != 2) {
        *shape = L"not a grid: " + Describe(v);
        return out;
    }
    LONG lower[2] = {0, 0}, upper[2] = {-1, -1};
    for (UINT d = 0; d < 2; ++d) {
        SafeArrayGetLBound(V_ARRAY(&v), d + 1, &lower[d]);
        SafeArrayGetUBound(V_ARRAY(&v), d + 1, &upper[d]);
    }
    *shape = Number(upper[0] - lower[0] + 1) + L"x" + Number(upper[1] - lower[1] + 1);
    for (LONG second = lower[1]; second <= upper[1]; ++second) {
        std::vector<std::wstring> line;
        for (LONG first = lower[0]; first <= upper[0]; ++first) {
            Variant value;
            LONG indices[2] = {first, second};
            SafeArrayGetElement(V_ARRAY(&v), indices, value.get());
            line.push_back(Describe(*value.get()));
        }
        out.push_back(std::move(line));
    }
    return out;
}

// The text's lines (CR LF or LF ends).
std::vector<std::wstring> Lines(const std::wstring& text) {
    std::vector<std::wstring> out;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find(L'\n', start);
        if (end == std::wstring::npos) end = text.size();
        std::wstring line = text.substr(start, end - start);
        if (!line.empty() && line.back() == L'\r') line.pop_back();
        out.push_back(std::move(line));
        start = end + 1;
    }
    return out;
}

std::wstring Key(const std::wstring& prefix, const wchar_t* what, long long a = -1, long long b = -1) {
    std::wstring key = prefix + L" " + what;
    if (a >= 0) key += L" " + Number(a);
    if (b >= 0) key += L"." + Number(b);
    return key;
}

// Everything the server gives for the result of `sql` on `client`, under keys that start with `tag`.
void RecordQuery(Client& client, const std::wstring& tag, const std::wstring& sql, Record& out, size_t* rowCount) {
    IZelOleDb* db = client.get();
    // The row walk and the document.
    Execution e = client.Execute(sql);
    out.Add(Key(tag, L"execute"), Hr(e.hr) + L" result " + Number(e.result) + L" " + e.errorText);
    out.Add(Key(tag, L"document null"), e.xmlNull ? L"yes" : L"no");
    const std::vector<std::wstring> document = Lines(e.xml);
    for (size_t i = 0; i < document.size(); ++i) out.Add(Key(tag, L"document line", static_cast<long long>(i)), document[i]);
    ULONGLONG columns = 0;
    out.Add(Key(tag, L"column count"), Hr(db->CmdGetColumnCount(e.handle, &columns)) + L" " + Number(columns));
    for (ULONGLONG c = 1; c <= columns; ++c) {
        const long long n = static_cast<long long>(c);
        Bstr name;
        db->CmdGetColumnName(e.handle, c, name.put());
        ULONG rawType = 0;
        ULONGLONG size = 0;
        SHORT integral = 0, numeric = 0, blob = 0;
        db->CmdGetRawType(e.handle, c, &rawType);
        db->CmdGetColumnSize(e.handle, c, &size);
        db->CmdIsIntegral(e.handle, c, &integral);
        db->CmdIsNumeric(e.handle, c, &numeric);
        db->CmdIsBlob(e.handle, c, &blob);
        out.Add(Key(tag, L"column name", n), name.str());
        out.Add(Key(tag, L"column type", n), Number(rawType));
        out.Add(Key(tag, L"column size", n), Number(static_cast<long long>(size)));
        out.Add(Key(tag, L"column integral numeric blob", n),
                Number(integral) + L" " + Number(numeric) + L" " + Number(blob));
        ULONGLONG index = 0;
        db->CmdGetColumnIndex(e.handle, name.get(), &index);
        out.Add(Key(tag, L"column index of name", n), Number(static_cast<long long>(index)));
    }
    size_t rows = 0;
    SHORT moved = 0;
    for (HRESULT hr = db->CmdFetchFirst(e.handle, &moved); hr == S_OK && moved == 1;
         hr = db->CmdFetchNext(e.handle, &moved)) {
        ++rows;
        for (ULONGLONG c = 1; c <= columns; ++c) {
            const long long r = static_cast<long long>(rows), n = static_cast<long long>(c);
            SHORT isNull = 0, isBlob = 0;
            db->CmdIsNull(e.handle, c, &isNull);
            db->CmdIsBlob(e.handle, c, &isBlob);
            out.Add(Key(tag, L"null", r, n), Number(isNull));
            Bstr text, textEx;
            const HRESULT textHr = db->CmdFieldAsString(e.handle, c, text.put());
            out.Add(Key(tag, L"text", r, n), Hr(textHr) + L" " + text.str());
            const HRESULT exHr = db->CmdFieldAsStringEx(e.handle, c, textEx.put());
            out.Add(Key(tag, L"text ex", r, n), Hr(exHr) + L" " + textEx.str());
            LONG number = 0;
            const HRESULT longHr = db->CmdFieldAsLong(e.handle, c, &number);
            out.Add(Key(tag, L"long", r, n), Hr(longHr) + L" " + Number(number));
            Variant position = UI4(static_cast<ULONG>(c)), value;
            const HRESULT valueHr = db->CmdFieldAsVariant(e.handle, position.get(), value.put());
            out.Add(Key(tag, L"value", r, n), Hr(valueHr) + L" " + Describe(*value.get()));
            if (isBlob == 1) {
                Variant blob;
                const HRESULT blobHr = db->CmdGetBlobData(e.handle, c, blob.get());
                out.Add(Key(tag, L"blob data", r, n), Hr(blobHr) + L" " + Describe(*blob.get()));
            }
        }
    }
    out.Add(Key(tag, L"rows walked"), Number(static_cast<long long>(rows)));
    *rowCount = rows;

    // The same statement in batches of two rows.
    ComPtr<IZelOleDbRows> batches;
    ASSERT_EQ(S_OK, ComPtr<IZelOleDb>(db).query(batches));
    ULONG h = 0;
    ASSERT_EQ(S_OK, db->CmdSetConnection(&h));
    Bstr text(sql);
    ASSERT_EQ(S_OK, db->CmdSetCommandText(h, text.get()));
    SHORT result = 0;
    Bstr errorText, errorStmt;
    Variant batch;
    const HRESULT executeHr = batches->RowsExecute(h, 2, &result, errorText.put(), errorStmt.put(), batch.put());
    out.Add(Key(tag, L"batch execute"), Hr(executeHr) + L" result " + Number(result));
    Variant described;
    out.Add(Key(tag, L"batch columns hr"), Hr(batches->RowsGetColumns(h, described.put())));
    std::wstring shape;
    const auto columnGrid = Grid(*described.get(), &shape);
    out.Add(Key(tag, L"batch columns shape"), shape);
    for (size_t c = 0; c < columnGrid.size(); ++c)
        for (size_t a = 0; a < columnGrid[c].size(); ++a)
            out.Add(Key(tag, L"batch column attribute", static_cast<long long>(c + 1), static_cast<long long>(a)),
                    columnGrid[c][a]);
    size_t batchRow = 0;
    for (int round = 0; round < 100; ++round) {
        const auto grid = Grid(*batch.get(), &shape);
        out.Add(Key(tag, L"batch shape", round), shape);
        if (grid.empty()) break;
        for (const auto& line : grid) {
            ++batchRow;
            for (size_t c = 0; c < line.size(); ++c)
                out.Add(Key(tag, L"batch value", static_cast<long long>(batchRow), static_cast<long long>(c + 1)),
                        line[c]);
        }
        batch.clear();
        out.Add(Key(tag, L"batch fetch", round), Hr(batches->RowsFetch(h, 2, batch.put())));
    }
    db->CmdDestroy(h);
}

// The table enumeration of `type` (empty: every type), each row's five fields.
void RecordTables(Client& client, const std::wstring& type, Record& out) {
    IZelOleDb* db = client.get();
    const std::wstring tag = L"tables '" + type + L"'";
    ULONG h = 0;
    Bstr empty(L""), kind(type), errorText, errorStmt;
    out.Add(Key(tag, L"open"), Hr(db->TblOpen(&h, empty.get(), empty.get(), empty.get(), kind.get(), errorText.put(),
                                             errorStmt.put())) +
                                   L" " + errorText.str());
    VARIANT_BOOL more = VARIANT_FALSE;
    std::vector<std::wstring> rows;
    while (SUCCEEDED(db->TblFetchNext(h, &more)) && more == VARIANT_TRUE) {
        Bstr name, catalog, schema, description, tableType;
        db->TblGetName(h, name.put());
        db->TblGetCatalog(h, catalog.put());
        db->TblGetSchema(h, schema.put());
        db->TblGetDescription(h, description.put());
        db->TblGetType(h, tableType.put());
        rows.push_back(name.str() + L" | type " + tableType.str() + L" | catalog " + catalog.str() + L" | schema " +
                       schema.str() + L" | description " + description.str());
    }
    // Rows are keyed by table name: the providers may list them in different orders.
    std::sort(rows.begin(), rows.end());
    for (const std::wstring& row : rows) out.Add(Key(tag, L"row") + L" " + row.substr(0, row.find(L" |")), row);
    db->TblDestroy(h);
    ASSERT_EQ(S_OK, db->TblOpen(&h, empty.get(), empty.get(), empty.get(), kind.get(), errorText.put(), errorStmt.put()));
    Variant list;
    out.Add(Key(tag, L"name list hr"), Hr(db->TblGetTableList(h, list.get())));
    std::vector<std::wstring> names = Client::Strings(*list.get());
    std::sort(names.begin(), names.end());
    std::wstring joined;
    for (const std::wstring& name : names) joined += name + L";";
    out.Add(Key(tag, L"name list"), joined);
    db->TblDestroy(h);
}

void RecordColumns(Client& client, const std::wstring& table, Record& out) {
    IZelOleDb* db = client.get();
    const std::wstring tag = L"columns of " + table;
    ULONG h = 0;
    Bstr empty(L""), name(table), errorText, errorStmt;
    out.Add(Key(tag, L"open"), Hr(db->ColOpen(&h, empty.get(), empty.get(), name.get(), empty.get(), VARIANT_TRUE,
                                             errorText.put(), errorStmt.put())) +
                                   L" " + errorText.str());
    VARIANT_BOOL more = VARIANT_FALSE;
    long count = 0;
    while (SUCCEEDED(db->ColFetchNext(h, &more)) && more == VARIANT_TRUE) {
        ++count;
        Bstr column, catalog, schema, tableName, defaultText, description;
        long ordinal = 0, flags = 0, dataType = 0, maxLength = 0, precision = 0, scale = 0, columnPrecision = 0,
             datePrecision = 0, seed = 0, increment = 0;
        VARIANT_BOOL hasDefault = 0, nullable = 0, identity = 0, isOwnType = 0;
        db->ColGetName(h, column.put());
        db->ColGetCatalog(h, catalog.put());
        db->ColGetSchema(h, schema.put());
        db->ColGetTableName(h, tableName.put());
        db->ColOrdinalPosition(h, &ordinal);
        db->ColHasDefault(h, &hasDefault);
        db->ColGetDefault(h, defaultText.put());
        db->ColFlags(h, &flags);
        db->ColIsNullable(h, &nullable);
        db->ColDataType(h, &dataType);
        db->ColIsDataType(h, dataType, &isOwnType);
        db->ColMaxLength(h, &maxLength);
        db->ColNumericPrecision(h, &precision);
        db->ColNumericScale(h, &scale);
        db->ColPrecision(h, &columnPrecision);
        db->ColDateTimePrecision(h, &datePrecision);
        db->ColGetDescription(h, description.put());
        db->ColIsIdentity(h, &identity);
        db->ColSeed(h, &seed);
        db->ColIncrement(h, &increment);
        const std::wstring at = tag + L" " + Number(count) + L" ";
        out.Add(at + L"name", column.str());
        out.Add(at + L"catalog schema table", catalog.str() + L" | " + schema.str() + L" | " + tableName.str());
        out.Add(at + L"ordinal", Number(ordinal));
        out.Add(at + L"default", Number(hasDefault) + L" " + defaultText.str());
        out.Add(at + L"flags", Number(flags));
        out.Add(at + L"nullable", Number(nullable));
        out.Add(at + L"type", Number(dataType) + L" own " + Number(isOwnType));
        out.Add(at + L"max length", Number(maxLength));
        out.Add(at + L"precision scale", Number(precision) + L" " + Number(scale) + L" " + Number(columnPrecision) +
                                            L" " + Number(datePrecision));
        out.Add(at + L"description", description.str());
        out.Add(at + L"identity", Number(identity) + L" " + Number(seed) + L" " + Number(increment));
    }
    out.Add(Key(tag, L"count"), Number(count));
    db->ColDestroy(h);
}

void RecordIndexes(Client& client, const std::wstring& table, Record& out) {
    IZelOleDb* db = client.get();
    const std::wstring tag = L"indexes of " + table;
    ULONG h = 0;
    Bstr empty(L""), name(table), errorText, errorStmt;
    out.Add(Key(tag, L"open"), Hr(db->IdxOpen(&h, empty.get(), empty.get(), name.get(), empty.get(), errorText.put(),
                                             errorStmt.put())) +
                                   L" " + errorText.str());
    VARIANT_BOOL more = VARIANT_FALSE;
    std::vector<std::wstring> rows;
    while (SUCCEEDED(db->IdxFetchNext(h, &more)) && more == VARIANT_TRUE) {
        Bstr index, catalog, schema, tableName, tableCatalog, tableSchema, column;
        db->IdxGetName(h, index.put());
        db->IdxGetCatalog(h, catalog.put());
        db->IdxGetSchema(h, schema.put());
        db->IdxGetTableName(h, tableName.put());
        db->IdxGetTableCatalog(h, tableCatalog.put());
        db->IdxGetTableSchema(h, tableSchema.put());
        db->IdxGetColumnName(h, column.put());
        rows.push_back(index.str() + L"." + column.str() + L" | table " + tableName.str() + L" | catalog " +
                       catalog.str() + L" | schema " + schema.str() + L" | table catalog " + tableCatalog.str() +
                       L" | table schema " + tableSchema.str());
    }
    for (size_t i = 0; i < rows.size(); ++i) out.Add(Key(tag, L"row", static_cast<long long>(i + 1)), rows[i]);
    out.Add(Key(tag, L"count"), Number(static_cast<long long>(rows.size())));
    db->IdxDestroy(h);
    for (VARIANT_BOOL withKey : {VARIANT_TRUE, VARIANT_FALSE}) {
        ASSERT_EQ(S_OK, db->IdxOpen(&h, empty.get(), empty.get(), name.get(), empty.get(), errorText.put(),
                                    errorStmt.put()));
        Variant list;
        const HRESULT hr = db->IdxGetIndexList(h, withKey, list.get());
        std::wstring joined;
        for (const std::wstring& n : Client::Strings(*list.get())) joined += n + L";";
        out.Add(Key(tag, withKey ? L"name list with key" : L"name list without key"), Hr(hr) + L" " + joined);
        db->IdxDestroy(h);
    }
}

void RecordDefinition(Client& client, const std::wstring& table, Record& out) {
    const std::wstring tag = L"definition of " + table;
    Bstr name(table), document;
    out.Add(Key(tag, L"hr"), Hr(client->TblGetDef(name.get(), document.put())));
    const std::vector<std::wstring> lines = Lines(document.str());
    for (size_t i = 0; i < lines.size(); ++i) out.Add(Key(tag, L"line", static_cast<long long>(i)), lines[i]);
}

// A value cut to a length a failure message can show.
std::wstring Shortened(const std::wstring& value) {
    return value.size() <= 300 ? value : value.substr(0, 300) + L"... (" + Number(static_cast<long long>(value.size())) + L" characters)";
}

// Compares the records line by line. Every difference must be listed in `expected` with both
// values; every listed difference must occur. Returns the number of lines compared.
size_t Compare(const Record& lite, const Record& odbc, const ExpectedDifferences& expected) {
    std::vector<std::wstring> keys = lite.order();
    for (const std::wstring& key : odbc.order())
        if (!lite.Find(key)) keys.push_back(key);
    std::set<std::wstring> seen;
    for (const std::wstring& key : keys) {
        const std::wstring* l = lite.Find(key);
        const std::wstring* o = odbc.Find(key);
        const std::wstring liteValue = l ? *l : kAbsent;
        const std::wstring odbcValue = o ? *o : kAbsent;
        auto it = expected.find(key);
        if (it != expected.end()) {
            seen.insert(key);
            EXPECT_EQ(it->second.lite, liteValue) << "ZelLite's side of the listed difference at "
                                                  << testing::PrintToString(key);
            EXPECT_EQ(it->second.odbc, odbcValue) << "ZelOdbc's side of the listed difference at "
                                                  << testing::PrintToString(key);
        } else {
            EXPECT_TRUE(liteValue == odbcValue) << "unlisted difference at " << testing::PrintToString(key)
                                                << "\n  ZelLite: " << testing::PrintToString(Shortened(liteValue))
                                                << "\n  ZelOdbc: " << testing::PrintToString(Shortened(odbcValue));
        }
    }
    for (const auto& [key, values] : expected)
        EXPECT_TRUE(seen.count(key)) << "listed difference at " << testing::PrintToString(key) << " is not there";
    return keys.size();
}

// The test file's folder (Unix path, from CTest) and the file in it.
std::wstring UnixFile() { return Environment(L"ZEL_DIFF_DIR") + L"/differential.db"; }

class ProviderDifferentialTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_TRUE(RegisterServerAndProviders());
        ASSERT_FALSE(Environment(L"ZEL_DIFF_DIR").empty()) << "ZEL_DIFF_DIR is not set";
        const std::wstring file = WinePath(UnixFile());
        DeleteFileW(file.c_str());
        DeleteFileW((file + L"-journal").c_str());
        // An empty file is a database to SQLite; ZelLite writes the schema and rows into it.
        HANDLE h = CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
        ASSERT_NE(INVALID_HANDLE_VALUE, h);
        CloseHandle(h);
        Client writer;
        ASSERT_EQ(S_OK, writer.created());
        std::wstring error;
        ASSERT_EQ(S_OK, writer.Open(LiteInit(), &error)) << testing::PrintToString(error);
        writer.Run(
            L"CREATE TABLE zt_mix (id INTEGER PRIMARY KEY, i INTEGER, big BIGINT, r REAL, d DOUBLE, "
            L"amount DECIMAL(10,2), code VARCHAR(20), note TEXT, data BLOB, stamp DATETIME, day DATE, "
            L"flag BIT, yes BOOLEAN)");
        writer.Run(
            L"INSERT INTO zt_mix VALUES (1, 42, 9000000000, 2.5, 0.1, 1234.56, 'Grüße', "
            L"replace(hex(zeroblob(1000)), '00', 'abcdefghij'), X'00FF10', '2024-02-29 13:45:30', '2024-02-29', 1, 1)");
        writer.Run(
            L"INSERT INTO zt_mix VALUES (2, -7, -1, -0.125, -1e300, -0.5, '', '', X'', '1999-12-31 23:59:59', "
            L"'1999-12-31', 0, 0)");
        writer.Run(L"INSERT INTO zt_mix VALUES (3, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL)");
        writer.Run(
            L"INSERT INTO zt_mix VALUES (4, 0, 2147483648, 1e-7, 3.141592653589793, 99999999.99, '日本語 Ωμέγα €', "
            L"'😀 emoji and ç', X'DEADBEEF', '2000-01-01 00:00:00', '2000-01-01', 1, 0)");
        writer.Run(L"CREATE UNIQUE INDEX zt_mix_code ON zt_mix (code)");
        writer.Run(L"CREATE INDEX zt_mix_day_flag ON zt_mix (day, flag)");
        writer.Run(
            L"CREATE TABLE zt_orders (id INTEGER PRIMARY KEY, mix_id INTEGER NOT NULL, qty INTEGER DEFAULT 1, "
            L"label VARCHAR(10))");
        writer.Run(L"INSERT INTO zt_orders (id, mix_id, label) VALUES (10, 1, 'first')");
        writer.Run(L"INSERT INTO zt_orders VALUES (11, 1, 5, NULL)");
        writer.Run(L"INSERT INTO zt_orders VALUES (12, 4, 2, 'ü')");
        // The writer's connection ends here: from now on both providers only read the file.
    }

    static std::wstring LiteInit() { return L"Provider=ZelLite.OLEDB.1;Data Source=" + WinePath(UnixFile()); }
    static std::wstring OdbcInit() { return L"Provider=ZelOdbc.OLEDB.1;DRIVER={SQLite3};Database=" + UnixFile() + L";"; }

    void SetUp() override {
        ASSERT_EQ(S_OK, m_lite.created());
        ASSERT_EQ(S_OK, m_odbc.created());
        std::wstring error;
        ASSERT_EQ(S_OK, m_lite.Open(LiteInit(), &error)) << testing::PrintToString(error);
        ASSERT_EQ(S_OK, m_odbc.Open(OdbcInit(), &error)) << testing::PrintToString(error);
    }

    // Runs `sql` through both and compares; `rows` is the number of rows it must have.
    void CompareQuery(const std::wstring& sql, size_t rows, const ExpectedDifferences& expected) {
        Record lite, odbc;
        size_t liteRows = 0, odbcRows = 0;
        RecordQuery(m_lite, L"", sql, lite, &liteRows);
        RecordQuery(m_odbc, L"", sql, odbc, &odbcRows);
        EXPECT_EQ(rows, liteRows) << testing::PrintToString(sql);
        EXPECT_EQ(rows, odbcRows) << testing::PrintToString(sql);
        const size_t compared = Compare(lite, odbc, expected);
        EXPECT_GT(compared, rows * 5) << testing::PrintToString(sql);
    }

    Client m_lite;
    Client m_odbc;
};

// The differences the two providers show by nature, by key. Each states why.
//
// REAL: ZelLite's mapping of declared types keeps the single-precision REAL its hosts know
// (DBTYPE_R4, 4 bytes, precision 7), while the SQLite3 driver reports REAL as SQL_DOUBLE
// (DBTYPE_R8, 8 bytes, precision 15), which is what SQLite stores. Values are the same double
// on the driver's side and the nearest float on ZelLite's.
void AddRealColumn(ExpectedDifferences& d, int column, bool withDocument) {
    const std::wstring c = Number(column);
    d[L" column type " + c] = {L"4", L"5"};
    if (withDocument) {
        d[L" column size " + c] = {L"4", L"8"};
        d[L" document line " + Number(column + 2)] = {
            L"\t\t<ColumnDef Name=\"r\" Integral=\"N\" Numeric=\"N\" BlobData=\"N\" Datatype=\"4\" ColSize=\"4\"/>",
            L"\t\t<ColumnDef Name=\"r\" Integral=\"N\" Numeric=\"N\" BlobData=\"N\" Datatype=\"5\" ColSize=\"8\"/>"};
    }
    d[L" batch column attribute " + c + L".1"] = {L"I4:4", L"I4:5"};   // type
    d[L" batch column attribute " + c + L".2"] = {L"I4:4", L"I4:8"};   // size
    d[L" batch column attribute " + c + L".3"] = {L"I4:7", L"I4:15"};  // precision
}

// A natural value as the row walk and the batch both give it.
void AddValue(ExpectedDifferences& d, const std::wstring& cell, const std::wstring& lite, const std::wstring& odbc) {
    d[L" value " + cell] = {L"00000000 " + lite, L"00000000 " + odbc};
    d[L" batch value " + cell] = {lite, odbc};
}

// id INTEGER PRIMARY KEY is SQLite's rowid, which is never NULL: ZelLite knows that, the
// SQLite3 driver reports the declaration's own NOT NULL flag (absent), so the column is
// nullable to ZelOdbc (batch column attribute 5 is "nullable").
void AddRowidNullable(ExpectedDifferences& d) { d[L" batch column attribute 1.5"] = {L"BOOL:0", L"BOOL:-1"}; }

TEST_F(ProviderDifferentialTest, EveryColumnTypeGivesTheSameTextsValuesAndDocument) {
    ExpectedDifferences d;
    AddRowidNullable(d);
    AddRealColumn(d, 4, true);
    AddValue(d, L"1.4", L"R4:2.5", L"R8:2.5");
    AddValue(d, L"2.4", L"R4:-0.125", L"R8:-0.125");
    AddValue(d, L"4.4", L"R4:1.00000001e-07", L"R8:9.9999999999999995e-08");
    // The SQLite3 driver keeps every fetched value as SQLite's text and converts that text to
    // the C type asked for; SQLite writes a double with 15 significant digits, so a DOUBLE
    // comes back rounded to 15 digits (the server's own text forms show 6 and are equal).
    AddValue(d, L"4.5", L"R8:3.1415926535897931", L"R8:3.14159265358979");
    CompareQuery(L"SELECT * FROM zt_mix ORDER BY id", 4, d);
}

TEST_F(ProviderDifferentialTest, ExpressionsGiveTheSameTextsValuesAndDocument) {
    // Aggregates over 64-bit integers, a double and text; the text of the first row is over
    // 4000 characters, so both give the concatenation as a long column.
    CompareQuery(L"SELECT COUNT(*) AS n, SUM(i) AS sum_i, SUM(big) AS sum_big, SUM(amount) AS sum_amount, "
                 L"SUM(d) AS sum_d, MAX(code) AS max_code FROM zt_mix",
                 1, {});
    ExpectedDifferences withRowid;
    AddRowidNullable(withRowid);
    CompareQuery(L"SELECT id, code || '-' || note AS joined, i * 2 AS twice, r + 1 AS r_plus, 'const' AS k, "
                 L"NULL AS none_at_all, length(note) AS len FROM zt_mix ORDER BY id",
                 4, withRowid);
    CompareQuery(L"SELECT m.code, o.qty, o.label FROM zt_mix m JOIN zt_orders o ON o.mix_id = m.id ORDER BY o.id", 3, {});
    CompareQuery(L"SELECT flag, COUNT(*) AS n FROM zt_mix GROUP BY flag ORDER BY flag", 3, {});
}

TEST_F(ProviderDifferentialTest, AnEmptyResultLooksTheSame) {
    ExpectedDifferences d;
    AddRowidNullable(d);
    AddRealColumn(d, 4, false);  // without a row there is no document and no bound size
    CompareQuery(L"SELECT * FROM zt_mix WHERE id < 0", 0, d);
}

TEST_F(ProviderDifferentialTest, TheCatalogAnswersTheSame) {
    Record lite, odbc;
    for (const wchar_t* type : {L"TABLE", L""}) {
        RecordTables(m_lite, type, lite);
        RecordTables(m_odbc, type, odbc);
    }
    for (const wchar_t* table : {L"zt_mix", L"zt_orders"}) {
        RecordColumns(m_lite, table, lite);
        RecordColumns(m_odbc, table, odbc);
        RecordIndexes(m_lite, table, lite);
        RecordIndexes(m_odbc, table, odbc);
    }
    ExpectedDifferences d;
    // ZelLite lists sqlite_master itself as a system table; the driver's SQLTables lists the
    // rows of sqlite_master and never the table itself.
    d[L"tables '' row sqlite_master"] = {L"sqlite_master | type SYSTEM TABLE | catalog  | schema  | description ",
                                         kAbsent};
    d[L"tables '' name list"] = {L"sqlite_master;zt_mix;zt_orders;", L"zt_mix;zt_orders;"};
    // Column flags: ZelLite marks the columns of a table it can write DBCOLUMNFLAGS_WRITE (4);
    // SQLColumns says nothing of writability, and ZelOdbc claims none. The rowid column also
    // differs in nullability (see AddRowidNullable): ZelLite 4|16, ZelOdbc 16|32|64.
    const struct {
        const wchar_t* table;
        int count;
        std::vector<int> flags;  // ZelOdbc's flags of each column; ZelLite's add WRITE
    } tables[] = {{L"zt_mix", 13, {0, 112, 112, 112, 112, 112, 96, 224, 224, 112, 112, 112, 112}},
                  {L"zt_orders", 4, {0, 16, 112, 96}}};
    for (const auto& t : tables) {
        const std::wstring prefix = std::wstring(L"columns of ") + t.table + L" ";
        d[prefix + L"1 flags"] = {L"20", L"112"};
        d[prefix + L"1 nullable"] = {L"0", L"-1"};
        for (int c = 2; c <= t.count; ++c)
            d[prefix + Number(c) + L" flags"] = {Number(t.flags[c - 1] | 4), Number(t.flags[c - 1])};
        // The rowid's key: ZelLite names it PrimaryKey; the driver names its index
        // sqlite_autoindex_0 (both leave it out of the name lists).
        d[std::wstring(L"indexes of ") + t.table + L" row 1"] = {
            std::wstring(L"PrimaryKey.id | table ") + t.table + L" | catalog  | schema  | table catalog  | table schema ",
            std::wstring(L"sqlite_autoindex_0.id | table ") + t.table +
                L" | catalog  | schema  | table catalog  | table schema "};
    }
    // REAL (see AddRealColumn).
    d[L"columns of zt_mix 4 type"] = {L"4 own -1", L"5 own -1"};
    d[L"columns of zt_mix 4 precision scale"] = {L"7 0 7 0", L"15 0 15 0"};
    EXPECT_GT(Compare(lite, odbc, d), 100u);
}

TEST_F(ProviderDifferentialTest, TableDefinitionsAreTheSame) {
    Record lite, odbc;
    for (const wchar_t* table : {L"zt_mix", L"zt_orders"}) {
        RecordDefinition(m_lite, table, lite);
        RecordDefinition(m_odbc, table, odbc);
    }
    ExpectedDifferences d;
    // The rowid's nullability (see AddRowidNullable) and REAL (see AddRealColumn).
    const Expected rowid = {
        L"\t<ColumnDef Name=\"id\" TypeName=\"INTEGER\" Type=\"3\" Precision=\"10\" DBPROP_COL_AUTOINCREMENT=\"0\" "
        L"DBPROP_COL_NULLABLE=\"0\" DBPROP_COL_FIXEDLENGTH=\"-1\"/>",
        L"\t<ColumnDef Name=\"id\" TypeName=\"INTEGER\" Type=\"3\" Precision=\"10\" DBPROP_COL_AUTOINCREMENT=\"0\" "
        L"DBPROP_COL_NULLABLE=\"-1\" DBPROP_COL_FIXEDLENGTH=\"-1\"/>"};
    d[L"definition of zt_mix line 2"] = rowid;
    d[L"definition of zt_orders line 2"] = rowid;
    d[L"definition of zt_mix line 5"] = {
        L"\t<ColumnDef Name=\"r\" TypeName=\"REAL\" Type=\"4\" Precision=\"7\" DBPROP_COL_AUTOINCREMENT=\"0\" "
        L"DBPROP_COL_NULLABLE=\"-1\" DBPROP_COL_FIXEDLENGTH=\"-1\"/>",
        L"\t<ColumnDef Name=\"r\" TypeName=\"REAL\" Type=\"5\" Precision=\"15\" DBPROP_COL_AUTOINCREMENT=\"0\" "
        L"DBPROP_COL_NULLABLE=\"-1\" DBPROP_COL_FIXEDLENGTH=\"-1\"/>"};
    EXPECT_GT(Compare(lite, odbc, d), 20u);
}

}  // namespace
