// The schedule files into settings and "SchPatch.ini", and the decision of the pass.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/errors.h"
#include "schedule/schedule_settings.h"
#include "schedule_fixture.h"

using kpm::scheduleSettings;
using schedtest::info;

namespace {

const std::string kMsUpd = std::string(kpmtest::kProgramFolder) + "\\MSUpd.xml";

struct Sched {
    std::string type = "1", dates = "", week = "0", days = "1", from = "16:00", to = "17:00";
};
const Sched kIn, kLate{"1", "", "0", "1", "18:00", "19:00"};  // Sunday 16:00 to 17:00, or 18:00 to 19:00

// A schedule element whose children are named freely: only their positions count.
// `count` children; `extra` puts given texts (or whole elements) at given positions.
std::string element(const char* tag, const Sched& s, int count,
                    const std::vector<std::pair<int, std::string>>& extra = {}) {
    std::vector<std::string> kids(static_cast<size_t>(count));
    const std::string values[] = {s.type, s.dates, s.week, s.days, s.from, s.to};
    for (int i = 0; i < count; ++i) {
        std::string name = "k" + std::to_string(i);
        kids[static_cast<size_t>(i)] = "<" + name + ">" + (i < 6 ? values[i] : "") + "</" + name + ">";
    }
    for (const auto& [pos, text] : extra) kids[static_cast<size_t>(pos)] = text;
    std::string out = std::string("<") + tag + ">";
    for (const auto& k : kids) out += k;
    return out + "</" + tag + ">";
}

std::string gw(const std::string& flag) { return "<AlwaysDwnldGateway>" + flag + "</AlwaysDwnldGateway>"; }
const std::string kUnnamedFlag = "<gw>1</gw>";  // at the flag's position, but not found by path

std::string msUpd(const Sched& s, const std::string& upcls, const std::string& gateway = gw("1")) {
    return "<?xml version=\"1.0\"?><patchconfig>" + element("autopatchdeploy", s, 29, {{28, gateway}}) +
           upcls + "</patchconfig>";
}

const std::string kProducts =
    "<upcls name=\"Security Updates\" scope=\"AL\" products=\"Windows 10#@#Office 2016\"/>";

// The section the reader writes to "SchPatch.ini", in its order.
std::string dowSch(const std::string& section, const Sched& s, const std::string& dt) {
    return "[" + section + "]\r\nFTIME=" + s.from + "\r\nToTime=" + s.to + "\r\nScheduleType=" + s.type +
           "\r\nMonthDateValue=" + s.dates + "\r\nMonthWeekValue=" + s.week + "\r\nDT=" + dt + "\r\n";
}

class ScheduleReader : public schedtest::ScheduleFixture {
protected:
    std::vector<std::string> foundAndContent(const std::string& proc, const std::string& name,
                                             const std::string& content) {
        return {info("ModXML", proc, folder + name + " found"), info("ModXML", proc, content)};
    }
};

TEST_F(ScheduleReader, MicrosoftScheduleCases) {
    const std::string notDue = info("ModWebPost", "fncWebPost", "Download is not configured or the time has not come: N");
    const std::string noProduct = info("ModWebPost", "fncWebPost",
                                       "None of the Intended Product configured, Hence skipping the Patch Assessment");
    const Sched& in = kIn;

    struct Case {
        const char* why;
        std::string xml;
        std::string decision, enabled, gateway, scope;
        std::string ini;
        std::vector<std::string> moreLog;  // after the "found" and content entries
    };
    const std::string dt = "2026-11-15", due = dowSch("DowSchTime", in, dt);
    const std::vector<Case> cases = {
        {"not due", msUpd(kLate, kProducts), "N", "0", "", "", dowSch("DowSchTime", kLate, dt), {notDue}},
        // Element text comes without its edge blanks.
        {"type 4 with blanks", msUpd(Sched{" 4 "}, kProducts), "Y", "0", "1", "AL", dowSch("DowSchTime", Sched{"4"}, dt), {}},
        {"upcls without products", msUpd(in, "<upcls a=\"Critical\" b=\"X1\" c=\"\"/><upcls a=\"x\" b=\"X2\" c=\"\"/>"),
         "Y", "0", "1", "X2", due, {noProduct}},
        {"due; the first upcls naming products ends the reader", msUpd(in, "<upcls a=\"x\" b=\"X1\" c=\"\"/>" + kProducts + "<upcls a=\"y\" b=\"X3\" c=\"P\"/>"),
         "Y", "1", "1", "AL", due, {}},
        {"upcls with two attributes ends the reader", msUpd(in, "<upcls a=\"x\" b=\"X1\"/>"), "Y", "1", "1", "X1", due, {}},
        {"empty flag is 0", msUpd(in, kProducts, gw("")), "Y", "1", "0", "AL", due, {}},
        {"flag not found by path", msUpd(in, kProducts, kUnnamedFlag), "Y", "1", "0", "AL", due, {}},
        {"flag element at another position", "<r>" + element("autopatchdeploy", in, 10, {{9, gw("1")}}) + kProducts + "</r>",
         "Y", "1", "", "", due, {}},
        {"only five children", "<r>" + element("autopatchdeploy", in, 5) + kProducts + "</r>", "", "", "", "",
         "[DowSchTime]\r\nFTIME=16:00\r\n", {}},
        {"a single child", "<r><autopatchdeploy><k0>1</k0></autopatchdeploy>" + kProducts + "</r>", "", "", "", "", "", {}},
        {"truncated document", msUpd(in, kProducts).substr(0, 120), "", "", "", "", "", {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        machine.removeFile(schedtest::kSchPatch);
        machine.writeFile(kMsUpd, c.xml);
        open("2026-11-15T16:10:00");

        kpm::subReadXMLForSchedule();
        EXPECT_EQ(scheduleSettings.MsScheduleDecision, c.decision);
        EXPECT_EQ(scheduleSettings.PatchDownloadEnabled, c.enabled);
        EXPECT_EQ(scheduleSettings.AlwaysDownloadViaGateway, c.gateway);
        EXPECT_EQ(scheduleSettings.UpclsScope, c.scope);
        EXPECT_EQ(schPatch(), c.ini);
        auto expected = foundAndContent("subReadXMLForSchedule", "\\MSUpd.xml", c.xml);
        expected.insert(expected.end(), c.moreLog.begin(), c.moreLog.end());
        EXPECT_EQ(newLog(), expected);
        machine.close();
    }
}

TEST_F(ScheduleReader, MicrosoftScheduleSettingsFollowTheElement) {
    Sched s{"2", "5,20", "", "", "22:00", "06:00"};
    machine.writeFile(kMsUpd, msUpd(s, kProducts));
    open("2026-03-05T23:00:00");
    kpm::subReadXMLForSchedule();
    EXPECT_EQ(scheduleSettings.MsScheduleDecision, "Y");
    EXPECT_EQ(schPatch(), dowSch("DowSchTime", s, "2026-3-5"));
    // The evaluation hands its by-reference times back without colons.
    EXPECT_EQ(scheduleSettings.ScheduleFromTime, "2200");
    EXPECT_EQ(scheduleSettings.ScheduleToTime, "0600");
}

TEST_F(ScheduleReader, MicrosoftFileMissingOrEmpty) {
    open("2026-11-15T16:10:00");
    scheduleSettings.PatchDownloadEnabled = "1";
    kpm::subReadXMLForSchedule();
    EXPECT_EQ(newLog(), std::vector<std::string>{info("ModXML", "subReadXMLForSchedule", folder + "\\MSUpd.xml not found")});
    EXPECT_EQ(scheduleSettings.PatchDownloadEnabled, "1");

    // An empty file has no text to log: the reader stops after "found".
    machine.writeFile(kMsUpd, "");
    open("2026-11-15T16:10:00");
    kpm::subReadXMLForSchedule();
    EXPECT_EQ(newLog(), std::vector<std::string>{info("ModXML", "subReadXMLForSchedule", folder + "\\MSUpd.xml found")});
    EXPECT_EQ(schPatch(), "");
}

std::string autosch(const Sched& s, const std::string& vendors, const std::string& gateway = gw("1")) {
    return "<autoconfig>" +
           element("autothirdpatchdeploy", s, 21, {{19, "<SelVendors>" + vendors + "</SelVendors>"}, {20, gateway}}) +
           "</autoconfig>";
}

const std::string kAutosch = std::string(kpmtest::kProgramFolder) + "\\Autosch_15112026.xml";

TEST_F(ScheduleReader, ThirdPartyScheduleDue) {
    struct Case {
        const char* why;
        std::string xml;
        std::string vendors, gateway;
    };
    const Sched& in = kIn;
    for (const Case& c : {Case{"flag set", autosch(in, "Adobe,Mozilla"), "Adobe,Mozilla", "1"},
                          Case{"flag not found by path", autosch(in, "Oracle", kUnnamedFlag), "Oracle", "0"}}) {
        SCOPED_TRACE(c.why);
        machine.removeFile(schedtest::kSchPatch);
        machine.writeFile(kAutosch, c.xml);
        open("2026-11-15T16:10:00");
        scheduleSettings.PatchDownloadEnabled = "0";

        kpm::subReadTPMXMLForSchedule();
        EXPECT_EQ(scheduleSettings.TpScheduleDecision, "Y");
        EXPECT_EQ(scheduleSettings.PatchDownloadEnabled, "1");
        EXPECT_EQ(scheduleSettings.SelectedVendors, c.vendors);
        EXPECT_EQ(scheduleSettings.AlwaysDownloadViaGateway, c.gateway);
        EXPECT_EQ(schPatch(), dowSch("TPDowSchTime", in, "2026-11-15"));
        auto expected = foundAndContent("subReadTPMXMLForSchedule", "\\Autosch_15112026.xml", c.xml);
        expected.push_back(info("ModXML", "subReadTPMXMLForSchedule", "Selected vendors are : " + c.vendors));
        EXPECT_EQ(newLog(), expected);
        machine.close();
    }
}

TEST_F(ScheduleReader, ThirdPartyScheduleNotDueEndsThePassNamingTheMicrosoftDecision) {
    const std::string xml = autosch(kLate, "Adobe");
    machine.writeFile(kAutosch, xml);
    open("2026-11-15T16:10:00");
    scheduleSettings.MsScheduleDecision = "Y";

    EXPECT_THROW(kpm::subReadTPMXMLForSchedule(), platform::ProcessEnd);
    EXPECT_EQ(scheduleSettings.TpScheduleDecision, "N");
    EXPECT_EQ(scheduleSettings.SelectedVendors, "");
    auto log = newLog();
    auto expected = foundAndContent("subReadTPMXMLForSchedule", "\\Autosch_15112026.xml", xml);
    expected.push_back(info("ModWebPost", "fncWebPost", "Download is not configured or the time has not come: Y"));
    ASSERT_GE(log.size(), expected.size() + 1);
    EXPECT_EQ(std::vector<std::string>(log.begin(), log.begin() + static_cast<long>(expected.size())), expected);
    EXPECT_EQ(log.back(), info("ModComman", "CloseAll", "Application stopped."));
    // CloseAll stamps the Microsoft section only: that decision was "Y".
    EXPECT_EQ(schPatch(), dowSch("TPDowSchTime", kLate, "2026-11-15") + "[DowSchTime]\r\nLDwnRDate=11/15/2026 16:10:00\r\n");
}

TEST_F(ScheduleReader, ThirdPartyFileOfAnotherDayIsNotRead) {
    machine.writeFile(std::string(kpmtest::kProgramFolder) + "\\Autosch_14112026.xml", autosch(Sched{}, "Adobe"));
    open("2026-11-15T16:10:00");
    scheduleSettings.PatchDownloadEnabled = "1";
    kpm::subReadTPMXMLForSchedule();
    EXPECT_EQ(scheduleSettings.PatchDownloadEnabled, "");
    EXPECT_EQ(scheduleSettings.TpScheduleDecision, "");
    EXPECT_EQ(newLog(), std::vector<std::string>{info("ModXML", "subReadTPMXMLForSchedule",
                                                      folder + "\\Autosch_15112026.xml found")});
    EXPECT_FALSE(machine.exists(schedtest::kSchPatch));
}

}  // namespace
