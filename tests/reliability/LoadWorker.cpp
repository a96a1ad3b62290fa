#include "tests/reliability/LoadWorker.h"

#include <algorithm>
#include <cwchar>
#include <random>
#include <set>

#include "common/Bstr.h"
#include "tests/reliability/ReliabilitySupport.h"

namespace zel::test {
namespace {

constexpr int kMaxAttempts = 1000;  // busy refusals one operation may meet before it counts as lost

}  // namespace

std::wstring AmountText(double value) {
    wchar_t text[64] = {};
    _snwprintf(text, 63, L"%g", value);  // msvcrt's printf, as the server formats a DOUBLE
    return text;
}

namespace {

std::wstring Number(double value) { return AmountText(value); }

bool IsBusy(const std::wstring& errorText) { return errorText.find(L"SQLState: HYT00") != std::wstring::npos; }

class Worker {
public:
    Worker(const LoadSettings& settings, LoadReport& report)
        : m_settings(settings), m_report(report), m_random(settings.seed) {}

    void Run() {
        if (HRESULT hr = m_client.Create(); hr != S_OK) return Error(L"no service object", hr);
        std::wstring errorText;
        if (HRESULT hr = m_client.Open(m_settings.connection, &errorText); hr != S_OK)
            return Error(L"open failed: " + errorText, hr);
        for (int op = 0; op < m_settings.operations; ++op) {
            const int kind = static_cast<int>(m_random() % 100);
            if (kind < 25) XmlQuery();
            else if (kind < 50) RowFetch();
            else if (kind < 58) CatalogWalk();
            else if (kind < 90) Transaction();
            else AutocommitInsert();
            ++m_report.operations;
            if (m_report.errors.size() > 20) return;  // enough to tell what went wrong
        }
        FinalCheck();
        if (m_command && m_client->CmdDestroy(m_command) != S_OK) Error(L"the host's command cannot be destroyed");
        m_client->ConClose();
    }

private:
    void Error(const std::wstring& what, HRESULT hr = S_OK) {
        wchar_t code[16];
        swprintf(code, 16, L"%08lX", static_cast<unsigned long>(hr));
        m_report.errors.push_back(L"op " + std::to_wstring(m_report.operations) + L": " + what +
                                  (hr == S_OK ? L"" : L" (hr 0x" + std::wstring(code) + L")"));
    }

    // Runs `sql` on the host's own command, which it keeps for all its statements.
    Outcome Execute(const std::wstring& sql) {
        Outcome outcome;
        if (!m_command && FAILED(outcome.hr = m_client->CmdSetConnection(&m_command))) return outcome;
        Bstr text(sql), xml, errorText, errorStmt;
        outcome.hr = m_client->CmdSetCommandText(m_command, text.get());
        if (SUCCEEDED(outcome.hr))
            outcome.hr = m_client->CmdExecute(m_command, &outcome.result, xml.put(), errorText.put(), errorStmt.put());
        outcome.xmlWritten = xml.get() != nullptr;
        outcome.xml = xml.str();
        outcome.errorText = errorText.str();
        outcome.errorStmt = errorStmt.str();
        return outcome;
    }

    int Pick(int low, int high) { return low + static_cast<int>(m_random() % static_cast<unsigned>(high - low + 1)); }

    // Long enough for the holder of the write lock to get through a few calls, and longer
    // the more often the lock was found taken.
    void Backoff(int attempt) { Sleep(static_cast<DWORD>(3 + m_random() % 15 + 2 * std::min(attempt, 10))); }

    // A range of "fixed" as the query-result document.
    void XmlQuery() {
        ++m_report.xmlQueries;
        const int low = Pick(1, kFixedRows), high = std::min(kFixedRows, low + Pick(0, 20));
        Outcome outcome = Execute(L"SELECT id, name, amount, note FROM fixed WHERE id BETWEEN " +
                                           std::to_wstring(low) + L" AND " + std::to_wstring(high) + L" ORDER BY id");
        if (outcome.hr != S_OK || outcome.result != 1 || !outcome.xmlWritten)
            return Error(L"xml query failed: " + outcome.errorText, outcome.hr);
        std::vector<XmlAttributes> columns = XmlElements(outcome.xml, L"ColumnDef");
        if (columns.size() != 4 || columns[0][L"Name"] != L"id" || columns[3][L"Name"] != L"note")
            return Error(L"xml query: wrong columns");
        const std::vector<XmlAttributes> rows = XmlElements(outcome.xml, L"Rowset");
        if (rows.size() != static_cast<size_t>(high - low + 1)) return Error(L"xml query: wrong row count");
        for (int id = low; id <= high; ++id) {
            XmlAttributes row = rows[static_cast<size_t>(id - low)];
            XmlAttributes expected{{L"C1", std::to_wstring(id)},
                                   {L"C2", L"fixed-" + std::to_wstring(id)},
                                   {L"C3", Number(id * 1.5)}};
            if (id % 5 != 0) expected[L"C4"] = L"note " + std::to_wstring(id);
            if (row != expected) return Error(L"xml query: wrong row " + std::to_wstring(id));
        }
    }

    // A window of this host's own rows, row by row.
    void RowFetch() {
        ++m_report.rowFetches;
        const int low = Pick(1, m_nextSeq), high = low + Pick(0, 3);
        std::vector<int> expected;
        for (int seq : m_committed)
            if (seq >= low && seq <= high) expected.push_back(seq);
        ULONG handle = 0;
        if (FAILED(m_client->CmdSetConnection(&handle))) return Error(L"fetch: no command");
        Bstr sql(L"SELECT seq, label, amount FROM items WHERE host = " + std::to_wstring(m_settings.host) +
                 L" AND seq BETWEEN " + std::to_wstring(low) + L" AND " + std::to_wstring(high) + L" ORDER BY seq");
        SHORT result = 0;
        Bstr xml, errorText, errorStmt;
        if (FAILED(m_client->CmdSetCommandText(handle, sql.get())) ||
            FAILED(m_client->CmdExecute(handle, &result, xml.put(), errorText.put(), errorStmt.put())) || result != 1) {
            Error(L"fetch: execute failed: " + errorText.str());
        } else {
            const bool backwards = m_random() % 4 == 0;
            SHORT moved = 0;
            HRESULT hr = backwards ? m_client->CmdFetchLast(handle, &moved) : m_client->CmdFetchFirst(handle, &moved);
            size_t count = 0;
            bool wrong = false;
            while (SUCCEEDED(hr) && moved == 1 && !wrong) {
                if (count >= expected.size()) {
                    wrong = true;
                    Error(L"fetch: more rows than were committed");
                    break;
                }
                const int seq = expected[backwards ? expected.size() - 1 - count : count];
                Bstr seqText, label, amount;
                m_client->CmdFieldAsString(handle, 1, seqText.put());
                m_client->CmdFieldAsString(handle, 2, label.put());
                m_client->CmdFieldAsString(handle, 3, amount.put());
                if (seqText.str() != std::to_wstring(seq) || label.str() != ItemLabel(m_settings.host, seq) ||
                    amount.str() != Number(ItemAmount(seq))) {
                    wrong = true;
                    Error(L"fetch: wrong row for seq " + std::to_wstring(seq) + L": " + seqText.str() + L" " + label.str());
                    break;
                }
                ++count;
                hr = backwards ? m_client->CmdFetchPrev(handle, &moved) : m_client->CmdFetchNext(handle, &moved);
            }
            if (!wrong && (FAILED(hr) || count != expected.size()))
                Error(L"fetch: " + std::to_wstring(count) + L" rows instead of " + std::to_wstring(expected.size()), hr);
        }
        if (m_client->CmdDestroy(handle) != S_OK) Error(L"fetch: destroy failed");
    }

    void CatalogWalk() {
        ++m_report.catalogWalks;
        Bstr empty(L""), type(L"TABLE"), table(L"items"), errorText, errorStmt;
        ULONG tables = 0;
        HRESULT hr = m_client->TblOpen(&tables, empty.get(), empty.get(), empty.get(), type.get(), errorText.put(),
                                       errorStmt.put());
        std::vector<std::wstring> names;
        VARIANT_BOOL more = VARIANT_FALSE;
        while (hr == S_OK && SUCCEEDED(m_client->TblFetchNext(tables, &more)) && more == VARIANT_TRUE) {
            Bstr name;
            m_client->TblGetName(tables, name.put());
            names.push_back(name.str());
        }
        m_client->TblDestroy(tables);
        if (hr != S_OK || names != std::vector<std::wstring>{L"fixed", L"items"})
            Error(L"tables: " + errorText.str() + L" " + std::to_wstring(names.size()) + L" names", hr);

        ULONG columns = 0;
        hr = m_client->ColOpen(&columns, empty.get(), empty.get(), table.get(), empty.get(), VARIANT_FALSE,
                               errorText.put(), errorStmt.put());
        names.clear();
        while (hr == S_OK && SUCCEEDED(m_client->ColFetchNext(columns, &more)) && more == VARIANT_TRUE) {
            Bstr name;
            m_client->ColGetName(columns, name.put());
            names.push_back(name.str());
        }
        m_client->ColDestroy(columns);
        if (hr != S_OK || names != std::vector<std::wstring>{L"host", L"seq", L"label", L"amount"})
            Error(L"columns: " + errorText.str() + L" " + std::to_wstring(names.size()) + L" names", hr);
    }

    std::wstring InsertStatement(int seq) const {
        return L"INSERT INTO items VALUES (" + std::to_wstring(m_settings.host) + L", " + std::to_wstring(seq) +
               L", '" + ItemLabel(m_settings.host, seq) + L"', " + Number(ItemAmount(seq)) + L")";
    }

    std::wstring OwnCount() {
        Outcome outcome = Execute(L"SELECT COUNT(*) FROM items WHERE host = " + std::to_wstring(m_settings.host));
        std::vector<XmlAttributes> rows = XmlElements(outcome.xml, L"Rowset");
        return rows.size() == 1 ? rows[0][L"C1"] : L"(no count)";
    }

    // One to three inserts in a transaction, committed or rolled back.
    void Transaction() {
        ++m_report.transactions;
        const int rows = Pick(1, 3);
        const bool commit = m_random() % 5 != 0;
        for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
            VARIANT_BOOL ok = VARIANT_FALSE;
            if (HRESULT hr = m_client->ConStartTransaction(&ok); FAILED(hr)) return Error(L"start transaction", hr);
            if (ok != VARIANT_TRUE) {
                // Another connection holds the write lock: the provider's busy refusal.
                ++m_report.busyRetries;
                Backoff(attempt);
                continue;
            }
            bool busy = false;
            for (int i = 0; i < rows && !busy; ++i) {
                Outcome outcome = Execute(InsertStatement(m_nextSeq + i));
                if (outcome.result == 1) continue;
                if (!IsBusy(outcome.errorText)) {
                    m_client->ConRollback(&ok);
                    return Error(L"insert in a transaction: " + outcome.errorText, outcome.hr);
                }
                busy = true;
            }
            // Read-your-writes inside the transaction.
            if (!busy && OwnCount() != std::to_wstring(m_committed.size() + rows))
                Error(L"own rows inside the transaction: " + OwnCount());
            if (busy || !commit) {
                if (FAILED(m_client->ConRollback(&ok)) || ok != VARIANT_TRUE) return Error(L"rollback refused");
                if (busy) {
                    ++m_report.busyRetries;
                    Backoff(attempt);
                    continue;
                }
                ++m_report.rolledBack;
            } else {
                if (FAILED(m_client->ConCommit(&ok)) || ok != VARIANT_TRUE) {
                    m_client->ConRollback(&ok);
                    return Error(L"commit refused");
                }
                for (int i = 0; i < rows; ++i) m_committed.insert(m_nextSeq++);
            }
            return;
        }
        Error(L"transaction: busy on every attempt");
    }

    void AutocommitInsert() {
        ++m_report.autocommitInserts;
        for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
            Outcome outcome = Execute(InsertStatement(m_nextSeq));
            if (outcome.result == 1) {
                m_committed.insert(m_nextSeq++);
                return;
            }
            if (!IsBusy(outcome.errorText)) return Error(L"insert: " + outcome.errorText, outcome.hr);
            ++m_report.busyRetries;
            Backoff(attempt);
        }
        Error(L"insert: busy on every attempt");
    }

    void FinalCheck() {
        Outcome outcome = Execute(L"SELECT seq FROM items WHERE host = " + std::to_wstring(m_settings.host) +
                                           L" ORDER BY seq");
        std::vector<std::wstring> found;
        for (XmlAttributes& row : XmlElements(outcome.xml, L"Rowset")) found.push_back(row[L"C1"]);
        std::vector<std::wstring> expected;
        for (int seq : m_committed) expected.push_back(std::to_wstring(seq));
        if (outcome.result != 1 || found != expected) Error(L"final rows differ from the committed ones");
        m_report.committed.assign(m_committed.begin(), m_committed.end());
    }

    const LoadSettings& m_settings;
    LoadReport& m_report;
    std::mt19937 m_random;
    ServiceClient m_client;
    ULONG m_command = 0;
    std::set<int> m_committed;
    int m_nextSeq = 1;
};

}  // namespace

std::vector<std::wstring> LoadSchemaStatements() {
    return {
        L"CREATE TABLE fixed (id INTEGER PRIMARY KEY, name VARCHAR(40), amount DOUBLE, note VARCHAR(40))",
        L"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " + std::to_wstring(kFixedRows) +
            L") INSERT INTO fixed SELECT i, 'fixed-' || i, i * 1.5, CASE WHEN i % 5 = 0 THEN NULL ELSE 'note ' || i END "
            L"FROM n",
        L"CREATE TABLE items (host INTEGER NOT NULL, seq INTEGER NOT NULL, label VARCHAR(40), amount DOUBLE, "
        L"PRIMARY KEY (host, seq))",
    };
}

std::wstring ItemLabel(int host, int seq) { return L"h" + std::to_wstring(host) + L"-s" + std::to_wstring(seq); }

double ItemAmount(int seq) { return seq * 0.25; }

LoadReport RunLoad(const LoadSettings& settings) {
    LoadReport report;
    try {
        Worker(settings, report).Run();
    } catch (...) {
        report.errors.push_back(L"exception in the load worker");
    }
    return report;
}

}  // namespace zel::test
