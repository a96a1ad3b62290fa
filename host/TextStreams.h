// Text in and out of zeldb: standard output and error as UTF-8 pipes or consoles, standard
// input read line by line, and in-memory stand-ins for the tests.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <string_view>

#include "common/Utf8.h"

namespace zel::zeldb {

// Somewhere text is written to.
class TextSink {
public:
    virtual ~TextSink() = default;
    virtual void Write(std::wstring_view text) = 0;
    virtual void Flush() {}
    // True when a person is watching: the sink is a console window or terminal.
    virtual bool IsTerminal() const { return false; }
};

// Collects everything written (tests, and output built before it is shown).
class StringSink : public TextSink {
public:
    explicit StringSink(bool terminal = false) : m_terminal(terminal) {}
    void Write(std::wstring_view text) override { m_text.append(text); }
    bool IsTerminal() const override { return m_terminal; }
    const std::wstring& text() const noexcept { return m_text; }

private:
    std::wstring m_text;
    bool m_terminal;
};

// A standard handle. A console gets UTF-16 through WriteConsoleW; anything else (pipe,
// file) gets UTF-8 bytes through a buffer. Once a write fails (a closed pipe), later
// writes are dropped so that `zeldb ... | head` ends quietly.
class StdHandleSink : public TextSink {
public:
    explicit StdHandleSink(DWORD stdHandleId);
    ~StdHandleSink() override;
    StdHandleSink(const StdHandleSink&) = delete;
    StdHandleSink& operator=(const StdHandleSink&) = delete;

    void Write(std::wstring_view text) override;
    void Flush() override;
    bool IsTerminal() const override { return m_console; }
    bool failed() const noexcept { return m_failed; }

private:
    HANDLE m_handle;
    bool m_console = false;
    bool m_failed = false;
    std::string m_buffer;
};

// Somewhere lines are read from.
class LineSource {
public:
    virtual ~LineSource() = default;
    // The next line without its line break; nothing at the end of the input.
    virtual std::optional<std::wstring> ReadLine() = 0;
    virtual bool IsTerminal() const { return false; }
};

// Lines of a fixed text (tests).
class StringLineSource : public LineSource {
public:
    explicit StringLineSource(std::wstring text, bool terminal = false)
        : m_text(std::move(text)), m_terminal(terminal) {}
    std::optional<std::wstring> ReadLine() override;
    bool IsTerminal() const override { return m_terminal; }

private:
    std::wstring m_text;
    size_t m_pos = 0;
    bool m_terminal;
};

// Standard input: a console is read with ReadConsoleW, a pipe or file as UTF-8 (a leading
// byte-order mark is skipped; CR LF and LF both end a line).
class StdInputSource : public LineSource {
public:
    StdInputSource();
    std::optional<std::wstring> ReadLine() override;
    bool IsTerminal() const override { return m_console; }

private:
    bool Fill();

    HANDLE m_handle;
    bool m_console = false;
    bool m_eof = false;
    bool m_bomChecked = false;
    std::string m_bytes;       // undecoded UTF-8 (pipe, file)
    std::wstring m_consoleText;  // console input not yet handed out
};

// `text` without the white space at either end.
std::wstring Trim(const std::wstring& text);

}  // namespace zel::zeldb
