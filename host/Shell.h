// The line-based session of `zeldb shell`: statements ended by ';' and dot commands, read
// from standard input whether it is a pipe or a console.
#pragma once

#include <string>
#include <vector>

#include "host/Arguments.h"

namespace zel::zeldb {

class DbSession;
struct Context;

// Cuts input lines into statements at each ';' that stands outside quotes ('...', "...",
// [...], `...`) and comments (-- to the end of the line, /* ... */). The ';' itself is not
// part of a statement; statements that hold nothing but white space and comments are
// dropped.
class StatementSplitter {
public:
    void AddLine(const std::wstring& line);
    // Statements completed so far, in order; they are handed out once.
    std::vector<std::wstring> TakeStatements();
    // True while an unfinished statement (anything but white space and comments) is pending.
    bool Pending() const noexcept { return m_hasContent; }
    // True when nothing at all is buffered (a dot command may start here).
    bool Empty() const noexcept { return m_current.empty(); }
    // True when what is buffered can be dropped: no content, no open quote or comment.
    bool Idle() const noexcept { return !m_hasContent && m_state == State::Normal; }
    // The unfinished statement at the end of the input, if it has content.
    std::wstring TakeRest();

private:
    enum class State { Normal, SingleQuote, DoubleQuote, Bracket, Backtick, LineComment, BlockComment };
    void Complete();

    State m_state = State::Normal;
    std::wstring m_current;
    bool m_hasContent = false;
    std::vector<std::wstring> m_done;
};

class Shell {
public:
    Shell(DbSession& db, Context& context) : m_db(db), m_context(context) {}
    // Reads until .quit or the end of the input. Returns 0, or 1 when any statement or
    // command failed.
    int Run();

private:
    // Runs one dot command; false for .quit.
    bool DotCommand(const std::wstring& line);
    void RunStatement(const std::wstring& sql);
    void Prompt(bool continuation);

    DbSession& m_db;
    Context& m_context;
    bool m_xml = false;
    bool m_failed = false;
};

}  // namespace zel::zeldb
