// The Windows Update Agent's objects as a pass uses them: the update agent
// stand-in on the simulated machine and, under Wine, the same stand-in in
// KPMStandins.dll behind the agent's ProgIDs.
#include <functional>
#include <string>

#include "contract_env.h"
#include "platform/host.h"
#include "standins/update_agent.h"

namespace {

using contract::errorOf;
using platform::Object;

constexpr const char* kCatalog = R"xml(<?xml version="1.0" encoding="UTF-8"?>
<updates>
  <!-- a bundle whose bundled update is a bundle too -->
  <update id="0a000000-0000-4000-8000-000000000001" revision="201" installed="0" deployed="2026-10-14"
          title="Security Update for Windows 7 (KB5031354)">
    <kb>5031354</kb>
    <category type="UpdateClassification" name="Security Updates"/>
    <category type="Product" name="Windows 7"/>
    <update id="0a000000-0000-4000-8000-000000000002" deployed="2026-10-13" title="Bundled">
      <content url="http://download.windowsupdate.com/d/windows6.1-kb5031354-x64.msu"/>
      <update id="0a000000-0000-4000-8000-000000000003" revision="7" deployed="2026-10-12" title="Sub-bundled">
        <content url="http://download.windowsupdate.com/d/a.cab"/>
        <content url="http://download.windowsupdate.com/d/b.psf"/>
      </update>
    </update>
  </update>
  <update id="0a000000-0000-4000-8000-000000000004" revision="3" installed="1" deployed="2026-09-01T10:30:00"
          title="Installed &amp; done"><kb>111</kb></update>
  <update id="0a000000-0000-4000-8000-000000000005" deployed="2026-01-05" title="Plain">
    <kb>222</kb><kb> 333 </kb>
    <category type="UpdateClassification" name="Critical Updates"/>
    <content url="http://download.windowsupdate.com/d/plain"/>
  </update>
</updates>
)xml";

// One line per update, its bundled updates below it, indented.
void dump(Object u, std::string& out, int depth = 0) {
    Object id = u.obj("Identity");
    out += std::string(depth * 2, ' ') + id.get("UpdateID").toString().substr(33) + "." +
           id.get("RevisionNumber").toString() + " " + u.get("Title").toString() + " | " +
           u.get("IsInstalled").toString() + " " + u.get("LastDeploymentChangeTime").toString() + " |";
    for (Object kb = u.obj("KBArticleIDs"); auto i : {0, 1, 2})
        if (i < kb.get("Count").toLong()) out += " KB" + kb.get("Item", i).toString();
    out += " |";
    Object cats = u.obj("Categories");
    for (long i = 0; i < cats.get("Count").toLong(); ++i)
        out += " " + cats.obj("Item", i).get("Type").toString() + ":" + cats.obj("Item", i).get("Name").toString();
    out += " |";
    Object contents = u.obj("DownloadContents");
    for (long i = 0; i < contents.get("Count").toLong(); ++i) {
        std::string url = contents.obj("Item", i).get("DownloadURL").toString();
        out += " " + url.substr(url.find_last_of('/') + 1);
    }
    out += "\n";
    Object bundled = u.obj("BundledUpdates");
    for (long i = 0; i < bundled.get("Count").toLong(); ++i) dump(bundled.obj("Item", i), out, depth + 1);
}

class UpdateAgent : public contract::ContractTest {
public:  // the cases' actions reach these
    using ContractTest::at;
    platform::Automation& automation() { return host().automation(); }

    // The machine's [WindowsUpdate] settings, the online catalogue among them.
    void configure(const std::string& settings, const std::string& catalog = kCatalog) {
        host().files().writeAll(at("catalog.xml"), catalog);
        env().setNetwork("[WindowsUpdate]\r\nCatalog=" + at("catalog.xml") + "\r\n" + settings);
        reinstallHost();
    }

    Object searcher(const std::string& serviceId = standins::kMicrosoftUpdateServiceId, Object session = {}) {
        if (!session) session = automation().createObject(standins::kUpdateSessionProgId);
        Object s = session.call("CreateUpdateSearcher").toObject();
        s.put("ServerSelection", 3);
        s.put("ServiceID", serviceId);
        return s;
    }

    std::string search(Object s, const std::string& criteria) {
        std::string out;
        Object updates = s.call("Search", criteria).toObject().obj("Updates");
        for (long i = 0; i < updates.get("Count").toLong(); ++i) dump(updates.obj("Item", i), out);
        return out;
    }
};

TEST_F(UpdateAgent, OnlineSearchGivesTheCatalogueWithItsBundles) {
    configure("");
    EXPECT_EQ("001.201 Security Update for Windows 7 (KB5031354) | False 10/14/2026 | KB5031354 |"
              " UpdateClassification:Security Updates Product:Windows 7 |\n"
              "  002.1 Bundled | False 10/13/2026 | | | windows6.1-kb5031354-x64.msu\n"
              "    003.7 Sub-bundled | False 10/12/2026 | | | a.cab b.psf\n"
              "005.1 Plain | False 1/5/2026 | KB222 KB333 | UpdateClassification:Critical Updates | plain\n",
              search(searcher(), "isinstalled=0"));
    EXPECT_EQ("004.3 Installed & done | True 9/1/2026 10:30:00 AM | KB111 | |\n",
              search(searcher(standins::kWindowsUpdateServiceId), " IsInstalled = 1 "));
    EXPECT_EQ("Search isinstalled=0; ServerSelection=3; ServiceID=7971f918-a847-4430-9279-4a52d1efe18d;"
              " Proxy=; UserName=; Password=; Updates=2\r\n"
              "Search  IsInstalled = 1 ; ServerSelection=3; ServiceID=9482f4b4-e343-43b6-b170-9a65bc822c77;"
              " Proxy=; UserName=; Password=; Updates=1\r\n",
              env().standinRecord("update-searches.log"));
}

TEST_F(UpdateAgent, FailuresCarryTheAgentsNumbers) {
    std::string deep = "<updates>";
    for (int i = 0; i <= standins::kMaxBundleDepth; ++i) deep += "<update id='x' deployed='2026-01-01'>";
    for (int i = 0; i <= standins::kMaxBundleDepth; ++i) deep += "</update>";
    deep += "</updates>";
    struct Case {
        const char* what;
        std::string settings, catalog, cab;  // cab: the scan file's text, none when empty
        std::function<void(UpdateAgent&)> action;
        int32_t number;
        const char* says = "";  // a part of the error's description
    } cases[] = {
        {"search error of the machine", "SearchError=0x8024402C\r\n", kCatalog, "",
         [](UpdateAgent& t) { t.searcher().call("Search", "isinstalled=0"); }, static_cast<int32_t>(0x8024402C)},
        {"unreadable setting", "SearchError=soon\r\n", kCatalog, "",
         [](UpdateAgent& t) { t.searcher().call("Search", "isinstalled=0"); }, standins::wuerr::Fail},
        {"criteria it does not know", "", kCatalog, "",
         [](UpdateAgent& t) { t.searcher().call("Search", "IsHidden=0"); }, standins::wuerr::InvalidCriteria},
        {"damaged online catalogue", "", "<updates><update", "",
         [](UpdateAgent& t) { t.searcher().call("Search", "isinstalled=0"); }, standins::wuerr::XmlInvalid},
        {"unknown service", "", kCatalog, "",
         [](UpdateAgent& t) { t.searcher("0a000000-0000-4000-8000-00000000ffff").call("Search", "isinstalled=0"); },
         standins::wuerr::UnknownService},
        {"missing scan file", "", kCatalog, "",
         [](UpdateAgent& t) {
             t.automation().createObject(standins::kUpdateServiceManagerProgId)
                 .call("AddScanPackageService", "Offline Service", t.at("wsusscn2.cab"));
         },
         standins::wuerr::FileNotFound},
        {"scan file that is no catalogue", "", kCatalog, std::string("MSCF\0\0\0\0", 8), nullptr,
         standins::wuerr::InvalidFile},
        {"scan file with an unknown element", "", kCatalog, "<updates><patch/></updates>", nullptr,
         standins::wuerr::InvalidFile, "unknown element <patch>"},
        {"scan file without dates", "", kCatalog, "<updates><update id='x'/></updates>", nullptr,
         standins::wuerr::InvalidFile, "<update id=\"x\"> has no deployed date"},
        {"category type the agent never reports", "", kCatalog,
         "<updates><update id='x' deployed='2026-01-01'><category type='updateclassification' name='x'/>"
         "</update></updates>",
         nullptr, standins::wuerr::InvalidFile, "category type \"updateclassification\""},
        {"bundles nested too deep", "", kCatalog, deep, nullptr, standins::wuerr::InvalidFile, "deeper than 8"},
        {"download of nothing", "", kCatalog, "",
         [](UpdateAgent& t) {
             Object session = t.automation().createObject(standins::kUpdateSessionProgId);
             Object d = session.call("CreateUpdateDownloader").toObject();
             d.put("Updates", t.automation().createObject(standins::kUpdateCollProgId));
             d.call("Download");
         },
         standins::wuerr::NoUpdate},
    };
    for (const auto& c : cases) {
        configure(c.settings, c.catalog);
        std::function<void(UpdateAgent&)> action = c.action;
        if (!c.cab.empty()) {
            host().files().writeAll(at("wsusscn2.cab"), c.cab);
            action = [](UpdateAgent& t) {
                t.automation().createObject(standins::kUpdateServiceManagerProgId)
                    .call("AddScanPackageService", "Offline Service", t.at("wsusscn2.cab"));
            };
        }
        platform::ComError e = errorOf([&] { action(*this); });
        EXPECT_EQ(c.number, e.number()) << c.what;
        EXPECT_NE(std::string::npos, e.description().find(c.says)) << c.what << ": " << e.description();
    }
    EXPECT_NE(std::string::npos, env().standinRecord("update-searches.log").find("; Error=0x8024402C\r\n"));
}

TEST_F(UpdateAgent, OfflineSearchAnswersFromTheScanPackage) {
    // The machine's online trouble does not touch the scan package.
    configure("SearchError=0x8024402C\r\n", "<updates/>");
    host().files().writeAll(at("wsusscn2.cab"), kCatalog);
    Object sm = automation().createObject(standins::kUpdateServiceManagerProgId);
    Object service = sm.call("AddScanPackageService", "Offline Service", at("wsusscn2.cab")).toObject();
    const std::string id = service.get("ServiceID").toString();
    EXPECT_TRUE(standins::isGuidText(id)) << id;
    EXPECT_EQ("True", service.get("IsScanPackageService").toString());
    std::string names;
    Object services = automation().createObject(standins::kUpdateServiceManagerProgId).obj("Services");
    for (long i = 0; i < services.get("Count").toLong(); ++i) {
        Object s = services.obj("Item", i);
        names += s.get("Name").toString() + "=" + s.get("ServiceID").toString() + ";";
    }
    EXPECT_EQ("Windows Update=" + std::string(standins::kWindowsUpdateServiceId) + ";Offline Service=" + id + ";",
              names);
    EXPECT_EQ("004.3 Installed & done | True 9/1/2026 10:30:00 AM | KB111 | |\n",
              search(searcher(id), "isinstalled=1"));
}

TEST_F(UpdateAgent, CollectionDownloaderProxyAndAgentInfo) {
    configure("AgentVersion=7.6.7601.19161\r\n");
    Object session = automation().createObject(standins::kUpdateSessionProgId);
    Object proxy = automation().createByClsid(standins::kWebProxyClsid);
    proxy.put("Address", "proxy.lan:8080");
    proxy.put("UserName", "bob");
    proxy.call("SetPassword", "s3cret");
    session.put("WebProxy", proxy);
    Object updates =
        searcher(standins::kMicrosoftUpdateServiceId, session).call("Search", "isinstalled=0").toObject().obj("Updates");

    Object coll = automation().createObject(standins::kUpdateCollProgId);
    EXPECT_EQ(0, coll.call("Add", updates.get("Item", 1)).toLong());
    coll.call("Clear");
    EXPECT_EQ(0, coll.call("Add", updates.get("Item", 0)).toLong());
    EXPECT_EQ(1, coll.get("Count").toLong());
    EXPECT_EQ(standins::wuerr::InvalidIndex, errorOf([&] { coll.get("Item", 1); }).number());
    EXPECT_EQ(standins::wuerr::InvalidArg, errorOf([&] { coll.call("Add", "not an update"); }).number());
    EXPECT_EQ(standins::wuerr::NotSupported, errorOf([&] { updates.call("Add", coll); }).number());
    Object downloader = session.call("CreateUpdateDownloader").toObject();
    downloader.put("Updates", coll);
    EXPECT_EQ(2, downloader.call("Download").toObject().get("ResultCode").toLong());
    EXPECT_EQ("Download 0a000000-0000-4000-8000-000000000001.201 Security Update for Windows 7 (KB5031354)\r\n",
              env().standinRecord("update-downloads.log"));
    EXPECT_NE(std::string::npos, env().standinRecord("update-searches.log")
                                     .find("; Proxy=proxy.lan:8080; UserName=bob; Password=s3cret; Updates=2\r\n"));

    Object info = automation().createObject(standins::kAgentInfoProgId);
    EXPECT_EQ("7.6.7601.19161", info.call("GetInfo", "ProductVersionString").toString());
    EXPECT_EQ(standins::wuerr::InvalidArg, errorOf([&] { info.call("GetInfo", "Nothing"); }).number());
}

TEST_F(UpdateAgent, DeploymentDatesReadInTheMachinesLocale) {
    if (env().underWine()) GTEST_SKIP() << "the prefix keeps English (United States)";
    struct Case {
        const char* locale;
        const char* dates;
    } cases[] = {
        {"", "10/14/2026 9/1/2026 10:30:00 AM"},
        {"[Locale]\r\nShortDate=dd.MM.yyyy\r\nLongTime=HH:mm:ss\r\n", "14.10.2026 01.09.2026 10:30:00"},
        {"[Locale]\r\nShortDate=dd/MM/yyyy\r\n", "14/10/2026 01/09/2026 10:30:00 AM"},
    };
    for (const auto& c : cases) {
        configure(std::string("AgentVersion=1\r\n") + c.locale);
        std::string text = searcher().call("Search", "isinstalled=0").toObject().obj("Updates").obj("Item", 0)
                               .get("LastDeploymentChangeTime").toString() + " " +
                           searcher().call("Search", "isinstalled=1").toObject().obj("Updates").obj("Item", 0)
                               .get("LastDeploymentChangeTime").toString();
        EXPECT_EQ(c.dates, text) << c.locale;
    }
}

}  // namespace
