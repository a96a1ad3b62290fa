// Entry point of the ZelPmDb32 server process.
#include <windows.h>

int WINAPI wWinMain(HINSTANCE, HINSTANCE, LPWSTR, int) {
    return 0;
}
