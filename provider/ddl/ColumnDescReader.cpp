#include "provider/ddl/ColumnDescReader.h"

#include <oledberr.h>

#include <optional>
#include <utility>
#include <vector>

#include "common/Variant.h"
#include "provider/ddl/DefaultValue.h"
#include "provider/ddl/NameIds.h"
#include "provider/errors/Errors.h"
#include "provider/text/Utf.h"
#include "provider/values/DeclaredType.h"

namespace zel::provider {

namespace {

// A property's value when one was given. (Used instead of std::optional for flags and numbers,
// for which GCC's flow analysis reports false uninitialized reads.)
template <typename T>
struct Setting {
    bool given = false;
    T value{};

    explicit operator bool() const noexcept { return given; }
    bool operator==(T other) const noexcept { return given && value == other; }
    T value_or(T fallback) const noexcept { return given ? value : fallback; }
    void reset() noexcept { given = false; value = T{}; }
    std::optional<T> ToOptional() const {
        if (!given) return std::nullopt;
        return value;
    }
};

// The properties of one description, by meaning; each points at the consumer's DBPROP (the last
// one when a property is given twice) until it fails.
struct Given {
    DBPROP* autoIncrement = nullptr;
    DBPROP* seed = nullptr;
    DBPROP* increment = nullptr;
    DBPROP* nullable = nullptr;
    DBPROP* fixedLength = nullptr;
    DBPROP* isLong = nullptr;
    DBPROP* defaultValue = nullptr;
    DBPROP* description = nullptr;
    DBPROP* primaryKey = nullptr;
    DBPROP* unique = nullptr;
    DBPROP* allowZeroLength = nullptr;
};

const wchar_t* PropertyName(const DBPROP& prop, const GUID& set) {
    if (set == DBPROPSET_JETOLEDB_COLUMN)
        return prop.dwPropertyID == DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH ? L"DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH"
                                                                        : nullptr;
    if (set != DBPROPSET_COLUMN) return nullptr;
    switch (prop.dwPropertyID) {
    case DBPROP_COL_AUTOINCREMENT: return L"DBPROP_COL_AUTOINCREMENT";
    case DBPROP_COL_SEED: return L"DBPROP_COL_SEED";
    case DBPROP_COL_INCREMENT: return L"DBPROP_COL_INCREMENT";
    case DBPROP_COL_NULLABLE: return L"DBPROP_COL_NULLABLE";
    case DBPROP_COL_FIXEDLENGTH: return L"DBPROP_COL_FIXEDLENGTH";
    case DBPROP_COL_ISLONG: return L"DBPROP_COL_ISLONG";
    case DBPROP_COL_DEFAULT: return L"DBPROP_COL_DEFAULT";
    case DBPROP_COL_DESCRIPTION: return L"DBPROP_COL_DESCRIPTION";
    case DBPROP_COL_PRIMARYKEY: return L"DBPROP_COL_PRIMARYKEY";
    case DBPROP_COL_UNIQUE: return L"DBPROP_COL_UNIQUE";
    default: return nullptr;
    }
}

class PropertyReader {
public:
    PropertyReader(ColumnDescResult& result, std::wstring column) : m_result(result), m_column(std::move(column)) {}

    // Marks `prop` as not honoured; it is ignored from then on.
    void Refuse(DBPROP*& prop, DBPROPSTATUS status, const std::wstring& why) {
        if (!prop) return;
        const bool optional = prop->dwOptions == DBPROPOPTIONS_OPTIONAL;
        prop->dwStatus = optional && status == DBPROPSTATUS_CONFLICTING ? static_cast<DBPROPSTATUS>(DBPROPSTATUS_NOTSET)
                                                                        : status;
        (optional ? m_result.optionalFailed : m_result.requiredFailed) = true;
        if (m_result.propertyMessage.empty()) {
            const wchar_t* name = PropertyName(*prop, SetOf(prop));
            std::wstring property = name ? std::wstring(name) : L"Property " + std::to_wstring(prop->dwPropertyID);
            m_result.propertyMessage = property + L" of column '" + m_column + L"': " + why;
        }
        prop = nullptr;
    }

    Setting<bool> Bool(DBPROP*& prop) {
        if (!prop || V_VT(&prop->vValue) == VT_EMPTY) return {};
        if (V_VT(&prop->vValue) != VT_BOOL) {
            Refuse(prop, DBPROPSTATUS_BADVALUE, L"the value must be a VT_BOOL.");
            return {};
        }
        return {true, V_BOOL(&prop->vValue) != 0};
    }

    Setting<std::int64_t> Integer(DBPROP*& prop) {
        if (!prop || V_VT(&prop->vValue) == VT_EMPTY) return {};
        Variant number;
        if (FAILED(VariantChangeType(number.get(), &prop->vValue, 0, VT_I8))) {
            Refuse(prop, DBPROPSTATUS_BADVALUE, L"the value must be an integer.");
            return {};
        }
        return {true, static_cast<std::int64_t>(V_I8(number.get()))};
    }

    std::optional<std::wstring> Text(DBPROP*& prop) {
        if (!prop || V_VT(&prop->vValue) == VT_EMPTY) return std::nullopt;
        if (V_VT(&prop->vValue) != VT_BSTR) {
            Refuse(prop, DBPROPSTATUS_BADVALUE, L"the value must be a VT_BSTR.");
            return std::nullopt;
        }
        BSTR text = V_BSTR(&prop->vValue);
        if (!text || SysStringLen(text) == 0) return std::nullopt;
        return std::wstring(text, SysStringLen(text));
    }

    // Remembers which set a property came in, for messages.
    void Remember(const DBPROP* prop, const GUID& set) { m_sets.emplace_back(prop, set); }

private:
    GUID SetOf(const DBPROP* prop) const {
        for (const auto& [p, set] : m_sets)
            if (p == prop) return set;
        return GUID_NULL;
    }

    ColumnDescResult& m_result;
    std::wstring m_column;
    std::vector<std::pair<const DBPROP*, GUID>> m_sets;
};

// Sorts the description's properties by meaning; statuses start as DBPROPSTATUS_OK.
Given Collect(const DBCOLUMNDESC& desc, PropertyReader& reader) {
    Given given;
    for (ULONG s = 0; s < desc.cPropertySets; ++s) {
        DBPROPSET& set = desc.rgPropertySets[s];
        for (ULONG p = 0; p < set.cProperties; ++p) {
            DBPROP* prop = &set.rgProperties[p];
            prop->dwStatus = DBPROPSTATUS_OK;
            reader.Remember(prop, set.guidPropertySet);
            if (prop->dwOptions != DBPROPOPTIONS_REQUIRED && prop->dwOptions != DBPROPOPTIONS_OPTIONAL) {
                reader.Refuse(prop, DBPROPSTATUS_BADOPTION, L"dwOptions is neither REQUIRED nor OPTIONAL.");
                continue;
            }
            DBPROP** slot = nullptr;
            if (set.guidPropertySet == DBPROPSET_COLUMN) {
                switch (prop->dwPropertyID) {
                case DBPROP_COL_AUTOINCREMENT: slot = &given.autoIncrement; break;
                case DBPROP_COL_SEED: slot = &given.seed; break;
                case DBPROP_COL_INCREMENT: slot = &given.increment; break;
                case DBPROP_COL_NULLABLE: slot = &given.nullable; break;
                case DBPROP_COL_FIXEDLENGTH: slot = &given.fixedLength; break;
                case DBPROP_COL_ISLONG: slot = &given.isLong; break;
                case DBPROP_COL_DEFAULT: slot = &given.defaultValue; break;
                case DBPROP_COL_DESCRIPTION: slot = &given.description; break;
                case DBPROP_COL_PRIMARYKEY: slot = &given.primaryKey; break;
                case DBPROP_COL_UNIQUE: slot = &given.unique; break;
                default: break;
                }
            } else if (set.guidPropertySet == DBPROPSET_JETOLEDB_COLUMN &&
                       prop->dwPropertyID == DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH) {
                slot = &given.allowZeroLength;
            }
            if (!slot) {
                reader.Refuse(prop, DBPROPSTATUS_NOTSUPPORTED, L"ZelLite does not support this column property.");
                continue;
            }
            *slot = prop;
        }
    }
    return given;
}

}  // namespace

bool HasValidShape(const DBCOLUMNDESC& desc) noexcept {
    if (desc.cPropertySets && !desc.rgPropertySets) return false;
    for (ULONG s = 0; s < desc.cPropertySets; ++s)
        if (desc.rgPropertySets[s].cProperties && !desc.rgPropertySets[s].rgProperties) return false;
    return true;
}

bool MarkConflicting(const DBCOLUMNDESC& desc, const GUID& set, DBPROPID id) {
    bool required = false;
    for (ULONG s = 0; s < desc.cPropertySets; ++s) {
        if (desc.rgPropertySets[s].guidPropertySet != set) continue;
        for (ULONG p = 0; p < desc.rgPropertySets[s].cProperties; ++p) {
            DBPROP& prop = desc.rgPropertySets[s].rgProperties[p];
            if (prop.dwPropertyID != id) continue;
            const bool optional = prop.dwOptions == DBPROPOPTIONS_OPTIONAL;
            prop.dwStatus = optional ? DBPROPSTATUS_NOTSET : DBPROPSTATUS_CONFLICTING;
            required = required || !optional;
        }
    }
    return required;
}

namespace {

// The declared type from the type name or wType, with DBPROP_COL_ISLONG and
// DBPROP_COL_FIXEDLENGTH. False when no type fits (the error is in `result`).
bool ReadColumnType(const DBCOLUMNDESC& desc, Given& given, PropertyReader& reader, ColumnDescResult& result,
                    Setting<bool>& fixed) {
    ColumnDefinition& d = result.definition;
    Setting<bool> isLong = reader.Bool(given.isLong);
    fixed = reader.Bool(given.fixedLength);
    TypeRequest request;
    request.typeName = desc.pwszTypeName;
    request.wType = desc.wType;
    request.size = desc.ulColumnSize;
    request.precision = desc.bPrecision;
    request.scale = desc.bScale;
    request.fixedLength = fixed.value_or(false);
    request.isLong = isLong.value_or(false);
    DeclaredType declared = ResolveDeclaredType(request);
    if (declared.error != S_OK) {
        if (result.error == S_OK) {
            result.error = declared.error;
            result.message = L"Column '" + d.name + L"': " + declared.message;
        }
        return false;
    }
    d.declaredType = declared.declaration;
    d.type = declared.type;
    const bool longType = (d.type.flags & DBCOLUMNFLAGS_ISLONG) != 0;

    if (isLong == true && !longType)
        reader.Refuse(given.isLong, DBPROPSTATUS_CONFLICTING, L"only text and binary columns can be long.");
    if (fixed == true && longType) {
        reader.Refuse(given.fixedLength, DBPROPSTATUS_CONFLICTING, L"a long column cannot be fixed-length.");
        fixed.reset();
    }
    return true;
}

// DBPROP_COL_AUTOINCREMENT, _SEED and _INCREMENT into the definition.
void ReadIdentity(Given& given, PropertyReader& reader, ColumnDefinition& d) {
    Setting<bool> identity = reader.Bool(given.autoIncrement);
    if (identity == true && !IsIntegerType(d.type.type)) {
        reader.Refuse(given.autoIncrement, DBPROPSTATUS_CONFLICTING, L"only integer columns can be identity columns.");
        identity.reset();
    }
    const bool isIdentity = identity.value_or(false);
    Setting<std::int64_t> seed = reader.Integer(given.seed);
    Setting<std::int64_t> increment = reader.Integer(given.increment);
    if (seed && !isIdentity) {
        reader.Refuse(given.seed, DBPROPSTATUS_CONFLICTING, L"a seed needs DBPROP_COL_AUTOINCREMENT.");
        seed.reset();
    }
    if (increment && !isIdentity) {
        reader.Refuse(given.increment, DBPROPSTATUS_CONFLICTING, L"an increment needs DBPROP_COL_AUTOINCREMENT.");
        increment.reset();
    }
    if (increment == 0) {
        reader.Refuse(given.increment, DBPROPSTATUS_BADVALUE, L"the increment cannot be 0.");
        increment.reset();
    }
    d.identity = isIdentity ? Identity::Counter : Identity::None;
    d.seed = seed.value_or(1);
    d.increment = increment.value_or(1);
}

// DBPROP_COL_PRIMARYKEY, _UNIQUE and _NULLABLE into the definition (after the identity).
void ReadKeys(Given& given, PropertyReader& reader, ColumnPurpose purpose, ColumnDefinition& d) {
    const bool isIdentity = d.identity != Identity::None;
    Setting<bool> primaryKey = reader.Bool(given.primaryKey);
    Setting<bool> unique = reader.Bool(given.unique);
    if (purpose == ColumnPurpose::AddColumn) {
        if (primaryKey == true)
            reader.Refuse(given.primaryKey, DBPROPSTATUS_NOTSUPPORTED,
                          L"SQLite cannot add a primary-key column to an existing table.");
        if (unique == true)
            reader.Refuse(given.unique, DBPROPSTATUS_NOTSUPPORTED,
                          L"SQLite cannot add a UNIQUE column to an existing table.");
        if (primaryKey == true) primaryKey.reset();
        if (unique == true) unique.reset();
    }
    Setting<bool> nullable = reader.Bool(given.nullable);
    if (nullable == true && (isIdentity || primaryKey == true)) {
        reader.Refuse(
            given.nullable, DBPROPSTATUS_CONFLICTING,
            isIdentity ? L"an identity column is never nullable." : L"a primary-key column is never nullable.");
        nullable.reset();
    }
    d.primaryKey = primaryKey.value_or(false);
    d.unique = unique.value_or(false);
    d.nullable = nullable.value_or(true) && !d.primaryKey && !isIdentity;
}

// DBPROP_COL_DEFAULT into the definition (after the type, the identity and ALLOWZEROLENGTH).
void ReadDefault(Given& given, PropertyReader& reader, ColumnPurpose purpose, Setting<bool> allowZeroLength,
                 ColumnDefinition& d) {
    if (!given.defaultValue || V_VT(&given.defaultValue->vValue) == VT_EMPTY ||
        V_VT(&given.defaultValue->vValue) == VT_NULL)
        return;
    if (d.identity != Identity::None) {
        reader.Refuse(given.defaultValue, DBPROPSTATUS_CONFLICTING, L"an identity column has no default.");
        return;
    }
    DefaultClause clause = DefaultFromVariant(given.defaultValue->vValue, d.type);
    if (clause.status != DBPROPSTATUS_OK) {
        reader.Refuse(given.defaultValue, clause.status,
                      L"the value does not convert to the column's type " + d.declaredType + L".");
    } else if (purpose == ColumnPurpose::AddColumn && clause.expression) {
        reader.Refuse(given.defaultValue, DBPROPSTATUS_NOTSUPPORTED,
                      L"SQLite cannot add a column whose default is an expression.");
    } else if (clause.zeroLengthText && allowZeroLength == false) {
        reader.Refuse(given.defaultValue, DBPROPSTATUS_CONFLICTING,
                      L"the default is a zero-length string, which the column does not allow.");
    } else {
        d.defaultSql = clause.sql;
    }
}

}  // namespace

ColumnDescResult ReadColumnDesc(const DBCOLUMNDESC& desc, ColumnPurpose purpose) {
    ColumnDescResult result;
    ColumnDefinition& d = result.definition;
    std::optional<std::wstring> name = NameOf(&desc.dbcid);
    if (!name) {
        result.error = DB_E_BADCOLUMNID;
        result.message = L"A column id must be a DBKIND_NAME id with a non-empty name.";
    }
    d.name = name.value_or(L"");
    PropertyReader reader(result, d.name);
    Given given = Collect(desc, reader);

    Setting<bool> fixed;
    if (!ReadColumnType(desc, given, reader, result, fixed)) return result;
    ReadIdentity(given, reader, d);
    ReadKeys(given, reader, purpose, d);
    d.description = reader.Text(given.description);
    Setting<bool> allowZeroLength = reader.Bool(given.allowZeroLength);
    ReadDefault(given, reader, purpose, allowZeroLength, d);

    if (given.fixedLength) d.fixedLength = fixed.ToOptional();
    if (d.IsText()) d.allowZeroLength = allowZeroLength.ToOptional();
    return result;
}

NewTableColumns ReadNewTableColumns(DBORDINAL count, const DBCOLUMNDESC descs[]) {
    std::vector<ColumnDescResult> read;
    for (DBORDINAL i = 0; i < count; ++i) read.push_back(ReadColumnDesc(descs[i], ColumnPurpose::CreateTable));
    for (const auto& r : read)
        if (r.error != S_OK) Fail(r.error, r.message, L"42000");
    for (size_t i = 0; i < read.size(); ++i)
        for (size_t j = 0; j < i; ++j)
            if (EqualsNoCase(read[i].definition.name, read[j].definition.name))
                Fail(DB_E_DUPLICATECOLUMNID, L"The column '" + read[i].definition.name + L"' is given twice.", L"42S21");
    NewTableColumns result;
    for (auto& r : read) {
        if (r.requiredFailed) Fail(DB_E_ERRORSOCCURRED, r.propertyMessage);
        if (r.optionalFailed && result.warning.empty()) result.warning = r.propertyMessage;
        result.optionalFailed = result.optionalFailed || r.optionalFailed;
        result.columns.push_back(std::move(r.definition));
    }
    return result;
}

}  // namespace zel::provider
