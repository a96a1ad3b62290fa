// A document's text written straight into the BSTR that is handed out: it grows
// geometrically while the text is written and is cut to the text's length at the end, so the
// whole text is never copied into a second string.
#pragma once

#include <windows.h>

#include <cstddef>
#include <string_view>

#include "common/Bstr.h"

namespace zel {

class XmlTextBuffer {
public:
    XmlTextBuffer() noexcept = default;
    XmlTextBuffer(const XmlTextBuffer&) = delete;
    XmlTextBuffer& operator=(const XmlTextBuffer&) = delete;

    // Appends text as it is (markup). Throws ComError(E_OUTOFMEMORY) when the buffer cannot
    // grow; the text written so far stays.
    void Append(std::wstring_view text) {
        if (text.size() > m_capacity - m_length) Grow(text.size());
        wmemcpy(m_text.get() + m_length, text.data(), text.size());
        m_length += text.size();
    }
    void Append(wchar_t unit) {
        if (m_length == m_capacity) Grow(1);
        m_text.get()[m_length++] = unit;
    }

    // Appends ` name="value"`, the value escaped the way the platform's DOM writes attribute
    // values (see the definition). Throws ComError(E_OUTOFMEMORY).
    void AppendAttribute(std::wstring_view name, std::wstring_view value);

    // The text written so far, as a BSTR of exactly its length; the buffer is empty
    // afterwards. Throws ComError(E_OUTOFMEMORY) when there is no text yet and an empty
    // string cannot be made.
    Bstr Release();
    // Drops the text written so far.
    void Clear() noexcept;

    size_t length() const noexcept { return m_length; }

private:
    void Grow(size_t more);  // room for `more` further code units at least
    void AppendEscaped(std::wstring_view value);

    Bstr m_text;            // capacity code units long while text is written
    size_t m_length = 0;    // code units written
    size_t m_capacity = 0;  // code units m_text holds
};

}  // namespace zel
