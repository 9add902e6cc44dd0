// The registry: result codes, value types and bytes, the two views, key creation.
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

TEST_F(Registry, NamesOfValuesAndKeysIgnoreCase) {
    auto key = create(Hive::CurrentUser, env().keyPath() + "\\Sub");
    ASSERT_TRUE(key);
    ASSERT_EQ(regerr::Success, key->setValue("InstallationPath", RegValue::string("X")));
    std::unique_ptr<RegKey> k;
    ASSERT_EQ(regerr::Success, open(Hive::CurrentUser, env().keyPath() + "\\SUB", RegView::Default, k));
    RegValue got;
    EXPECT_EQ(regerr::Success, k->queryValue("installationpath", got));
    EXPECT_EQ(RegValue::string("X").data, got.data);
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

TEST_F(Registry, CreateKeyMakesEveryMissingLevelAndOpensAnExistingKey) {
    const std::string deep = env().keyPath() + "\\a\\b\\c";
    auto first = create(Hive::CurrentUser, deep);
    ASSERT_TRUE(first);
    ASSERT_EQ(regerr::Success, first->setValue("v", RegValue::dword(7)));
    auto again = create(Hive::CurrentUser, deep);  // opens, keeps the values
    ASSERT_TRUE(again);
    RegValue got;
    EXPECT_EQ(regerr::Success, again->queryValue("v", got));
    EXPECT_EQ(RegValue::dword(7).data, got.data);
    std::unique_ptr<RegKey> middle;
    EXPECT_EQ(regerr::Success, open(Hive::CurrentUser, env().keyPath() + "\\a\\b", RegView::Default, middle));
}

TEST_F(Registry, CreateSubKeyCreatesBelowTheOpenKey) {
    auto key = create(Hive::CurrentUser, env().keyPath());
    ASSERT_TRUE(key);
    std::unique_ptr<RegKey> sub;
    ASSERT_EQ(regerr::Success, key->createSubKey("Auto Update\\Inner", sub));
    ASSERT_TRUE(sub);
    ASSERT_EQ(regerr::Success, sub->setValue("AUOptions", RegValue::dword(4)));
    std::unique_ptr<RegKey> k;
    ASSERT_EQ(regerr::Success,
              open(Hive::CurrentUser, env().keyPath() + "\\Auto Update\\Inner", RegView::Default, k));
    RegValue got;
    EXPECT_EQ(regerr::Success, k->queryValue("AUOptions", got));
    EXPECT_EQ(regtype::Dword, got.type);
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

TEST_F(Registry, CurrentUserSoftwareIsOneKeyInBothViews) {
    auto key = create(Hive::CurrentUser, env().keyPath());
    ASSERT_TRUE(key);
    ASSERT_EQ(regerr::Success, key->setValue("v", RegValue::string("shared")));
    std::unique_ptr<RegKey> k;
    ASSERT_EQ(regerr::Success, open(Hive::CurrentUser, env().keyPath(), RegView::View64, k));
    RegValue got;
    EXPECT_EQ(regerr::Success, k->queryValue("v", got));
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

}  // namespace
