// The subcommands of zeldb, run against a live server.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "host/Arguments.h"
#include "host/ConnectionArgument.h"
#include "host/DbSession.h"
#include "host/TextStreams.h"

namespace zel::zeldb {

struct Context {
    TextSink& out;
    TextSink& err;
    LineSource& in;
    const PathServices& paths;
};

// Runs a parsed command line and returns the exit status: 0 done, 1 the server, the provider
// or COM reported an error (printed on `err`), 2 a usage error. Throws nothing.
int RunInvocation(const Invocation& invocation, Context& context);

// The whole program: parse `args`, print help or usage, run.
int RunZelDb(const std::vector<std::wstring>& args, Context& context);

// Runs `sql` and prints its result. Rows come in batches through the server's batch
// interface and print as exact values; with --xml (`format` Xml) or `serverText` the
// statement runs through CmdExecute and PrintResult prints the server's document or texts.
void RunAndPrint(Statement& statement, const std::wstring& sql, OutputFormat format, bool serverText,
                 std::optional<std::uint64_t> maxRows, Context& context);
// Prints the batches of a statement run with ExecuteBatched (at most `maxRows` rows), or
// the rows it affected.
void PrintBatches(Statement& statement, OutputFormat format, std::optional<std::uint64_t> maxRows, Context& context);
// Prints one statement run with Execute: its rows as the server's field texts, row by row,
// in `format` (at most `maxRows` for the table, CSV and JSON formats), its document, or the
// rows it affected.
void PrintResult(Statement& statement, OutputFormat format, std::optional<std::uint64_t> maxRows, Context& context);

// Catalog listings shared by the subcommands and the shell's dot commands.
void PrintTables(DbSession& db, const std::optional<std::wstring>& type, Context& context);
void PrintColumns(DbSession& db, const std::wstring& table, Context& context);
void PrintIndexes(DbSession& db, const std::optional<std::wstring>& table, Context& context);

// "3 rows affected"; "done" when the provider reports no count.
std::wstring RowsAffectedText(std::int64_t rows);

}  // namespace zel::zeldb
