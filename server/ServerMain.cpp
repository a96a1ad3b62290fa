// Entry point of the ZelPmDb32 server process.
#include <windows.h>

#include "server/ZelPmDb32Module.h"

int WINAPI wWinMain(HINSTANCE, HINSTANCE, LPWSTR commandLine, int) {
    zel::CKobPmDb32Module module;
    return module.WinMain(commandLine);
}
