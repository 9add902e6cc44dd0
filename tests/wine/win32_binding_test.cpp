// The Windows binding's own conversions and error mappings, which the
// contract tests reach only in part: VARIANT types that no stand-in returns,
// EXCEPINFO forms of other servers, creation failures, the cipher library
// without its exports.
#include <windows.h>

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "platform/errors.h"
#include "platform/win32/ansi.h"
#include "platform/win32/bindings.h"
#include "platform/win32/com.h"
#include "platform/win32/handles.h"
#include "platform/win32/win32_host.h"

namespace {

using namespace platform;
using namespace platform::win32;

VARIANT make(VARTYPE vt, const std::function<void(VARIANT&)>& fill) {
    VARIANT v;
    VariantInit(&v);
    v.vt = vt;
    fill(v);
    return v;
}

TEST(Win32Variant, EveryAutomationTypeReadsAsTheProgramsValue) {
    DECIMAL dec{};
    VarDecFromR8(2.75, &dec);
    struct Case {
        const char* what;
        VARIANT v;
        Variant::Type type;
        std::string text;
    };
    Case cases[] = {
        {"I1", make(VT_I1, [](VARIANT& v) { v.cVal = -5; }), Variant::Type::Long, "-5"},
        {"UI1", make(VT_UI1, [](VARIANT& v) { v.bVal = 200; }), Variant::Type::Long, "200"},
        {"I2", make(VT_I2, [](VARIANT& v) { v.iVal = -32768; }), Variant::Type::Long, "-32768"},
        {"UI2", make(VT_UI2, [](VARIANT& v) { v.uiVal = 65535; }), Variant::Type::Long, "65535"},
        {"I4", make(VT_I4, [](VARIANT& v) { v.lVal = -2147483647 - 1; }), Variant::Type::Long, "-2147483648"},
        {"UI4", make(VT_UI4, [](VARIANT& v) { v.ulVal = 4294967295u; }), Variant::Type::Long, "4294967295"},
        {"INT", make(VT_INT, [](VARIANT& v) { v.intVal = 7; }), Variant::Type::Long, "7"},
        {"UINT", make(VT_UINT, [](VARIANT& v) { v.uintVal = 8; }), Variant::Type::Long, "8"},
        {"I8", make(VT_I8, [](VARIANT& v) { v.llVal = 5000000000LL; }), Variant::Type::Long, "5000000000"},
        {"UI8 small", make(VT_UI8, [](VARIANT& v) { v.ullVal = 42; }), Variant::Type::Long, "42"},
        {"UI8 huge", make(VT_UI8, [](VARIANT& v) { v.ullVal = 18446744073709551615ull; }), Variant::Type::Double,
         "1.84467440737096E+19"},
        {"R4", make(VT_R4, [](VARIANT& v) { v.fltVal = 0.5f; }), Variant::Type::Double, "0.5"},
        {"R8", make(VT_R8, [](VARIANT& v) { v.dblVal = -1.25; }), Variant::Type::Double, "-1.25"},
        {"CY", make(VT_CY, [](VARIANT& v) { v.cyVal.int64 = 12345678; }), Variant::Type::Double, "1234.5678"},
        {"DECIMAL", make(VT_DECIMAL, [&](VARIANT& v) { v.decVal = dec; v.vt = VT_DECIMAL; }), Variant::Type::Double, "2.75"},
        {"BOOL true", make(VT_BOOL, [](VARIANT& v) { v.boolVal = VARIANT_TRUE; }), Variant::Type::Bool, "True"},
        {"BOOL false", make(VT_BOOL, [](VARIANT& v) { v.boolVal = VARIANT_FALSE; }), Variant::Type::Bool, "False"},
        {"EMPTY", make(VT_EMPTY, [](VARIANT&) {}), Variant::Type::Empty, ""},
        {"omitted argument", make(VT_ERROR, [](VARIANT& v) { v.scode = DISP_E_PARAMNOTFOUND; }), Variant::Type::Empty, ""},
        {"DATE", make(VT_DATE, [](VARIANT& v) { v.date = 46341.5; }), Variant::Type::Date, "11/15/2026 12:00:00 PM"},
    };
    for (Case& c : cases) {
        Variant got = fromVariant(c.v);
        EXPECT_EQ(c.type, got.type()) << c.what;
        EXPECT_EQ(c.text, got.toString()) << c.what;
        VariantClear(&c.v);
    }
    VARIANT null = make(VT_NULL, [](VARIANT&) {});
    EXPECT_TRUE(fromVariant(null).isNull());
}

TEST(Win32Variant, TextGoesThroughTheAnsiCodePage) {
    const std::string ansi = "caf\xE9";  // é in Windows-1252, the code page here
    ASSERT_EQ(1252u, GetACP());
    UniqueVariant v;
    toVariant(Variant(ansi), *v.get());
    ASSERT_EQ(VT_BSTR, v.get()->vt);
    EXPECT_EQ(std::wstring(L"caf\u00e9"), std::wstring(v.get()->bstrVal, SysStringLen(v.get()->bstrVal)));
    EXPECT_EQ(ansi, fromVariant(*v.get()).toString());
}

TEST(Win32Variant, ByReferenceValuesAreFollowed) {
    LONG n = 41;
    UniqueBstr text = toBstr("by ref");
    BSTR raw = text.get();
    UniqueVariant inner;
    toVariant(Variant(2.5), *inner.get());
    VARIANT refLong = make(VT_BYREF | VT_I4, [&](VARIANT& v) { v.plVal = &n; });
    VARIANT refText = make(VT_BYREF | VT_BSTR, [&](VARIANT& v) { v.pbstrVal = &raw; });
    VARIANT refVariant = make(VT_BYREF | VT_VARIANT, [&](VARIANT& v) { v.pvarVal = inner.get(); });
    EXPECT_EQ(41, fromVariant(refLong).toLong());
    EXPECT_EQ("by ref", fromVariant(refText).toString());
    EXPECT_EQ(2.5, fromVariant(refVariant).toDouble());
}

TEST(Win32Variant, NumbersGoOutAsLongOrEightByteIntegers) {
    struct Case {
        Variant value;
        VARTYPE vt;
    };
    const Case cases[] = {
        {Variant(5), VT_I4},
        {Variant(-2147483647 - 1), VT_I4},
        {Variant(2147483648LL), VT_I8},
    };
    for (const auto& c : cases) {
        UniqueVariant v;
        toVariant(c.value, *v.get());
        EXPECT_EQ(c.vt, v.get()->vt) << c.value.toDouble();
    }
    UniqueVariant t;
    toVariant(Variant(true), *t.get());
    EXPECT_EQ(VARIANT_TRUE, t.get()->boolVal);
}

TEST(Win32Variant, ArraysAreATypeMismatch) {
    SAFEARRAY* sa = SafeArrayCreateVector(VT_VARIANT, 0, 2);
    VARIANT v = make(VT_ARRAY | VT_VARIANT, [&](VARIANT& x) { x.parray = sa; });
    try {
        fromVariant(v);
        ADD_FAILURE() << "no error";
    } catch (const ComError& e) {
        EXPECT_EQ(err::TypeMismatch, e.number());
    }
    VariantClear(&v);
}

TEST(Win32Errors, DispatchFailuresAreTheRuntimesNumbers) {
    struct Case {
        HRESULT hr;
        int32_t number;
    };
    const Case cases[] = {
        {DISP_E_MEMBERNOTFOUND, err::NoSuchMember},
        {DISP_E_UNKNOWNNAME, err::NoSuchMember},
        {DISP_E_BADPARAMCOUNT, err::WrongArgumentCount},
        {DISP_E_TYPEMISMATCH, err::TypeMismatch},
        {DISP_E_OVERFLOW, err::Overflow},
        {DISP_E_PARAMNOTOPTIONAL, 449},
        {static_cast<HRESULT>(0x8007007E), err::ModuleNotFound},
        {static_cast<HRESULT>(0x80070005), static_cast<int32_t>(0x80070005)},
    };
    for (const auto& c : cases) {
        ComError e = errorFromHresult(c.hr);
        EXPECT_EQ(c.number, e.number()) << std::hex << c.hr;
        EXPECT_FALSE(e.description().empty()) << std::hex << c.hr;
    }
    EXPECT_EQ(describeError(err::ModuleNotFound), errorFromHresult(static_cast<HRESULT>(0x8007007E)).description());
    std::string other = errorFromHresult(E_ACCESSDENIED).description();
    EXPECT_EQ("Automation error ", other.substr(0, 17)) << "then the system's text";
    EXPECT_GT(other.size(), 17u);
}

TEST(Win32Errors, CreationFailuresAre429UnlessTheServerFailedToLoad) {
    struct Case {
        HRESULT hr;
        int32_t number;
    };
    const Case cases[] = {
        {REGDB_E_CLASSNOTREG, err::CannotCreateObject},
        {CO_E_CLASSSTRING, err::CannotCreateObject},
        {E_NOINTERFACE, err::CannotCreateObject},
        {static_cast<HRESULT>(0x8007007E), err::ModuleNotFound},
        {static_cast<HRESULT>(0x800700C1), static_cast<int32_t>(0x800700C1)},  // not a valid Win32 application
    };
    for (const auto& c : cases) EXPECT_EQ(c.number, creationError(c.hr).number()) << std::hex << c.hr;
}

HRESULT STDAPICALLTYPE fillLater(EXCEPINFO* ei) {
    ei->bstrDescription = SysAllocString(L"filled in later");
    ei->scode = static_cast<SCODE>(0x80040201);
    return S_OK;
}

TEST(Win32Errors, ExceptionInfoInEachFormServersUse) {
    struct Case {
        const char* what;
        SCODE scode;
        WORD wCode;
        const wchar_t* description;
        int32_t number;
        std::string text;
    };
    const Case cases[] = {
        {"runtime number in FACILITY_CONTROL", static_cast<SCODE>(0x800A0035), 0, L"File not found", 53, "File not found"},
        {"plain HRESULT", static_cast<SCODE>(0x80240024), 0, L"No updates", static_cast<int32_t>(0x80240024), "No updates"},
        {"wCode only", 0, 1001, L"maker error", 1001, "maker error"},
        {"no description: the runtime's", static_cast<SCODE>(0x800A000D), 0, nullptr, 13, "Type mismatch"},
    };
    for (const auto& c : cases) {
        EXCEPINFO ei{};
        ei.scode = c.scode;
        ei.wCode = c.wCode;
        ei.bstrSource = SysAllocString(L"Server.Class");
        ei.bstrDescription = c.description ? SysAllocString(c.description) : nullptr;
        ComError e = errorFromHresult(DISP_E_EXCEPTION, &ei);
        EXPECT_EQ(c.number, e.number()) << c.what;
        EXPECT_EQ("Server.Class", e.source()) << c.what;
        EXPECT_EQ(c.text, e.description()) << c.what;
        EXPECT_EQ(nullptr, ei.bstrSource) << "released";
    }
    EXCEPINFO deferred{};
    deferred.pfnDeferredFillIn = fillLater;
    ComError e = errorFromHresult(DISP_E_EXCEPTION, &deferred);
    EXPECT_EQ(static_cast<int32_t>(0x80040201), e.number());
    EXPECT_EQ("filled in later", e.description());
}

// A registered class whose server DLL is not there. Windows answers
// 0x8007007E (the module could not be found); Wine 8 answers
// REGDB_E_CLASSNOTREG, which reads as 429.
class BrokenClass : public ::testing::Test {
protected:
    void SetUp() override {
        set("KPMWin32Test.Broken\\CLSID", kClsid);
        set(std::string("CLSID\\") + kClsid + "\\InprocServer32", "C:\\KPMWin32Test\\no such server.dll");
    }
    void TearDown() override {
        RegDeleteTreeA(HKEY_CLASSES_ROOT, "KPMWin32Test.Broken");
        RegDeleteTreeA(HKEY_CLASSES_ROOT, (std::string("CLSID\\") + kClsid).c_str());
    }
    static void set(const std::string& key, const std::string& value) {
        UniqueHKey k;
        ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExA(HKEY_CLASSES_ROOT, key.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                                                 nullptr, k.put(), nullptr));
        ASSERT_EQ(ERROR_SUCCESS, RegSetValueExA(k.get(), nullptr, 0, REG_SZ,
                                                reinterpret_cast<const BYTE*>(value.c_str()),
                                                static_cast<DWORD>(value.size() + 1)));
    }
    static constexpr const char* kClsid = "{5B3C1F0E-7A2D-4E8B-9C61-0D4F2A8E6B17}";
};

TEST_F(BrokenClass, AServerThatCannotBeLoadedCannotBeCreated) {
    Win32Host host;
    try {
        host.automation().createObject("KPMWin32Test.Broken");
        ADD_FAILURE() << "created";
    } catch (const ComError& e) {
        if (e.number() != err::ModuleNotFound) {
            EXPECT_EQ(err::CannotCreateObject, e.number()) << std::hex << e.number();
        }
    }
}

TEST(Win32Maker, ALibraryWithoutTheEntryPointIs453) {
    HostOptions options;
    options.cipherLibrary = "KPMStandins.dll";  // loads, but exports no cipher
    Win32Host host(options);
    std::string buffer = "text";
    try {
        host.maker().decryptData(buffer, 4);
        ADD_FAILURE() << "no error";
    } catch (const ComError& e) {
        EXPECT_EQ(453, e.number());
        EXPECT_EQ("Can't find DLL entry point DecryptData in KEncDec", e.description());
    }
}

TEST(Win32Maker, TheLengthNeverReachesPastTheText) {
    Win32Host host;
    std::string buffer = "abc";
    host.maker().encryptData(buffer, 1000);
    EXPECT_EQ(3u, buffer.size());
    host.maker().decryptData(buffer, 1000);
    EXPECT_EQ("abc", buffer);
}

}  // namespace

// The system's A calls would hand the program look-alikes ('/' for a
// full-width solidus, 'A' for 'Ā'); the binding reads these texts wide and
// gives '?', as the simulated machine does.
TEST(Win32Text, RegistryAndFileNamesOutsideTheCodePageAreQuestionMarks) {
    const std::wstring path = L"Software\\KPMWin32Test\\LookAlike";
    HKEY raw = nullptr, sub = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                             &raw, nullptr));
    const wchar_t text[] = L"a\uFF0Fb \u0100 \u00E9";
    RegSetValueExW(raw, L"V", 0, REG_SZ, reinterpret_cast<const BYTE*>(text), sizeof text);
    RegCreateKeyExW(raw, L"\uFF3Cx", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &sub, nullptr);
    RegCloseKey(sub);
    RegCloseKey(raw);
    auto registry = newRegistry();
    std::unique_ptr<RegKey> key;
    ASSERT_EQ(ERROR_SUCCESS, registry->openKey(Hive::CurrentUser, "Software\\KPMWin32Test\\LookAlike", regaccess::Read,
                                               RegView::Default, key));
    RegValue v;
    ASSERT_EQ(ERROR_SUCCESS, key->queryValue("V", v));
    EXPECT_EQ("a?b ? \xE9", v.text());
    std::string name;
    ASSERT_EQ(ERROR_SUCCESS, key->enumSubKey(0, name));
    EXPECT_EQ("?x", name);
    RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\KPMWin32Test");

    char temp[MAX_PATH];
    GetTempPathA(MAX_PATH, temp);
    const std::string folder = std::string(temp) + "kpm-look-alike";
    CreateDirectoryA(folder.c_str(), nullptr);
    UniqueFile file(CreateFileW((toWide(folder) + L"\\a\uFF0Fb.txt").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(file);
    file.reset();
    auto files = newFileSystem();
    EXPECT_EQ(std::vector<std::string>{"a?b.txt"}, files->listFiles(folder));
    files->deleteFolder(folder);  // the entry goes too, though no ANSI name opens it
    EXPECT_FALSE(files->folderExists(folder));
}
