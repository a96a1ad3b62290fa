#include "host/Commands.h"

#include <windows.h>

#include <thread>

#include "common/Bstr.h"
#include "common/ComError.h"
#include "common/SafeArray.h"
#include "common/Variant.h"
#include "common/Win32Handles.h"
#include "host/BatchHandOver.h"
#include "host/Progress.h"
#include "host/ResultWriters.h"
#include "host/Shell.h"
#include "host/ValueText.h"

namespace zel::zeldb {

namespace {

// Rows per batch: enough that the cost of a call across the process boundary vanishes
// behind the rows, few enough that zeldb's and the server's memory stay small. With
// --max-rows N one row more than N tells whether rows were left out.
constexpr LONG kBatchRows = 1000;
// Batches fetched ahead of the one printing.
constexpr size_t kBatchesAhead = 2;

LONG BatchRowsFor(std::optional<std::uint64_t> maxRows) {
    if (maxRows && *maxRows < static_cast<std::uint64_t>(kBatchRows)) return static_cast<LONG>(*maxRows) + 1;
    return kBatchRows;
}

// Names of the helper's data-source formats, in value order.
constexpr const wchar_t* kFormatNames[] = {
    L"kAccess",    L"kAccess97",  L"kExcel8_0",  L"kExcel5_0",  L"kdBASE5_0",  L"kdBASEIV",
    L"kdBASEIII",  L"kFoxPro3_0", L"kFoxPro2_6", L"kFoxPro2_5", L"kHTMLExport",
};

std::wstring YesNo(bool value) { return value ? L"yes" : L"no"; }

void WriteLine(TextSink& sink, const std::wstring& text) { sink.Write(text + L"\n"); }

std::unique_ptr<DbSession> OpenSession(const std::wstring& conn, Context& context) {
    auto db = std::make_unique<DbSession>();
    db->Open(ConnectionInitString(conn, context.paths));
    return db;
}

std::optional<std::uint64_t> FileSize(const std::wstring& path) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (path.empty() || !GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) return std::nullopt;
    return (static_cast<std::uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

// A text file as UTF-16: a UTF-16 byte-order mark (either order) is honoured, anything else
// is read as UTF-8 (its mark skipped).
std::wstring ReadTextFile(const std::wstring& path) {
    UniqueHandle file = AdoptFileHandle(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        throw ZelDbError(L"cannot read \"" + path + L"\"", HRESULT_FROM_WIN32(GetLastError()));
    }
    std::string bytes;
    char buffer[65536];
    DWORD read = 0;
    while (ReadFile(file.get(), buffer, sizeof buffer, &read, nullptr) && read > 0) bytes.append(buffer, read);
    file.reset();
    if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFF &&
        static_cast<unsigned char>(bytes[1]) == 0xFE) {
        std::wstring text((bytes.size() - 2) / 2, L'\0');
        memcpy(text.data(), bytes.data() + 2, text.size() * 2);
        return text;
    }
    if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFE &&
        static_cast<unsigned char>(bytes[1]) == 0xFF) {
        std::wstring text((bytes.size() - 2) / 2, L'\0');
        for (size_t i = 0; i < text.size(); ++i) {
            text[i] = static_cast<wchar_t>((static_cast<unsigned char>(bytes[2 + 2 * i]) << 8) |
                                           static_cast<unsigned char>(bytes[3 + 2 * i]));
        }
        return text;
    }
    if (bytes.size() >= 3 && bytes.compare(0, 3, "\xEF\xBB\xBF") == 0) bytes.erase(0, 3);
    return FromUtf8(bytes);
}

int RunFormats(Context& context) {
    ComPtr<IZelOleDbHelper> helper = CreateHelperObject();
    TableWriter table(context.out, false);
    table.Begin({{L"value", true}, {L"format"}, {L"installed"}, {L"connFlags", true}, {L"template"}});
    for (int value = 0; value <= 10; ++value) {
        Bstr connStr;
        LONG flags = 0;
        VARIANT_BOOL installed = VARIANT_FALSE;
        Variant none;
        const HRESULT hr = helper->GetDbConnectionInfo(connStr.put(), &flags, static_cast<ZelOleDbFormatType>(value),
                                                       *none.get(), *none.get(), &installed);
        if (FAILED(hr)) throw ZelDbError(L"the connection-string helper failed", hr);
        const bool yes = installed == VARIANT_TRUE;
        table.Row({Cell::Text(std::to_wstring(value)), Cell::Text(kFormatNames[value]), Cell::Text(YesNo(yes)),
                   yes ? Cell::Text(std::to_wstring(flags)) : Cell::Null(), Cell::Text(connStr.str())});
    }
    table.End({11, false});
    return 0;
}

int RunCreate(const Invocation& inv, Context& context) {
    const std::wstring path = context.paths.fullPath(inv.args[0]);
    DbSession db;
    db.CreateDatabaseFile(std::wstring(L"Provider=") + kEmbeddedProvider, path);
    WriteLine(context.out, L"created " + path);
    return 0;
}

int RunQuery(const Invocation& inv, Context& context) {
    auto db = OpenSession(inv.args[0], context);
    Statement statement(db->service());
    RunAndPrint(statement, inv.args[1], inv.format, inv.serverText, inv.maxRows, context);
    return 0;
}

int RunExec(const Invocation& inv, Context& context) {
    auto db = OpenSession(inv.args[0], context);
    Statement statement(db->service());
    statement.ExecuteBatched(inv.args[1], 0);  // no rows wanted, and no document made
    WriteLine(context.out, RowsAffectedText(statement.RowsAffected()));
    return 0;
}

int RunTableDefGet(const Invocation& inv, Context& context) {
    auto db = OpenSession(inv.args[0], context);
    std::wstring xml = db->TableDefinition(inv.args[1]);
    if (xml.empty() || xml.back() != L'\n') xml += L'\n';
    context.out.Write(xml);
    return 0;
}

int RunTableDefCreate(const Invocation& inv, Context& context) {
    const std::wstring file = context.paths.fullPath(inv.args[1]);
    const std::wstring xml = ReadTextFile(file);
    auto db = OpenSession(inv.args[0], context);
    db->CreateTable(xml);
    WriteLine(context.out, L"created the table defined in " + file);
    return 0;
}

int RunDrop(const Invocation& inv, Context& context) {
    auto db = OpenSession(inv.args[0], context);
    db->DropTable(inv.args[1]);
    WriteLine(context.out, L"dropped table " + inv.args[1]);
    return 0;
}

int RunCompact(const Invocation& inv, Context& context) {
    auto db = OpenSession(inv.args[0], context);
    const std::wstring file = db->DataSourceName();
    const auto before = FileSize(file);
    db->Compact();
    const auto after = FileSize(file);
    std::wstring line = L"compacted " + (file.empty() ? inv.args[0] : file);
    if (before && after) {
        line += L" (" + std::to_wstring(*before) + L" bytes before, " + std::to_wstring(*after) + L" after)";
    }
    WriteLine(context.out, line);
    return 0;
}

int RunShell(const Invocation& inv, Context& context) {
    auto db = OpenSession(inv.args[0], context);
    Shell shell(*db, context);
    return shell.Run();
}

int Dispatch(const Invocation& inv, Context& context) {
    const std::wstring& c = inv.command;
    if (c == L"formats") return RunFormats(context);
    if (c == L"create") return RunCreate(inv, context);
    if (c == L"query") return RunQuery(inv, context);
    if (c == L"exec") return RunExec(inv, context);
    if (c == L"tables") {
        auto db = OpenSession(inv.args[0], context);
        PrintTables(*db, inv.tableType, context);
        return 0;
    }
    if (c == L"columns") {
        auto db = OpenSession(inv.args[0], context);
        PrintColumns(*db, inv.args[1], context);
        return 0;
    }
    if (c == L"indexes") {
        auto db = OpenSession(inv.args[0], context);
        PrintIndexes(*db, inv.args.size() > 1 ? std::optional<std::wstring>(inv.args[1]) : std::nullopt, context);
        return 0;
    }
    if (c == L"tabledef get") return RunTableDefGet(inv, context);
    if (c == L"tabledef create") return RunTableDefCreate(inv, context);
    if (c == L"drop") return RunDrop(inv, context);
    if (c == L"compact") return RunCompact(inv, context);
    if (c == L"shell") return RunShell(inv, context);
    context.err.Write(L"zeldb: unknown command '" + c + L"'\n");
    return 2;
}

// Prints the rows of one batch; false when `maxRows` rows are printed and more were there.
bool PrintBatch(const Variant& rows, std::vector<Cell>& cells, RowWriter& writer, std::optional<std::uint64_t> maxRows,
                ResultEnd& end) {
    SAFEARRAY* array = V_ARRAY(rows.get());
    LONG upper = -1;
    SafeArrayGetUBound(array, 1, &upper);
    const size_t width = static_cast<size_t>(upper + 1);
    SafeArrayGetUBound(array, 2, &upper);
    const LONG count = upper + 1;
    SafeArrayData data(array);
    const VARIANT* values = data.as<VARIANT>();
    for (LONG r = 0; r < count; ++r) {
        if (maxRows && end.rows >= *maxRows) {
            end.truncated = true;
            return false;
        }
        for (size_t c = 0; c < cells.size(); ++c)
            cells[c] = c < width ? NaturalCell(values[static_cast<size_t>(r) * width + c]) : Cell::Null();
        writer.Row(cells);
        ++end.rows;
    }
    return true;
}

}  // namespace

std::wstring RowsAffectedText(std::int64_t rows) {
    if (rows < 0) return L"done";
    return CountText(static_cast<std::uint64_t>(rows), L"row affected", L"rows affected");
}

void PrintResult(Statement& statement, OutputFormat format, std::optional<std::uint64_t> maxRows, Context& context) {
    if (statement.ColumnCount() == 0) {
        WriteLine(context.out, RowsAffectedText(statement.RowsAffected()));
        return;
    }
    if (format == OutputFormat::Xml) {
        if (!statement.xml()) {
            context.err.Write(L"zeldb: the result has no rows, and the server makes no document for it\n");
            return;
        }
        std::wstring xml = *statement.xml();
        if (xml.empty() || xml.back() != L'\n') xml += L'\n';
        context.out.Write(xml);
        return;
    }
    const std::vector<Statement::Column> columns = statement.Columns();
    std::vector<ColumnHeading> headings;
    for (const auto& column : columns) headings.push_back({column.name, column.alignRight});
    std::unique_ptr<RowWriter> writer = MakeRowWriter(format, context.out);
    writer->Begin(headings);

    ResultEnd end;
    ProgressMeter progress(context.err);
    std::vector<Cell> cells(columns.size());
    // The server has already walked the rows once to build its document: start again.
    bool row = statement.First();
    while (row) {
        if (maxRows && end.rows >= *maxRows) {
            end.truncated = true;
            break;
        }
        for (size_t c = 0; c < columns.size(); ++c) {
            cells[c] = statement.ReadCell(static_cast<ULONG>(c + 1), columns[c]);
        }
        writer->Row(cells);
        ++end.rows;
        progress.Update(end.rows);
        row = statement.Next();
    }
    progress.Finish();
    writer->End(end);
}

void PrintBatches(Statement& statement, OutputFormat format, std::optional<std::uint64_t> maxRows, Context& context) {
    const std::vector<Statement::BatchColumn> columns = statement.DescribeColumns();
    if (columns.empty()) {
        WriteLine(context.out, RowsAffectedText(statement.RowsAffected()));
        return;
    }
    std::vector<ColumnHeading> headings;
    for (const auto& column : columns) headings.push_back({column.name, column.alignRight});
    std::unique_ptr<RowWriter> writer = MakeRowWriter(format, context.out);
    writer->Begin(headings);

    ResultEnd end;
    ProgressMeter progress(context.err);
    const LONG batchRows = BatchRowsFor(maxRows);
    // Batches print on a second thread while the next one crosses the process boundary; the
    // server's interface is called from this thread only (its apartment).
    BatchHandOver handOver(kBatchesAhead);
    std::thread printer([&] {
        try {
            std::vector<Cell> cells(columns.size());
            Variant rows;
            while (handOver.Take(rows)) {
                if (!PrintBatch(rows, cells, *writer, maxRows, end)) {
                    handOver.Stop();
                    break;
                }
                progress.Update(end.rows);
            }
        } catch (...) {
            handOver.Stop(std::current_exception());
        }
    });
    try {
        Variant rows;
        while (statement.NextBatch(batchRows, rows) && handOver.Put(std::move(rows))) {
        }
    } catch (...) {
        handOver.Stop();
        handOver.Close();
        printer.join();
        throw;
    }
    handOver.Close();
    printer.join();
    handOver.RethrowFailure();
    progress.Finish();
    writer->End(end);
}

void RunAndPrint(Statement& statement, const std::wstring& sql, OutputFormat format, bool serverText,
                 std::optional<std::uint64_t> maxRows, Context& context) {
    if (format == OutputFormat::Xml || serverText) {
        statement.Execute(sql);
        PrintResult(statement, format, maxRows, context);
        return;
    }
    statement.ExecuteBatched(sql, BatchRowsFor(maxRows));
    PrintBatches(statement, format, maxRows, context);
}

void PrintTables(DbSession& db, const std::optional<std::wstring>& type, Context& context) {
    const auto tables = db.Tables(type);
    TableWriter writer(context.out);
    writer.Begin({{L"name"}, {L"type"}, {L"description"}});
    for (const auto& t : tables) writer.Row({Cell::Text(t.name), Cell::Text(t.type), Cell::Text(t.description)});
    writer.End({tables.size(), false});
}

void PrintColumns(DbSession& db, const std::wstring& table, Context& context) {
    const auto columns = db.Columns(table);
    if (columns.empty()) throw ZelDbError(L"no table named \"" + table + L"\" (the provider lists no columns for it)", S_OK);
    TableWriter writer(context.out);
    writer.Begin({{L"name"}, {L"position", true}, {L"type"}, {L"code", true}, {L"size", true},
                  {L"precision", true}, {L"scale", true}, {L"nullable"}, {L"default"}, {L"identity"},
                  {L"seed", true}, {L"increment", true}});
    for (const auto& c : columns) {
        const bool identity = c.identityKnown && c.identity;
        writer.Row({Cell::Text(c.name), Cell::Text(std::to_wstring(c.position)), Cell::Text(DbTypeName(c.dataType)),
                    Cell::Text(std::to_wstring(c.dataType)), Cell::Text(std::to_wstring(c.size)),
                    Cell::Text(std::to_wstring(c.precision)), Cell::Text(std::to_wstring(c.scale)),
                    Cell::Text(YesNo(c.nullable)), c.hasDefault ? Cell::Text(c.defaultValue) : Cell::Null(),
                    c.identityKnown ? Cell::Text(YesNo(c.identity)) : Cell::Text(L"?"),
                    identity ? Cell::Text(std::to_wstring(c.seed)) : Cell::Null(),
                    identity ? Cell::Text(std::to_wstring(c.increment)) : Cell::Null()});
    }
    writer.End({columns.size(), false});
}

void PrintIndexes(DbSession& db, const std::optional<std::wstring>& table, Context& context) {
    const auto indexes = db.Indexes(table);
    TableWriter writer(context.out);
    writer.Begin({{L"table"}, {L"index"}, {L"column"}});
    for (const auto& i : indexes) writer.Row({Cell::Text(i.table), Cell::Text(i.index), Cell::Text(i.column)});
    writer.End({indexes.size(), false});
}

int RunInvocation(const Invocation& invocation, Context& context) {
    try {
        return Dispatch(invocation, context);
    } catch (const ZelDbError& error) {
        context.out.Flush();
        PrintError(context.err, error);
        return 1;
    } catch (const ComError& error) {
        context.out.Flush();
        PrintError(context.err, ZelDbError(L"a call failed", error.code()));
        return 1;
    } catch (const std::bad_alloc&) {
        context.out.Flush();
        context.err.Write(L"zeldb: out of memory\n");
        return 1;
    } catch (const std::exception&) {
        context.out.Flush();
        context.err.Write(L"zeldb: internal error\n");
        return 1;
    }
}

int RunZelDb(const std::vector<std::wstring>& args, Context& context) {
    Invocation invocation;
    try {
        invocation = ParseArguments(args);
    } catch (const UsageError& error) {
        context.err.Write(L"zeldb: " + error.message() + L"\n\n" + HelpText(error.command()));
        return 2;
    }
    if (invocation.help) {
        context.out.Write(HelpText(invocation.command));
        return 0;
    }
    if (invocation.version) {
        context.out.Write(VersionText());
        return 0;
    }
    return RunInvocation(invocation, context);
}

}  // namespace zel::zeldb
