// GoogleTest entry point with COM initialised for the whole run (single-threaded apartment).
#include <objbase.h>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) return 3;
    int result = RUN_ALL_TESTS();
    CoUninitialize();
    return result;
}
