// Writer of the query-result document ("QueryData"): every column described once, then one
// element per row, all data in attributes. Hosts parse this layout; element and attribute
// names, their order and the "Y"/"N" flags are fixed.
//
// The text is written directly, in one pass over the rows, into the BSTR that is handed out.
// It is, code unit for code unit, the text MSXML 6.0 gives for the same tree (get_xml): the
// XML declaration, CR LF line ends, tab indentation, attribute values in double quotes escaped
// as MSXML escapes them, and empty elements written as `<Rowset/>`.
#pragma once

#include <windows.h>

#include <string>

#include "common/Bstr.h"
#include "xml/XmlTextBuffer.h"

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
    // open rowset, no row at all): `xml` is untouched. Throws ComError(E_OUTOFMEMORY) when
    // the text does not fit in memory; the command then stands on the row being written.
    bool BuildQueryDataXml(KobOleDbCommand* command, std::wstring& xml);
    // The same, with the document as the BSTR it was written into (no copy of the text on the
    // way to a BSTR out-parameter).
    bool BuildQueryDataXml(KobOleDbCommand* command, Bstr& xml);

private:
    // Write the children of `Metadata` and of `Resultset` into `document`, after the
    // parent's start tag (left open: each closes it as its children require).
    bool AddMetadata(KobOleDbCommand& command, XmlTextBuffer& document);
    bool AddResultset(KobOleDbCommand& command, XmlTextBuffer& document);

    // The text being written; empty while no document is being built.
    XmlTextBuffer m_document;
};

}  // namespace zel
