#include "xml/KobOleDbXML.h"

#include <oleauto.h>

#include <vector>

#include "common/Bstr.h"
#include "common/Variant.h"
#include "oledb/FieldText.h"
#include "oledb/KobOleDbCommand.h"
#include "xml/DomDocument.h"

namespace zel {
namespace {

// Names of the document, in one table; the version value stands first.
constexpr const wchar_t* kVersionValue = L"5.0";
constexpr const wchar_t* kQueryData = L"QueryData";
constexpr const wchar_t* kVersion = L"Version";
constexpr const wchar_t* kMetadata = L"Metadata";
constexpr const wchar_t* kColumnDef = L"ColumnDef";
constexpr const wchar_t* kName = L"Name";
constexpr const wchar_t* kIntegral = L"Integral";
constexpr const wchar_t* kNumeric = L"Numeric";
constexpr const wchar_t* kDatatype = L"Datatype";
constexpr const wchar_t* kBlobData = L"BlobData";
constexpr const wchar_t* kColSize = L"ColSize";
constexpr const wchar_t* kResultset = L"Resultset";
constexpr const wchar_t* kRowset = L"Rowset";

const wchar_t* Flag(short answer) { return answer != 0 ? L"Y" : L"N"; }

// Sets a text attribute with the whole value, embedded NULs included. `name` is a
// `const wchar_t*` or a Bstr made once for every row.
template <typename Name>
void SetText(IXMLDOMElement* element, const Name& name, const std::wstring& value) {
    Variant text{std::wstring_view(value)};
    SetAttribute(element, name, *text.get());
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
    m_document.reset();
    if (FAILED(TryCreateDomDocument(m_document))) return false;
    // The processing instruction and the root element.
    ComPtr<IXMLDOMElement> root = StartDocument(m_document.get(), L"version=\"1.0\" encoding=\"UTF-16\"", kQueryData);
    SetText(root.get(), kVersion, kVersionValue);

    ComPtr<IXMLDOMElement> metadata = AppendElement(m_document.get(), root.get(), kMetadata);
    if (!AddMetadata(*command, metadata.get())) return false;

    ComPtr<IXMLDOMElement> resultset = AppendElement(m_document.get(), root.get(), kResultset);
    if (!AddResultset(*command, resultset.get())) return false;

    xml = DocumentXml(m_document.get());
    m_document.reset();
    return true;
}

bool KobOleDbXML::AddMetadata(KobOleDbCommand& command, IXMLDOMElement* metadata) {
    const ULONG count = command.GetColumnCount();
    // This fetch puts the command on its first row; a result without rows has no document.
    if (command.FetchNext() != kTriTrue) return false;
    for (ULONG c = 1; c <= count; ++c) {
        ComPtr<IXMLDOMElement> column = AppendElement(m_document.get(), metadata, kColumnDef);
        SetText(column.get(), kName, command.GetColumnName(c));
        SetText(column.get(), kIntegral, Flag(command.IsIntegral(c)));
        SetText(column.get(), kNumeric, Flag(command.IsNumeric(c)));
        SetText(column.get(), kBlobData, Flag(command.IsBlob(c)));
        SetText(column.get(), kDatatype, PlatformFormat(L"%ld", static_cast<long>(command.GetRawType(c))));
        // The size of the first row's value, which is current now.
        SetText(column.get(), kColSize, PlatformFormat(L"%ld", static_cast<long>(command.GetColumnSize(c))));
    }
    return true;
}

bool KobOleDbXML::AddResultset(KobOleDbCommand& command, IXMLDOMElement* resultset) {
    const ULONG count = command.GetColumnCount();
    // What every row uses, made once: the row element's name, and per column its attribute
    // name (C1, C2, ...) and whether it is a blob, which its type decides.
    const Bstr rowTag(kRowset);
    std::vector<Bstr> names;
    std::vector<bool> isBlob;
    names.reserve(count);
    isBlob.reserve(count);
    for (ULONG c = 1; c <= count; ++c) {
        names.emplace_back(PlatformFormat(L"C%ld", static_cast<long>(c)));
        isBlob.push_back(command.IsBlob(c) == kTriTrue);
    }

    std::vector<BYTE> blob;
    do {
        ComPtr<IXMLDOMElement> row = AppendElement(m_document.get(), resultset, rowTag);
        for (ULONG c = 1; c <= count; ++c) {
            if (command.IsNull(c) != 0) continue;  // a NULL field has no attribute at all
            if (isBlob[c - 1]) {
                // Blob bytes taken as UTF-16 code units; an odd last byte is dropped.
                ULONG bytes = command.GetBlobData(c, blob);
                size_t units = blob.size() < bytes ? blob.size() / 2 : bytes / 2;
                SetText(row.get(), names[c - 1], std::wstring(reinterpret_cast<const wchar_t*>(blob.data()), units));
            } else {
                SetText(row.get(), names[c - 1], command.FieldAsStringEx(c));
            }
        }
    } while (command.FetchNext() == kTriTrue);
    return true;
}

}  // namespace zel
