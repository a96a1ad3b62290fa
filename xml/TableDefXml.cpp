#include "xml/TableDefXml.h"

#include <oleauto.h>
#include <stdlib.h>

#include <cstring>
#include <optional>

#include "common/ComError.h"
#include "common/OleDbMemory.h"
#include "common/Variant.h"
#include "xml/DomDocument.h"

namespace zel {
namespace {

constexpr wchar_t kTableDef[] = L"TableDef";
constexpr wchar_t kColumnDef[] = L"ColumnDef";
constexpr wchar_t kName[] = L"Name";
constexpr wchar_t kType[] = L"Type";
constexpr wchar_t kPrecision[] = L"Precision";
constexpr wchar_t kScale[] = L"Scale";
constexpr wchar_t kTypeName[] = L"TypeName";
constexpr wchar_t kAutoIncrement[] = L"DBPROP_COL_AUTOINCREMENT";
constexpr wchar_t kFixedLength[] = L"DBPROP_COL_FIXEDLENGTH";
constexpr wchar_t kNullable[] = L"DBPROP_COL_NULLABLE";
constexpr wchar_t kAllowZeroLength[] = L"DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH";

// Attribute name of a column property the document carries, or null for any other.
const wchar_t* PropertyAttribute(REFGUID set, DBPROPID id) noexcept {
    if (set == DBPROPSET_COLUMN) {
        switch (id) {
            case DBPROP_COL_AUTOINCREMENT: return kAutoIncrement;
            case DBPROP_COL_NULLABLE: return kNullable;
            case DBPROP_COL_FIXEDLENGTH: return kFixedLength;
            default: return nullptr;
        }
    }
    if (set == DBPROPSET_JETOLEDB_COLUMN && id == DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH) return kAllowZeroLength;
    return nullptr;
}

Variant NumberVariant(VARTYPE type, unsigned value) noexcept {
    Variant v;
    V_VT(v.get()) = type;
    if (type == VT_UI2)
        V_UI2(v.get()) = static_cast<USHORT>(value);
    else
        V_UI1(v.get()) = static_cast<BYTE>(value);
    return v;
}

// Copy of a NUL-terminated string in COM task memory. Throws std::bad_alloc.
LPOLESTR CoTaskMemString(const Bstr& text) {
    return CopyToCoTaskMem(std::wstring_view(text.c_str(), text.length())).release();
}

// A zeroed array in COM task memory, never null (an empty one holds one element).
template <typename T>
T* ZeroedArray(size_t count) {
    return AllocateZeroed<T>(count ? count : 1);
}

// A property set with room for kTableDefPropertyRoom properties, each REQUIRED, on no
// particular column, with a VT_BOOL value; the count starts at 0.
void InitPropertySet(DBPROPSET& set, REFGUID guid) {
    set.rgProperties = ZeroedArray<DBPROP>(kTableDefPropertyRoom);
    set.cProperties = 0;
    set.guidPropertySet = guid;
    for (ULONG i = 0; i < kTableDefPropertyRoom; ++i) {
        DBPROP& property = set.rgProperties[i];
        property.dwOptions = DBPROPOPTIONS_REQUIRED;
        property.colid = DB_NULLID;
        V_VT(&property.vValue) = VT_BOOL;
        V_BOOL(&property.vValue) = VARIANT_FALSE;
    }
}

// Numbers are read as the C runtime's _wtoi reads them: leading white space, an optional
// sign, decimal digits; anything else gives 0.
std::optional<int> ReadNumber(IXMLDOMNode* node, const wchar_t* name) {
    std::optional<Bstr> text = ReadAttributeText(node, name);
    if (!text) return std::nullopt;
    return _wtoi(text->c_str());
}

// Appends a boolean property read from attribute `name`, if present: VT_BOOL holding the
// number cut to 16 bits (so "-1" is VARIANT_TRUE and "1" stays 1).
void ReadBoolProperty(IXMLDOMNode* node, const wchar_t* name, DBPROPID id, DBPROPSET& set) {
    std::optional<int> number = ReadNumber(node, name);
    if (!number) return;
    DBPROP& property = set.rgProperties[set.cProperties++];
    property.dwPropertyID = id;
    V_VT(&property.vValue) = VT_BOOL;
    V_BOOL(&property.vValue) = static_cast<VARIANT_BOOL>(*number);
}

}  // namespace

bool TableDefXml::BeginTableDef(const wchar_t* tableName) {
    m_root.reset();
    m_document.reset();
    m_columnCount = 0;
    ComPtr<IXMLDOMDocument2> document;
    if (FAILED(TryCreateDomDocument(document))) return false;

    ZEL_THROW_IF_FAILED(document->put_async(VARIANT_FALSE));
    ZEL_THROW_IF_FAILED(document->put_preserveWhiteSpace(VARIANT_TRUE));

    // The processing instruction and the root element.
    ComPtr<IXMLDOMElement> root = StartDocument(document.get(), L"version=\"1.0\" encoding=\"utf-16\"", kTableDef);
    SetAttributeText(root.get(), kName, tableName);

    m_document = std::move(document);
    m_root = std::move(root);
    return true;
}

bool TableDefXml::AddColumnDef(const DBCOLUMNDESC& column) {
    if (!m_document || !m_root) return false;
    ComPtr<IXMLDOMElement> element = AppendElement(m_document.get(), m_root.get(), kColumnDef);

    if (column.dbcid.eKind == DBKIND_NAME && column.dbcid.uName.pwszName)
        SetAttributeText(element.get(), kName, column.dbcid.uName.pwszName);
    if (column.pwszTypeName) SetAttributeText(element.get(), kTypeName, column.pwszTypeName);
    SetAttribute(element.get(), kType, *NumberVariant(VT_UI2, column.wType).get());
    if (column.bPrecision != 0) SetAttribute(element.get(), kPrecision, *NumberVariant(VT_UI1, column.bPrecision).get());
    if (column.bScale != 0) SetAttribute(element.get(), kScale, *NumberVariant(VT_UI1, column.bScale).get());

    for (ULONG s = 0; s < column.cPropertySets && column.rgPropertySets; ++s) {
        const DBPROPSET& set = column.rgPropertySets[s];
        for (ULONG p = 0; p < set.cProperties && set.rgProperties; ++p) {
            const DBPROP& property = set.rgProperties[p];
            if (const wchar_t* attribute = PropertyAttribute(set.guidPropertySet, property.dwPropertyID))
                WriteProperty(element.get(), attribute, property.vValue);
        }
    }
    ++m_columnCount;
    return true;
}

// The property's value, dereferenced, goes to the DOM as it is, except that booleans are
// always written as the integers -1 and 0 the reader expects, whatever text a DOM would
// choose for VT_BOOL.
void TableDefXml::WriteProperty(IXMLDOMElement* element, const wchar_t* attribute, const VARIANT& value) {
    Variant copy;
    ZEL_THROW_IF_FAILED(VariantCopyInd(copy.get(), const_cast<VARIANT*>(&value)));
    if (copy.vt() == VT_BOOL) {
        SetAttributeText(element, attribute, V_BOOL(copy.get()) == VARIANT_FALSE ? L"0" : L"-1");
        return;
    }
    SetAttribute(element, attribute, *copy.get());
}

Bstr TableDefXml::Xml() const { return DocumentXml(m_document.get()); }

bool TableDefXml::LoadTableDef(const wchar_t* xmlText) {
    if (!m_document) {
        if (FAILED(TryCreateDomDocument(m_document))) return false;
    }
    m_root.reset();
    Bstr text(xmlText ? xmlText : L"");
    VARIANT_BOOL parsed = VARIANT_FALSE;
    ZEL_THROW_IF_FAILED(m_document->loadXML(text.get(), &parsed));
    if (parsed != VARIANT_TRUE) return false;

    ZEL_THROW_IF_FAILED(m_document->get_documentElement(m_root.put()));
    if (!m_root) ThrowHr(E_POINTER);
    Bstr nodeName;
    ZEL_THROW_IF_FAILED(m_root->get_nodeName(nodeName.put()));
    return nodeName.str() == kTableDef;
}

bool TableDefXml::ReadTableDef(Bstr& tableName, TableDefColumns& columns) {
    if (!m_root) return false;
    std::optional<Bstr> name = ReadAttributeText(m_root.get(), kName);
    if (!name) return false;

    // "ColumnDef" relative to the document element selects its direct children only.
    Bstr query(kColumnDef);
    ComPtr<IXMLDOMNodeList> list;
    ZEL_THROW_IF_FAILED(m_root->selectNodes(query.get(), list.put()));
    if (!list) ThrowHr(E_POINTER);
    long length = 0;
    ZEL_THROW_IF_FAILED(list->get_length(&length));
    const DBORDINAL count = length > 0 ? static_cast<DBORDINAL>(length) : 0;

    TableDefColumns read(ZeroedArray<DBCOLUMNDESC>(count), count);
    for (DBORDINAL i = 0; i < count; ++i) read[i].dbcid.eKind = DBKIND_NAME;
    for (DBORDINAL i = 0; i < count; ++i) {
        ComPtr<IXMLDOMNode> node;
        ZEL_THROW_IF_FAILED(list->get_item(static_cast<long>(i), node.put()));
        if (!node) ThrowHr(E_POINTER);
        if (!ReadColumn(node.get(), read[i])) return false;  // `read` releases what was made
    }
    tableName = std::move(*name);
    columns = std::move(read);
    return true;
}

bool TableDefXml::ReadColumn(IXMLDOMNode* node, DBCOLUMNDESC& column) {
    column.rgPropertySets = ZeroedArray<DBPROPSET>(2);
    column.cPropertySets = 2;
    DBPROPSET& columnSet = column.rgPropertySets[0];
    DBPROPSET& jetSet = column.rgPropertySets[1];
    InitPropertySet(columnSet, DBPROPSET_COLUMN);
    InitPropertySet(jetSet, DBPROPSET_JETOLEDB_COLUMN);

    std::optional<Bstr> name = ReadAttributeText(node, kName);
    if (!name) return false;
    column.dbcid.eKind = DBKIND_NAME;
    column.dbcid.uName.pwszName = CoTaskMemString(*name);

    if (std::optional<Bstr> typeName = ReadAttributeText(node, kTypeName))
        column.pwszTypeName = CoTaskMemString(*typeName);
    column.wType = static_cast<DBTYPE>(ReadNumber(node, kType).value_or(0));
    column.bPrecision = static_cast<BYTE>(ReadNumber(node, kPrecision).value_or(0));
    column.bScale = static_cast<BYTE>(ReadNumber(node, kScale).value_or(0));
    column.ulColumnSize = 0;

    ReadBoolProperty(node, kNullable, DBPROP_COL_NULLABLE, columnSet);
    ReadBoolProperty(node, kAutoIncrement, DBPROP_COL_AUTOINCREMENT, columnSet);
    ReadBoolProperty(node, kFixedLength, DBPROP_COL_FIXEDLENGTH, columnSet);
    ReadBoolProperty(node, kAllowZeroLength, DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH, jetSet);
    return true;
}

}  // namespace zel
