// The compaction interface a provider's data source offers: Compact writes a compacted copy
// of the open database to the DBPROP_INIT_DATASOURCE path of the DBINIT property set given.
// The server asks the data source for it by this interface id; the embedded provider
// implements it.
#pragma once

#include <windows.h>
#include <oledb.h>

// {2A4B6284-EEB4-11D1-A4D9-00C04F991C78}
MIDL_INTERFACE("2A4B6284-EEB4-11D1-A4D9-00C04F991C78")
IJetCompact : public IUnknown {
public:
    virtual HRESULT STDMETHODCALLTYPE Compact(ULONG cPropertySets, DBPROPSET rgPropertySets[]) = 0;
};
__CRT_UUID_DECL(IJetCompact, 0x2a4b6284, 0xeeb4, 0x11d1, 0xa4, 0xd9, 0x00, 0xc0, 0x4f, 0x99, 0x1c, 0x78)
