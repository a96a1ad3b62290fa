#include "provider/properties/RowsetProperties.h"

#include <initializer_list>

namespace zel::provider {

namespace {

constexpr DBPROPFLAGS kSettable = DBPROPFLAGS_ROWSET | DBPROPFLAGS_READ | DBPROPFLAGS_WRITE;
constexpr DBPROPFLAGS kFixed = DBPROPFLAGS_ROWSET | DBPROPFLAGS_READ;

const PropertyDefinition kDefinitions[] = {
    {&DBPROPSET_ROWSET, DBPROP_IAccessor, VT_BOOL, kFixed, L"IAccessor"},
    {&DBPROPSET_ROWSET, DBPROP_IColumnsInfo, VT_BOOL, kFixed, L"IColumnsInfo"},
    {&DBPROPSET_ROWSET, DBPROP_IConvertType, VT_BOOL, kFixed, L"IConvertType"},
    {&DBPROPSET_ROWSET, DBPROP_IRowset, VT_BOOL, kFixed, L"IRowset"},
    {&DBPROPSET_ROWSET, DBPROP_IRowsetInfo, VT_BOOL, kFixed, L"IRowsetInfo"},
    {&DBPROPSET_ROWSET, DBPROP_ISupportErrorInfo, VT_BOOL, kFixed, L"ISupportErrorInfo"},
    {&DBPROPSET_ROWSET, DBPROP_IRowsetChange, VT_BOOL, kSettable, L"IRowsetChange"},
    {&DBPROPSET_ROWSET, DBPROP_ISequentialStream, VT_BOOL, kSettable, L"ISequentialStream"},
    {&DBPROPSET_ROWSET, DBPROP_IStream, VT_BOOL, kSettable, L"IStream"},
    {&DBPROPSET_ROWSET, DBPROP_IRowsetLocate, VT_BOOL, kFixed, L"IRowsetLocate"},
    {&DBPROPSET_ROWSET, DBPROP_IRowsetScroll, VT_BOOL, kFixed, L"IRowsetScroll"},
    {&DBPROPSET_ROWSET, DBPROP_IRowsetUpdate, VT_BOOL, kFixed, L"IRowsetUpdate"},
    {&DBPROPSET_ROWSET, DBPROP_IRowsetIdentity, VT_BOOL, kFixed, L"IRowsetIdentity"},
    {&DBPROPSET_ROWSET, DBPROP_IRowsetFind, VT_BOOL, kFixed, L"IRowsetFind"},
    {&DBPROPSET_ROWSET, DBPROP_IRowsetResynch, VT_BOOL, kFixed, L"IRowsetResynch"},
    {&DBPROPSET_ROWSET, DBPROP_BOOKMARKS, VT_BOOL, kSettable, L"Use Bookmarks"},
    {&DBPROPSET_ROWSET, DBPROP_CANFETCHBACKWARDS, VT_BOOL, kSettable, L"Fetch Backwards"},
    {&DBPROPSET_ROWSET, DBPROP_CANSCROLLBACKWARDS, VT_BOOL, kSettable, L"Scroll Backwards"},
    {&DBPROPSET_ROWSET, DBPROP_CANHOLDROWS, VT_BOOL, kSettable, L"Hold Rows"},
    {&DBPROPSET_ROWSET, DBPROP_UPDATABILITY, VT_I4, kSettable, L"Updatability"},
    {&DBPROPSET_ROWSET, DBPROP_MAXROWS, VT_I4, kSettable, L"Maximum Rows"},
    {&DBPROPSET_ROWSET, DBPROP_COMMANDTIMEOUT, VT_I4, kSettable, L"Command Time Out"},
    {&DBPROPSET_ROWSET, DBPROP_OWNINSERT, VT_BOOL, kFixed, L"Own Inserts Visible"},
    {&DBPROPSET_ROWSET, DBPROP_OWNUPDATEDELETE, VT_BOOL, kFixed, L"Own Changes Visible"},
    {&DBPROPSET_ROWSET, DBPROP_OTHERINSERT, VT_BOOL, kFixed, L"Others' Inserts Visible"},
    {&DBPROPSET_ROWSET, DBPROP_OTHERUPDATEDELETE, VT_BOOL, kFixed, L"Others' Changes Visible"},
    {&DBPROPSET_ROWSET, DBPROP_REMOVEDELETED, VT_BOOL, kFixed, L"Remove Deleted Rows"},
    {&DBPROPSET_ROWSET, DBPROP_LITERALIDENTITY, VT_BOOL, kFixed, L"Literal Row Identity"},
    {&DBPROPSET_ROWSET, DBPROP_IMMOBILEROWS, VT_BOOL, kFixed, L"Immobile Rows"},
    {&DBPROPSET_ROWSET, DBPROP_QUICKRESTART, VT_BOOL, kFixed, L"Quick Restart"},
    {&DBPROPSET_ROWSET, DBPROP_BLOCKINGSTORAGEOBJECTS, VT_BOOL, kFixed, L"Blocking Storage Objects"},
};

const GUID* const kSets[] = {&DBPROPSET_ROWSET};

}  // namespace

std::span<const PropertyDefinition> RowsetPropertyDefinitions() { return kDefinitions; }
std::span<const GUID* const> RowsetPropertySets() { return kSets; }

PropertyStore MakeRowsetProperties() {
    PropertyStore p(kDefinitions);
    const auto& set = DBPROPSET_ROWSET;
    for (DBPROPID id : std::initializer_list<DBPROPID>{DBPROP_IAccessor, DBPROP_IColumnsInfo, DBPROP_IConvertType, DBPROP_IRowset, DBPROP_IRowsetInfo,
                        DBPROP_ISupportErrorInfo, DBPROP_ISequentialStream, DBPROP_IStream, DBPROP_CANFETCHBACKWARDS,
                        DBPROP_CANSCROLLBACKWARDS, DBPROP_CANHOLDROWS, DBPROP_OWNINSERT, DBPROP_OWNUPDATEDELETE,
                        DBPROP_REMOVEDELETED, DBPROP_LITERALIDENTITY, DBPROP_IMMOBILEROWS, DBPROP_QUICKRESTART})
        p.PutBool(set, id, true);
    for (DBPROPID id : std::initializer_list<DBPROPID>{DBPROP_IRowsetChange, DBPROP_IRowsetLocate, DBPROP_IRowsetScroll, DBPROP_IRowsetUpdate,
                        DBPROP_IRowsetIdentity, DBPROP_IRowsetFind, DBPROP_IRowsetResynch, DBPROP_BOOKMARKS,
                        DBPROP_OTHERINSERT, DBPROP_OTHERUPDATEDELETE, DBPROP_BLOCKINGSTORAGEOBJECTS})
        p.PutBool(set, id, false);
    p.PutI4(set, DBPROP_UPDATABILITY, 0);
    p.PutI4(set, DBPROP_MAXROWS, 0);
    p.PutI4(set, DBPROP_COMMANDTIMEOUT, 0);
    p.CaptureDefaults();
    return p;
}

DBPROPSTATUS ValidateRowsetProperty(const PropertyDefinition& def, const VARIANT& value, bool&) {
    if (V_VT(&value) == VT_I4) {
        if (def.id == DBPROP_UPDATABILITY &&
            (V_I4(&value) & ~(DBPROPVAL_UP_CHANGE | DBPROPVAL_UP_DELETE | DBPROPVAL_UP_INSERT)))
            return DBPROPSTATUS_BADVALUE;
        if ((def.id == DBPROP_MAXROWS || def.id == DBPROP_COMMANDTIMEOUT) && V_I4(&value) < 0)
            return DBPROPSTATUS_BADVALUE;
    }
    return DBPROPSTATUS_OK;
}

bool WantsRowsetChange(const PropertyStore& properties) {
    return properties.GetBool(DBPROPSET_ROWSET, DBPROP_IRowsetChange) ||
           properties.GetI4(DBPROPSET_ROWSET, DBPROP_UPDATABILITY) != 0;
}

}  // namespace zel::provider
