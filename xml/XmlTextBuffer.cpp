#include "xml/XmlTextBuffer.h"

#include <oleauto.h>

#include <algorithm>
#include <climits>
#include <cstdint>

#include "common/ComError.h"

namespace zel {
namespace {

// The first allocation; later ones grow the buffer by half its size, so that the text is
// moved a bounded number of times however long it gets.
constexpr size_t kInitialCapacity = 32 * 1024;
// SysReAllocStringLen takes a UINT count and adds its length prefix and terminator.
constexpr size_t kMaxCapacity = (UINT_MAX - sizeof(DWORD) - sizeof(WCHAR)) / sizeof(WCHAR) - 1;

// What MSXML writes for a code unit of an attribute value that is not written as itself
// (empty: written as itself).
std::wstring_view Escape(wchar_t unit) {
    switch (unit) {
        case L'<': return L"&lt;";
        case L'>': return L"&gt;";
        case L'&': return L"&amp;";
        case L'"': return L"&quot;";
        case L'\t': return L"&#9;";
        case L'\n': return L"&#10;";
        case L'\r': return L"&#13;";
        default: return {};
    }
}

constexpr wchar_t kReplacement = 0xFFFD;

inline bool IsHighSurrogate(wchar_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
inline bool IsLowSurrogate(wchar_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

// The code units below 64 that are not written as themselves: NUL, TAB, LF, CR, `"`, `&`,
// `<`, `>`.
constexpr std::uint64_t kSpecialBelow64 = (1ull << 0) | (1ull << '\t') | (1ull << '\n') | (1ull << '\r') |
                                          (1ull << '"') | (1ull << '&') | (1ull << '<') | (1ull << '>');

// True for every code unit that is not written as itself: those above, and surrogates (a pair
// is checked whole). The others are copied in runs.
inline bool IsSpecial(wchar_t unit) {
    return unit < 64 ? ((kSpecialBelow64 >> unit) & 1) != 0 : (unit & 0xF800) == 0xD800;
}

}  // namespace

void XmlTextBuffer::Grow(size_t more) {
    if (more > kMaxCapacity - m_length) ThrowHr(E_OUTOFMEMORY);
    size_t capacity = std::max(kInitialCapacity, m_capacity + m_capacity / 2);
    if (capacity > kMaxCapacity) capacity = kMaxCapacity;
    capacity = std::max(capacity, m_length + more);
    BSTR text = m_text.release();
    // A null string keeps the text already written; on failure the old string stays.
    const bool grown = SysReAllocStringLen(&text, nullptr, static_cast<UINT>(capacity)) != FALSE;
    m_text = Bstr::Attach(text);
    if (!grown) ThrowHr(E_OUTOFMEMORY);
    m_capacity = capacity;
}

void XmlTextBuffer::AppendAttribute(std::wstring_view name, std::wstring_view value) {
    Append(L' ');
    Append(name);
    Append(L"=\"");
    AppendEscaped(value);
    Append(L'"');
}

// The value as MSXML 6.0 writes it (get_xml), code unit for code unit:
// - `<`, `>`, `&` and `"` as entities; TAB, LF and CR as character references (so that a
//   parser gives them back rather than normalising them to spaces); `'` as itself.
// - The value ends at its first NUL: the DOM keeps its strings NUL-terminated.
// - A surrogate without its partner becomes U+FFFD, one for each such code unit; a high and a
//   low surrogate in this order stay as they are.
// - Other control characters (U+0001 to U+001F but TAB, LF, CR) and U+FFFE, U+FFFF are written
//   as themselves. XML 1.0 has no form at all for them (a character reference to them is not
//   well-formed either), so whatever a writer did, the document would not be well-formed XML
//   or the value would change. The text stays what hosts have always received: a host that
//   reads such values today keeps reading them, and one that parses strictly fails on the
//   same documents as before.
void XmlTextBuffer::AppendEscaped(std::wstring_view value) {
    size_t run = 0;  // start of the code units not yet written, copied whole
    for (size_t i = 0; i < value.size(); ++i) {
        const wchar_t unit = value[i];
        if (!IsSpecial(unit)) continue;
        if (unit == L'\0') {
            value = value.substr(0, i);
            break;
        }
        std::wstring_view escaped = Escape(unit);
        if (IsHighSurrogate(unit) && i + 1 < value.size() && IsLowSurrogate(value[i + 1])) {
            ++i;  // a whole pair: written as itself
            continue;
        }
        if (IsHighSurrogate(unit) || IsLowSurrogate(unit)) escaped = std::wstring_view(&kReplacement, 1);
        Append(value.substr(run, i - run));
        Append(escaped);
        run = i + 1;
    }
    Append(value.substr(run));
}

Bstr XmlTextBuffer::Release() {
    BSTR text = m_text.release();
    // Cutting the string to the text's length keeps it where it is.
    if (!SysReAllocStringLen(&text, nullptr, static_cast<UINT>(m_length))) {
        m_text = Bstr::Attach(text);
        ThrowHr(E_OUTOFMEMORY);
    }
    m_length = 0;
    m_capacity = 0;
    return Bstr::Attach(text);
}

void XmlTextBuffer::Clear() noexcept {
    m_text.reset();
    m_length = 0;
    m_capacity = 0;
}

}  // namespace zel
