#include "host/TextStreams.h"

#include <algorithm>
#include <cwctype>

namespace zel::zeldb {

namespace {

// Under Wine every WriteFile is a round trip to the wineserver: a large buffer keeps a
// streamed result of many megabytes to a few dozen writes.
constexpr size_t kFlushThreshold = 1024 * 1024;

bool IsConsoleHandle(HANDLE handle) {
    DWORD mode = 0;
    return handle != nullptr && handle != INVALID_HANDLE_VALUE && GetConsoleMode(handle, &mode) != FALSE;
}

}  // namespace

std::wstring Trim(const std::wstring& text) {
    size_t begin = 0;
    size_t end = text.size();
    while (begin < end && std::iswspace(text[begin])) ++begin;
    while (end > begin && std::iswspace(text[end - 1])) --end;
    return text.substr(begin, end - begin);
}

StdHandleSink::StdHandleSink(DWORD stdHandleId) : m_handle(GetStdHandle(stdHandleId)) {
    m_console = IsConsoleHandle(m_handle);
    if (m_handle == nullptr || m_handle == INVALID_HANDLE_VALUE) m_failed = true;
}

StdHandleSink::~StdHandleSink() { Flush(); }

void StdHandleSink::Write(std::wstring_view text) {
    if (m_failed || text.empty()) return;
    if (m_console) {
        while (!text.empty()) {
            const DWORD chunk = static_cast<DWORD>(std::min<size_t>(text.size(), 8192));
            DWORD written = 0;
            if (!WriteConsoleW(m_handle, text.data(), chunk, &written, nullptr) || written == 0) {
                m_failed = true;
                return;
            }
            text.remove_prefix(written);
        }
        return;
    }
    m_buffer += ToUtf8(text);
    if (m_buffer.size() >= kFlushThreshold) Flush();
}

void StdHandleSink::Flush() {
    size_t done = 0;
    while (!m_failed && done < m_buffer.size()) {
        DWORD written = 0;
        const DWORD chunk = static_cast<DWORD>(std::min<size_t>(m_buffer.size() - done, 1 << 20));
        if (!WriteFile(m_handle, m_buffer.data() + done, chunk, &written, nullptr) || written == 0) {
            m_failed = true;
            break;
        }
        done += written;
    }
    m_buffer.clear();
}

std::optional<std::wstring> StringLineSource::ReadLine() {
    if (m_pos >= m_text.size()) return std::nullopt;
    size_t end = m_text.find(L'\n', m_pos);
    std::wstring line;
    if (end == std::wstring::npos) {
        line = m_text.substr(m_pos);
        m_pos = m_text.size();
    } else {
        line = m_text.substr(m_pos, end - m_pos);
        m_pos = end + 1;
    }
    if (!line.empty() && line.back() == L'\r') line.pop_back();
    return line;
}

StdInputSource::StdInputSource() : m_handle(GetStdHandle(STD_INPUT_HANDLE)) {
    m_console = IsConsoleHandle(m_handle);
    if (m_handle == nullptr || m_handle == INVALID_HANDLE_VALUE) m_eof = true;
}

bool StdInputSource::Fill() {
    if (m_eof) return false;
    if (m_console) {
        wchar_t buffer[4096];
        DWORD read = 0;
        if (!ReadConsoleW(m_handle, buffer, static_cast<DWORD>(std::size(buffer)), &read, nullptr) || read == 0) {
            m_eof = true;
            return false;
        }
        // Ctrl+Z at the start of a line ends console input, as for other console programs.
        if (buffer[0] == 0x1A) {
            m_eof = true;
            return false;
        }
        m_consoleText.append(buffer, read);
        return true;
    }
    char buffer[65536];
    DWORD read = 0;
    if (!ReadFile(m_handle, buffer, sizeof buffer, &read, nullptr) || read == 0) {
        m_eof = true;
        return false;
    }
    m_bytes.append(buffer, read);
    if (!m_bomChecked && m_bytes.size() >= 3) {
        m_bomChecked = true;
        if (m_bytes.compare(0, 3, "\xEF\xBB\xBF") == 0) m_bytes.erase(0, 3);
    }
    return true;
}

std::optional<std::wstring> StdInputSource::ReadLine() {
    if (m_console) {
        size_t end;
        while ((end = m_consoleText.find(L'\n')) == std::wstring::npos) {
            if (!Fill()) break;
        }
        if (end == std::wstring::npos) {
            if (m_consoleText.empty()) return std::nullopt;
            std::wstring rest = std::move(m_consoleText);
            m_consoleText.clear();
            if (!rest.empty() && rest.back() == L'\r') rest.pop_back();
            return rest;
        }
        std::wstring line = m_consoleText.substr(0, end);
        m_consoleText.erase(0, end + 1);
        if (!line.empty() && line.back() == L'\r') line.pop_back();
        return line;
    }
    size_t end;
    while ((end = m_bytes.find('\n')) == std::string::npos) {
        if (!Fill()) break;
    }
    m_bomChecked = true;  // a mark later than the first bytes is text
    std::string line;
    if (end == std::string::npos) {
        if (m_bytes.empty()) return std::nullopt;
        line = std::move(m_bytes);
        m_bytes.clear();
    } else {
        line = m_bytes.substr(0, end);
        m_bytes.erase(0, end + 1);
    }
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return FromUtf8(line);
}

}  // namespace zel::zeldb
