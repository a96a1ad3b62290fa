// zeldb's command line: the subcommands, their arguments and options, and their help texts.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace zel::zeldb {

enum class OutputFormat { Table, Csv, Json, Xml };

// One parsed command line.
struct Invocation {
    std::wstring command;  // "query", "tabledef get", ...; empty for bare `zeldb --help`
    std::vector<std::wstring> args;  // positional arguments after the command words
    OutputFormat format = OutputFormat::Table;
    std::optional<std::uint64_t> maxRows;
    // --server-text: print the server's own field texts (row by row) instead of exact values.
    bool serverText = false;
    std::optional<std::wstring> tableType;
    bool help = false;  // --help / -h, or the `help` command
    bool version = false;  // --version, which stands alone
};

// A command line zeldb cannot run; `command` names the subcommand whose usage to show
// (empty: the general usage). Exits with status 2.
class UsageError : public std::runtime_error {
public:
    UsageError(std::wstring message, std::wstring command)
        : std::runtime_error("usage error"), m_message(std::move(message)), m_command(std::move(command)) {}
    const std::wstring& message() const noexcept { return m_message; }
    const std::wstring& command() const noexcept { return m_command; }

private:
    std::wstring m_message;
    std::wstring m_command;
};

// Parses the arguments after the program name. Options may stand before, between or after
// the positional arguments; `--` ends the options. Throws UsageError.
Invocation ParseArguments(const std::vector<std::wstring>& args);

// "zeldb 1.0.0": the program and the product version, for --version.
std::wstring VersionText();

// Help of one command ("query", "tabledef get", "tabledef"), or the general help for an
// empty or unknown name.
std::wstring HelpText(const std::wstring& command);

}  // namespace zel::zeldb
