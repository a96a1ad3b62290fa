#include "xml/XmlTextBuffer.h"

#include <oleauto.h>
#include <emmintrin.h>

#include <algorithm>
#include <climits>
#include <cstdint>

#include "common/ComError.h"

namespace zel {
namespace {

// The first allocation. Up to kQuadrupleBelow code units (64 MiB) the buffer grows fourfold,
// then by half its size, so that the text is moved a bounded number of times however long it
// gets, and a document of tens of megabytes only a few times. A large buffer is its own region
// of committed pages, so the part not yet written takes address space, not memory; past
// 64 MiB the smaller steps keep the 32-bit server's address space for the copy that the call's
// reply makes of the document.
constexpr size_t kInitialCapacity = 32 * 1024;
constexpr size_t kQuadrupleBelow = 32 * 1024 * 1024;
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

// The position of the first code unit of `text` that IsSpecial takes, or its size when there
// is none. Eight code units are compared at a time with SSE2, which every processor that runs a
// 64-bit system or Windows 8 and later has, whatever the 32-bit build's own baseline.
__attribute__((target("sse2"))) size_t FindSpecial(const wchar_t* text, size_t size) {
    size_t i = 0;
    const __m128i surrogateMask = _mm_set1_epi16(static_cast<short>(0xF800));
    const __m128i surrogate = _mm_set1_epi16(static_cast<short>(0xD800));
    for (; i + 8 <= size; i += 8) {
        const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i));
        __m128i hit = _mm_cmpeq_epi16(_mm_and_si128(units, surrogateMask), surrogate);
        for (wchar_t special : {L'\0', L'\t', L'\n', L'\r', L'"', L'&', L'<', L'>'})
            hit = _mm_or_si128(hit, _mm_cmpeq_epi16(units, _mm_set1_epi16(static_cast<short>(special))));
        if (const int mask = _mm_movemask_epi8(hit)) return i + static_cast<size_t>(__builtin_ctz(mask)) / 2;
    }
    for (; i < size; ++i)
        if (IsSpecial(text[i])) return i;
    return size;
}

}  // namespace

void XmlTextBuffer::Grow(size_t more) {
    if (more > kMaxCapacity - m_length) ThrowHr(E_OUTOFMEMORY);
    const size_t needed = m_length + more;
    const size_t generous = m_capacity < kQuadrupleBelow ? m_capacity * 4 : m_capacity + m_capacity / 2;
    // Where a generous block cannot be had (a crowded 32-bit address space), smaller steps
    // down to the exact need are tried before the text is given up.
    const size_t steps[] = {generous, m_capacity + m_capacity / 4, needed};
    size_t tried = 0;
    for (size_t step : steps) {
        const size_t capacity = std::min(kMaxCapacity, std::max({kInitialCapacity, needed, step}));
        if (capacity == tried) continue;
        tried = capacity;
        BSTR text = m_text.release();
        // A null string keeps the text already written; on failure the old string stays.
        const bool grown = SysReAllocStringLen(&text, nullptr, static_cast<UINT>(capacity)) != FALSE;
        m_text = Bstr::Attach(text);
        if (grown) {
            m_capacity = capacity;
            return;
        }
    }
    ThrowHr(E_OUTOFMEMORY);
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
    for (size_t i = FindSpecial(value.data(), value.size()); i < value.size();
         i = i + 1 + FindSpecial(value.data() + i + 1, value.size() - i - 1)) {
        const wchar_t unit = value[i];
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
