#include "oledb/ServerRowsetProperties.h"

#include <oaidl.h>

#include "common/ComPtr.h"
#include "common/OleDbIids.h"

namespace zel {

HRESULT SetServerRowsetProperties(ICommand* command) noexcept {
    DBPROP props[5] = {};
    const struct {
        DBPROPID id;
        DBPROPOPTIONS options;
        bool isUpdatability;
    } wanted[5] = {
        {DBPROP_IRowsetChange, DBPROPOPTIONS_OPTIONAL, false},
        {DBPROP_UPDATABILITY, DBPROPOPTIONS_REQUIRED, true},
        {DBPROP_CANSCROLLBACKWARDS, DBPROPOPTIONS_REQUIRED, false},
        {DBPROP_ISequentialStream, DBPROPOPTIONS_OPTIONAL, false},
        {DBPROP_IStream, DBPROPOPTIONS_OPTIONAL, false},
    };
    for (int i = 0; i < 5; ++i) {
        props[i].dwPropertyID = wanted[i].id;
        props[i].dwOptions = wanted[i].options;
        props[i].colid = DB_NULLID;
        if (wanted[i].isUpdatability) {
            V_VT(&props[i].vValue) = VT_I4;
            V_I4(&props[i].vValue) = DBPROPVAL_UP_CHANGE | DBPROPVAL_UP_DELETE | DBPROPVAL_UP_INSERT;
        } else {
            V_VT(&props[i].vValue) = VT_BOOL;
            V_BOOL(&props[i].vValue) = VARIANT_TRUE;
        }
    }
    DBPROPSET set = {props, 5, DBPROPSET_ROWSET};

    ComPtr<ICommandProperties> properties;
    HRESULT hr = ComPtr<ICommand>(command).query(properties);
    return FAILED(hr) ? hr : properties->SetProperties(1, &set);
}

}  // namespace zel
