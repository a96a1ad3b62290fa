// Rows in batches across the process boundary: this client (of either bitness) reaches
// IZelOleDbRows by QueryInterface from the 32-bit server's IZelOleDb, runs statements
// without a query-result document and takes their rows as 2-D SAFEARRAYs of VARIANT,
// through the interface (marshalled by the type library) and late-bound through the
// interface's own IDispatch. The differential tests hold every value of the benchmark table
// and of the provider's type test tables against what the row-by-row methods give.
#include <windows.h>

#include <gtest/gtest.h>

#include <cwctype>
#include <string>
#include <vector>

#include "ZelPmDb32.h"
#include "bench/BenchData.h"
#include "common/Bstr.h"
#include "common/ComError.h"
#include "common/ComPtr.h"
#include "common/SafeArray.h"
#include "common/Utf8.h"
#include "common/Variant.h"
#include "oledb/FieldText.h"
#include "tests/server/DispatchTestSupport.h"
#include "tests/server/ServerProcessSupport.h"

using namespace zel::test;
using zel::Bstr;
using zel::ComPtr;
using zel::Variant;

namespace {

class TempDatabaseFile {
public:
    TempDatabaseFile() {
        wchar_t folder[MAX_PATH], file[MAX_PATH];
        GetTempPathW(MAX_PATH, folder);
        if (GetTempFileNameW(folder, L"zrw", 0, file)) m_path = file;
    }
    ~TempDatabaseFile() {
        if (!m_path.empty()) DeleteFileW(m_path.c_str());
    }
    const std::wstring& path() const { return m_path; }
    std::wstring ConnectionString() const { return L"Provider=ZelLite.OLEDB.1;Data Source=" + m_path; }

private:
    std::wstring m_path;
};

// A 2-D batch read as the host sees it: columns by rows, both from 0.
class Batch {
public:
    explicit Batch(const VARIANT& value) {
        if (V_VT(&value) != (VT_ARRAY | VT_VARIANT) || !V_ARRAY(&value)) return;
        m_array = V_ARRAY(&value);
        m_dims = SafeArrayGetDim(m_array);
        if (m_dims != 2) return;
        LONG lower = 0, upper = -1;
        SafeArrayGetLBound(m_array, 1, &lower);
        SafeArrayGetUBound(m_array, 1, &upper);
        m_lower1 = lower;
        m_columns = upper - lower + 1;
        SafeArrayGetLBound(m_array, 2, &lower);
        SafeArrayGetUBound(m_array, 2, &upper);
        m_lower2 = lower;
        m_rows = upper - lower + 1;
    }
    UINT dims() const { return m_dims; }
    LONG columns() const { return m_columns; }
    LONG rows() const { return m_rows; }
    LONG lower1() const { return m_lower1; }
    LONG lower2() const { return m_lower2; }
    // The value at (column, row), read with SafeArrayGetElement: indices in dimension order.
    Variant at(LONG column, LONG row) const {
        Variant value;
        LONG indices[2] = {column, row};
        EXPECT_EQ(S_OK, SafeArrayGetElement(m_array, indices, value.get()));
        return value;
    }

private:
    SAFEARRAY* m_array = nullptr;
    UINT m_dims = 0;
    LONG m_columns = 0;
    LONG m_rows = 0;
    LONG m_lower1 = -1;
    LONG m_lower2 = -1;
};

std::vector<BYTE> Bytes(const VARIANT& value) {
    std::vector<BYTE> bytes;
    if (V_VT(&value) != (VT_ARRAY | VT_UI1) || !V_ARRAY(&value)) return bytes;
    LONG lower = 0, upper = -1;
    SafeArrayGetLBound(V_ARRAY(&value), 1, &lower);
    SafeArrayGetUBound(V_ARRAY(&value), 1, &upper);
    if (upper < lower) return bytes;
    zel::SafeArrayData data(V_ARRAY(&value));
    bytes.assign(data.as<BYTE>(), data.as<BYTE>() + (upper - lower + 1));
    return bytes;
}

std::wstring Lower(std::wstring text) {
    for (wchar_t& c : text) c = static_cast<wchar_t>(std::towlower(c));
    return text;
}

std::wstring BstrOf(const Variant& value) {
    return value.vt() == VT_BSTR ? BstrText(V_BSTR(value.get())) : std::wstring(L"<not text>");
}

class CrossProcessRowsTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_EQ(0u, RunServer(L"/RegServer").value_or(~0u));
        ASSERT_TRUE(RegisterProvider());
    }

    void SetUp() override {
        ASSERT_FALSE(m_file.path().empty());
        const std::vector<DWORD> before = ServerProcessIds();
        ASSERT_EQ(S_OK, zel::TryCreateInstance(CLSID_ZelOleDbImpl, m_db, CLSCTX_LOCAL_SERVER));
        m_server = WaitForNewServerProcess(before, 2000).value_or(0);
        ASSERT_EQ(S_OK, m_db.query(m_rows));
        Bstr errorText, errorStmt;
        Bstr init(m_file.ConnectionString());
        ASSERT_EQ(S_OK, m_db->ConOpenFromInitializationString(init.get(), VARIANT_FALSE, errorText.put(),
                                                              errorStmt.put()))
            << testing::PrintToString(errorText.str());
    }

    void TearDown() override {
        for (ULONG handle : m_handles) m_db->CmdDestroy(handle);
        if (m_db) m_db->ConClose();
        m_rows.reset();
        m_db.reset();
        if (m_server) {
            EXPECT_TRUE(WaitForProcessExit(m_server, 5000));
        }
    }

    ULONG NewCommand(const std::wstring& sql) {
        ULONG handle = 0;
        EXPECT_EQ(S_OK, m_db->CmdSetConnection(&handle));
        Bstr text(sql);
        EXPECT_EQ(S_OK, m_db->CmdSetCommandText(handle, text.get()));
        m_handles.push_back(handle);
        return handle;
    }

    // Runs a statement without rows through RowsExecute and expects it to succeed.
    void Run(const std::wstring& sql) {
        const ULONG handle = NewCommand(sql);
        SHORT result = 0;
        Bstr errorText, errorStmt;
        Variant rows;
        ASSERT_EQ(S_OK, m_rows->RowsExecute(handle, 0, &result, errorText.put(), errorStmt.put(), rows.put()));
        ASSERT_EQ(1, result) << testing::PrintToString(sql) << " " << testing::PrintToString(errorText.str());
        EXPECT_EQ(VT_EMPTY, rows.vt());
    }

    // Every row of `sql` through the batch interface, batches of `batchRows`, one Variant per
    // value in row order; `columns` receives the width.
    std::vector<std::vector<Variant>> AllRows(const std::wstring& sql, LONG batchRows, LONG* columns = nullptr) {
        std::vector<std::vector<Variant>> all;
        const ULONG handle = NewCommand(sql);
        SHORT result = 0;
        Bstr errorText, errorStmt;
        Variant rows;
        EXPECT_EQ(S_OK, m_rows->RowsExecute(handle, batchRows, &result, errorText.put(), errorStmt.put(), rows.put()));
        EXPECT_EQ(1, result) << testing::PrintToString(errorText.str());
        for (;;) {
            Batch batch(*rows.get());
            if (rows.vt() == VT_EMPTY) break;
            EXPECT_EQ(2u, batch.dims());
            if (columns) *columns = batch.columns();
            for (LONG r = 0; r < batch.rows(); ++r) {
                std::vector<Variant> row;
                for (LONG c = 0; c < batch.columns(); ++c) row.push_back(batch.at(c, r));
                all.push_back(std::move(row));
            }
            if (batch.rows() < batchRows) break;
            EXPECT_EQ(S_OK, m_rows->RowsFetch(handle, batchRows, rows.put()));
        }
        return all;
    }

    // Holds every value of `sql` through the batch interface against the row-by-row methods
    // on a second command: CmdFieldAsVariant where it answers; otherwise the long value's
    // bytes (CmdGetBlobData), a short binary's size (CmdGetColumnSize), or the server's text
    // (CmdFieldAsString) made from the batch value by the server's own formatting.
    void ExpectSameAsRowByRow(const std::wstring& sql, LONG batchRows, size_t expectedRows) {
        LONG width = 0;
        const std::vector<std::vector<Variant>> batched = AllRows(sql, batchRows, &width);
        ASSERT_EQ(expectedRows, batched.size());

        const ULONG handle = NewCommand(sql);
        SHORT result = 0;
        Bstr xml, errorText, errorStmt;
        ASSERT_EQ(S_OK, m_db->CmdExecute(handle, &result, xml.put(), errorText.put(), errorStmt.put()));
        ASSERT_EQ(1, result);
        UINT64 count = 0;
        ASSERT_EQ(S_OK, m_db->CmdGetColumnCount(handle, &count));
        ASSERT_EQ(static_cast<UINT64>(width), count);
        SHORT moved = 0;
        ASSERT_EQ(S_OK, m_db->CmdFetchFirst(handle, &moved));
        size_t compared = 0;
        for (size_t r = 0; r < batched.size(); ++r) {
            ASSERT_EQ(1, moved) << "row " << r;
            for (LONG c = 0; c < width; ++c) {
                const UINT64 colpos = static_cast<UINT64>(c) + 1;
                const Variant& value = batched[r][c];
                const std::string where = "row " + std::to_string(r) + " column " + std::to_string(colpos);
                ULONG rawType = 0;
                ASSERT_EQ(S_OK, m_db->CmdGetRawType(handle, colpos, &rawType));
                Variant position = UI8(colpos);
                Variant direct;
                const HRESULT hr = m_db->CmdFieldAsVariant(handle, position.get(), direct.put());
                if (hr == S_OK) {
                    if (direct.vt() == VT_NULL) {
                        EXPECT_EQ(VT_NULL, value.vt()) << where;
                    } else if (direct.vt() == VT_BOOL) {
                        ASSERT_EQ(VT_BOOL, value.vt()) << where;
                        EXPECT_EQ(V_BOOL(direct.get()) != 0, V_BOOL(value.get()) != 0) << where;
                    } else if (direct.vt() == VT_INT) {  // a DBTYPE_I1 comes row by row as VT_INT
                        ASSERT_EQ(VT_I1, value.vt()) << where;
                        EXPECT_EQ(V_INT(direct.get()), V_I1(value.get())) << where;
                    } else {
                        ASSERT_EQ(direct.vt(), value.vt()) << where;
                        EXPECT_EQ(VARCMP_EQ, VarCmp(const_cast<VARIANT*>(direct.get()), const_cast<VARIANT*>(value.get()),
                                                    LOCALE_USER_DEFAULT, 0))
                            << where;
                        if (direct.vt() == VT_BSTR) {
                            EXPECT_EQ(BstrOf(direct), BstrOf(value)) << where;
                        }
                    }
                } else if (rawType == DBTYPE_IUNKNOWN) {
                    Variant blob;
                    ASSERT_EQ(S_OK, m_db->CmdGetBlobData(handle, colpos, blob.put()));
                    const std::vector<BYTE> bytes = Bytes(*blob.get());
                    if (value.vt() == VT_BSTR) {
                        const std::wstring text = BstrOf(value);
                        ASSERT_EQ(text.size() * 2, bytes.size()) << where;
                        EXPECT_EQ(0, memcmp(text.data(), bytes.data(), bytes.size())) << where;
                    } else {
                        ASSERT_EQ(VT_ARRAY | VT_UI1, value.vt()) << where;
                        EXPECT_EQ(Bytes(*value.get()), bytes) << where;
                    }
                } else if (rawType == DBTYPE_BYTES) {
                    UINT64 size = 0;
                    ASSERT_EQ(S_OK, m_db->CmdGetColumnSize(handle, colpos, &size));
                    ASSERT_EQ(VT_ARRAY | VT_UI1, value.vt()) << where;
                    EXPECT_EQ(size, Bytes(*value.get()).size()) << where;
                } else {
                    Bstr text;
                    ASSERT_EQ(S_OK, m_db->CmdFieldAsString(handle, colpos, text.put()));
                    LONG whole = 0;
                    ASSERT_EQ(S_OK, m_db->CmdFieldAsLong(handle, colpos, &whole));
                    switch (rawType) {
                        case DBTYPE_DATE:
                            ASSERT_EQ(VT_DATE, value.vt()) << where;
                            EXPECT_EQ(zel::DateText(V_DATE(value.get()), 0), text.str()) << where;
                            break;
                        case DBTYPE_DECIMAL:
                            ASSERT_EQ(VT_DECIMAL, value.vt()) << where;
                            EXPECT_EQ(zel::DecimalText(V_DECIMAL(value.get())), text.str()) << where;
                            break;
                        case DBTYPE_GUID: {
                            ASSERT_EQ(VT_BSTR, value.vt()) << where;
                            const std::wstring braced = BstrOf(value);
                            ASSERT_EQ(38u, braced.size()) << where;
                            EXPECT_EQ(Lower(braced.substr(1, 36)), text.str()) << where;
                            break;
                        }
                        case DBTYPE_CY:
                            // The server's currency text is not a number; its integer reader is.
                            ASSERT_EQ(VT_CY, value.vt()) << where;
                            EXPECT_EQ(static_cast<LONG>(V_CY(value.get()).int64 / 10000), whole) << where;
                            break;
                        default:
                            ADD_FAILURE() << where << ": no row-by-row reading to compare type " << rawType;
                    }
                }
                ++compared;
            }
            ASSERT_EQ(S_OK, m_db->CmdFetchNext(handle, &moved));
        }
        EXPECT_EQ(0, moved);  // the row-by-row walk ended where the batches did
        EXPECT_EQ(batched.size() * static_cast<size_t>(width), compared);
    }

    TempDatabaseFile m_file;
    ComPtr<IZelOleDb> m_db;
    ComPtr<IZelOleDbRows> m_rows;
    DWORD m_server = 0;
    std::vector<ULONG> m_handles;
};

TEST_F(CrossProcessRowsTest, TheBatchInterfaceSharesTheServiceObjectsIdentity) {
    ComPtr<IUnknown> fromMain, fromRows;
    ASSERT_EQ(S_OK, m_db.query(fromMain));
    ASSERT_EQ(S_OK, m_rows.query(fromRows));
    EXPECT_EQ(fromMain.get(), fromRows.get());
    ComPtr<IZelOleDb> back;
    ASSERT_EQ(S_OK, m_rows.query(back));
    VARIANT_BOOL connected = VARIANT_FALSE;
    ASSERT_EQ(S_OK, back->ConIsConnected(&connected));
    EXPECT_EQ(VARIANT_TRUE, connected);
    // The object's IDispatch is still IZelOleDb's: it knows CmdExecute and not the batch methods.
    ComPtr<IDispatch> dispatch;
    ASSERT_EQ(S_OK, m_db.query(dispatch));
    LPOLESTR name = const_cast<LPOLESTR>(L"CmdExecute");
    DISPID id = 0;
    ASSERT_EQ(S_OK, dispatch->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id));
    EXPECT_EQ(13, id);
    name = const_cast<LPOLESTR>(L"RowsExecute");
    EXPECT_EQ(DISP_E_UNKNOWNNAME, dispatch->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id));
}

TEST_F(CrossProcessRowsTest, ExecuteHandsOutTheFirstBatchAndFetchTheRestColumnsByRows) {
    Run(L"CREATE TABLE parts (id INTEGER PRIMARY KEY, name VARCHAR(40))");
    for (int i = 1; i <= 5; ++i) Run(L"INSERT INTO parts VALUES (" + std::to_wstring(i) + L", 'part " + std::to_wstring(i) + L"')");

    const ULONG handle = NewCommand(L"SELECT id, name FROM parts ORDER BY id");
    SHORT result = 0;
    Bstr errorText, errorStmt;
    Variant rows;
    ASSERT_EQ(S_OK, m_rows->RowsExecute(handle, 2, &result, errorText.put(), errorStmt.put(), rows.put()));
    EXPECT_EQ(1, result);
    EXPECT_EQ(L"", errorText.str());
    EXPECT_EQ(L"", errorStmt.str());
    ASSERT_EQ(VT_ARRAY | VT_VARIANT, rows.vt());
    {
        Batch batch(*rows.get());
        ASSERT_EQ(2u, batch.dims());
        EXPECT_EQ(0, batch.lower1());
        EXPECT_EQ(0, batch.lower2());
        EXPECT_EQ(2, batch.columns());  // the first dimension is the column
        EXPECT_EQ(2, batch.rows());
        EXPECT_EQ(VT_I4, batch.at(0, 1).vt());
        EXPECT_EQ(2, V_I4(batch.at(0, 1).get()));
        EXPECT_EQ(L"part 2", BstrOf(batch.at(1, 1)));
        // The memory layout is that of the indices: a row's values lie next to each other.
        zel::SafeArrayData data(V_ARRAY(rows.get()));
        EXPECT_EQ(L"part 1", BstrText(V_BSTR(&data.as<VARIANT>()[1])));
        EXPECT_EQ(2, V_I4(&data.as<VARIANT>()[2]));
    }
    // The command stands on the batch's last row, as two CmdFetchNext calls would leave it.
    Variant position = UI8(1);
    Variant id;
    ASSERT_EQ(S_OK, m_db->CmdFieldAsVariant(handle, position.get(), id.put()));
    EXPECT_EQ(2, V_I4(id.get()));

    ASSERT_EQ(S_OK, m_rows->RowsFetch(handle, 2, rows.put()));
    {
        Batch batch(*rows.get());
        ASSERT_EQ(2, batch.rows());
        EXPECT_EQ(3, V_I4(batch.at(0, 0).get()));
        EXPECT_EQ(4, V_I4(batch.at(0, 1).get()));
    }
    ASSERT_EQ(S_OK, m_rows->RowsFetch(handle, 2, rows.put()));
    {
        Batch batch(*rows.get());
        ASSERT_EQ(1, batch.rows());  // fewer rows than asked for: the end
        EXPECT_EQ(5, V_I4(batch.at(0, 0).get()));
    }
    ASSERT_EQ(S_OK, m_rows->RowsFetch(handle, 2, rows.put()));
    EXPECT_EQ(VT_EMPTY, rows.vt());
    SHORT moved = 9;
    ASSERT_EQ(S_OK, m_db->CmdFetchNext(handle, &moved));
    EXPECT_EQ(0, moved);
    ASSERT_EQ(S_OK, m_db->CmdFetchFirst(handle, &moved));
    EXPECT_EQ(1, moved);
}

TEST_F(CrossProcessRowsTest, ExecuteMakesNoDocumentAndLeavesTheCommandBeforeItsFirstRow) {
    Run(L"CREATE TABLE t (a INTEGER)");
    Run(L"INSERT INTO t VALUES (7)");
    const ULONG handle = NewCommand(L"SELECT a FROM t");
    SHORT result = 0;
    Bstr errorText, errorStmt;
    Variant rows;
    ASSERT_EQ(S_OK, m_rows->RowsExecute(handle, 0, &result, errorText.put(), errorStmt.put(), rows.put()));
    EXPECT_EQ(1, result);
    EXPECT_EQ(VT_EMPTY, rows.vt());
    // CmdExecute's document walks every row; without it the first CmdFetchNext finds row 1.
    SHORT moved = 0;
    ASSERT_EQ(S_OK, m_db->CmdFetchNext(handle, &moved));
    EXPECT_EQ(1, moved);
    Variant position = UI8(1), value;
    ASSERT_EQ(S_OK, m_db->CmdFieldAsVariant(handle, position.get(), value.put()));
    EXPECT_EQ(7, V_I4(value.get()));
}

TEST_F(CrossProcessRowsTest, NaturalTypesCrossTheBoundaryInsideTheArray) {
    Run(L"CREATE TABLE v (i INTEGER, s SMALLINT, b BYTE, big BIGINT, r REAL, d DOUBLE, cy CURRENCY, "
        L"dec DECIMAL(10,3), f BIT, dt DATETIME, g GUID, t VARCHAR(20), memo MEMO, bin VARBINARY(8), blob LONGBINARY)");
    Run(L"INSERT INTO v VALUES (-42, 1234, 200, 5000000000, 1.5, 1.3928571428571428, 12.3456, -1234.567, 1, "
        L"'2020-01-02 02:11:59', '{6ED3CDC0-CB85-478B-86C2-ACC437DDD288}', 'hello', "
        L"replace(hex(zeroblob(5000)), '0', 'y'), x'DEADBEEF', randomblob(20000))");
    Run(L"INSERT INTO v (i) VALUES (NULL)");
    LONG width = 0;
    const auto rows = AllRows(L"SELECT * FROM v", 10, &width);
    ASSERT_EQ(2u, rows.size());
    ASSERT_EQ(15, width);
    const std::vector<Variant>& v = rows[0];
    EXPECT_EQ(VT_I4, v[0].vt());
    EXPECT_EQ(-42, V_I4(v[0].get()));
    EXPECT_EQ(VT_I2, v[1].vt());
    EXPECT_EQ(1234, V_I2(v[1].get()));
    EXPECT_EQ(VT_UI1, v[2].vt());
    EXPECT_EQ(200, V_UI1(v[2].get()));
    EXPECT_EQ(VT_I8, v[3].vt());
    EXPECT_EQ(5000000000LL, V_I8(v[3].get()));
    EXPECT_EQ(VT_R4, v[4].vt());
    EXPECT_EQ(1.5f, V_R4(v[4].get()));
    EXPECT_EQ(VT_R8, v[5].vt());
    EXPECT_EQ(1.3928571428571428, V_R8(v[5].get()));
    EXPECT_EQ(VT_CY, v[6].vt());
    EXPECT_EQ(123456, V_CY(v[6].get()).int64);
    ASSERT_EQ(VT_DECIMAL, v[7].vt());
    EXPECT_EQ(3, V_DECIMAL(v[7].get()).scale);
    EXPECT_EQ(DECIMAL_NEG, V_DECIMAL(v[7].get()).sign);
    EXPECT_EQ(1234567u, V_DECIMAL(v[7].get()).Lo64);
    EXPECT_EQ(VT_BOOL, v[8].vt());
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(v[8].get()));
    ASSERT_EQ(VT_DATE, v[9].vt());
    SYSTEMTIME when{};
    ASSERT_TRUE(VariantTimeToSystemTime(V_DATE(v[9].get()), &when));
    EXPECT_EQ(2020, when.wYear);
    EXPECT_EQ(2, when.wDay);
    EXPECT_EQ(11, when.wMinute);
    EXPECT_EQ(59, when.wSecond);
    EXPECT_EQ(L"{6ED3CDC0-CB85-478B-86C2-ACC437DDD288}", BstrOf(v[10]));
    EXPECT_EQ(L"hello", BstrOf(v[11]));
    EXPECT_EQ(std::wstring(10000, L'y'), BstrOf(v[12]));  // a long text is text, whatever its length
    EXPECT_EQ((std::vector<BYTE>{0xDE, 0xAD, 0xBE, 0xEF}), Bytes(*v[13].get()));
    EXPECT_EQ(VT_ARRAY | VT_UI1, v[14].vt());
    EXPECT_EQ(20000u, Bytes(*v[14].get()).size());
    for (LONG c = 0; c < width; ++c) EXPECT_EQ(VT_NULL, rows[1][c].vt()) << "column " << c;
}

TEST_F(CrossProcessRowsTest, ColumnsAreDescribedInOneCall) {
    Run(L"CREATE TABLE c (id INTEGER NOT NULL, name VARCHAR(40), amount DOUBLE, memo MEMO, price DECIMAL(10,3))");
    const ULONG handle = NewCommand(L"SELECT * FROM c");
    SHORT result = 0;
    Bstr errorText, errorStmt;
    Variant rows, columns;
    ASSERT_EQ(S_OK, m_rows->RowsExecute(handle, 100, &result, errorText.put(), errorStmt.put(), rows.put()));
    EXPECT_EQ(1, result);
    EXPECT_EQ(VT_EMPTY, rows.vt());  // no rows
    ASSERT_EQ(S_OK, m_rows->RowsGetColumns(handle, columns.put()));
    Batch described(*columns.get());
    ASSERT_EQ(2u, described.dims());
    ASSERT_EQ(6, described.columns());  // name, type, size, precision, scale, nullable
    ASSERT_EQ(5, described.rows());
    EXPECT_EQ(L"id", BstrOf(described.at(0, 0)));
    EXPECT_EQ(DBTYPE_I4, V_I4(described.at(1, 0).get()));
    EXPECT_EQ(VARIANT_FALSE, V_BOOL(described.at(5, 0).get()));
    EXPECT_EQ(L"name", BstrOf(described.at(0, 1)));
    EXPECT_EQ(DBTYPE_WSTR, V_I4(described.at(1, 1).get()));
    EXPECT_EQ(40, V_I4(described.at(2, 1).get()));
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(described.at(5, 1).get()));
    EXPECT_EQ(DBTYPE_R8, V_I4(described.at(1, 2).get()));
    EXPECT_EQ(DBTYPE_WSTR, V_I4(described.at(1, 3).get()));  // a long text keeps its own type
    EXPECT_EQ(-1, V_I4(described.at(2, 3).get()));           // unbounded
    EXPECT_EQ(DBTYPE_DECIMAL, V_I4(described.at(1, 4).get()));
    EXPECT_EQ(10, V_I4(described.at(3, 4).get()));
    EXPECT_EQ(3, V_I4(described.at(4, 4).get()));
}

TEST_F(CrossProcessRowsTest, ErrorsComeBackAsCmdExecuteGivesThem) {
    const std::wstring sql = L"SELECT * FROM no_such_table";
    const ULONG handle = NewCommand(sql);
    SHORT result = 0;
    Bstr errorText, errorStmt;
    Variant rows;
    ASSERT_EQ(S_OK, m_rows->RowsExecute(handle, 10, &result, errorText.put(), errorStmt.put(), rows.put()));
    EXPECT_EQ(2, result);
    EXPECT_NE(std::wstring::npos, errorText.str().find(L"no_such_table")) << testing::PrintToString(errorText.str());
    EXPECT_EQ(sql, errorStmt.str());
    EXPECT_EQ(VT_EMPTY, rows.vt());
    // No result is held: fetching and describing are refused.
    EXPECT_EQ(E_ILLEGAL_METHOD_CALL, m_rows->RowsFetch(handle, 10, rows.put()));
    EXPECT_EQ(E_ILLEGAL_METHOD_CALL, m_rows->RowsGetColumns(handle, rows.put()));
}

TEST_F(CrossProcessRowsTest, AStatementWithoutRowsGivesNoBatchAndItsCount) {
    Run(L"CREATE TABLE t (a INTEGER)");
    Run(L"INSERT INTO t VALUES (1)");
    Run(L"INSERT INTO t VALUES (2)");
    const ULONG handle = NewCommand(L"UPDATE t SET a = a + 1");
    SHORT result = 0;
    Bstr errorText, errorStmt;
    Variant rows;
    ASSERT_EQ(S_OK, m_rows->RowsExecute(handle, 10, &result, errorText.put(), errorStmt.put(), rows.put()));
    EXPECT_EQ(1, result);
    EXPECT_EQ(VT_EMPTY, rows.vt());
    INT64 affected = 0;
    ASSERT_EQ(S_OK, m_db->CmdGetRowsAffected(handle, &affected));
    EXPECT_EQ(2, affected);
    ASSERT_EQ(S_OK, m_rows->RowsFetch(handle, 10, rows.put()));
    EXPECT_EQ(VT_EMPTY, rows.vt());
    ASSERT_EQ(S_OK, m_rows->RowsGetColumns(handle, rows.put()));
    EXPECT_EQ(VT_EMPTY, rows.vt());
}

TEST_F(CrossProcessRowsTest, UnknownHandlesAndBadBatchSizesGetClearCodes) {
    Run(L"CREATE TABLE t (a INTEGER)");
    SHORT result = 0;
    Bstr errorText, errorStmt;
    Variant rows;
    EXPECT_EQ(E_HANDLE, m_rows->RowsExecute(12345, 10, &result, errorText.put(), errorStmt.put(), rows.put()));
    EXPECT_EQ(E_HANDLE, m_rows->RowsFetch(12345, 10, rows.put()));
    EXPECT_EQ(E_HANDLE, m_rows->RowsGetColumns(12345, rows.put()));
    const ULONG handle = NewCommand(L"SELECT a FROM t");
    EXPECT_EQ(E_ILLEGAL_METHOD_CALL, m_rows->RowsFetch(handle, 10, rows.put()));  // never executed
    EXPECT_EQ(E_INVALIDARG, m_rows->RowsExecute(handle, -1, &result, errorText.put(), errorStmt.put(), rows.put()));
    EXPECT_EQ(E_INVALIDARG, m_rows->RowsExecute(handle, 100001, &result, errorText.put(), errorStmt.put(), rows.put()));
    ASSERT_EQ(S_OK, m_rows->RowsExecute(handle, 0, &result, errorText.put(), errorStmt.put(), rows.put()));
    EXPECT_EQ(E_INVALIDARG, m_rows->RowsFetch(handle, 0, rows.put()));
    EXPECT_EQ(E_INVALIDARG, m_rows->RowsFetch(handle, -5, rows.put()));
    EXPECT_EQ(S_OK, m_rows->RowsFetch(handle, 100000, rows.put()));
    // A closed connection: as CmdExecute, E_FAIL.
    ASSERT_EQ(S_OK, m_db->ConClose());
    EXPECT_EQ(E_FAIL, m_rows->RowsExecute(handle, 1, &result, errorText.put(), errorStmt.put(), rows.put()));
}

TEST_F(CrossProcessRowsTest, LateBoundThroughTheBatchInterfacesOwnDispatch) {
    Run(L"CREATE TABLE t (a INTEGER, b VARCHAR(10), c DECIMAL(8,2), d VARBINARY(4))");
    Run(L"INSERT INTO t VALUES (1, 'one', 1.25, x'0102')");
    Run(L"INSERT INTO t VALUES (2, 'two', -7.5, x'03')");
    Run(L"INSERT INTO t VALUES (3, 'three', 0, NULL)");
    ComPtr<IDispatch> dispatch(static_cast<IDispatch*>(m_rows.get()));
    UINT count = 0;
    ASSERT_EQ(S_OK, dispatch->GetTypeInfoCount(&count));
    EXPECT_EQ(1u, count);
    ComPtr<ITypeInfo> info;
    ASSERT_EQ(S_OK, dispatch->GetTypeInfo(0, LOCALE_USER_DEFAULT, info.put()));
    TYPEATTR* attributes = nullptr;
    ASSERT_EQ(S_OK, info->GetTypeAttr(&attributes));
    EXPECT_TRUE(IsEqualGUID(IID_IZelOleDbRows, attributes->guid));
    info->ReleaseTypeAttr(attributes);

    LPOLESTR names[] = {const_cast<LPOLESTR>(L"rowsexecute"), const_cast<LPOLESTR>(L"RowsFetch"),
                        const_cast<LPOLESTR>(L"RowsGetColumns")};
    DISPID ids[3] = {};
    ASSERT_EQ(S_OK, dispatch->GetIDsOfNames(IID_NULL, names, 3, LOCALE_USER_DEFAULT, ids));
    EXPECT_EQ(1, ids[0]);
    EXPECT_EQ(2, ids[1]);
    EXPECT_EQ(3, ids[2]);
    LPOLESTR other = const_cast<LPOLESTR>(L"CmdExecute");
    EXPECT_EQ(DISP_E_UNKNOWNNAME, dispatch->GetIDsOfNames(IID_NULL, &other, 1, LOCALE_USER_DEFAULT, ids));

    const ULONG handle = NewCommand(L"SELECT * FROM t ORDER BY a");
    // RowsExecute(client, maxRows, result, errorText, errorStmt): the handle as a text, the
    // out-arguments as VT_BYREF|VT_VARIANT the way script engines pass them.
    Variant result, errorText, errorStmt, rows;
    {
        DispArgs args{Str(std::to_wstring(handle).c_str()), I4(2), RefVariant(result.get()), RefVariant(errorText.get()),
                      RefVariant(errorStmt.get())};
        ASSERT_EQ(S_OK, dispatch->Invoke(1, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, args.get(), rows.put(),
                                         nullptr, nullptr));
    }
    EXPECT_EQ(VT_I2, result.vt());
    EXPECT_EQ(1, V_I2(result.get()));
    EXPECT_EQ(L"", BstrOf(errorText));
    Batch first(*rows.get());
    ASSERT_EQ(4, first.columns());
    ASSERT_EQ(2, first.rows());
    EXPECT_EQ(L"two", BstrOf(first.at(1, 1)));
    ASSERT_EQ(VT_DECIMAL, first.at(2, 1).vt());
    EXPECT_EQ(L"-7.50", zel::DecimalText(V_DECIMAL(first.at(2, 1).get())));
    EXPECT_EQ((std::vector<BYTE>{1, 2}), Bytes(*first.at(3, 0).get()));

    {
        DispArgs args{I4(static_cast<LONG>(handle)), I4(5)};
        ASSERT_EQ(S_OK, dispatch->Invoke(2, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, args.get(), rows.put(),
                                         nullptr, nullptr));
    }
    Batch rest(*rows.get());
    ASSERT_EQ(1, rest.rows());
    EXPECT_EQ(3, V_I4(rest.at(0, 0).get()));
    EXPECT_EQ(VT_NULL, rest.at(3, 0).vt());

    Variant columns;
    {
        DispArgs args{I4(static_cast<LONG>(handle))};
        ASSERT_EQ(S_OK, dispatch->Invoke(3, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, args.get(), columns.put(),
                                         nullptr, nullptr));
    }
    Batch described(*columns.get());
    ASSERT_EQ(4, described.rows());
    EXPECT_EQ(L"c", BstrOf(described.at(0, 2)));

    // The dispatcher's own codes, and a method's failure with its EXCEPINFO.
    Variant ignored;
    {
        DispArgs args{I4(1)};
        EXPECT_EQ(DISP_E_BADPARAMCOUNT, dispatch->Invoke(2, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, args.get(),
                                                         ignored.put(), nullptr, nullptr));
        EXPECT_EQ(DISP_E_MEMBERNOTFOUND, dispatch->Invoke(4, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD,
                                                          args.get(), ignored.put(), nullptr, nullptr));
    }
    {
        DispArgs args{I4(static_cast<LONG>(handle)), Str(L"many")};
        UINT argErr = 99;
        EXPECT_EQ(DISP_E_TYPEMISMATCH, dispatch->Invoke(2, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, args.get(),
                                                        ignored.put(), nullptr, &argErr));
        EXPECT_EQ(0u, argErr);
    }
    {
        DispArgs args{I4(12345), I4(5)};
        EXCEPINFO excep{};
        EXPECT_EQ(E_HANDLE, dispatch->Invoke(2, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, args.get(),
                                             ignored.put(), &excep, nullptr));
        EXPECT_EQ(E_HANDLE, excep.scode);
        SysFreeString(excep.bstrSource);
        SysFreeString(excep.bstrDescription);
        SysFreeString(excep.bstrHelpFile);
    }
}

TEST_F(CrossProcessRowsTest, EveryValueOfTheBenchmarkTableMatchesTheRowByRowMethods) {
    Run(zel::FromUtf8(zel::bench::kRowTableCreate));
    Run(zel::FromUtf8(zel::bench::RowTableInsert(250)));
    ExpectSameAsRowByRow(zel::bench::kRowQuery, 64, 250);
}

TEST_F(CrossProcessRowsTest, EveryValueOfTheProviderTypeTablesMatchesTheRowByRowMethods) {
    // The provider's conversion table: every type, NULLs, limits and odd stored values.
    Run(L"CREATE TABLE v (i INTEGER, s SMALLINT, b BYTE, big BIGINT, r REAL, d DOUBLE, cy CURRENCY, "
        L"dec DECIMAL(10,2), f BIT, dt DATETIME, g GUID, t TEXT(20), bin VARBINARY(8))");
    Run(L"INSERT INTO v VALUES (-42, 1234, 200, 5000000000, 1.5, 2.75, 12.3456, 1234.5, 1, "
        L"'2024-02-29 13:45:10', '{6ED3CDC0-CB85-478B-86C2-ACC437DDD288}', 'hello', x'DEADBEEF')");
    Run(L"INSERT INTO v VALUES (NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL)");
    Run(L"INSERT INTO v VALUES (2147483647, -32768, 255, 9223372036854775807, -3.25, -1e300, -922337203685477, "
        L"-99999999.99, 0, '9999-12-31 23:59:59', '00000000-0000-0000-0000-000000000000', '12', x'')");
    ExpectSameAsRowByRow(L"SELECT * FROM v ORDER BY rowid", 2, 3);
    // The provider's long-value table: memos and long binaries read from storage objects.
    Run(L"CREATE TABLE memo (id INTEGER, body MEMO, data LONGBINARY)");
    Run(L"INSERT INTO memo VALUES (1, replace(hex(zeroblob(10000)), '0', 'm'), randomblob(30000))");
    Run(L"INSERT INTO memo VALUES (2, 'short', x'00')");
    Run(L"INSERT INTO memo VALUES (3, NULL, NULL)");
    ExpectSameAsRowByRow(L"SELECT * FROM memo ORDER BY id", 2, 3);
}

}  // namespace
