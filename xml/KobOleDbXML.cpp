#include "xml/KobOleDbXML.h"

#include <vector>

#include "oledb/FieldText.h"
#include "oledb/KobOleDbCommand.h"

namespace zel {
namespace {

// Names of the document, in one table; the version value stands first.
constexpr std::wstring_view kVersionValue = L"5.0";
constexpr std::wstring_view kQueryData = L"QueryData";
constexpr std::wstring_view kVersion = L"Version";
constexpr std::wstring_view kMetadata = L"Metadata";
constexpr std::wstring_view kColumnDef = L"ColumnDef";
constexpr std::wstring_view kName = L"Name";
constexpr std::wstring_view kIntegral = L"Integral";
constexpr std::wstring_view kNumeric = L"Numeric";
constexpr std::wstring_view kDatatype = L"Datatype";
constexpr std::wstring_view kBlobData = L"BlobData";
constexpr std::wstring_view kColSize = L"ColSize";
constexpr std::wstring_view kResultset = L"Resultset";
constexpr std::wstring_view kRowset = L"Rowset";

// The XML declaration and the layout MSXML gives the tree: CR LF after every line, children
// indented by one tab per level.
constexpr std::wstring_view kDeclaration = L"<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n";
constexpr std::wstring_view kLineEnd = L"\r\n";

std::wstring_view Flag(short answer) { return answer != 0 ? L"Y" : L"N"; }

// `<name` after `depth` tabs; the caller writes the attributes and closes the tag.
void StartTag(XmlTextBuffer& document, int depth, std::wstring_view name) {
    for (int i = 0; i < depth; ++i) document.Append(L'\t');
    document.Append(L'<');
    document.Append(name);
}

void EndTag(XmlTextBuffer& document, int depth, std::wstring_view name) {
    for (int i = 0; i < depth; ++i) document.Append(L'\t');
    document.Append(L"</");
    document.Append(name);
    document.Append(L'>');
    document.Append(kLineEnd);
}

// Closes the start tag of an element whose children follow.
void OpenElement(XmlTextBuffer& document) {
    document.Append(L'>');
    document.Append(kLineEnd);
}

// Closes the start tag of an element without children as an empty-element tag.
void CloseEmptyElement(XmlTextBuffer& document) {
    document.Append(L"/>");
    document.Append(kLineEnd);
}

}  // namespace

bool KobOleDbXML::BuildQueryDataXml(KobOleDbCommand* command, std::wstring& xml) {
    Bstr text;
    if (!BuildQueryDataXml(command, text)) return false;
    xml = text.str();
    return true;
}

bool KobOleDbXML::BuildQueryDataXml(KobOleDbCommand* command, Bstr& xml) {
    if (!command || !command->IsConnected()) return false;
    m_document.Clear();
    m_document.Append(kDeclaration);
    StartTag(m_document, 0, kQueryData);
    m_document.AppendAttribute(kVersion, kVersionValue);
    OpenElement(m_document);

    StartTag(m_document, 1, kMetadata);
    if (!AddMetadata(*command, m_document)) {
        m_document.Clear();
        return false;
    }
    StartTag(m_document, 1, kResultset);
    if (!AddResultset(*command, m_document)) {
        m_document.Clear();
        return false;
    }
    EndTag(m_document, 0, kQueryData);

    xml = m_document.Release();
    return true;
}

bool KobOleDbXML::AddMetadata(KobOleDbCommand& command, XmlTextBuffer& document) {
    const ULONG count = command.GetColumnCount();
    // This fetch puts the command on its first row; a result without rows has no document.
    if (command.FetchNext() != kTriTrue) return false;
    if (count == 0) {
        CloseEmptyElement(document);
        return true;
    }
    OpenElement(document);
    for (ULONG c = 1; c <= count; ++c) {
        StartTag(document, 2, kColumnDef);
        document.AppendAttribute(kName, command.GetColumnName(c));
        document.AppendAttribute(kIntegral, Flag(command.IsIntegral(c)));
        document.AppendAttribute(kNumeric, Flag(command.IsNumeric(c)));
        document.AppendAttribute(kBlobData, Flag(command.IsBlob(c)));
        document.AppendAttribute(kDatatype, PlatformFormat(L"%ld", static_cast<long>(command.GetRawType(c))));
        // The size of the first row's value, which is current now.
        document.AppendAttribute(kColSize, PlatformFormat(L"%ld", static_cast<long>(command.GetColumnSize(c))));
        CloseEmptyElement(document);
    }
    EndTag(document, 1, kMetadata);
    return true;
}

bool KobOleDbXML::AddResultset(KobOleDbCommand& command, XmlTextBuffer& document) {
    const ULONG count = command.GetColumnCount();
    // What every row uses, made once: per column its attribute name (C1, C2, ...) and whether
    // it is a blob, which its type decides.
    std::vector<std::wstring> names;
    std::vector<bool> isBlob;
    names.reserve(count);
    isBlob.reserve(count);
    for (ULONG c = 1; c <= count; ++c) {
        names.push_back(PlatformFormat(L"C%ld", static_cast<long>(c)));
        isBlob.push_back(command.IsBlob(c) == kTriTrue);
    }

    // The current row is the first: the Resultset has at least one child.
    OpenElement(document);
    std::vector<BYTE> blob;
    std::wstring scratch;  // the text of a field the row does not hold as text
    do {
        StartTag(document, 2, kRowset);
        for (ULONG c = 1; c <= count; ++c) {
            if (command.IsNull(c) != 0) continue;  // a NULL field has no attribute at all
            if (isBlob[c - 1]) {
                // Blob bytes taken as UTF-16 code units; an odd last byte is dropped.
                ULONG bytes = command.GetBlobData(c, blob);
                size_t units = blob.size() < bytes ? blob.size() / 2 : bytes / 2;
                document.AppendAttribute(names[c - 1],
                                         std::wstring_view(reinterpret_cast<const wchar_t*>(blob.data()), units));
            } else {
                document.AppendAttribute(names[c - 1], command.FieldTextView(c, scratch));
            }
        }
        CloseEmptyElement(document);
    } while (command.FetchNext() == kTriTrue);
    EndTag(document, 1, kResultset);
    return true;
}

}  // namespace zel
