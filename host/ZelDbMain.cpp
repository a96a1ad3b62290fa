// zeldb: the 64-bit command-line client of the ZelPmDb32 server.
#include <windows.h>
#include <objbase.h>

#include <string>
#include <vector>

#include "host/Commands.h"
#include "host/ConnectionArgument.h"
#include "host/TextStreams.h"

int wmain(int argc, wchar_t** argv) {
    using namespace zel::zeldb;
    std::vector<std::wstring> args(argv + 1, argv + argc);
    StdHandleSink out(STD_OUTPUT_HANDLE);
    StdHandleSink err(STD_ERROR_HANDLE);
    StdInputSource in;
    int status;
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {
        err.Write(L"zeldb: cannot initialise COM\n");
        return 1;
    }
    {
        Context context{out, err, in, SystemPaths()};
        status = RunZelDb(args, context);
    }
    out.Flush();
    err.Flush();
    CoUninitialize();
    return status;
}
