// The query-result document built through the MSXML 6.0 DOM and serialised by get_xml: the
// text the server's direct writer must reproduce code unit for code unit. Tests build both
// over the same results and compare them.
#pragma once

#include <windows.h>

#include "common/Bstr.h"
#include "common/ComPtr.h"
#include "common/OleDbIids.h"

namespace zel {
class KobOleDbCommand;
}

namespace zel::test {

class DomQueryDataXml {
public:
    // Fetches forward from the command's first row to its end, like the server's writer.
    // True: `xml` holds get_xml's text of the document. False: no command, not connected, no
    // row at all, or no MSXML document. A failing DOM call throws ComError.
    bool Build(KobOleDbCommand* command, Bstr& xml);

private:
    bool AddMetadata(KobOleDbCommand& command, IXMLDOMElement* metadata);
    bool AddResultset(KobOleDbCommand& command, IXMLDOMElement* resultset);

    ComPtr<IXMLDOMDocument2> m_document;
};

}  // namespace zel::test
