// Every IZelOleDb method called once through the dispatcher, with arguments made from the
// method's parameter list in the type library: the call must arrive at the method of the
// same name with every in-value of its declared type, and the outputs and the return value
// must come back with their declared automation types. Each method runs twice: with typed
// arguments as a compiled client passes them (values, VT_BYREF of the exact type), and as a
// script passes them (every argument VT_BYREF|VT_VARIANT to a variable).
#include <windows.h>
#include <oleauto.h>

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "automation/Dispatch.h"
#include "common/Bstr.h"
#include "common/ComPtr.h"
#include "tests/server/DispatchTestSupport.h"
#include "tests/server/FakeZelOleDb.h"
#include "tests/server/ZelOleDbMethodTable.h"

using namespace zel::test;
using zel::Bstr;
using zel::ComPtr;
using zel::Variant;

namespace {

enum class Style { Typed, Script };

// "VT_xx:value" of a VARIANT, for readable comparisons.
std::wstring Describe(const VARIANT& v) {
    std::wstring text = L"vt" + std::to_wstring(V_VT(&v)) + L":";
    if (V_VT(&v) == VT_EMPTY) return text;
    Variant copy, converted;
    if (FAILED(VariantCopyInd(copy.get(), const_cast<VARIANT*>(&v))) ||
        FAILED(VariantChangeType(converted.get(), copy.get(), 0, VT_BSTR)))
        return text + L"?";
    return text + BstrText(V_BSTR(converted.get()));
}

// One parameter as the type library declares it.
struct DeclaredParam {
    USHORT flags;     // PARAMFLAG_FIN / FOUT / FRETVAL
    VARTYPE type;     // the parameter's own type, VT_PTR for references
    VARTYPE pointee;  // for VT_PTR: the referenced type
    bool In() const { return (flags & PARAMFLAG_FIN) != 0; }
    bool Out() const { return (flags & PARAMFLAG_FOUT) != 0; }
    bool Retval() const { return (flags & PARAMFLAG_FRETVAL) != 0; }
};

struct DeclaredMethod {
    std::wstring name;
    std::vector<DeclaredParam> params;
};

class TypeLibrary {
public:
    static TypeLibrary& Get() {
        static TypeLibrary library;
        return library;
    }

    // The method with dispatch id `id` in the vtable view of IZelOleDb.
    DeclaredMethod Method(DISPID id) {
        DeclaredMethod method;
        if (!m_info) return method;
        TYPEATTR* attr = nullptr;
        if (FAILED(m_info->GetTypeAttr(&attr))) return method;
        const WORD count = attr->cFuncs;
        m_info->ReleaseTypeAttr(attr);
        for (UINT i = 0; i < count; ++i) {
            FUNCDESC* func = nullptr;
            if (FAILED(m_info->GetFuncDesc(i, &func))) continue;
            if (func->memid == id) {
                Bstr name;
                m_info->GetDocumentation(func->memid, name.put(), nullptr, nullptr, nullptr);
                method.name = name.str();
                for (SHORT p = 0; p < func->cParams; ++p) {
                    const ELEMDESC& e = func->lprgelemdescParam[p];
                    const VARTYPE pointee = e.tdesc.vt == VT_PTR ? e.tdesc.lptdesc->vt : VARTYPE{VT_EMPTY};
                    method.params.push_back({e.paramdesc.wParamFlags, e.tdesc.vt, pointee});
                }
            }
            m_info->ReleaseFuncDesc(func);
        }
        return method;
    }

    bool Loaded() const { return static_cast<bool>(m_info); }

private:
    TypeLibrary() {
        wchar_t self[MAX_PATH] = {};
        GetModuleFileNameW(nullptr, self, MAX_PATH);
        ComPtr<ITypeLib> lib;
        if (FAILED(LoadTypeLibEx(self, REGKIND_NONE, lib.put()))) return;
        ComPtr<ITypeInfo> info;
        if (FAILED(lib->GetTypeInfoOfGuid(IID_IZelOleDb, info.put()))) return;
        HREFTYPE ref = 0;
        if (SUCCEEDED(info->GetRefTypeOfImplType(-1, &ref))) {
            info->GetRefTypeInfo(ref, m_info.put());  // the vtable view of the dual interface
        } else {
            m_info = info;
        }
    }
    ComPtr<ITypeInfo> m_info;
};

class EveryMethodTest : public testing::TestWithParam<std::tuple<int, Style>> {
protected:
    static constexpr size_t kMax = 8;

    // Storage the by-reference arguments point to.
    std::array<Variant, kMax> m_variables;
    std::array<Bstr, kMax> m_strings;
    std::array<short, kMax> m_shorts{};
    std::array<ULONG, kMax> m_handles{};
};

}  // namespace

TEST_P(EveryMethodTest, ArrivesAtItsOwnMethodWithItsArgumentsAndReturnsItsDeclaredTypes) {
    const ZelMethodEntry& entry = kZelOleDbMethods[std::get<0>(GetParam())];
    const bool script = std::get<1>(GetParam()) == Style::Script;
    ASSERT_TRUE(TypeLibrary::Get().Loaded()) << "the type library embedded in the test program";
    const DeclaredMethod declared = TypeLibrary::Get().Method(entry.dispid);
    ASSERT_EQ(std::wstring(entry.name), declared.name);

    // Arguments in declaration order, and what the method must receive.
    std::vector<Variant> args;
    std::vector<std::wstring> expectedArrivals;
    const DeclaredParam* retval = nullptr;
    for (size_t i = 0; i < declared.params.size(); ++i) {
        const DeclaredParam& p = declared.params[i];
        if (p.Retval()) {
            retval = &p;
            continue;
        }
        auto asScriptVariable = [&](Variant value) {
            if (!script) return value;
            m_variables[i] = std::move(value);
            return RefVariant(m_variables[i].get());
        };
        if (p.In() && !p.Out() && p.type != VT_PTR) {
            switch (p.type) {
                case VT_UI4:  // a handle
                    args.push_back(asScriptVariable(I4(1000 + static_cast<LONG>(i))));
                    expectedArrivals.push_back(Describe(*UI4(1000 + static_cast<ULONG>(i)).get()));
                    break;
                case VT_I4:
                    args.push_back(asScriptVariable(I4(-500 - static_cast<LONG>(i))));
                    expectedArrivals.push_back(Describe(*I4(-500 - static_cast<LONG>(i)).get()));
                    break;
                case VT_BSTR: {
                    const std::wstring text = L"in" + std::to_wstring(i);
                    args.push_back(asScriptVariable(Str(text.c_str())));
                    expectedArrivals.push_back(Describe(*Str(text.c_str()).get()));
                    break;
                }
                case VT_BOOL:
                    args.push_back(asScriptVariable(Bool(true)));
                    expectedArrivals.push_back(Describe(*Bool(true).get()));
                    break;
                case VT_UI8:
                    // A script has no 64-bit numbers: it passes a small integer.
                    if (script) {
                        args.push_back(asScriptVariable(I2(static_cast<SHORT>(i + 1))));
                        expectedArrivals.push_back(Describe(*UI8(i + 1).get()));
                    } else {
                        args.push_back(UI8(0x100000000ull + i));
                        expectedArrivals.push_back(Describe(*UI8(0x100000000ull + i).get()));
                    }
                    break;
                default:
                    FAIL() << "parameter " << i << " has an unexpected in-type " << p.type;
            }
        } else if (p.In() && !p.Out() && p.pointee == VT_VARIANT) {
            args.push_back(asScriptVariable(UI4(3 + static_cast<ULONG>(i))));
            expectedArrivals.push_back(Describe(*UI4(3 + static_cast<ULONG>(i)).get()));
        } else if (p.In() && p.Out() && p.pointee == VT_UI4) {
            args.push_back(script ? asScriptVariable(I4(0)) : Ref(VT_UI4, &m_handles[i]));
            expectedArrivals.push_back(Describe(*UI4(0).get()));
        } else if (p.Out() && p.pointee == VT_BSTR) {
            args.push_back(script ? asScriptVariable(I4(-1)) : RefBstr(m_strings[i].put()));
            expectedArrivals.push_back(Describe(*Bool(true).get()));
        } else if (p.Out() && p.pointee == VT_I2) {
            args.push_back(script ? asScriptVariable(I4(-1)) : Ref(VT_I2, &m_shorts[i]));
            expectedArrivals.push_back(Describe(*Bool(true).get()));
        } else {
            FAIL() << "parameter " << i << " has unexpected flags " << p.flags << " and type " << p.type;
        }
    }

    // Built in declaration order, handed over reversed.
    std::vector<Variant> reversed(args.rbegin(), args.rend());
    DISPPARAMS params{reinterpret_cast<VARIANT*>(reversed.data()), nullptr, static_cast<UINT>(reversed.size()), 0};
    ComPtr<FakeZelOleDb> fake = FakeZelOleDb::Make();
    Variant result;
    EXCEPINFO excep{};
    UINT argErr = 0;
    ASSERT_EQ(S_OK, zel::ZelOleDbInvoke(fake.get(), entry.dispid, &params, result.put(), &excep, &argErr))
        << "argument " << argErr;

    ASSERT_EQ(1u, fake->calls.size());
    const RecordedCall& call = fake->calls.front();
    EXPECT_EQ(std::string(entry.name, entry.name + wcslen(entry.name)), call.method);
    ASSERT_EQ(expectedArrivals.size(), call.args.size());
    for (size_t i = 0; i < call.args.size(); ++i)
        EXPECT_EQ(expectedArrivals[i], Describe(*call.args[i].get())) << "parameter " << i;

    // Outputs, back in the caller's variables or typed locations.
    for (size_t i = 0; i < declared.params.size(); ++i) {
        const DeclaredParam& p = declared.params[i];
        if (!p.Out() || p.Retval()) continue;
        if (p.pointee == VT_BSTR) {
            if (script) {
                EXPECT_EQ(Describe(*Str(OutTextAt(i).c_str()).get()), Describe(*m_variables[i].get())) << i;
            } else {
                EXPECT_EQ(OutTextAt(i), m_strings[i].str()) << i;
            }
        } else if (p.pointee == VT_I2) {
            if (script) {
                EXPECT_EQ(Describe(*I2(OutShortAt(i)).get()), Describe(*m_variables[i].get())) << i;
            } else {
                EXPECT_EQ(OutShortAt(i), m_shorts[i]) << i;
            }
        } else if (p.pointee == VT_UI4) {
            if (script) {
                EXPECT_EQ(Describe(*I4(static_cast<LONG>(kIssuedHandle)).get()), Describe(*m_variables[i].get()));
            } else {
                EXPECT_EQ(kIssuedHandle, m_handles[i]);
            }
        }
    }

    // The return value with its declared automation type (unsigned 32-bit as VT_I4).
    if (!retval) {
        EXPECT_EQ(VT_EMPTY, result.vt());
        return;
    }
    Variant expected;
    switch (retval->pointee) {
        case VT_BOOL: expected = Bool(kResultBool == VARIANT_TRUE); break;
        case VT_I2: expected = I2(kResultShort); break;
        case VT_I4: expected = I4(kResultLong); break;
        case VT_UI4: expected = I4(static_cast<LONG>(kResultULong)); break;
        case VT_UI8: expected = UI8(kResultUInt64); break;
        case VT_I8:
            V_VT(expected.get()) = VT_I8;
            V_I8(expected.get()) = kResultInt64;
            break;
        case VT_BSTR: expected = Str(kResultText); break;
        case VT_VARIANT: expected = I4(kResultVariantI4); break;
        default: FAIL() << "unexpected return type " << retval->pointee;
    }
    EXPECT_EQ(Describe(*expected.get()), Describe(*result.get()));
}

INSTANTIATE_TEST_SUITE_P(
    IZelOleDb, EveryMethodTest,
    testing::Combine(testing::Range(0, static_cast<int>(std::size(kZelOleDbMethods))),
                     testing::Values(Style::Typed, Style::Script)),
    [](const testing::TestParamInfo<EveryMethodTest::ParamType>& info) {
        const wchar_t* name = kZelOleDbMethods[std::get<0>(info.param)].name;
        return std::string(name, name + wcslen(name)) +
               (std::get<1>(info.param) == Style::Script ? "_ScriptStyle" : "_Typed");
    });

TEST(EveryMethodCoverage, TheMethodTableHas86Methods) { EXPECT_EQ(86u, std::size(kZelOleDbMethods)); }
