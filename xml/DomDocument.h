// Small building blocks over the MSXML 6.0 DOM shared by the server's XML documents:
// document creation, element and attribute writing, attribute reading. Failing DOM calls
// raise ComError with the call's HRESULT.
#pragma once

#include <windows.h>
#include <msxml2.h>

#include <optional>
#include <string_view>

#include "common/Bstr.h"
#include "common/ComPtr.h"
#include "common/OleDbIids.h"

namespace zel {

// Creates an MSXML 6.0 document: CoCreateInstance of CLSID_DOMDocument60 (CLSCTX_ALL) for
// IUnknown, OleRun, then IXMLDOMDocument2. Returns the first failing HRESULT; `document`
// is null on failure.
HRESULT TryCreateDomDocument(ComPtr<IXMLDOMDocument2>& document) noexcept;

// Gives the empty `document` the XML declaration `<?xml declaration?>` and an empty document
// element named `root`, and returns that element. Both are parsed from text (loadXML) rather
// than made with createProcessingInstruction: Wine's MSXML keeps some 176 bytes of every
// processing instruction it creates, which a server writing a document per query cannot
// afford. Throws ComError (E_FAIL when the text does not parse).
ComPtr<IXMLDOMElement> StartDocument(IXMLDOMDocument* document, const wchar_t* declaration, const wchar_t* root);

// Creates element `name` in `document` and appends it to `parent`. Throws ComError. The
// overloads taking a Bstr let a writer make the names it uses on every row once.
ComPtr<IXMLDOMElement> AppendElement(IXMLDOMDocument* document, IXMLDOMNode* parent, const wchar_t* name);
ComPtr<IXMLDOMElement> AppendElement(IXMLDOMDocument* document, IXMLDOMNode* parent, const Bstr& name);

// Sets attribute `name` to `value`; the DOM converts the VARIANT to text. Throws ComError.
void SetAttribute(IXMLDOMElement* element, const wchar_t* name, const VARIANT& value);
void SetAttribute(IXMLDOMElement* element, const Bstr& name, const VARIANT& value);
// Sets attribute `name` to a text value (VT_BSTR; null counts as empty). Throws ComError.
void SetAttributeText(IXMLDOMElement* element, const wchar_t* name, const wchar_t* value);

// The text of attribute `name` of `node` (its value converted to VT_BSTR), or nothing when
// the node has no such attribute. Throws ComError when a DOM call fails.
std::optional<Bstr> ReadAttributeText(IXMLDOMNode* node, const wchar_t* name);

// The document's XML text (IXMLDOMNode::get_xml). Throws ComError; E_POINTER for a null
// document. Wine's MSXML answers S_OK with a cut or empty text when writing the text runs
// out of memory (its XML library reports "encoder error"); a text that does not end with the
// document element is therefore refused with E_OUTOFMEMORY instead of being handed out.
Bstr DocumentXml(IXMLDOMDocument* document);

// True when `text`, less trailing white space, ends with the document element `root`: its end
// tag, or its empty-element tag as the last tag of the text.
bool EndsWithDocumentElement(std::wstring_view text, std::wstring_view root) noexcept;

}  // namespace zel
