#include "xml/DomDocument.h"

#include <ole2.h>

#include <string>

#include "common/ComError.h"
#include "common/Variant.h"

namespace zel {

HRESULT TryCreateDomDocument(ComPtr<IXMLDOMDocument2>& document) noexcept {
    document.reset();
    ComPtr<IUnknown> unknown;
    HRESULT hr = CoCreateInstance(CLSID_DOMDocument60, nullptr, CLSCTX_ALL, IID_IUnknown, unknown.put_void());
    if (FAILED(hr)) return hr;
    hr = OleRun(unknown.get());
    if (FAILED(hr)) return hr;
    return unknown.query(document);
}

ComPtr<IXMLDOMElement> StartDocument(IXMLDOMDocument* document, const wchar_t* declaration, const wchar_t* root) {
    if (!document) ThrowHr(E_POINTER);
    Bstr text(std::wstring(L"<?xml ") + declaration + L"?><" + root + L"/>");
    VARIANT_BOOL loaded = VARIANT_FALSE;
    ZEL_THROW_IF_FAILED(document->loadXML(text.get(), &loaded));
    if (loaded != VARIANT_TRUE) ThrowHr(E_FAIL);
    ComPtr<IXMLDOMElement> element;
    ZEL_THROW_IF_FAILED(document->get_documentElement(element.put()));
    if (!element) ThrowHr(E_POINTER);
    return element;
}

ComPtr<IXMLDOMElement> AppendElement(IXMLDOMDocument* document, IXMLDOMNode* parent, const wchar_t* name) {
    return AppendElement(document, parent, Bstr(name));
}

ComPtr<IXMLDOMElement> AppendElement(IXMLDOMDocument* document, IXMLDOMNode* parent, const Bstr& name) {
    if (!document || !parent) ThrowHr(E_POINTER);
    ComPtr<IXMLDOMElement> element;
    ZEL_THROW_IF_FAILED(document->createElement(name.get(), element.put()));
    if (!element) ThrowHr(E_POINTER);
    ComPtr<IXMLDOMNode> appended;
    ZEL_THROW_IF_FAILED(parent->appendChild(element.get(), appended.put()));
    return element;
}

void SetAttribute(IXMLDOMElement* element, const wchar_t* name, const VARIANT& value) {
    SetAttribute(element, Bstr(name), value);
}

void SetAttribute(IXMLDOMElement* element, const Bstr& name, const VARIANT& value) {
    if (!element) ThrowHr(E_POINTER);
    ZEL_THROW_IF_FAILED(element->setAttribute(name.get(), value));
}

void SetAttributeText(IXMLDOMElement* element, const wchar_t* name, const wchar_t* value) {
    Variant text(std::wstring_view(value ? value : L""));
    SetAttribute(element, name, *text.get());
}

std::optional<Bstr> ReadAttributeText(IXMLDOMNode* node, const wchar_t* name) {
    if (!node) ThrowHr(E_POINTER);
    ComPtr<IXMLDOMNamedNodeMap> attributes;
    ZEL_THROW_IF_FAILED(node->get_attributes(attributes.put()));
    if (!attributes) return std::nullopt;  // not an element: no attributes at all
    Bstr attributeName(name);
    ComPtr<IXMLDOMNode> item;
    ZEL_THROW_IF_FAILED(attributes->getNamedItem(attributeName.get(), item.put()));
    if (!item) return std::nullopt;
    ComPtr<IXMLDOMAttribute> attribute = item.as<IXMLDOMAttribute>();
    Variant value;
    ZEL_THROW_IF_FAILED(attribute->get_value(value.put()));
    if (value.vt() != VT_BSTR) ZEL_THROW_IF_FAILED(value.change_type(VT_BSTR));
    Bstr text;
    if (V_BSTR(value.get())) text = Bstr::Attach(V_BSTR(value.get()));
    V_VT(value.get()) = VT_EMPTY;  // ownership of the string moved to `text`
    if (!text) text = Bstr(L"");
    return text;
}

bool EndsWithDocumentElement(std::wstring_view text, std::wstring_view root) noexcept {
    const size_t end = text.find_last_not_of(L" \t\r\n");
    if (end == std::wstring_view::npos || root.empty()) return false;
    text = text.substr(0, end + 1);
    const size_t tag = text.rfind(L'<');
    if (tag == std::wstring_view::npos) return false;
    const std::wstring_view last = text.substr(tag);
    // An end tag of the document element...
    if (last.size() == root.size() + 3 && last.substr(0, 2) == L"</" && last.substr(2, root.size()) == root &&
        last.back() == L'>')
        return true;
    // ...or the document element written empty, as the last tag.
    if (last.size() < root.size() + 3 || last.substr(1, root.size()) != root) return false;
    const wchar_t after = last[root.size() + 1];
    return (after == L' ' || after == L'/' || after == L'\t' || after == L'\r' || after == L'\n') &&
           last.substr(last.size() - 2) == L"/>";
}

Bstr DocumentXml(IXMLDOMDocument* document) {
    if (!document) ThrowHr(E_POINTER);
    ComPtr<IXMLDOMNode> node = ComPtr<IXMLDOMDocument>(document).as<IXMLDOMNode>();
    Bstr text;
    ZEL_THROW_IF_FAILED(node->get_xml(text.put()));
    ComPtr<IXMLDOMElement> root;
    ZEL_THROW_IF_FAILED(document->get_documentElement(root.put()));
    if (!root) return text;  // no document element: nothing to end
    Bstr rootName;
    ZEL_THROW_IF_FAILED(root->get_tagName(rootName.put()));
    if (!EndsWithDocumentElement(std::wstring_view(text.c_str(), text.length()), rootName.c_str()))
        ThrowHr(E_OUTOFMEMORY);
    return text;
}

}  // namespace zel
