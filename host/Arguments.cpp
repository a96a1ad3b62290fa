#include "host/Arguments.h"

#include <cwctype>

#include "ZelVersion.h"

namespace zel::zeldb {

namespace {

enum OptionBits : unsigned {
    kOptFormat = 1,    // --csv, --json, --xml, --server-text
    kOptMaxRows = 2,   // --max-rows N
    kOptType = 4,      // --type T
};

struct CommandSpec {
    const wchar_t* name;
    const wchar_t* synopsis;  // arguments after the name
    size_t minArgs;
    size_t maxArgs;
    unsigned options;
    const wchar_t* description;
};

constexpr wchar_t kConnHelp[] =
    L"CONN is a database file (opened with the embedded ZelLite provider) or a full OLE DB\n"
    L"initialization string such as \"Provider=ZelLite.OLEDB.1;Data Source=C:\\data\\parts.db\".\n";

const CommandSpec kCommands[] = {
    {L"formats", L"", 0, 0, 0,
     L"Lists the eleven data-source formats of the connection-string helper: whether their\n"
     L"drivers are installed, the connection-string template and the connection flags.\n"},
    {L"create", L"FILE", 1, 1, 0, L"Creates a new, empty database file with the embedded provider.\n"},
    {L"query", L"CONN SQL [--csv | --json | --xml] [--server-text] [--max-rows N]", 2, 2,
     kOptFormat | kOptMaxRows,
     L"Runs a statement and prints its rows: an aligned table by default, CSV with --csv, one\n"
     L"JSON array of objects with --json, or the server's query-result document with --xml.\n"
     L"Rows arrive in batches and print exactly: reals as the shortest text that reads back as\n"
     L"the same number, booleans as 1/0 (true/false in JSON), dates as 2020-01-02 02:11:59\n"
     L"(with a fraction of a second when there is one), decimals and currency digit for digit.\n"
     L"--server-text prints the server's own field texts instead, row by row. --max-rows N\n"
     L"stops after N rows (table, CSV and JSON). NULL prints as an empty cell (null in JSON);\n"
     L"binary values as <blob N bytes>.\n"},
    {L"exec", L"CONN SQL", 2, 2, 0, L"Runs a statement and prints the number of rows it affected.\n"},
    {L"tables", L"CONN [--type T]", 1, 1, kOptType,
     L"Lists the tables of the database, optionally only those of table type T (for example\n"
     L"TABLE, VIEW or SYSTEM TABLE, as the provider names them).\n"},
    {L"columns", L"CONN TABLE", 2, 2, 0,
     L"Lists the columns of a table: name, position, type name and code, size, precision,\n"
     L"scale, nullable, default, and identity with seed and increment.\n"},
    {L"indexes", L"CONN [TABLE]", 1, 2, 0,
     L"Lists the indexes of the database, or of one table: one line per indexed column.\n"},
    {L"tabledef get", L"CONN TABLE", 2, 2, 0, L"Prints the definition of a table as a TableDef document.\n"},
    {L"tabledef create", L"CONN FILE.xml", 2, 2, 0,
     L"Creates a table from a TableDef document read from FILE.xml (UTF-8 or UTF-16).\n"},
    {L"drop", L"CONN TABLE", 2, 2, 0, L"Drops a table.\n"},
    {L"compact", L"CONN", 1, 1, 0, L"Compacts the database file in place.\n"},
    {L"shell", L"CONN", 1, 1, 0,
     L"Reads statements from standard input, one after another, each ended by ';' (the last\n"
     L"one may end with the input), and prints each result. Works with a pipe and at a\n"
     L"console. Commands on a line of their own:\n"
     L"  .tables          list the tables\n"
     L"  .columns TABLE   list the columns of TABLE\n"
     L"  .indexes [TABLE] list the indexes\n"
     L"  .xml on|off      print results as query-result documents, or as tables (default)\n"
     L"  .help            this list\n"
     L"  .quit            end the session (so does the end of the input)\n"},
};

const CommandSpec* FindCommand(const std::wstring& name) {
    for (const auto& entry : kCommands) {
        if (name == entry.name) return &entry;
    }
    return nullptr;
}

bool IsUnsignedNumber(const std::wstring& text) {
    if (text.empty() || text.size() > 18) return false;
    for (wchar_t c : text) {
        if (c < L'0' || c > L'9') return false;
    }
    return true;
}

std::wstring UsageLine(const CommandSpec& entry) {
    std::wstring line = L"usage: zeldb ";
    line += entry.name;
    if (*entry.synopsis) {
        line += L' ';
        line += entry.synopsis;
    }
    return line + L'\n';
}

std::wstring GeneralHelp() {
    std::wstring text =
        L"zeldb: a 64-bit command-line client of the ZelPmDb32 database server.\n"
        L"\n"
        L"usage: zeldb COMMAND [ARGS...]\n"
        L"       zeldb COMMAND --help\n"
        L"\n"
        L"commands:\n";
    for (const auto& entry : kCommands) {
        std::wstring line = L"  ";
        line += entry.name;
        if (*entry.synopsis) {
            line += L' ';
            line += entry.synopsis;
        }
        text += line + L'\n';
    }
    text += L"\n";
    text += kConnHelp;
    text +=
        L"\n"
        L"Exit status: 0 on success, 1 when the server or the provider reports an error,\n"
        L"2 for a command line zeldb does not understand.\n"
        L"\n"
        L"zeldb --version prints the version of zeldb and of the ZelPmDb32 package it came with.\n";
    return text;
}

}  // namespace

std::wstring VersionText() { return std::wstring(L"zeldb ") + ZEL_VERSION_WTEXT + L"\n"; }

std::wstring HelpText(const std::wstring& command) {
    const CommandSpec* entry = FindCommand(command);
    if (command == L"tabledef") {
        return UsageLine(*FindCommand(L"tabledef get")) + UsageLine(*FindCommand(L"tabledef create")) + L"\n" +
               FindCommand(L"tabledef get")->description + FindCommand(L"tabledef create")->description;
    }
    if (!entry) return GeneralHelp();
    std::wstring text = UsageLine(*entry) + L"\n" + entry->description;
    if (std::wstring(entry->synopsis).find(L"CONN") != std::wstring::npos) text += L"\n" + std::wstring(kConnHelp);
    return text;
}

Invocation ParseArguments(const std::vector<std::wstring>& args) {
    Invocation inv;
    std::vector<std::wstring> words;  // command words and positional arguments
    bool optionsEnded = false;
    std::wstring commandForErrors;

    // The command is the first word that is not an option; remember it early so that an
    // option error can show the right usage.
    for (const auto& a : args) {
        if (!a.empty() && a[0] != L'-') {
            commandForErrors = FindCommand(a) || a == L"tabledef" ? a : L"";
            break;
        }
    }

    for (size_t i = 0; i < args.size(); ++i) {
        const std::wstring& a = args[i];
        if (optionsEnded || a.empty() || a[0] != L'-' || a == L"-") {
            words.push_back(a);
            continue;
        }
        if (a == L"--") {
            optionsEnded = true;
            continue;
        }
        std::wstring name = a;
        std::optional<std::wstring> value;
        if (const size_t eq = a.find(L'='); a.rfind(L"--", 0) == 0 && eq != std::wstring::npos) {
            name = a.substr(0, eq);
            value = a.substr(eq + 1);
        }
        auto takeValue = [&]() -> std::wstring {
            if (value) return *value;
            if (i + 1 >= args.size()) throw UsageError(L"option " + name + L" needs a value", commandForErrors);
            return args[++i];
        };
        if (name == L"--help" || name == L"-h") {
            inv.help = true;
        } else if (name == L"--version") {
            inv.version = true;
        } else if (name == L"--csv" || name == L"--json" || name == L"--xml") {
            const OutputFormat f = name == L"--csv"    ? OutputFormat::Csv
                                   : name == L"--json" ? OutputFormat::Json
                                                       : OutputFormat::Xml;
            if (inv.format != OutputFormat::Table && inv.format != f)
                throw UsageError(L"--csv, --json and --xml cannot be combined", commandForErrors);
            inv.format = f;
        } else if (name == L"--server-text") {
            inv.serverText = true;
        } else if (name == L"--max-rows") {
            const std::wstring v = takeValue();
            if (!IsUnsignedNumber(v)) throw UsageError(L"--max-rows needs a number, not '" + v + L"'", commandForErrors);
            inv.maxRows = std::stoull(v);
        } else if (name == L"--type") {
            inv.tableType = takeValue();
        } else {
            throw UsageError(L"unknown option " + name, commandForErrors);
        }
    }

    if (words.empty()) {
        if (inv.help || inv.version) return inv;
        throw UsageError(L"no command given", L"");
    }
    if (inv.version) throw UsageError(L"--version takes no command", L"");
    std::wstring command = words[0];
    size_t first = 1;
    if (command == L"help") {
        inv.help = true;
        if (words.size() > 1) {
            inv.command = words[1];
            if (words[1] == L"tabledef" && words.size() > 2) inv.command += L" " + words[2];
        }
        return inv;
    }
    if (command == L"tabledef") {
        if (words.size() < 2) {
            if (inv.help) {
                inv.command = command;
                return inv;
            }
            throw UsageError(L"tabledef needs an action: get or create", L"tabledef");
        }
        if (words[1] != L"get" && words[1] != L"create") {
            throw UsageError(L"unknown tabledef action '" + words[1] + L"' (get or create)", L"tabledef");
        }
        command += L" " + words[1];
        first = 2;
    }
    const CommandSpec* entry = FindCommand(command);
    if (!entry) throw UsageError(L"unknown command '" + command + L"'", L"");
    inv.command = command;
    if (inv.help) return inv;

    inv.args.assign(words.begin() + static_cast<std::ptrdiff_t>(first), words.end());
    if (inv.args.size() < entry->minArgs) throw UsageError(L"too few arguments for " + command, command);
    if (inv.args.size() > entry->maxArgs) throw UsageError(L"too many arguments for " + command, command);
    if (!(entry->options & kOptFormat) && (inv.format != OutputFormat::Table || inv.serverText))
        throw UsageError(L"--csv, --json, --xml and --server-text apply to query only", command);
    if (inv.serverText && inv.format == OutputFormat::Xml)
        throw UsageError(L"--server-text does not apply to --xml: the document holds the server's texts", command);
    if (!(entry->options & kOptMaxRows) && inv.maxRows)
        throw UsageError(L"--max-rows applies to query only", command);
    if (inv.maxRows && inv.format == OutputFormat::Xml)
        throw UsageError(L"--max-rows does not apply to --xml: the server's document holds every row", command);
    if (!(entry->options & kOptType) && inv.tableType) throw UsageError(L"--type applies to tables only", command);
    return inv;
}

}  // namespace zel::zeldb
