#include "oledb/DatabaseFiles.h"

#include <msdasc.h>
#include <shlwapi.h>

#include "common/ComPtr.h"
#include "common/OleDbIids.h"
#include "common/Variant.h"

namespace zel {

HRESULT CreateDatabaseFile(BSTR initString, BSTR mdbFile, KobOleDbErrorInfo& errors) {
    ComPtr<IDataInitialize> init;
    HRESULT hr = TryCreateInstance(CLSID_MSDAINITIALIZE, init);
    if (!errors.CheckResult(hr)) return hr;
    ComPtr<IDBInitialize> dataSource;
    hr = init->GetDataSource(nullptr, CLSCTX_INPROC_SERVER, initString, IID_IDBInitialize, dataSource.put_unknown());
    init.reset();
    if (!errors.CheckResult(hr)) return hr;
    ComPtr<IDBDataSourceAdmin> admin;
    hr = dataSource.query(admin);
    dataSource.reset();
    if (!errors.CheckResult(hr)) return hr;

    DBPROP prop = {};
    prop.dwPropertyID = DBPROP_INIT_DATASOURCE;
    prop.dwOptions = DBPROPOPTIONS_OPTIONAL;
    prop.colid = DB_NULLID;
    Variant file;
    V_VT(file.get()) = VT_BSTR;
    V_BSTR(file.get()) = SysAllocString(mdbFile ? mdbFile : L"");
    if (!V_BSTR(file.get())) return E_FAIL;
    prop.vValue = *file.get();  // borrowed for the call; `file` frees it
    DBPROPSET set = {&prop, 1, DBPROPSET_DBINIT};
    hr = admin->CreateDataSource(1, &set, nullptr, IID_IDBDataSourceAdmin, nullptr);
    if (!errors.CheckResult(hr) && hr == E_UNEXPECTED && mdbFile && PathFileExistsW(mdbFile)) {
        // The provider's complaint is taken to mean that the file now exists.
        hr = S_OK;
    }
    return hr;
}

}  // namespace zel
