#include "tests/xml/DomQueryDataXml.h"

#include <oleauto.h>

#include <string>
#include <vector>

#include "common/Variant.h"
#include "oledb/FieldText.h"
#include "oledb/KobOleDbCommand.h"
#include "xml/DomDocument.h"

namespace zel::test {
namespace {

const wchar_t* Flag(short answer) { return answer != 0 ? L"Y" : L"N"; }

// Sets a text attribute with the whole value, embedded NULs included (the DOM decides what it
// keeps of them).
template <typename Name>
void SetText(IXMLDOMElement* element, const Name& name, const std::wstring& value) {
    Variant text{std::wstring_view(value)};
    SetAttribute(element, name, *text.get());
}

}  // namespace

bool DomQueryDataXml::Build(KobOleDbCommand* command, Bstr& xml) {
    if (!command || !command->IsConnected()) return false;
    m_document.reset();
    if (FAILED(TryCreateDomDocument(m_document))) return false;
    ComPtr<IXMLDOMElement> root = StartDocument(m_document.get(), L"version=\"1.0\" encoding=\"UTF-16\"", L"QueryData");
    SetText(root.get(), L"Version", L"5.0");

    ComPtr<IXMLDOMElement> metadata = AppendElement(m_document.get(), root.get(), L"Metadata");
    if (!AddMetadata(*command, metadata.get())) return false;

    ComPtr<IXMLDOMElement> resultset = AppendElement(m_document.get(), root.get(), L"Resultset");
    if (!AddResultset(*command, resultset.get())) return false;

    xml = DocumentXml(m_document.get());
    m_document.reset();
    return true;
}

bool DomQueryDataXml::AddMetadata(KobOleDbCommand& command, IXMLDOMElement* metadata) {
    const ULONG count = command.GetColumnCount();
    if (command.FetchNext() != kTriTrue) return false;
    for (ULONG c = 1; c <= count; ++c) {
        ComPtr<IXMLDOMElement> column = AppendElement(m_document.get(), metadata, L"ColumnDef");
        SetText(column.get(), L"Name", command.GetColumnName(c));
        SetText(column.get(), L"Integral", Flag(command.IsIntegral(c)));
        SetText(column.get(), L"Numeric", Flag(command.IsNumeric(c)));
        SetText(column.get(), L"BlobData", Flag(command.IsBlob(c)));
        SetText(column.get(), L"Datatype", PlatformFormat(L"%ld", static_cast<long>(command.GetRawType(c))));
        SetText(column.get(), L"ColSize", PlatformFormat(L"%ld", static_cast<long>(command.GetColumnSize(c))));
    }
    return true;
}

bool DomQueryDataXml::AddResultset(KobOleDbCommand& command, IXMLDOMElement* resultset) {
    const ULONG count = command.GetColumnCount();
    const Bstr rowTag(L"Rowset");
    std::vector<Bstr> names;
    std::vector<bool> isBlob;
    for (ULONG c = 1; c <= count; ++c) {
        names.emplace_back(PlatformFormat(L"C%ld", static_cast<long>(c)));
        isBlob.push_back(command.IsBlob(c) == kTriTrue);
    }
    std::vector<BYTE> blob;
    do {
        ComPtr<IXMLDOMElement> row = AppendElement(m_document.get(), resultset, rowTag);
        for (ULONG c = 1; c <= count; ++c) {
            if (command.IsNull(c) != 0) continue;
            if (isBlob[c - 1]) {
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

}  // namespace zel::test
