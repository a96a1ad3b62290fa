#include "tests/oledb/FieldTextDifferential.h"

#include <oleauto.h>
#include <rpc.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <map>

#include "common/Bstr.h"
#include "common/Utf8.h"
#include "oledb/DateTextFormat.h"
#include "oledb/FieldText.h"

namespace zel::test {
namespace {

constexpr double kDateMin = -657434.0;
constexpr double kDateMax = 2958465.0;

// splitmix64: a small generator whose sequence depends on the seed only.
class Random {
public:
    explicit Random(uint64_t seed) : m_state(seed) {}
    uint64_t Next() {
        uint64_t z = (m_state += 0x9E3779B97F4A7C15ULL);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        return z ^ (z >> 31);
    }
    uint64_t Below(uint64_t limit) { return Next() % limit; }
    // A value of a random bit length, so that small numbers are as common as large ones.
    uint64_t Bits(int maxBits) {
        const int bits = static_cast<int>(Below(static_cast<uint64_t>(maxBits) + 1));
        return bits == 64 ? Next() : Next() & ((uint64_t{1} << bits) - 1);
    }
    double Uniform(double low, double high) { return low + (high - low) * (static_cast<double>(Next() >> 11) / 9007199254740992.0); }

private:
    uint64_t m_state;
};

double FromBits(uint64_t bits) {
    double d;
    std::memcpy(&d, &bits, sizeof d);
    return d;
}

uint64_t ToBits(double value) {
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

// A value slot large enough for every fixed-size type (DECIMAL, VARIANT, GUID, DBTIMESTAMP).
struct Slot {
    alignas(8) BYTE bytes[24] = {};
    template <typename T>
    void Set(const T& value) {
        std::memset(bytes, 0, sizeof bytes);
        std::memcpy(bytes, &value, sizeof value);
    }
};

// The platform formatter the server used for every value before, as the reference.
using zel::PlatformFormat;

std::wstring PlatformDate(DATE value, LCID locale, ULONG flags) {
    Bstr text;
    if (FAILED(VarBstrFromDate(value, locale, flags, text.put()))) return L"Invalid DateTime";
    return text.str();
}

std::wstring PlatformFieldsDate(const SYSTEMTIME& time, LCID locale, ULONG flags) {
    DATE date = 0;
    if (!SystemTimeToVariantTime(const_cast<SYSTEMTIME*>(&time), &date)) return L"Invalid DateTime";
    return PlatformDate(date, locale, flags);
}

// The fields come from the server's own conversion: what is compared is their text.
std::wstring PlatformTimestamp(const DBTIMESTAMP& value) {
    SYSTEMTIME time;
    if (!zel::TimestampFields(value, time)) return L"Invalid DateTime";
    return PlatformFieldsDate(time, LANG_USER_DEFAULT, 0);
}

std::string Hex(const BYTE* value, size_t size) {
    std::string text;
    char part[4];
    for (size_t i = 0; i < size; ++i) {
        std::snprintf(part, sizeof part, "%02x", value[i]);
        text += part;
    }
    return text;
}

using Generator = std::function<void(Random&, uint64_t, Slot&)>;

struct Kind {
    DBTYPE type;
    size_t size;
    Generator generate;
};

// Integers: the listed values first, then random ones of random bit length and sign.
template <typename T>
Generator IntegerValues() {
    return [](Random& random, uint64_t i, Slot& slot) {
        using Limits = std::numeric_limits<T>;
        static const std::vector<T> listed = [] {
            std::vector<T> values;
            for (long long k = 0; k <= 1000; ++k) {
                values.push_back(static_cast<T>(static_cast<long long>(Limits::min()) + k));
                values.push_back(static_cast<T>(static_cast<long long>(Limits::max()) - k));
                values.push_back(static_cast<T>(k));
                if (Limits::is_signed) values.push_back(static_cast<T>(-k));
            }
            for (unsigned long long p = 1; p <= static_cast<unsigned long long>(Limits::max()) / 10 + 1; p *= 10)
                for (int d = -2; d <= 2; ++d) values.push_back(static_cast<T>(p + d));
            return values;
        }();
        T value;
        if (i < listed.size()) value = listed[i];
        else value = static_cast<T>(random.Bits(8 * sizeof(T)) * ((random.Next() & 1) && Limits::is_signed ? -1 : 1));
        slot.Set(value);
    };
}

// Every value of a 16-bit type, in an order that mixes small, large and negative ones so that
// any prefix covers all kinds, then random ones.
template <typename T>
Generator AllValues() {
    return [](Random& random, uint64_t i, Slot& slot) {
        slot.Set(static_cast<T>(i < 65536 ? (i * 0x9E37u) & 0xFFFFu : random.Next()));
    };
}

// Reals: the special and boundary values first; then, in turn, random bit patterns (every
// NaN payload, subnormals, both signs), exact binary fractions (whose decimal digits can end
// exactly halfway, the rounding case of the platform formatter), neighbours of powers of ten
// and random decimals.
double RealValue(Random& random, uint64_t i) {
    static const std::vector<double> listed = [] {
        std::vector<double> values = {0.0, -0.0, 1.0, -1.0, 0.5, 1234565.0, 100000.5, 999999.5, 9999995.0,
                                      0.00001, 0.0001, 1e-5, 1e6, 1e20, 1e300, 1e-300, 4.9406564584124654e-324,
                                      2.2250738585072014e-308, 1.7976931348623157e308, 0.0078125, 2.5e-7,
                                      std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                                      FromBits(0x7FF8000000000000ULL), FromBits(0xFFF8000000000000ULL),
                                      FromBits(0x7FF0000000000001ULL), FromBits(0xFFF0000000000001ULL),
                                      FromBits(0x7FFFFFFFFFFFFFFFULL), FromBits(0xFFFFFFFFFFFFFFFFULL)};
        for (int e = -320; e <= 308; ++e) {
            const double p = std::pow(10.0, e);
            values.push_back(p);
            values.push_back(std::nextafter(p, 0.0));
            values.push_back(std::nextafter(p, 2 * p));
            values.push_back(-p);
        }
        return values;
    }();
    if (i < listed.size()) return listed[i];
    switch (random.Below(4)) {
        case 0: return FromBits(random.Next());
        case 1: {
            const double m = static_cast<double>(random.Bits(30)) * ((random.Next() & 1) ? -1 : 1);
            return std::ldexp(m, static_cast<int>(random.Below(120)) - 60);
        }
        case 2: {
            const double p = std::pow(10.0, static_cast<int>(random.Below(600)) - 300);
            return FromBits(ToBits(p) + random.Below(9) - 4);
        }
        default:
            return static_cast<double>(random.Bits(50)) / std::pow(10.0, static_cast<int>(random.Below(25)));
    }
}

// Dates: the range limits and their neighbours first; then, in turn, any value in the valid
// range and a little beyond, whole days with whole seconds (what calendar fields make),
// values a hair either side of a second, and random bit patterns.
double DateValue(Random& random, uint64_t i) {
    static const std::vector<double> listed = [] {
        std::vector<double> values = {0.0, -0.0, 0.5, -0.5, 1.0, -1.0, 1.5, -1.5, kDateMin, kDateMax,
                                      kDateMin - 1.0, kDateMax + 1.0, kDateMin - 0.5, kDateMax + 0.5,
                                      kDateMax + 0.99999999, kDateMin - 0.99999999, 45000.5,
                                      std::nan(""), std::numeric_limits<double>::infinity(),
                                      -std::numeric_limits<double>::infinity()};
        for (double edge : {kDateMin - 1.0, kDateMax + 1.0, kDateMin, kDateMax, 0.0, 1.0, -1.0}) {
            double up = edge, down = edge;
            for (int k = 0; k < 8; ++k) {
                up = std::nextafter(up, 1e300);
                down = std::nextafter(down, -1e300);
                values.push_back(up);
                values.push_back(down);
            }
        }
        return values;
    }();
    if (i < listed.size()) return listed[i];
    switch (random.Below(4)) {
        case 0: return random.Uniform(kDateMin - 3.0, kDateMax + 3.0);
        case 1: {
            const double day = std::floor(random.Uniform(kDateMin - 2.0, kDateMax + 2.0));
            const double seconds = static_cast<double>(random.Below(86400));
            return day + (day < 0 ? -1 : 1) * seconds / 86400.0;
        }
        case 2: {
            const double day = std::floor(random.Uniform(kDateMin, kDateMax));
            const double seconds = static_cast<double>(random.Below(86401)) + (static_cast<double>(random.Below(2001)) - 1000) * 1e-7;
            return day + seconds / 86400.0;
        }
        default: return FromBits(random.Next());
    }
}

const std::map<std::string, Kind>& Kinds() {
    static const std::map<std::string, Kind> kinds = {
        {"UI1 %hu", {DBTYPE_UI1, 1, AllValues<BYTE>()}},
        {"I2 %hd", {DBTYPE_I2, 2, AllValues<SHORT>()}},
        {"UI2 %hu", {DBTYPE_UI2, 2, AllValues<USHORT>()}},
        {"I4 %ld", {DBTYPE_I4, 4, IntegerValues<LONG>()}},
        {"ERROR %ld", {DBTYPE_ERROR, 4, IntegerValues<LONG>()}},
        {"UI4 %lu", {DBTYPE_UI4, 4, IntegerValues<ULONG>()}},
        {"I8 %d", {DBTYPE_I8, 8, IntegerValues<LONGLONG>()}},
        {"UI8 %ud", {DBTYPE_UI8, 8, IntegerValues<ULONGLONG>()}},
        {"R8 %lg", {DBTYPE_R8, 8, [](Random& r, uint64_t i, Slot& s) { s.Set(RealValue(r, i)); }}},
        {"R4 %g", {DBTYPE_R4, 4, [](Random& r, uint64_t i, Slot& s) {
             // Every float bit pattern is reached at random; the listed reals narrowed first.
             float f = i < 3000 ? static_cast<float>(RealValue(r, i)) : 0.0f;
             if (i >= 3000) {
                 const uint32_t bits = static_cast<uint32_t>(r.Next());
                 std::memcpy(&f, &bits, sizeof f);
             }
             s.Set(f);
         }}},
        {"CY %l.%l", {DBTYPE_CY, 8, IntegerValues<LONGLONG>()}},
        {"BOOL %f", {DBTYPE_BOOL, 2, AllValues<SHORT>()}},
        {"VARIANT %f", {DBTYPE_VARIANT, 16, [](Random& r, uint64_t i, Slot& s) {
             // The first 8 bytes are the double the formatter reads; the rest random.
             VARIANT v;
             std::memset(&v, 0, sizeof v);
             const double d = (i % 2 == 0) ? RealValue(r, i / 2) : std::ldexp(static_cast<double>(r.Bits(40)), -static_cast<int>(r.Below(48)));
             std::memcpy(&v, &d, sizeof d);
             const uint64_t tail = r.Next();
             std::memcpy(reinterpret_cast<BYTE*>(&v) + 8, &tail, sizeof tail);
             s.Set(v);
         }}},
        {"DATE", {DBTYPE_DATE, 8, [](Random& r, uint64_t i, Slot& s) { s.Set(DateValue(r, i)); }}},
        {"DBDATE", {DBTYPE_DBDATE, sizeof(DBDATE), [](Random& r, uint64_t, Slot& s) {
             DBDATE d;
             d.year = static_cast<SHORT>(r.Below(5) == 0 ? static_cast<int>(r.Below(20)) + 90 + (r.Next() & 1) * 9910
                                                         : static_cast<int>(r.Below(9950)) + 95);
             d.month = static_cast<USHORT>(r.Below(10) == 0 ? r.Below(16) : r.Below(12) + 1);
             d.day = static_cast<USHORT>(r.Below(10) == 0 ? r.Below(34) : r.Below(31) + 1);
             if (r.Below(50) == 0) d = {1899, 12, 30};
             s.Set(d);
         }}},
        {"DBTIME", {DBTYPE_DBTIME, sizeof(DBTIME), [](Random& r, uint64_t i, Slot& s) {
             DBTIME t;
             if (i < 86400) {
                 t = {static_cast<USHORT>(i / 3600), static_cast<USHORT>(i / 60 % 60), static_cast<USHORT>(i % 60)};
             } else {
                 t = {static_cast<USHORT>(r.Below(26)), static_cast<USHORT>(r.Below(62)), static_cast<USHORT>(r.Below(62))};
             }
             s.Set(t);
         }}},
        {"DBTIMESTAMP", {DBTYPE_DBTIMESTAMP, sizeof(DBTIMESTAMP), [](Random& r, uint64_t, Slot& s) {
             DBTIMESTAMP t = {};
             t.year = static_cast<SHORT>(r.Below(10) == 0 ? static_cast<int>(r.Below(20)) + 90 + (r.Next() & 1) * 9910
                                                          : static_cast<int>(r.Below(9950)) + 95);
             t.month = static_cast<USHORT>(r.Below(20) == 0 ? r.Below(16) : r.Below(12) + 1);
             t.day = static_cast<USHORT>(r.Below(20) == 0 ? r.Below(34) : r.Below(31) + 1);
             if (r.Below(20) != 0) {
                 t.hour = static_cast<USHORT>(r.Below(50) == 0 ? r.Below(26) : r.Below(24));
                 t.minute = static_cast<USHORT>(r.Below(50) == 0 ? r.Below(62) : r.Below(60));
                 t.second = static_cast<USHORT>(r.Below(50) == 0 ? r.Below(62) : r.Below(60));
             }
             t.fraction = static_cast<ULONG>(r.Below(1000000000));
             if (r.Below(50) == 0) {
                 t.year = 1899;
                 t.month = 12;
                 t.day = r.Below(2) == 0 ? 30 : 29;
             }
             s.Set(t);
         }}},
        {"FILETIME", {DBTYPE_FILETIME, sizeof(FILETIME), [](Random& r, uint64_t, Slot& s) {
             // Mostly within the years 1601 to 30827 that FileTimeToSystemTime accepts.
             uint64_t ticks = r.Below(8) == 0 ? r.Next() : r.Below(0x7FFFFFFFFFFFFFFFULL / 100) * (r.Below(100) + 1);
             if (r.Below(4) == 0) ticks = ticks / 10000000 * 10000000;  // whole seconds
             FILETIME f;
             f.dwLowDateTime = static_cast<DWORD>(ticks);
             f.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
             s.Set(f);
         }}},
        {"DECIMAL", {DBTYPE_DECIMAL, sizeof(DECIMAL), [](Random& r, uint64_t, Slot& s) {
             DECIMAL d = {};
             d.scale = static_cast<BYTE>(r.Below(20) == 0 ? r.Below(256) : r.Below(29));
             d.sign = r.Below(2) == 0 ? 0 : (r.Below(10) == 0 ? static_cast<BYTE>(r.Next()) : DECIMAL_NEG);
             d.Hi32 = r.Below(3) == 0 ? static_cast<ULONG>(r.Bits(32)) : 0;
             d.Lo64 = r.Bits(64);
             s.Set(d);
         }}},
        {"GUID", {DBTYPE_GUID, sizeof(GUID), [](Random& r, uint64_t i, Slot& s) {
             uint64_t halves[2] = {r.Next(), r.Next()};
             if (i == 0) halves[0] = halves[1] = 0;
             if (i == 1) halves[0] = halves[1] = ~0ULL;
             GUID g;
             std::memcpy(&g, halves, sizeof g);
             s.Set(g);
         }}},
        {"IDISPATCH %p", {DBTYPE_IDISPATCH, sizeof(void*), [](Random& r, uint64_t i, Slot& s) {
             const uintptr_t bits = i == 0 ? 0 : i == 1 ? ~uintptr_t{0} : static_cast<uintptr_t>(r.Bits(8 * sizeof(void*)));
             s.Set(bits);
         }}},
    };
    return kinds;
}

std::string ValueDescription(DBTYPE type, const BYTE* value, size_t size) {
    std::string text = Hex(value, size);
    if (type == DBTYPE_R8 || type == DBTYPE_DATE || type == DBTYPE_VARIANT) {
        double d;
        std::memcpy(&d, value, sizeof d);
        char part[40];
        std::snprintf(part, sizeof part, " (%.17g)", d);
        text += part;
    }
    return text;
}

void Record(DifferentialResult& result, const std::string& value, const std::wstring& expected,
            const std::wstring& actual) {
    ++result.mismatches;
    if (result.examples.size() < 5)
        result.examples.push_back(value + ": platform \"" + ToUtf8(expected) + "\", formatter \"" + ToUtf8(actual) + "\"");
}

}  // namespace

std::wstring PlatformValueText(DBTYPE type, const BYTE* v) {
    auto read = [v](auto value) {
        std::memcpy(&value, v, sizeof value);
        return value;
    };
    switch (type) {
        case DBTYPE_UI1: return PlatformFormat(L"%hu", static_cast<unsigned>(read(BYTE())));
        case DBTYPE_I2: return PlatformFormat(L"%hd", static_cast<int>(read(SHORT())));
        case DBTYPE_UI2: return PlatformFormat(L"%hu", static_cast<unsigned>(read(USHORT())));
        case DBTYPE_I4:
        case DBTYPE_ERROR: return PlatformFormat(L"%ld", read(LONG()));
        case DBTYPE_UI4: return PlatformFormat(L"%lu", read(ULONG()));
        case DBTYPE_I8: {
            ULONGLONG value = read(ULONGLONG());
            return PlatformFormat(L"%d", static_cast<int>(static_cast<ULONG>(value)), static_cast<int>(value >> 32));
        }
        case DBTYPE_UI8: {
            ULONGLONG value = read(ULONGLONG());
            return PlatformFormat(L"%ud", static_cast<unsigned>(value), static_cast<unsigned>(value >> 32));
        }
        case DBTYPE_R4: return PlatformFormat(L"%g", static_cast<double>(read(float())));
        case DBTYPE_R8: return PlatformFormat(L"%lg", read(double()));
        case DBTYPE_CY: {
            LONGLONG value = read(CY()).int64;
            LONGLONG q = value / 10000;
            LONGLONG r = value - q * 10000;
            return PlatformFormat(L"%l.%l", static_cast<ULONG>(q), static_cast<ULONG>(q >> 32), static_cast<ULONG>(r),
                                  static_cast<ULONG>(r >> 32));
        }
        case DBTYPE_DATE: return PlatformDate(read(DATE()), LANG_USER_DEFAULT, 0);
        case DBTYPE_DBDATE: {
            SYSTEMTIME time;
            if (!zel::DateFields(read(DBDATE()), time)) return L"Invalid DateTime";
            return PlatformFieldsDate(time, LANG_USER_DEFAULT, VAR_DATEVALUEONLY);
        }
        case DBTYPE_DBTIME: {
            SYSTEMTIME time;
            if (!zel::TimeFields(read(DBTIME()), time)) return L"Invalid DateTime";
            return PlatformFieldsDate(time, LANG_USER_DEFAULT, VAR_TIMEVALUEONLY);
        }
        case DBTYPE_DBTIMESTAMP: return PlatformTimestamp(read(DBTIMESTAMP()));
        case DBTYPE_FILETIME: {
            FILETIME value = read(FILETIME());
            SYSTEMTIME time = {};
            if (!FileTimeToSystemTime(&value, &time)) return {};
            DBTIMESTAMP stamp = {};
            stamp.year = static_cast<SHORT>(time.wYear);
            stamp.month = time.wMonth;
            stamp.day = time.wDay;
            stamp.hour = time.wHour;
            stamp.minute = time.wMinute;
            stamp.second = time.wSecond;
            return PlatformTimestamp(stamp);
        }
        case DBTYPE_BOOL: {
            LONG extended = read(SHORT());
            return PlatformFormat(L"%f", FromBits(static_cast<ULONG>(extended)));
        }
        case DBTYPE_VARIANT: return PlatformFormat(L"%f", read(double()));
        case DBTYPE_DECIMAL: {
            DECIMAL value = read(DECIMAL());
            wchar_t part[72];
            std::wstring digits;
            if (value.Hi32 != 0) {
                _ultow(value.Hi32, part, 10);
                digits = part;
            }
            _ui64tow(value.Lo64, part, 10);
            digits += part;
            const size_t scale = value.scale;
            std::wstring text;
            if (digits.size() > scale) {
                text = digits.substr(0, digits.size() - scale) + L"." + digits.substr(digits.size() - scale);
            } else {
                while (digits.size() < scale) digits.insert(digits.begin(), L'0');
                text = L"0." + digits;
            }
            if (value.sign != 0) text.insert(text.begin(), L'-');
            return text;
        }
        case DBTYPE_GUID: {
            GUID value = read(GUID());
            RPC_WSTR text = nullptr;
            if (UuidToStringW(&value, &text) != RPC_S_OK || !text) return {};
            std::wstring result(reinterpret_cast<wchar_t*>(text));
            RpcStringFreeW(&text);  // the RPC runtime's own string
            return result;
        }
        case DBTYPE_IDISPATCH: return PlatformFormat(L"%p", read(static_cast<void*>(nullptr)));
        default: return {};
    }
}

std::vector<std::string> ValueKinds() {
    std::vector<std::string> names;
    for (const auto& [name, kind] : Kinds()) names.push_back(name);
    return names;
}

DifferentialResult CompareValueKind(const std::string& name, uint64_t seed, uint64_t count) {
    DifferentialResult result;
    result.name = name;
    const Kind& kind = Kinds().at(name);
    Random random(seed ^ std::hash<std::string>()(name));
    Slot slot;
    for (uint64_t i = 0; i < count; ++i) {
        kind.generate(random, i, slot);
        const std::wstring expected = PlatformValueText(kind.type, slot.bytes);
        const std::wstring actual = ValueText(kind.type, slot.bytes);
        ++result.compared;
        if (actual != expected) Record(result, ValueDescription(kind.type, slot.bytes, kind.size), expected, actual);
    }
    return result;
}

DifferentialResult CompareLocaleDates(LCID locale, uint64_t seed, uint64_t count) {
    char name[64];
    std::snprintf(name, sizeof name, "dates in locale %04lx", static_cast<unsigned long>(locale));
    DifferentialResult result;
    result.name = name;
    const DateTextFormat format = DateTextFormat::ForLocale(locale);
    Random random(seed ^ locale);
    static const ULONG kFlags[] = {0, VAR_DATEVALUEONLY, VAR_TIMEVALUEONLY};
    for (uint64_t i = 0; i < count; ++i) {
        const ULONG flags = kFlags[random.Below(3)];
        if (i % 2 == 0) {
            const double value = DateValue(random, i / 2);
            std::wstring actual;
            if (!format.DateText(value, flags, actual)) actual = L"Invalid DateTime";
            const std::wstring expected = PlatformDate(value, locale, flags);
            ++result.compared;
            if (actual != expected) {
                char part[64];
                std::snprintf(part, sizeof part, "%.17g flags %lu", value, flags);
                Record(result, part, expected, actual);
            }
        } else {
            SYSTEMTIME time = {};
            time.wYear = static_cast<WORD>(random.Below(10) == 0 ? 1899 : 100 + random.Below(9900));
            time.wMonth = static_cast<WORD>(random.Below(12) + 1);
            time.wDay = static_cast<WORD>(random.Below(28) + 1);
            if (time.wYear == 1899 && random.Below(2) == 0) {
                time.wMonth = 12;
                time.wDay = 30;
            }
            if (random.Below(4) != 0) {
                time.wHour = static_cast<WORD>(random.Below(24));
                time.wMinute = static_cast<WORD>(random.Below(60));
                time.wSecond = static_cast<WORD>(random.Below(60));
            }
            std::wstring actual;
            if (!format.FieldsText(time, flags, actual)) actual = L"Invalid DateTime";
            const std::wstring expected = PlatformFieldsDate(time, locale, flags);
            ++result.compared;
            if (actual != expected) {
                char part[80];
                std::snprintf(part, sizeof part, "%04u-%02u-%02u %02u:%02u:%02u flags %lu", time.wYear, time.wMonth,
                              time.wDay, time.wHour, time.wMinute, time.wSecond, flags);
                Record(result, part, expected, actual);
            }
        }
    }
    return result;
}

namespace {

BOOL CALLBACK AddLocale(LPWSTR name, DWORD, LPARAM context) {
    const LCID lcid = LocaleNameToLCID(name, 0);
    if (lcid != 0 && lcid != LOCALE_CUSTOM_UNSPECIFIED && name[0] != 0)
        reinterpret_cast<std::vector<LCID>*>(context)->push_back(lcid);
    return TRUE;
}

}  // namespace

std::vector<LCID> InstalledLocales() {
    std::vector<LCID> locales;
    EnumSystemLocalesEx(AddLocale, LOCALE_ALL, reinterpret_cast<LPARAM>(&locales), nullptr);
    return locales;
}

std::string Describe(const DifferentialResult& result) {
    std::string text = result.name + ": " + std::to_string(result.compared) + " compared, " +
                       std::to_string(result.mismatches) + " different";
    for (const std::string& example : result.examples) text += "\n  " + example;
    return text;
}

}  // namespace zel::test
