// Late-bound automation: creation by ProgID, values through calls,
// by-reference arguments, errors, collections, WMI's process list and the
// file-system object. KPMContract.Echo is the stand-in test object (natively
// an object of the simulated machine, under Wine a real COM server).
#include <algorithm>
#include <cmath>

#include "contract_env.h"
#include "platform/automation.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "standins/com/echo.h"
#include "standins/update_agent.h"

namespace {

using namespace platform;
using contract::ContractTest;
using contract::errorOf;

class Automation : public ContractTest {
protected:
    Object echo() { return automation().createObject(standins::kEchoProgId); }
};

TEST_F(Automation, AnUnknownProgIdCannotCreateAnObject) {
    ComError e = errorOf([&] { automation().createObject("KPMContract.NoSuchClass"); });
    EXPECT_EQ(err::CannotCreateObject, e.number());
    EXPECT_EQ("ActiveX component can't create object", e.description());
}

TEST_F(Automation, ValuesKeepTheirTypeThroughACall) {
    Object o = echo();
    const std::string ansi = "caf\xE9 \xA3 1\t\"q\"";  // é and £ in the ANSI code page
    struct Case {
        Variant value;
        const char* typeName;
    };
    const Case cases[] = {
        {Variant(), "Empty"},
        {Variant::null(), "Null"},
        {Variant(true), "Boolean"},
        {Variant(false), "Boolean"},
        {Variant(42), "Long"},
        {Variant(-2147483647 - 1), "Long"},
        {Variant(5000000000LL), "Long"},
        {Variant(2.5), "Double"},
        {Variant(Variant::DateTag{46341.6738}), "Date"},
        {Variant(""), "String"},
        {Variant(ansi), "String"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.typeName, o.call("TypeName", c.value).toString()) << c.typeName;
        Variant back = o.call("Identity", c.value);
        ASSERT_EQ(c.value.type(), back.type()) << c.typeName;
        if (c.value.type() == Variant::Type::String || c.value.type() == Variant::Type::Long ||
            c.value.type() == Variant::Type::Bool) {
            EXPECT_EQ(c.value.toString(), back.toString()) << c.typeName;
        }
        if (c.value.type() == Variant::Type::Double || c.value.type() == Variant::Type::Date) {
            EXPECT_DOUBLE_EQ(c.value.toDouble(), back.toDouble()) << c.typeName;
        }
    }
}

TEST_F(Automation, ByReferenceArgumentsComeBackChanged) {
    Object o = echo();
    Variant a = "first", b = "second";
    o.call("Swap", ByRef{&a}, ByRef{&b});
    EXPECT_EQ("second", a.toString());
    EXPECT_EQ("first", b.toString());

    // A text argument is passed as a text variable (BSTR*): what the callee
    // stores arrives as its text.
    Variant text1 = "one", number = 2;
    o.call("Swap", ByRef{&text1}, ByRef{&number});
    EXPECT_EQ("2", text1.toString());
    EXPECT_EQ("one", number.toString());

    Variant text = "C:\\Temp\\";
    EXPECT_EQ(15, o.call("Append", ByRef{&text}, "KPMDwld").toLong());
    EXPECT_EQ("C:\\Temp\\KPMDwld", text.toString());

    Variant empty;  // an uninitialised output argument
    o.call("Append", ByRef{&empty}, "x");
    EXPECT_EQ("x", empty.toString());

    Variant n = 41;
    o.call("Increment", ByRef{&n});
    EXPECT_EQ(42, n.toLong());

    Variant byValue = "unchanged";
    o.call("Append", byValue, "x");  // passed by value: the caller's stays
    EXPECT_EQ("unchanged", byValue.toString());
}

TEST_F(Automation, ErrorsCarryNumberSourceAndDescription) {
    Object o = echo();
    struct Case {
        int32_t number;
        const char* source;
        const char* description;
    };
    const Case cases[] = {
        {53, "KDowFile", "File not found"},
        {13579, "RegOpenKeyEx", "low-level step"},
        {1004, "Maker.Component", "Something went wrong"},
        {65535, "x", "largest runtime number"},
        {static_cast<int32_t>(0x80070005), "WUA", "Access is denied."},
        {static_cast<int32_t>(0x80240024), "WUA", "There are no updates."},
    };
    for (const auto& c : cases) {
        ComError e = errorOf([&] { o.call("Raise", c.number, c.source, c.description); });
        EXPECT_EQ(c.number, e.number()) << c.description;
        EXPECT_EQ(c.source, e.source()) << c.description;
        EXPECT_EQ(c.description, e.description()) << c.description;
    }
}

TEST_F(Automation, UnknownMembersAndWrongArgumentCountsAreTheRuntimesErrors) {
    Object o = echo();
    EXPECT_EQ(err::NoSuchMember, errorOf([&] { o.call("NoSuchMethod"); }).number());
    EXPECT_EQ(err::NoSuchMember, errorOf([&] { o.get("NoSuchProperty"); }).number());
    EXPECT_EQ(err::WrongArgumentCount, errorOf([&] { o.call("Identity", 1, 2); }).number());
    EXPECT_EQ(err::NoSuchMember, errorOf([&] { o.items(); }).number()) << "not a collection";
}

TEST_F(Automation, ArgumentsPropertiesAndObjectsTravelThroughCalls) {
    Object o = echo();
    EXPECT_EQ(0, o.call("ArgCount").toLong());
    EXPECT_EQ(9, o.call("ArgCount", 1, 2, 3, 4, 5, 6, 7, 8, 9).toLong());
    EXPECT_EQ("abc123", o.call("Concat", "a", "b", "c", 1, 2, 3).toString());  // in order

    EXPECT_TRUE(o.get("Value").isEmpty());
    o.put("Value", "stored");
    EXPECT_EQ("stored", o.get("Value").toString());
    o.put("value", 7);
    EXPECT_EQ(7, o.get("VALUE").toLong());

    Object other = echo();
    other.put("Value", "the other one");
    Variant back = o.call("Identity", Variant(other));
    ASSERT_TRUE(back.isObject());
    EXPECT_EQ("the other one", back.toObject().get("Value").toString());
    EXPECT_EQ("Object", o.call("TypeName", Variant(other)).toString());
}

TEST_F(Automation, CollectionsAreEnumeratedAndIndexed) {
    Object items = echo().obj("Items", 3);
    EXPECT_EQ(3, items.get("Count").toLong());
    std::vector<Variant> all = items.items();
    ASSERT_EQ(3u, all.size());
    for (int i = 0; i < 3; ++i) EXPECT_EQ(i + 1, all[i].toLong());
    EXPECT_EQ(2, items.call("Item", 1).toLong());
    EXPECT_TRUE(echo().obj("Items", 0).items().empty());
}

TEST_F(Automation, WmiListsTheRunningExecutable) {
    Object wmi = automation().getObject("winmgmts:");
    ASSERT_TRUE(wmi);
    std::vector<Variant> processes = wmi.call("InstancesOf", "Win32_Process").toObject().items();
    ASSERT_FALSE(processes.empty());
    std::string exe = sys().exePath();
    exe = exe.substr(exe.find_last_of('\\') + 1);
    bool found = false;
    for (const Variant& p : processes) found = found || iequals(p.toObject().get("Caption").toString(), exe);
    EXPECT_TRUE(found) << exe << " among " << processes.size() << " processes";
}

TEST_F(Automation, AnUnknownMonikerIsASyntaxError) {
    int32_t number = errorOf([&] { automation().getObject("kpmnosuchmoniker:x"); }).number();
    // Windows answers MK_E_SYNTAX; Wine 8 looks for a file of that name and
    // answers MK_E_CANTOPENFILE.
    const int32_t wineNumber = static_cast<int32_t>(0x800401EA);
    if (env().underWine() && number == wineNumber) return;
    EXPECT_EQ(err::MonikerNotFound, number);
}

TEST_F(Automation, FileSystemObjectSeesTheFiles) {
    files().writeAll(at("present.txt"), "x");
    Object fso = automation().createObject("Scripting.FileSystemObject");
    struct Case {
        const char* member;
        std::string path;
        bool expected;
    };
    const Case cases[] = {
        {"FileExists", at("present.txt"), true},
        {"FileExists", at("PRESENT.TXT"), true},
        {"FileExists", at("absent.txt"), false},
        {"FileExists", env().folder(), false},
        {"FolderExists", env().folder(), true},
        {"FolderExists", at("present.txt"), false},
    };
    for (const auto& c : cases) {
        Variant r = fso.call(c.member, c.path);
        EXPECT_EQ(Variant::Type::Bool, r.type()) << c.member << " " << c.path;
        EXPECT_EQ(c.expected, r.toBool()) << c.member << " " << c.path;
    }
}

TEST_F(Automation, TheUpdateServiceManagerStandInAddsTheMicrosoftUpdateService) {
    Object m = automation().createObject("Microsoft.Update.ServiceManager");
    m.put("ClientApplicationID", "KPMContract");
    EXPECT_EQ("KPMContract", m.get("ClientApplicationID").toString());
    Object registration = m.call("AddService2", standins::kMicrosoftUpdateServiceId, 7, "").toObject();
    EXPECT_EQ(standins::kMicrosoftUpdateServiceId, registration.get("ServiceID").toString());
    Object service = registration.obj("Service");
    EXPECT_EQ(standins::kMicrosoftUpdateServiceId, service.get("ServiceID").toString());
    EXPECT_EQ(err::NoSuchMember, errorOf([&] { m.call("NoSuchMethod"); }).number());
}

}  // namespace
