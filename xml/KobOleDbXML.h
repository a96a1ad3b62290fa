// Writer of the query-result document ("QueryData"): every column described once, then one
// element per row, all data in attributes. Hosts parse this layout; element and attribute
// names, their order and the "Y"/"N" flags are fixed.
#pragma once

#include <windows.h>

#include <string>

#include "common/Bstr.h"
#include "common/ComPtr.h"
#include "common/OleDbIids.h"

namespace zel {

class KobOleDbCommand;

class KobOleDbXML {
public:
    KobOleDbXML() = default;
    KobOleDbXML(const KobOleDbXML&) = delete;
    KobOleDbXML& operator=(const KobOleDbXML&) = delete;
    virtual ~KobOleDbXML() = default;

    // Builds the document of the command's result by fetching forward from its first row to
    // the end. True: `xml` holds the whole document. False (no command, not connected, no
    // open rowset, no row at all, or no MSXML document): `xml` is untouched. A failing DOM
    // call throws ComError with its HRESULT.
    bool BuildQueryDataXml(KobOleDbCommand* command, std::wstring& xml);
    // The same, with the document text as the DOM gave it (no copy of the whole document on
    // the way to a BSTR out-parameter).
    bool BuildQueryDataXml(KobOleDbCommand* command, Bstr& xml);

private:
    bool AddMetadata(KobOleDbCommand& command, IXMLDOMElement* metadata);
    bool AddResultset(KobOleDbCommand& command, IXMLDOMElement* resultset);

    ComPtr<IXMLDOMDocument2> m_document;
};

}  // namespace zel
