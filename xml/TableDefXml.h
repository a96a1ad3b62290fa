// The table-definition document: a "TableDef" element named after the table, with one empty
// "ColumnDef" element per column whose attributes carry the column's name, type name, type,
// precision, scale and four column properties. The writer builds it from OLE DB column
// descriptions (TblGetDef); the reader turns it back into column descriptions (TblCreate).
#pragma once

#include <windows.h>
#include <msxml2.h>
#include <oledb.h>

#include "common/Bstr.h"
#include "common/ComPtr.h"
#include "common/OleDbIids.h"
#include "xml/TableDefColumns.h"

namespace zel {

class TableDefXml {
public:
    TableDefXml() noexcept = default;
    TableDefXml(const TableDefXml&) = delete;
    TableDefXml& operator=(const TableDefXml&) = delete;
    ~TableDefXml() = default;

    // Writer. Starts a new document (any held one is dropped): the processing instruction
    // and the "TableDef" element with attribute Name = `tableName` (null counts as empty).
    // False when the document cannot be created. Throws ComError when a DOM call fails.
    bool BeginTableDef(const wchar_t* tableName);

    // Appends one "ColumnDef" for `column`. False when no document has been begun. Throws
    // ComError when a DOM call fails (for example a property VARIANT the DOM cannot turn
    // into text).
    bool AddColumnDef(const DBCOLUMNDESC& column);

    // Number of ColumnDef elements written since BeginTableDef.
    ULONG ColumnDefCount() const noexcept { return m_columnCount; }

    // The held document (null before BeginTableDef/LoadTableDef), for IXMLDOMNode::get_xml.
    IXMLDOMDocument2* Document() const noexcept { return m_document.get(); }

    // The held document's text (get_xml). Throws ComError; E_POINTER without a document.
    Bstr Xml() const;

    // Reader. Parses `xmlText` into the held document (created if none is held) and keeps its
    // document element. True only when the text parses and the element is named "TableDef"
    // exactly (case-sensitive). False also when the document cannot be created.
    bool LoadTableDef(const wchar_t* xmlText);

    // Reads the loaded document: the table name and one column description per "ColumnDef"
    // child of the document element, in document order. False, with nothing handed out, when
    // nothing is loaded or the root or any ColumnDef lacks a Name. On success `tableName` and
    // `columns` receive new values (the caller owns them). Throws ComError when a DOM call
    // fails and E_OUTOFMEMORY when memory runs out.
    bool ReadTableDef(Bstr& tableName, TableDefColumns& columns);

private:
    void WriteProperty(IXMLDOMElement* element, const wchar_t* attribute, const VARIANT& value);
    bool ReadColumn(IXMLDOMNode* node, DBCOLUMNDESC& column);

    ComPtr<IXMLDOMDocument2> m_document;
    ComPtr<IXMLDOMElement> m_root;
    ULONG m_columnCount = 0;
};

}  // namespace zel
