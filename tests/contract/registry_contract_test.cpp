// The registry: result codes, value types and bytes, the two views, key creation.
#include <algorithm>
#include <cstring>

#include "contract_env.h"
#include "platform/registry.h"

namespace {

using namespace platform;
using contract::ContractTest;

class Registry : public ContractTest {
protected:
    // HKLM\SOFTWARE\KPMContract\<test> as the program names it (the 32-bit view's).
    std::string hklmPath() const { return "SOFTWARE\\" + keyRest(); }
    // The same key seen from the 64-bit view, where the 32-bit view keeps it.
    std::string hklmPathIn64View() const { return "SOFTWARE\\Wow6432Node\\" + keyRest(); }

    std::unique_ptr<RegKey> create(Hive hive, const std::string& path, RegView view = RegView::Default) {
        std::unique_ptr<RegKey> k;
        EXPECT_EQ(regerr::Success, registry().createKey(hive, path, view, k)) << path;
        return k;
    }
    long open(Hive hive, const std::string& path, RegView view, std::unique_ptr<RegKey>& out,
              uint32_t access = regaccess::Read) {
        return registry().openKey(hive, path, access, view, out);
    }

private:
    std::string keyRest() const {
        const std::string& p = env().keyPath();
        return p.substr(p.find('\\') + 1);
    }
};

RegValue raw(uint32_t type, std::vector<uint8_t> bytes) {
    RegValue v;
    v.type = type;
    v.data = std::move(bytes);
    return v;
}

TEST_F(Registry, ValuesComeBackWithTheirTypeAndExactBytes) {
    struct Case {
        const char* name;
        RegValue value;
    };
    const Case cases[] = {
        {"text", RegValue::string("C:\\Program Files\\VORN\\")},
        {"empty text", RegValue::string("")},
        {"dword", RegValue::dword(0x01020304)},
        {"expand", raw(regtype::ExpandString, {'%', 'T', 'M', 'P', '%', 0})},
        {"binary", raw(regtype::Binary, {0x00, 0xFF, 0x10, 0x80})},
        {"multi", raw(regtype::MultiString, {'a', 0, 'b', 'c', 0, 0})},
        {"qword", raw(regtype::Qword, {1, 2, 3, 4, 5, 6, 7, 8})},
        {"", RegValue::string("the default value")},
    };
    auto key = create(Hive::CurrentUser, env().keyPath());
    ASSERT_TRUE(key);
    for (const auto& c : cases) EXPECT_EQ(regerr::Success, key->setValue(c.name, c.value)) << c.name;

    std::unique_ptr<RegKey> reopened;
    ASSERT_EQ(regerr::Success, open(Hive::CurrentUser, env().keyPath(), RegView::Default, reopened));
    for (const auto& c : cases) {
        RegValue got;
        ASSERT_EQ(regerr::Success, reopened->queryValue(c.name, got)) << c.name;
        EXPECT_EQ(c.value.type, got.type) << c.name;
        EXPECT_EQ(c.value.data, got.data) << c.name;
    }
}

TEST_F(Registry, MissingKeysAndValuesAnswerFileNotFound) {
    std::unique_ptr<RegKey> k;
    EXPECT_EQ(regerr::FileNotFound, open(Hive::CurrentUser, env().keyPath(), RegView::Default, k));
    EXPECT_FALSE(k);
    EXPECT_EQ(regerr::FileNotFound, open(Hive::LocalMachine, hklmPath(), RegView::Default, k));
    EXPECT_EQ(regerr::FileNotFound, open(Hive::LocalMachine, hklmPath(), RegView::View64, k));

    auto key = create(Hive::CurrentUser, env().keyPath());
    ASSERT_TRUE(key);
    RegValue got;
    got.type = regtype::Dword;
    EXPECT_EQ(regerr::FileNotFound, key->queryValue("nothing here", got));
    EXPECT_EQ(regerr::FileNotFound, key->queryValue("", got));  // no default value either
}

// Keys are made at every missing level (below a hive or an open key); an
// existing key is opened with its values; names ignore case; HKCU\Software
// is one key in both views.
TEST_F(Registry, KeysAreMadeAtEveryLevelAndFoundWhateverTheCaseOrView) {
    const std::string top = env().keyPath();
    auto first = create(Hive::CurrentUser, top + "\\a\\b\\c");
    ASSERT_TRUE(first);
    ASSERT_EQ(regerr::Success, first->setValue("InstallationPath", RegValue::dword(7)));
    ASSERT_TRUE(create(Hive::CurrentUser, top + "\\a\\b\\c"));
    std::unique_ptr<RegKey> sub;
    ASSERT_EQ(regerr::Success, first->createSubKey("Auto Update\\Inner", sub));
    ASSERT_TRUE(sub);
    ASSERT_EQ(regerr::Success, sub->setValue("AUOptions", RegValue::dword(4)));
    struct Case {
        std::string path;
        RegView view;
        const char* value;  // null: the key only
        uint32_t data;
    };
    const Case cases[] = {
        {top + "\\a\\b", RegView::Default, nullptr, 0},
        {top + "\\A\\B\\C", RegView::Default, "installationpath", 7},
        {top + "\\a\\b\\c", RegView::View64, "InstallationPath", 7},
        {top + "\\a\\b\\c\\auto update\\INNER", RegView::Default, "AUOptions", 4},
    };
    for (const auto& c : cases) {
        std::unique_ptr<RegKey> k;
        ASSERT_EQ(regerr::Success, open(Hive::CurrentUser, c.path, c.view, k)) << c.path;
        if (!c.value) continue;
        RegValue got;
        EXPECT_EQ(regerr::Success, k->queryValue(c.value, got)) << c.path;
        EXPECT_EQ(regtype::Dword, got.type) << c.path;
        EXPECT_EQ(RegValue::dword(c.data).data, got.data) << c.path;
    }
}

// The program is a 32-bit program: HKLM\SOFTWARE\X in its plain view is
// HKLM\SOFTWARE\Wow6432Node\X in the 64-bit view, and the 64-bit view's own
// SOFTWARE\X is a different key.
TEST_F(Registry, PlainViewOfLocalMachineSoftwareIsThe32BitView) {
    auto key = create(Hive::LocalMachine, hklmPath());
    ASSERT_TRUE(key);
    ASSERT_EQ(regerr::Success, key->setValue("regID", RegValue::string("R32")));

    std::unique_ptr<RegKey> k;
    EXPECT_EQ(regerr::FileNotFound, open(Hive::LocalMachine, hklmPath(), RegView::View64, k))
        << "the 64-bit view has no such key";
    ASSERT_EQ(regerr::Success, open(Hive::LocalMachine, hklmPathIn64View(), RegView::View64, k));
    RegValue got;
    ASSERT_EQ(regerr::Success, k->queryValue("regID", got));
    EXPECT_EQ(RegValue::string("R32").data, got.data);

    auto key64 = create(Hive::LocalMachine, hklmPath(), RegView::View64);
    ASSERT_TRUE(key64);
    ASSERT_EQ(regerr::Success, key64->setValue("regID", RegValue::string("R64")));
    ASSERT_EQ(regerr::Success, open(Hive::LocalMachine, hklmPath(), RegView::Default, k));
    ASSERT_EQ(regerr::Success, k->queryValue("regID", got));
    EXPECT_EQ(RegValue::string("R32").data, got.data) << "each view keeps its own value";
}

// Under HKCR the class registrations have a 32-bit view of their own: what a
// 32-bit regsvr32 writes under CLSID is HKCR\Wow6432Node\CLSID seen from the
// 64-bit view, while a ProgID is one key in both views.
TEST_F(Registry, ClassRegistrationsHaveA32BitViewProgIdsAreShared) {
    const std::string name = contract::classKeyName(env().keyPath());
    auto clsid = create(Hive::ClassesRoot, "CLSID\\" + name + "\\InprocServer32");
    ASSERT_TRUE(clsid);
    ASSERT_EQ(regerr::Success, clsid->setValue("", RegValue::string("C:\\x86\\kWbPost.dll")));
    auto progId = create(Hive::ClassesRoot, name + "\\CLSID");
    ASSERT_TRUE(progId);
    ASSERT_EQ(regerr::Success, progId->setValue("", RegValue::string(name)));

    std::unique_ptr<RegKey> k;
    EXPECT_EQ(regerr::FileNotFound, open(Hive::ClassesRoot, "CLSID\\" + name, RegView::View64, k));
    ASSERT_EQ(regerr::Success,
              open(Hive::ClassesRoot, "Wow6432Node\\CLSID\\" + name + "\\InprocServer32", RegView::View64, k));
    RegValue got;
    ASSERT_EQ(regerr::Success, k->queryValue("", got));
    EXPECT_EQ(RegValue::string("C:\\x86\\kWbPost.dll").data, got.data);
    // Wine (8.0) gives a 64-bit process that asks for the 32-bit view a copy
    // of the whole classes root; a 32-bit process there sees ProgIDs shared,
    // as Windows does. The shipping program is the 32-bit one.
    if (env().underWine() && sizeof(void*) == 8) return;
    ASSERT_EQ(regerr::Success, open(Hive::ClassesRoot, name + "\\CLSID", RegView::View64, k))
        << "a ProgID is shared";
}

TEST_F(Registry, AKeyOpenedForReadingCannotBeWritten) {
    ASSERT_TRUE(create(Hive::CurrentUser, env().keyPath()));
    std::unique_ptr<RegKey> k;
    ASSERT_EQ(regerr::Success,
              open(Hive::CurrentUser, env().keyPath(), RegView::Default, k, regaccess::QueryValue));
    EXPECT_EQ(regerr::AccessDenied, k->setValue("v", RegValue::dword(1)));
    ASSERT_EQ(regerr::Success,
              open(Hive::CurrentUser, env().keyPath(), RegView::Default, k, regaccess::AllAccess));
    EXPECT_EQ(regerr::Success, k->setValue("v", RegValue::dword(1)));
}

// Subkeys are listed by index, ordered by name, until "no more items"; the 32-bit view's key is
// the same whichever of its two names opens it; HKEY_USERS lists the loaded
// user hives (the third-party search walks them).
TEST_F(Registry, SubkeysAreListedByIndexInTheViewThatOpenedTheKey) {
    const std::string top = env().keyPath();
    ASSERT_TRUE(create(Hive::CurrentUser, top + "\\list\\Beta"));
    ASSERT_TRUE(create(Hive::CurrentUser, top + "\\list\\charlie"));
    ASSERT_TRUE(create(Hive::CurrentUser, top + "\\list\\alpha\\deeper"));
    std::unique_ptr<RegKey> k;
    ASSERT_EQ(regerr::Success, open(Hive::CurrentUser, top + "\\list", RegView::Default, k));
    std::vector<std::string> names;
    std::string name;
    uint32_t i = 0;
    for (; k->enumSubKey(i, name) == regerr::Success; ++i) names.push_back(name);
    EXPECT_EQ(regerr::NoMoreItems, k->enumSubKey(i, name));
    // by name whatever the case, not in the order they were made
    EXPECT_EQ((std::vector<std::string>{"alpha", "Beta", "charlie"}), names);

    auto key = create(Hive::LocalMachine, hklmPath() + "\\Only32\\Child");
    ASSERT_TRUE(key);
    for (RegView view : {RegView::Default, RegView::View32}) {
        std::unique_ptr<RegKey> k32;
        ASSERT_EQ(regerr::Success, open(Hive::LocalMachine, hklmPath() + "\\Only32", view, k32));
        ASSERT_EQ(regerr::Success, k32->enumSubKey(0, name));
        EXPECT_EQ("Child", name);
    }
    EXPECT_EQ(regerr::FileNotFound, open(Hive::LocalMachine, hklmPath() + "\\Only32", RegView::View64, k));

    std::unique_ptr<RegKey> users;
    ASSERT_EQ(regerr::Success, open(Hive::Users, "", RegView::Default, users));
    bool any = false;
    for (uint32_t u = 0; users->enumSubKey(u, name) == regerr::Success; ++u) any = true;
    EXPECT_TRUE(any) << "HKEY_USERS lists at least one hive";
}

// Windows 7 and later share some keys below HKLM\\SOFTWARE between the two
// views, SOFTWARE\\Classes among them; the class registrations below it
// (CLSID and its kin) keep a 32-bit view of their own.
TEST_F(Registry, SharedKeysAreOneKeyInBothViews) {
    const std::string rest = hklmPath().substr(std::string("SOFTWARE\\").size());
    const std::string shared = "SOFTWARE\\Classes\\" + rest, clsid = "SOFTWARE\\Classes\\CLSID\\" + rest;
    ASSERT_TRUE(create(Hive::LocalMachine, shared, RegView::View32));
    ASSERT_TRUE(create(Hive::LocalMachine, clsid, RegView::View32));
    std::unique_ptr<RegKey> k;
    // Wine gives a 64-bit process's 32-bit view a SOFTWARE\\Classes of its own
    // (docs/windows-build.md, "Where Wine is not Windows").
    if (!env().underWine()) {
        EXPECT_EQ(regerr::Success, open(Hive::LocalMachine, shared, RegView::View64, k));
        EXPECT_EQ(regerr::FileNotFound, open(Hive::LocalMachine, "SOFTWARE\\Wow6432Node\\Classes\\" + rest, RegView::View64, k));
    }
    EXPECT_EQ(regerr::FileNotFound, open(Hive::LocalMachine, clsid, RegView::View64, k));
    EXPECT_EQ(regerr::Success,
              open(Hive::LocalMachine, "SOFTWARE\\Classes\\Wow6432Node\\CLSID\\" + rest, RegView::View64, k));
}

// A key's name of the registry's longest (255 characters) is listed whole;
// a user hive whose file is not there is not loaded, and a name never
// loaded is not unloaded (the third-party search loads the hives of users
// who are not logged on).
TEST_F(Registry, LongNamesAndUserHivesThatAreNotThere) {
    const std::string longName(255, 'k');
    auto parent = create(Hive::CurrentUser, env().keyPath());
    ASSERT_TRUE(parent);
    std::unique_ptr<RegKey> k;
    ASSERT_EQ(regerr::Success, parent->createSubKey(longName, k));
    ASSERT_EQ(regerr::Success, open(Hive::CurrentUser, env().keyPath(), RegView::Default, k));
    std::string name;
    ASSERT_EQ(regerr::Success, k->enumSubKey(0, name));
    EXPECT_EQ(longName, name);

    const std::string hive = env().folder() + "\\NTUSER.DAT";  // the folder is there, the file is not
    EXPECT_EQ(regerr::FileNotFound, registry().loadUserHive("KPMContract_away", hive));
    EXPECT_EQ(regerr::FileNotFound, open(Hive::Users, "KPMContract_away", RegView::Default, k));
    EXPECT_EQ(regerr::FileNotFound, registry().unloadUserHive("KPMContract_never"));
}

}  // namespace
