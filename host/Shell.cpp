#include "host/Shell.h"

#include <cwctype>

#include "host/Commands.h"
#include "host/DbSession.h"
#include "host/TextStreams.h"
#include "host/ZelDbError.h"

namespace zel::zeldb {

namespace {

std::vector<std::wstring> Words(const std::wstring& text) {
    std::vector<std::wstring> words;
    size_t i = 0;
    while (i < text.size()) {
        while (i < text.size() && std::iswspace(text[i])) ++i;
        if (i >= text.size()) break;
        std::wstring word;
        if (text[i] == L'"') {
            // A quoted argument: .columns "order details"
            ++i;
            while (i < text.size() && text[i] != L'"') word += text[i++];
            if (i < text.size()) ++i;
        } else {
            while (i < text.size() && !std::iswspace(text[i])) word += text[i++];
        }
        words.push_back(word);
    }
    return words;
}

constexpr wchar_t kShellHelp[] =
    L".tables          list the tables\n"
    L".columns TABLE   list the columns of TABLE\n"
    L".indexes [TABLE] list the indexes\n"
    L".xml on|off      print results as query-result documents, or as tables\n"
    L".help            this list\n"
    L".quit            end the session\n"
    L"Anything else is SQL, run when a ';' ends it.\n";

}  // namespace

// --- StatementSplitter -----------------------------------------------------------------

void StatementSplitter::AddLine(const std::wstring& line) {
    const std::wstring text = line + L"\n";
    for (size_t i = 0; i < text.size(); ++i) {
        const wchar_t c = text[i];
        const wchar_t next = i + 1 < text.size() ? text[i + 1] : L'\0';
        switch (m_state) {
            case State::Normal:
                if (c == L';') {
                    Complete();
                    continue;
                }
                if (c == L'-' && next == L'-') {
                    m_state = State::LineComment;
                } else if (c == L'/' && next == L'*') {
                    m_state = State::BlockComment;
                    m_current += c;
                    m_current += next;
                    ++i;
                    continue;
                } else if (c == L'\'') {
                    m_state = State::SingleQuote;
                } else if (c == L'"') {
                    m_state = State::DoubleQuote;
                } else if (c == L'[') {
                    m_state = State::Bracket;
                } else if (c == L'`') {
                    m_state = State::Backtick;
                }
                if (m_state != State::LineComment && !std::iswspace(c)) m_hasContent = true;
                break;
            case State::SingleQuote:
                if (c == L'\'') m_state = State::Normal;  // '' re-enters at once: same result
                break;
            case State::DoubleQuote:
                if (c == L'"') m_state = State::Normal;
                break;
            case State::Bracket:
                if (c == L']') m_state = State::Normal;
                break;
            case State::Backtick:
                if (c == L'`') m_state = State::Normal;
                break;
            case State::LineComment:
                if (c == L'\n') m_state = State::Normal;
                break;
            case State::BlockComment:
                if (c == L'*' && next == L'/') {
                    m_current += c;
                    m_current += next;
                    ++i;
                    m_state = State::Normal;
                    continue;
                }
                break;
        }
        m_current += c;
    }
}

void StatementSplitter::Complete() {
    if (m_hasContent) m_done.push_back(Trim(m_current));
    m_current.clear();
    m_hasContent = false;
}

std::vector<std::wstring> StatementSplitter::TakeStatements() {
    std::vector<std::wstring> done;
    done.swap(m_done);
    return done;
}

std::wstring StatementSplitter::TakeRest() {
    std::wstring rest = m_hasContent ? Trim(m_current) : std::wstring();
    m_current.clear();
    m_hasContent = false;
    m_state = State::Normal;
    return rest;
}

// --- Shell -----------------------------------------------------------------------------

void Shell::Prompt(bool continuation) {
    if (!m_context.in.IsTerminal()) return;
    m_context.out.Write(continuation ? L"   ...> " : L"zeldb> ");
    m_context.out.Flush();
}

void Shell::RunStatement(const std::wstring& sql) {
    try {
        Statement statement(m_db.service());
        RunAndPrint(statement, sql, m_xml ? OutputFormat::Xml : OutputFormat::Table, false, std::nullopt, m_context);
    } catch (const ZelDbError& error) {
        m_context.out.Flush();
        PrintError(m_context.err, error);
        m_context.err.Flush();
        m_failed = true;
    }
}

bool Shell::DotCommand(const std::wstring& line) {
    const std::vector<std::wstring> words = Words(line);
    const std::wstring& command = words[0];
    auto usage = [&](const wchar_t* text) {
        m_context.err.Write(std::wstring(L"usage: ") + text + L"\n");
        m_failed = true;
        return true;
    };
    try {
        if (command == L".quit" || command == L".exit") return false;
        if (command == L".help") {
            m_context.out.Write(kShellHelp);
        } else if (command == L".tables") {
            if (words.size() != 1) return usage(L".tables");
            PrintTables(m_db, std::nullopt, m_context);
        } else if (command == L".columns") {
            if (words.size() != 2) return usage(L".columns TABLE");
            PrintColumns(m_db, words[1], m_context);
        } else if (command == L".indexes") {
            if (words.size() > 2) return usage(L".indexes [TABLE]");
            PrintIndexes(m_db, words.size() == 2 ? std::optional<std::wstring>(words[1]) : std::nullopt, m_context);
        } else if (command == L".xml") {
            if (words.size() != 2 || (words[1] != L"on" && words[1] != L"off")) return usage(L".xml on|off");
            m_xml = words[1] == L"on";
        } else {
            m_context.err.Write(L"zeldb: unknown command " + command + L" (try .help)\n");
            m_failed = true;
        }
    } catch (const ZelDbError& error) {
        m_context.out.Flush();
        PrintError(m_context.err, error);
        m_failed = true;
    }
    return true;
}

int Shell::Run() {
    LineSource& in = m_context.in;
    if (in.IsTerminal()) {
        const std::wstring source = m_db.DataSourceName();
        m_context.out.Write(L"zeldb shell" + (source.empty() ? std::wstring() : L" on " + source) +
                            L". End statements with ';'. .help lists the commands, .quit ends.\n");
    }
    StatementSplitter splitter;
    for (;;) {
        Prompt(!splitter.Empty());
        std::optional<std::wstring> line = in.ReadLine();
        if (!line) break;
        if (splitter.Empty()) {
            const std::wstring trimmed = Trim(*line);
            if (!trimmed.empty() && trimmed[0] == L'.') {
                if (!DotCommand(trimmed)) return m_failed ? 1 : 0;
                m_context.out.Flush();
                continue;
            }
            if (trimmed.empty()) continue;
        }
        splitter.AddLine(*line);
        for (const std::wstring& sql : splitter.TakeStatements()) RunStatement(sql);
        // A line that only closed statements (or held only a comment) leaves nothing pending.
        if (splitter.Idle()) splitter.TakeRest();
        m_context.out.Flush();
    }
    const std::wstring rest = splitter.TakeRest();
    if (!rest.empty()) RunStatement(rest);
    if (in.IsTerminal()) m_context.out.Write(L"\n");
    return m_failed ? 1 : 0;
}

}  // namespace zel::zeldb
