#include "server/CommandLine.h"

#include <cwchar>
#include <cwctype>

namespace zel {
namespace {

// True when `text` starts with `word` (any case) followed by a space, a tab or the end.
bool IsSwitch(const wchar_t* text, const wchar_t* word) {
    size_t n = wcslen(word);
    if (_wcsnicmp(text, word, n) != 0) return false;
    return text[n] == L'\0' || text[n] == L' ' || text[n] == L'\t';
}

}  // namespace

ServerAction ParseCommandLine(const wchar_t* commandLine) {
    static const struct {
        const wchar_t* word;
        ServerAction action;
    } kSwitches[] = {
        // Longer words first, so "RegServerPerUser" is not taken for "RegServer".
        {L"UnregServerPerUser", ServerAction::UnregServerPerUser},
        {L"RegServerPerUser", ServerAction::RegServerPerUser},
        {L"UnregServer", ServerAction::UnregServer},
        {L"RegServer", ServerAction::RegServer},
    };
    for (const wchar_t* p = commandLine; p && *p; ++p) {
        if (*p != L'-' && *p != L'/') continue;
        for (const auto& s : kSwitches)
            if (IsSwitch(p + 1, s.word)) return s.action;
    }
    return ServerAction::Run;
}

bool IsStartedForCom(const wchar_t* commandLine) {
    for (const wchar_t* p = commandLine; p && *p; ++p)
        if ((*p == L'-' || *p == L'/') && IsSwitch(p + 1, L"Embedding")) return true;
    return false;
}

}  // namespace zel
