// A query-result document larger than the memory left to the 32-bit process: CmdExecute must
// report the failure with E_OUTOFMEMORY, hand out no cut document, keep the process alive and
// the command usable, keep no memory, and execute the same command whole once memory is back.
#include "service/ZelOleDbImpl.h"

#include <windows.h>
#include <psapi.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "common/Bstr.h"
#include "tests/support/EmbeddedProvider.h"
#include "tests/support/MemoryExhaustion.h"

using namespace zel;
using zel::test::AddressSpaceReservation;
using zel::test::ScratchDatabase;

namespace {

#if !defined(_WIN64)

constexpr int kRows = 20000;
// Memory left to the process while it executes. The document of kRows rows is some 40 MB of
// text, and the rowset keeps its rows (some 40 MB more) while it is written.
constexpr size_t kHeadrooms[] = {16u << 20, 32u << 20, 48u << 20, 64u << 20, 80u << 20, 96u << 20, 128u << 20};
// What the process may keep after the starved executions: a document's text left behind would
// be several megabytes at least.
constexpr SIZE_T kAllowedGrowth = 4u << 20;

// The process's private memory (PrivateUsage; Wine 8.0 reports it as PagefileUsage only).
SIZE_T PrivateBytes() {
    PROCESS_MEMORY_COUNTERS_EX counters{};
    counters.cb = sizeof counters;
    if (!GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters),
                              sizeof counters))
        return 0;
    return counters.PrivateUsage ? counters.PrivateUsage : counters.PagefileUsage;
}

// What one execution gave: its HRESULT, the tri-state and the document's rows.
struct Execution {
    HRESULT hr = E_UNEXPECTED;
    SHORT result = -1;
    Bstr document;
};

Execution Execute(IZelOleDb* db, ULONG handle) {
    Execution e;
    Bstr errorText, errorStmt;
    e.hr = db->CmdExecute(handle, &e.result, e.document.put(), errorText.put(), errorStmt.put());
    return e;
}

size_t CountRows(const Bstr& document) {
    const std::wstring text = document.str();
    size_t rows = 0;
    for (size_t at = text.find(L"<Rowset"); at != std::wstring::npos; at = text.find(L"<Rowset", at + 1)) ++rows;
    return rows;
}

bool IsWholeQueryDocument(const Bstr& document) {
    std::wstring text = document.str();
    while (!text.empty() && (text.back() == L'\r' || text.back() == L'\n')) text.pop_back();
    return text.size() > 12 && text.compare(text.size() - 12, 12, L"</QueryData>") == 0;
}

// The child's exit code: 0 when every execution under exhausted memory failed with
// E_OUTOFMEMORY or gave a whole document, at least one failed, the command then moved to its
// first row, the process kept no memory, and the next execution gave every row; 1 to 8 name
// the step that went wrong.
int ExecuteWithMemoryExhaustedThenAgain(const std::wstring& connectionString) {
    zel::test::EndProcessOnCrash();
    ComPtr<IZelOleDb> db;
    if (FAILED(zel::ZelOleDbImpl::CreateInstance(nullptr, IID_IZelOleDb, db.put_void()))) return 1;
    Bstr errorText, errorStmt;
    if (db->ConOpenFromInitializationString(Bstr(connectionString).get(), VARIANT_FALSE, errorText.put(),
                                            errorStmt.put()) != S_OK)
        return 1;
    ULONG handle = 0;
    db->CmdSetConnection(&handle);
    db->CmdSetCommandText(handle, Bstr(L"SELECT id, body FROM big ORDER BY id").get());
    // A whole execution first, so that what the process keeps anyway is counted before.
    Execution warm = Execute(db.get(), handle);
    if (warm.hr != S_OK || CountRows(warm.document) != kRows) return 3;
    warm.document.reset();
    const SIZE_T before = PrivateBytes();
    int failures = 0;
    for (size_t headroom : kHeadrooms) {
        Execution starved;
        {
            AddressSpaceReservation reservation(headroom);
            starved = Execute(db.get(), handle);
        }
        // Either a failure told by the HRESULT, or (rows cut short by a failing fetch, as the
        // document's rules allow) a whole document; never a success with a cut text.
        if (starved.hr == S_OK && (!starved.document || !IsWholeQueryDocument(starved.document))) return 2;
        if (FAILED(starved.hr)) {
            ++failures;
            if (starved.hr != E_OUTOFMEMORY || starved.document) return 6;
            // The command stays usable: its rows are still there to move over.
            SHORT first = -1;
            if (db->CmdFetchFirst(handle, &first) != S_OK || first != 1) return 7;
            Bstr id;
            if (db->CmdFieldAsStringEx(handle, 1, id.put()) != S_OK || id.str() != L"1") return 7;
        }
    }
    if (failures == 0) return 5;  // memory never ran short: the case proved nothing
    Execution again = Execute(db.get(), handle);
    if (again.hr != S_OK || again.result != 1) return 3;
    if (CountRows(again.document) != kRows || !IsWholeQueryDocument(again.document)) return 4;
    again.document.reset();
    const SIZE_T after = PrivateBytes();
    if (before == 0 || (after > before && after - before > kAllowedGrowth)) return 8;
    db->CmdDestroy(handle);
    db->ConClose();
    return 0;
}

class ServiceMemoryDeathTest : public testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_EQ(S_OK, zel::test::RegisterEmbeddedProvider()); }

    // kRows rows of about 1,000 characters each.
    void SetUp() override {
        ComPtr<IZelOleDb> db;
        ASSERT_EQ(S_OK, zel::ZelOleDbImpl::CreateInstance(nullptr, IID_IZelOleDb, db.put_void()));
        Bstr errorText, errorStmt;
        ASSERT_EQ(S_OK, db->ConOpenFromInitializationString(Bstr(database.ConnectionString()).get(), VARIANT_FALSE,
                                                            errorText.put(), errorStmt.put()));
        for (const wchar_t* sql :
             {L"CREATE TABLE big (id INTEGER PRIMARY KEY, body VARCHAR(1000))",
              L"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 20000) "
              L"INSERT INTO big SELECT i, printf('%.1000c', 'x') FROM n"}) {
            ULONG handle = 0;
            ASSERT_EQ(S_OK, db->CmdSetConnection(&handle));
            ASSERT_EQ(S_OK, db->CmdSetCommandText(handle, Bstr(sql).get()));
            Execution e = Execute(db.get(), handle);
            ASSERT_EQ(S_OK, e.hr);
            ASSERT_EQ(1, e.result) << testing::PrintToString(std::wstring(sql));
            db->CmdDestroy(handle);
        }
        db->ConClose();
    }

    ScratchDatabase database;
};

// Runs in a child process of its own, so that the process whose memory runs out is one that
// only this case used.
TEST_F(ServiceMemoryDeathTest, DocumentLargerThanFreeMemoryFailsOrComesWholeAndTheNextExecutionIsWhole) {
    EXPECT_EXIT(std::exit(ExecuteWithMemoryExhaustedThenAgain(database.ConnectionString())),
                testing::ExitedWithCode(0), "");
}

#endif

}  // namespace
