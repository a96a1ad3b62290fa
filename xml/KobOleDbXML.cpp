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

}  // namespace

// Sets a text attribute with the whole value, embedded NULs included.
void SetText(IXMLDOMElement* element, const wchar_t* name, const std::wstring& value) {
    Variant text{std::wstring_view(value)};
    SetAttribute(element, name, *text.get());
}

bool KobOleDbXML::BuildQueryDataXml(KobOleDbCommand* command, std::wstring& xml) {
    if (!command || !command->IsConnected()) return false;
    m_document.reset();
    if (FAILED(TryCreateDomDocument(m_document))) return false;
    // The processing instruction and the root element.
    ComPtr<IXMLDOMElement> root = StartDocument(m_document.get(), L"version=\"1.0\" encoding=\"UTF-16\"", kQueryData);
    SetText(root.get(), kVersion, kVersionValue);

    ComPtr<IXMLDOMElement> metadata = AppendElement(m_document.get(), root.as<IXMLDOMNode>().get(), kMetadata);
    if (!AddMetadata(*command, metadata.get())) return false;

    ComPtr<IXMLDOMElement> resultset = AppendElement(m_document.get(), root.as<IXMLDOMNode>().get(), kResultset);
    if (!AddResultset(*command, resultset.get())) return false;

    xml = DocumentXml(m_document.get()).str();
    m_document.reset();
    return true;
}

bool KobOleDbXML::AddMetadata(KobOleDbCommand& command, IXMLDOMElement* metadata) {
    const ULONG count = command.GetColumnCount();
    ComPtr<IXMLDOMNode> metadataNode = ComPtr<IXMLDOMElement>(metadata).as<IXMLDOMNode>();
    // This fetch puts the command on its first row; a result without rows has no document.
    if (command.FetchNext() != kTriTrue) return false;
    for (ULONG c = 1; c <= count; ++c) {
        ComPtr<IXMLDOMElement> column = AppendElement(m_document.get(), metadataNode.get(), kColumnDef);
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
    std::vector<std::wstring> names(count + 1);
    for (ULONG c = 0; c <= count; ++c) names[c] = PlatformFormat(L"C%ld", static_cast<long>(c));

    ComPtr<IXMLDOMNode> resultsetNode = ComPtr<IXMLDOMElement>(resultset).as<IXMLDOMNode>();
    std::vector<BYTE> blob;
    do {
        ComPtr<IXMLDOMElement> row = AppendElement(m_document.get(), resultsetNode.get(), kRowset);
        for (ULONG c = 1; c <= count; ++c) {
            if (command.IsNull(c) != 0) continue;  // a NULL field has no attribute at all
            if (command.IsBlob(c) == kTriTrue) {
                // Blob bytes taken as UTF-16 code units; an odd last byte is dropped.
                ULONG bytes = command.GetBlobData(c, blob);
                size_t units = blob.size() < bytes ? blob.size() / 2 : bytes / 2;
                SetText(row.get(), names[c].c_str(),
                             std::wstring(reinterpret_cast<const wchar_t*>(blob.data()), units));
            } else {
                SetText(row.get(), names[c].c_str(), command.FieldAsStringEx(c));
            }
        }
    } while (command.FetchNext() == kTriTrue);
    return true;
}

}  // namespace zel
