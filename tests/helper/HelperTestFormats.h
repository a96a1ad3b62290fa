// The helper's data-source formats as the tests expect them: the keys each one needs and
// the exact connection-string template and code it must answer.
#pragma once

#include <windows.h>

#include <ostream>
#include <vector>

namespace zel::test {

struct ExpectedFormat {
    const char* label;
    LONG format;
    const wchar_t* engine;
    const wchar_t* isam;  // null: no ISAM key is needed
    const wchar_t* connStr;
    LONG connFlags;
};

inline const std::vector<ExpectedFormat>& ExpectedFormats() {
    static const std::vector<ExpectedFormat> formats = {
        {"kAccess", 0, L"Jet 4.0", nullptr, L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!", 2},
        {"kAccess97", 1, L"Jet 4.0", nullptr,
         L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Jet OLEDB:Engine Type=4;", 2},
        {"kExcel8_0", 2, L"Excel", L"Excel 8.0",
         L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Extended Properties=\"Excel 8.0;HDR=Yes\"", 0},
        {"kExcel5_0", 3, L"Excel", L"Excel 5.0",
         L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Extended Properties=\"Excel 5.0;HDR=Yes\"", 0},
        {"kdBASE5_0", 4, L"Xbase", L"dBase 5.0",
         L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Extended Properties=\"dBase 5.0;\"", 1},
        {"kdBASEIV", 5, L"Xbase", L"dBase IV",
         L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Extended Properties=\"dBase IV;\"", 1},
        {"kdBASEIII", 6, L"Xbase", L"dBase III",
         L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Extended Properties=\"dBase III;\"", 1},
        {"kFoxPro3_0", 7, L"Xbase", L"FoxPro 3.0",
         L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Extended Properties=\"FoxPro 3.0;\"", 1},
        {"kFoxPro2_6", 8, L"Xbase", L"FoxPro 2.6",
         L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Extended Properties=\"FoxPro 2.6;\"", 1},
        {"kFoxPro2_5", 9, L"Xbase", L"FoxPro 2.5",
         L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Extended Properties=\"FoxPro 2.5;\"", 1},
        {"kHTMLExport", 10, L"Text", L"HTML Export",
         L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Extended Properties=\"HTML Export;\"", 1},
    };
    return formats;
}

inline std::ostream& operator<<(std::ostream& os, const ExpectedFormat& f) { return os << f.label; }

}  // namespace zel::test
